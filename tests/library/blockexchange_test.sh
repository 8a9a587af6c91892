#!/bin/sh
# blockexchange_test.sh SOURCE BUILD: blocks of this build and of the other width's, when that one
# is built beside it, are the same to the last byte, and each build reads them all.
set -eu
source=$1
build=$2
program=$build/tests/blockexchange
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export ZELQ_DIR="$work/state"

"$program" write "$work/own"
"$program" check "$work/own"

parent=$(dirname "$build")
name=$(basename "$build")
case $name in
*i386*) siblings="$(echo "$name" | sed 's/i386/native/') $(echo "$name" | sed 's/-i386//')" ;;
*native*) siblings=$(echo "$name" | sed 's/native/i386/') ;;
*) siblings=$name-i386 ;;
esac
for sibling in $siblings; do
    other=$parent/$sibling/tests/blockexchange
    if [ "$sibling" = "$name" ] || [ ! -x "$other" ]; then
        continue
    fi
    if [ "$source/tests/library/blockexchange.cpp" -nt "$other" ]; then
        echo "$sibling is not up to date: only the build's own blocks are checked"
        exit 0
    fi
    "$other" write "$work/other"
    "$program" check "$work/other"
    "$other" check "$work/own"
    echo "exchanged blocks with $sibling"
    exit 0
done
echo "no build of the other width ($siblings): only the build's own blocks are checked"
