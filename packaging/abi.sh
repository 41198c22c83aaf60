#!/usr/bin/env bash
# usage: packaging/abi.sh check|update. Compares the binary interface of the libraries in build/abi and build/abi-arm
# with the baselines in packaging/abi, or writes these anew.
set -euo pipefail
cd "$(dirname "$0")/.."

# Only what a public header declares and the library exports; neither places nor names of parameters, so that a baseline
# changes when the interface does; identifiers of types from their names, so that it then changes in few lines.
describe() {
    abidw --exported-interfaces-only --drop-private-types --headers-dir include --headers-dir platform/include \
        --no-corpus-path --no-comp-dir-path --no-elf-needed --no-show-locs --no-parameter-names \
        --type-id-style hash --out-file "$2" "$1"
}

# abidiff calls only the loss of a name incompatible (8) and leaves other changes (4) to the reader; of those, nothing but
# an additional name is safe for a host that was built before.
check() {
    local name=$1 baseline=$2 now=$3 status=0
    [ -s "$baseline" ] || { echo "abi: $name: FAILED: there is no $baseline"; return 1; }
    abidiff "$baseline" "$now" || status=$?
    if [ $((status & 3)) -ne 0 ]; then
        echo "abi: $name: FAILED: abidiff could not compare"
        return 1
    elif [ $status -eq 0 ]; then
        echo "abi: $name: unchanged"
    elif abidiff --no-added-syms "$baseline" "$now" >/dev/null; then
        echo "abi: $name: compatible, only names were added; './dev abi --update' takes them into the baseline"
    else
        echo "abi: $name: FAILED: hosts that were built before will break; if that is meant, give the library a new SONAME"
        echo "     and renew the baseline: './dev abi --update'"
        return 1
    fi
}

bad=0
for row in x86-64:build/abi arm:build/abi-arm; do
    for library in libzema libqxplatform; do
        baseline=packaging/abi/$library.${row%%:*}.xml
        now=${row#*:}/$library.xml
        describe "${row#*:}/lib/$library.so" "$now"
        case ${1:-} in
        check) check "$library ${row%%:*}" "$baseline" "$now" || bad=1 ;;
        update) mkdir -p packaging/abi && cp "$now" "$baseline" ;;
        *) echo "usage: packaging/abi.sh check|update" >&2 && exit 2 ;;
        esac
    done
done
exit $bad
