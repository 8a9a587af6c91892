#!/bin/sh
# library_file_test.sh BUILD HARDENED: what the library files tell the loader and the programs that
# use them: names, needed libraries, exported symbols, module information; and, when HARDENED is 1, how
# they and the viewer are protected.
set -eu
build=$(cd "$1" && pwd)
cd "$(dirname "$0")"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0

fail() {
    echo "FAIL: $*" >&2
    failures=$((failures + 1))
}

for name in zelqcood zelqcoob pumwtrac zelqsp1; do
    file=$(find "$build" -name "lib$name.so" | head -n 1)
    readelf -d "$file" >"$work/dynamic"
    grep -q "soname: \[lib$name.so\]" "$work/dynamic" || fail "soname of $file"
    # Demangled, so that one list serves every width; sanitizers add symbols of their own.
    nm -D -C --defined-only "$file" | sed -E 's/^[0-9a-f]* +[A-Za-z] //' | grep -vE '^(_|__)(asan|ubsan|odr)' |
        LC_ALL=C sort -u >"$work/exported"
    LC_ALL=C sort -u "../exported/$name.txt" >"$work/expected"
    diff -u "$work/expected" "$work/exported" >&2 || fail "exported symbols of $file differ from ../exported/$name.txt"
done

# Signal handlers may be in force, and a ring is mapped, when a program unloads them.
for name in zelqsp1 pumwtrac; do
    readelf -d "$(find "$build" -name "lib$name.so" | head -n 1)" | grep -q 'NODELETE' || fail "lib$name.so can be unloaded"
done

file=$(find "$build" -name libzelqcood.so | head -n 1)
readelf -d "$file" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' >"$work/needed"
for name in zelqsp1 zelqcoob pumwtrac; do
    grep -qx "lib$name.so" "$work/needed" || fail "$file does not need lib$name.so"
done

readelf -p .common_module_info "$file" | sed -n 's/^ *\[ *[0-9a-f]*\]  //p' >"$work/information"
while read -r pattern; do
    grep -qxE "$pattern" "$work/information" || fail "no module information '$pattern'"
done <<END
@@MODULE_INFO_COPYRIGHT_BEGIN@@Copyright .*@@MODULE_INFO_COPYRIGHT_END@@
@@MODULE_INFO_DRIVER_BEGIN@@Unknown@@MODULE_INFO_DRIVER_END@@
@@MODULE_INFO_BUILDDATA_BEGIN@@Module libzelqcood.so was built on [A-Z][a-z]{2} [ 0-9]{2} [0-9]{4} at [0-9:]{8}@@MODULE_INFO_BUILDDATA_END@@
@@MODULE_INFO_BUILDDIR_BEGIN@@/.*@@MODULE_INFO_BUILDDIR_END@@
@@MODULE_INFO_SUMMARY_BEGIN@@Unknown /.*@@MODULE_INFO_SUMMARY_END@@
END
[ "$(wc -l <"$work/information")" -eq 5 ] || fail "module information: not five texts"

if [ "$2" -eq 1 ]; then
    for name in libzelqcood.so libzelqcoob.so libpumwtrac.so libzelqsp1.so zelq; do
        file=$(find "$build" -name "$name" -type f | head -n 1)
        readelf -lW "$file" >"$work/segments"
        grep -q GNU_RELRO "$work/segments" || fail "$name is not relocated read-only"
        grep -q 'GNU_STACK .* RW  *0x' "$work/segments" || fail "the stack of $name is executable"
        readelf -dW "$file" | grep -qw NOW || fail "$name is bound lazily"
        nm -D "$file" >"$work/symbols"
        grep -q __stack_chk_fail "$work/symbols" || fail "$name is without stack protector"
    done
    grep -q '__[a-z]*_chk' "$work/symbols" || fail "zelq is built without _FORTIFY_SOURCE"
fi

[ "$failures" -eq 0 ]
