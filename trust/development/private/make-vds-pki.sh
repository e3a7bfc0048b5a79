#!/usr/bin/env bash
# Makes the development VDS trust material: the four GOST R 34.10-2012 root
# certificates, the signing-purpose OID, an issuing chain with its negative
# variants, and the revocation lists. Run once; the results are kept in the
# tree so that tests see fixed material. Running it again replaces every file
# (and every signature made with the old keys stops verifying).
#
# Output, relative to trust/development/:
#   roots/<name>.der                 public root certificates compiled into the programs
#   purpose.der                      DER OID required in the signer's extended key usage
#   private/vds/roots/<name>.pem|.key.pem         the roots and their private keys
#   private/vds/signing-ca.pem|.key.pem           intermediate CA under 3520p1
#   private/vds/signer.pem|.key.pem               leaf with the purpose (256-bit key)
#   private/vds/signer-512.pem|.key.pem           leaf with the purpose (512-bit key)
#   private/vds/signer-ec.pem|.key.pem            leaf with the purpose (ECDSA P-256, SHA-256)
#   private/vds/signer-direct.pem|.key.pem        leaf issued directly by root 4823d1
#   private/vds/signer-nopurpose.pem|.key.pem     leaf whose EKU lacks the purpose
#   private/vds/signer-expired.pem|.key.pem       leaf valid only in 2020
#   private/vds/signer-revoked.pem|.key.pem       leaf listed in the CRL of 3520p1
#   private/vds/unknown-root.pem|.key.pem         a root that is not compiled in
#   private/vds/unknown-signer.pem|.key.pem       leaf with the purpose under that root
#   private/vds/crl/<name>.crl.pem                one CRL per root (3520p1 revokes signer-revoked)
#   private/vds/crl/3520p1-second.crl.pem         a second, empty CRL of 3520p1
#   private/vds/crl/unknown-root.crl.pem          a CRL of the unknown root
#   private/vds/tsa.pem|.key.pem                  a time-stamping authority under the signing CA
#                                                 (ECDSA P-256, extended key usage timeStamping)
#   private/vds/signer-lapsed.pem|.key.pem        leaf with the purpose, valid only for the first
#                                                 day of the signing CA: expired, but a timestamp
#                                                 from that day makes its signatures acceptable
#
# `make-vds-pki.sh timestamp` makes only the last two again, under the signing
# CA already there, and leaves every other file as it is.
set -euo pipefail

mode=${1:-all}
if [ "$mode" != all ] && [ "$mode" != timestamp ]; then
    echo "usage: $0 [timestamp]" >&2
    exit 2
fi

here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
set_dir="$(dirname "$here")"
out="$here/vds"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

purpose_oid=1.3.6.1.4.1.59999.10.2.1.1.1
days=36500
eng=(-engine gost)

mkdir -p "$out/roots" "$out/crl" "$set_dir/roots"

quiet() { "$@" >/dev/null 2>"$work/last.err" || { cat "$work/last.err" >&2; return 1; }; }

genkey() {  # genkey <file> <algorithm> <paramset>
    quiet openssl genpkey "${eng[@]}" -algorithm "$2" -pkeyopt "paramset:$3" -out "$1"
}

# A serial of <n> bytes whose first byte is 0x10..0x7f, so its DER length is fixed.
serial() { printf '0x%02x%s' $((16 + RANDOM % 112)) "$(openssl rand -hex $(($1 - 1)))"; }

# Per-CA database for `openssl ca`.
make_ca_db() {  # make_ca_db <name>
    mkdir -p "$work/$1/new"
    : >"$work/$1/index.txt"
    openssl rand -hex 16 >"$work/$1/serial"
    cat >"$work/$1/ca.cnf" <<EOF
[ ca ]
default_ca = ca_default
[ ca_default ]
dir = $work/$1
database = $work/$1/index.txt
serial = $work/$1/serial
new_certs_dir = $work/$1/new
default_md = md_gost12_256
policy = policy_any
unique_subject = no
copy_extensions = none
default_days = $days
default_crl_days = $days
crl_extensions = crl_ext
[ policy_any ]
commonName = supplied
organizationName = optional
organizationalUnitName = optional
[ crl_ext ]
authorityKeyIdentifier = keyid:always,issuer:always
[ sub_ca ]
basicConstraints = critical,CA:TRUE,pathlen:0
keyUsage = critical,keyCertSign,cRLSign
subjectKeyIdentifier = hash
authorityKeyIdentifier = keyid:always
[ signer ]
basicConstraints = critical,CA:FALSE
keyUsage = critical,digitalSignature
extendedKeyUsage = $purpose_oid,codeSigning
subjectKeyIdentifier = hash
authorityKeyIdentifier = keyid:always
[ tsa ]
basicConstraints = critical,CA:FALSE
keyUsage = critical,digitalSignature
extendedKeyUsage = critical,timeStamping
subjectKeyIdentifier = hash
authorityKeyIdentifier = keyid:always
[ signer_nopurpose ]
basicConstraints = critical,CA:FALSE
keyUsage = critical,digitalSignature
extendedKeyUsage = codeSigning
subjectKeyIdentifier = hash
authorityKeyIdentifier = keyid:always
EOF
}

