#!/usr/bin/env bash
# Builds the checker (release preset) and shows it at work. Each demo is one
# function listed in `demos` below; add a function and list it to extend.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root"

build_dir="$root/build/release"
checker="$build_dir/product/tool/integrity_check_tool/integrity_checker"
manifest_tool="$build_dir/tools/manifest/integrity_manifest"

section() { printf '\n=== %s ===\n' "$*"; }

# expect <exit code> <command> [arguments...]
# Shows and runs the command; stops the demo when it ends with another code.
expect() {
    local wanted=$1
    shift
    printf '$ %s\n' "$*"
    local code=0
    "$@" || code=$?
    printf '(exit code %d)\n' "$code"
    if [[ $code -ne $wanted ]]; then
        printf 'demo.sh: expected exit code %d, got %d\n' "$wanted" "$code" >&2
        exit 1
    fi
}

demo_version() {
    section "Product version"
    expect 0 "$checker" --version
}

demo_help() {
    section "Options"
    expect 0 "$checker" --help
}

# A small installed product with the checker beside its manifest: files under
# a directory group, placeholders, a filtered record and a registry key meant
# for Windows, with hash, value, existence and absence checks.
make_demo_product() {
    local product=$1
    rm -rf "$product"
    mkdir -p "$product/bin" "$product/plugins" "$product/config"
    cp "$checker" "$product/integrity_checker"
    printf 'demo application\n' >"$product/bin/app.exe"
    printf 'demo core library\n' >"$product/bin/core.dll"
    printf 'first plugin\n' >"$product/plugins/p1.dll"
    printf 'second plugin\n' >"$product/plugins/p2.dll"
    printf '[demo]\nmode=full\n' >"$product/config/settings.ini"
    printf 'legacy library\n' >"$product/bin/legacy.dll"
    # The manifest is made by the companion program, from scripts/demo/generation.xml.
    expect 0 "$manifest_tool" generate --config "$root/scripts/demo/generation.xml" \
        --output "$product/integrity_check.xml"
}

demo_product() {
    local demo_dir="$build_dir/demo"
    section "Demo product (manifest beside the program)"
    make_demo_product "$demo_dir/product"
    cat "$demo_dir/product/integrity_check.xml"

    section "Intact product: no arguments, integrity_check.xml beside the program"
    expect 0 "$demo_dir/product/integrity_checker"

    section "The same with --verbose"
    expect 0 "$demo_dir/product/integrity_checker" --verbose

    section "Tampered copy: bin/app.exe changed"
    rm -rf "$demo_dir/tampered"
    cp -a "$demo_dir/product" "$demo_dir/tampered"
    printf 'demo application, patched\n' >"$demo_dir/tampered/bin/app.exe"
    expect 1 "$demo_dir/tampered/integrity_checker"
}

# The demo product's files signed with the development release key (checking
# mode 0 uses the release pair), verified by signature only.
demo_dsvm_signatures() {
    local product="$build_dir/demo/signed"
    local signer="$build_dir/tools/signer/integrity_signer"
    local key="$root/trust/development/private/dsvm/release-1.pem"
    local files=(bin/app.exe bin/core.dll plugins/p1.dll plugins/p2.dll config/settings.ini)
    section "GOST 2012 signatures: the product's files signed with the development release key"
    make_demo_product "$product"
    {
        printf '<Manifest productName="Demo" productVersion="1.0.0.1">\n'
        for file in "${files[@]}"; do
            printf '  <File path="%%ProductRoot%%/%s"><Check type="Exists"/></File>\n' "$file"
        done
        printf '</Manifest>\n'
    } >"$product/signatures.xml"
    cat "$product/signatures.xml"
    expect 0 "$signer" dsvm --key "$key" "${files[@]/#/$product/}"

    section "Signature-only run over the signed files"
    expect 0 "$product/integrity_checker" --signature-only --verbose "$product/signatures.xml"

    section "Signature-only run after one byte of bin/core.dll changed"
    printf 'X' | dd of="$product/bin/core.dll" bs=1 count=1 conv=notrunc status=none
    expect 1 "$product/integrity_checker" --signature-only "$product/signatures.xml"
}

demos=(demo_version demo_help demo_product demo_dsvm_signatures)

section "Dependencies"
bash scripts/install-deps.sh

section "Build (release preset)"
cmake --preset release >/dev/null
cmake --build --preset release --target integrity_checker integrity_signer integrity_manifest

for demo in "${demos[@]}"; do
    "$demo"
done
printf '\ndemo.sh: done\n'
