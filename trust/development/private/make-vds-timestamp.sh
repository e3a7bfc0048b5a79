#!/usr/bin/env bash
# Adds the timestamp material to the development VDS set made by
# make-vds-pki.sh, without touching anything it made (run it after that
# script; running it again replaces only these files):
#   private/vds/tsa.pem|.key.pem            a time-stamping authority under the signing CA
#                                           (ECDSA P-256, extended key usage timeStamping)
#   private/vds/signer-lapsed.pem|.key.pem  leaf with the purpose, valid only for the first
#                                           day of the signing CA: expired, but a timestamp
#                                           from that day makes its signatures acceptable
set -euo pipefail

here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
out="$here/vds"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
eng=(-engine gost)
purpose_oid=1.3.6.1.4.1.59999.10.2.1.1.1

quiet() { "$@" >/dev/null 2>"$work/last.err" || { cat "$work/last.err" >&2; return 1; }; }

mkdir -p "$work/db/new"
: >"$work/db/index.txt"
openssl rand -hex 16 >"$work/db/serial"
cat >"$work/ca.cnf" <<CNF
[ ca ]
default_ca = ca_default
[ ca_default ]
dir = $work/db
database = $work/db/index.txt
new_certs_dir = $work/db/new
serial = $work/db/serial
default_md = md_gost12_256
policy = policy_any
unique_subject = no
copy_extensions = none
[ policy_any ]
commonName = supplied
organizationName = optional
[ tsa ]
basicConstraints = critical,CA:FALSE
keyUsage = critical,digitalSignature
extendedKeyUsage = critical,timeStamping
subjectKeyIdentifier = hash
authorityKeyIdentifier = keyid:always
[ signer ]
basicConstraints = critical,CA:FALSE
keyUsage = critical,digitalSignature
extendedKeyUsage = $purpose_oid,codeSigning
subjectKeyIdentifier = hash
authorityKeyIdentifier = keyid:always
CNF

# Validity is counted from the signing CA's own start.
ca_start=$(openssl x509 -in "$out/signing-ca.pem" -noout -startdate | cut -d= -f2)
stamp() { date -u -d "$1" +%Y%m%d%H%M%SZ; }
start=$(stamp "$ca_start")

issue() {  # issue <subject> <extensions> <key> <pem> <end date> <request digest>
    quiet openssl req "${eng[@]}" -new -key "$3" "$6" -subj "$1" -out "$work/req.csr"
    quiet openssl ca "${eng[@]}" -batch -config "$work/ca.cnf" -cert "$out/signing-ca.pem" \
        -keyfile "$out/signing-ca.key.pem" -extensions "$2" -rand_serial -notext \
        -startdate "$start" -enddate "$5" -in "$work/req.csr" -out "$4"
}

quiet openssl genpkey -algorithm EC -pkeyopt ec_paramgen_curve:P-256 -out "$out/tsa.key.pem"
issue "/CN=ICT Dev Time-Stamping Authority/O=ICT Development" tsa "$out/tsa.key.pem" \
    "$out/tsa.pem" "$(stamp "$ca_start + 36500 days")" -sha256

quiet openssl genpkey "${eng[@]}" -algorithm gost2012_256 -pkeyopt paramset:A \
    -out "$out/signer-lapsed.key.pem"
issue "/CN=ICT Dev VDS Signer Lapsed/O=ICT Development" signer "$out/signer-lapsed.key.pem" \
    "$out/signer-lapsed.pem" "$(stamp "$ca_start + 1 day")" -md_gost12_256