# A self-signed root whose DER size is exactly <size> bytes (0 = any). The
# name appears twice (issuer and subject), so the organization name grows
# by half the difference and an odd byte goes to a longer serial.
make_root() {  # make_root <name> <paramset> <size> <pem> <key>
    local name=$1 paramset=$2 size=$3 pem=$4 key=$5
    local fill="ICT Development Trust Material, Root Certification Authorities of the Checker"
    local pad=0 serial_size=16 der_size
    genkey "$key" gost2012_256 "$paramset"
    for attempt in 1 2; do
        quiet openssl req "${eng[@]}" -new -x509 -key "$key" -md_gost12_256 -days "$days" \
            -set_serial "$(serial $serial_size)" -subj "/CN=ICT Dev Root $name/O=${fill:0:$((15 + pad))}" \
            -addext "basicConstraints=critical,CA:TRUE" \
            -addext "keyUsage=critical,keyCertSign,cRLSign" -out "$pem"
        der_size=$(openssl x509 -in "$pem" -outform DER | wc -c)
        if [ "$size" -eq 0 ] || [ "$der_size" -eq "$size" ]; then
            return 0
        fi
        if [ "$attempt" -eq 1 ]; then
            local diff=$((size - der_size))
            if [ $((diff % 2)) -ne 0 ]; then
                serial_size=17
                diff=$((diff - 1))
            fi
            pad=$((diff / 2))
        fi
    done
    echo "root $name: $der_size bytes instead of $size" >&2
    return 1
}

issue() {  # issue <ca> <ca pem> <ca key> <subject> <extensions> <csr key> <out pem> [ca options...]
    local ca=$1 ca_pem=$2 ca_key=$3 subject=$4 ext=$5 key=$6 pem=$7
    shift 7
    # A CSR is signed with the digest that matches its own key size.
    local md=-md_gost12_256 text
    text=$(openssl pkey "${eng[@]}" -in "$key" -noout -text 2>/dev/null)
    if grep -q '512 bit' <<<"$text"; then
        md=-md_gost12_512
    elif grep -q 'prime256v1' <<<"$text"; then
        md=-sha256
    fi
    quiet openssl req "${eng[@]}" -new -key "$key" "$md" -subj "$subject" -out "$work/req.csr"
    quiet openssl ca "${eng[@]}" -batch -config "$work/$ca/ca.cnf" -cert "$ca_pem" -keyfile "$ca_key" \
        -extensions "$ext" -rand_serial -notext -in "$work/req.csr" -out "$pem" "$@"
}

gencrl() {  # gencrl <ca> <ca pem> <ca key> <out>
    quiet openssl ca "${eng[@]}" -batch -config "$work/$1/ca.cnf" -cert "$2" -keyfile "$3" \
        -gencrl -out "$4"
}

ca_pem=$out/signing-ca.pem
ca_key=$out/signing-ca.key.pem

# Validity is counted from the signing CA's own start.
make_timestamp_material() {
    local ca_start start
    ca_start=$(openssl x509 -in "$ca_pem" -noout -startdate | cut -d= -f2)
    stamp() { date -u -d "$1" +%Y%m%d%H%M%SZ; }
    start=$(stamp "$ca_start")
    quiet openssl genpkey -algorithm EC -pkeyopt ec_paramgen_curve:P-256 -out "$out/tsa.key.pem"
    issue signing-ca "$ca_pem" "$ca_key" "/CN=ICT Dev Time-Stamping Authority/O=ICT Development" \
        tsa "$out/tsa.key.pem" "$out/tsa.pem" -startdate "$start" \
        -enddate "$(stamp "$ca_start + $days days")"
    genkey "$out/signer-lapsed.key.pem" gost2012_256 A
    issue signing-ca "$ca_pem" "$ca_key" "/CN=ICT Dev VDS Signer Lapsed/O=ICT Development" signer \
        "$out/signer-lapsed.key.pem" "$out/signer-lapsed.pem" -startdate "$start" \
        -enddate "$(stamp "$ca_start + 1 day")"
}

if [ "$mode" = timestamp ]; then
    make_ca_db signing-ca
    make_timestamp_material
    exit 0
fi

