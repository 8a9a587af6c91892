#!/bin/sh
# reproducible_test.sh SOURCE ARGUMENTS: builds the libraries twice in one folder with one
# SOURCE_DATE_EPOCH; the two must agree in every bit.
set -eu
source=$1
shift
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export SOURCE_DATE_EPOCH=1700000000

cmake -G Ninja -S "$source" -B "$work/build" -DCMAKE_BUILD_TYPE=Release -DZELQCOOD_TESTS=OFF -DZELQCOOD_TOOLS=OFF \
    -DZELQCOOD_EXAMPLES=OFF "$@" >/dev/null
cmake --build "$work/build" >/dev/null
mkdir "$work/first"
find "$work/build" -name '*.so' -exec cp {} "$work/first" \;
cmake --build "$work/build" --clean-first >/dev/null
for first in "$work"/first/*.so; do
    cmp "$first" "$(find "$work/build" -name "$(basename "$first")")"
done
strings "$work/first/libzelqcood.so" | grep -q 'was built on Nov 14 2023 at 22:13:20@@'
