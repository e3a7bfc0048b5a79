#!/usr/bin/env bash
# Makes the development DSVM key pairs: two GOST R 34.10-2012 keys per pair
# (a 256-bit and a 512-bit one, so that both key sizes are exercised), plus a
# foreign key that belongs to no pair. Run once; the results are kept in the
# tree so that tests see fixed keys. Running it again replaces every key (and
# every signature made with the old keys stops verifying).
#
# Output, relative to trust/development/:
#   dsvm/<name>.der                  public keys compiled into the programs
#                                    (DER SubjectPublicKeyInfo)
#   private/dsvm/<name>.pem          their private keys (PKCS#8 PEM)
#   private/dsvm/foreign.pem|.der    a key outside both pairs, for negative tests
# with <name> one of release-1 release-2 test-1 test-2.
set -euo pipefail

here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
set_dir="$(dirname "$here")"
private_out="$here/dsvm"
public_out="$set_dir/dsvm"
mkdir -p "$private_out" "$public_out"

# make_key <name> <algorithm> <paramset> <public key folder>
make_key() {
    local name="$1" algorithm="$2" paramset="$3" public_dir="$4"
    openssl genpkey -engine gost -algorithm "$algorithm" -pkeyopt "paramset:$paramset" \
        -out "$private_out/$name.pem" 2>/dev/null
    openssl pkey -engine gost -in "$private_out/$name.pem" -pubout -outform DER \
        -out "$public_dir/$name.der" 2>/dev/null
}

make_key release-1 gost2012_256 A "$public_out"
make_key release-2 gost2012_512 A "$public_out"
make_key test-1 gost2012_256 B "$public_out"
make_key test-2 gost2012_512 B "$public_out"
make_key foreign gost2012_256 A "$private_out"

echo "DSVM keys written to $public_out and $private_out"
