#!/usr/bin/env bash
# Installs the usual tools that bench/compare.sh measures the checker against
# (hashdeep is needed by nothing else, so it stays out of the test lane's list).
# Idempotent: prints nothing when all are there.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
exec bash "$root/scripts/install-deps.sh" coreutils rhash hashdeep openssl libengine-gost-openssl time