# Roots, sized like the deployment's certificates.
declare -A root_size=([3520p1]=470 [3020d1]=471 [4820d1]=481 [4823d1]=471)
declare -A root_paramset=([3520p1]=A [3020d1]=B [4820d1]=C [4823d1]=A)
for name in 3520p1 3020d1 4820d1 4823d1; do
    make_root "$name" "${root_paramset[$name]}" "${root_size[$name]}" \
        "$out/roots/$name.pem" "$out/roots/$name.key.pem"
    openssl x509 -in "$out/roots/$name.pem" -outform DER -out "$set_dir/roots/$name.der"
    make_ca_db "$name"
done
make_root unknown A 0 "$out/unknown-root.pem" "$out/unknown-root.key.pem"
make_ca_db unknown

quiet openssl asn1parse -genstr "OID:$purpose_oid" -out "$set_dir/purpose.der"

# The issuing chain under 3520p1.
root_pem=$out/roots/3520p1.pem
root_key=$out/roots/3520p1.key.pem
genkey "$out/signing-ca.key.pem" gost2012_256 A
issue 3520p1 "$root_pem" "$root_key" "/CN=ICT Dev VDS Signing CA/O=ICT Development" sub_ca \
    "$out/signing-ca.key.pem" "$out/signing-ca.pem"
make_ca_db signing-ca

genkey "$out/signer.key.pem" gost2012_256 A
issue signing-ca "$ca_pem" "$ca_key" "/CN=ICT Dev VDS Signer/O=ICT Development" signer \
    "$out/signer.key.pem" "$out/signer.pem"
genkey "$out/signer-512.key.pem" gost2012_512 A
issue signing-ca "$ca_pem" "$ca_key" "/CN=ICT Dev VDS Signer 512/O=ICT Development" signer \
    "$out/signer-512.key.pem" "$out/signer-512.pem"
# An ECDSA leaf under the GOST chain: its signatures use SHA-256.
make_ec_signer() {
    quiet openssl genpkey -algorithm EC -pkeyopt ec_paramgen_curve:P-256 \
        -out "$out/signer-ec.key.pem"
    issue signing-ca "$ca_pem" "$ca_key" "/CN=ICT Dev VDS Signer ECDSA/O=ICT Development" signer \
        "$out/signer-ec.key.pem" "$out/signer-ec.pem"
}
make_ec_signer
genkey "$out/signer-nopurpose.key.pem" gost2012_256 A
issue signing-ca "$ca_pem" "$ca_key" "/CN=ICT Dev VDS Signer Without Purpose/O=ICT Development" \
    signer_nopurpose "$out/signer-nopurpose.key.pem" "$out/signer-nopurpose.pem"
genkey "$out/signer-expired.key.pem" gost2012_256 A
issue signing-ca "$ca_pem" "$ca_key" "/CN=ICT Dev VDS Signer Expired/O=ICT Development" signer \
    "$out/signer-expired.key.pem" "$out/signer-expired.pem" \
    -startdate 20200101000000Z -enddate 20210101000000Z
genkey "$out/signer-revoked.key.pem" gost2012_256 A
issue signing-ca "$ca_pem" "$ca_key" "/CN=ICT Dev VDS Signer Revoked/O=ICT Development" signer \
    "$out/signer-revoked.key.pem" "$out/signer-revoked.pem"
genkey "$out/signer-direct.key.pem" gost2012_256 B
issue 4823d1 "$out/roots/4823d1.pem" "$out/roots/4823d1.key.pem" \
    "/CN=ICT Dev VDS Signer Direct/O=ICT Development" signer \
    "$out/signer-direct.key.pem" "$out/signer-direct.pem"
genkey "$out/unknown-signer.key.pem" gost2012_256 A
issue unknown "$out/unknown-root.pem" "$out/unknown-root.key.pem" \
    "/CN=ICT Dev VDS Signer Unknown Root/O=ICT Development" signer \
    "$out/unknown-signer.key.pem" "$out/unknown-signer.pem"

# Revocation: a database covers its root's whole hierarchy, so the root's
# CRL lists the leaf that its intermediate issued.
quiet openssl ca "${eng[@]}" -batch -config "$work/3520p1/ca.cnf" -cert "$root_pem" \
    -keyfile "$root_key" -revoke "$out/signer-revoked.pem" -crl_reason keyCompromise
for name in 3520p1 3020d1 4820d1 4823d1; do
    gencrl "$name" "$out/roots/$name.pem" "$out/roots/$name.key.pem" "$out/crl/$name.crl.pem"
done
make_ca_db 3520p1-second
gencrl 3520p1-second "$root_pem" "$root_key" "$out/crl/3520p1-second.crl.pem"
gencrl unknown "$out/unknown-root.pem" "$out/unknown-root.key.pem" "$out/crl/unknown-root.crl.pem"

make_timestamp_material

for name in 3520p1 3020d1 4820d1 4823d1; do
    printf '%s %s bytes\n' "$name" "$(wc -c <"$set_dir/roots/$name.der")"
done
