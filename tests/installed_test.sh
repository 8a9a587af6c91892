#!/bin/sh
# installed_test.sh SOURCE BUILD FLAGS: installs the build into a folder of its own and builds the
# README's program against that copy, once through CMake and once through pkg-config.
set -eu
source=$1
build=$2
flags=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix
export ZELQ_DIR="$work/state"

cmake --install "$build" --prefix "$prefix" >/dev/null
for file in lib/libzelqcood.so lib/libzelqcoob.so lib/libpumwtrac.so lib/libzelqsp1.so include/zelqcood/log.h \
    include/zelqplatform/zostring.h lib/pkgconfig/zelqcood.pc lib/cmake/zelqcood/zelqcoodConfig.cmake bin/zelq \
    share/man/man1/zelq.1 share/bash-completion/completions/zelq; do
    [ -f "$prefix/$file" ] || { echo "FAIL: $file is not installed" >&2; exit 1; }
done

mkdir "$work/program"
awk '/^```cpp$/ { inside = 1; next } /^```$/ { inside = 0 } inside' "$source/README.md" >"$work/program/main.cpp"
cat >"$work/program/CMakeLists.txt" <<'END'
cmake_minimum_required(VERSION 3.25)
project(consumer LANGUAGES CXX)
find_package(zelqcood 0.1 CONFIG REQUIRED)
add_executable(consumer main.cpp)
target_link_libraries(consumer PRIVATE zelqcood::zelqcood)
END
cmake -S "$work/program" -B "$work/program/build" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_CXX_FLAGS="$flags" \
    >"$work/log" 2>&1 && cmake --build "$work/program/build" >>"$work/log" 2>&1 || { cat "$work/log"; exit 1; }
"$work/program/build/consumer"

export PKG_CONFIG_PATH="$prefix/lib/pkgconfig"
# shellcheck disable=SC2046,SC2086  # flags are words
c++ $flags -std=c++17 -Wall -Wextra -Wpedantic -Werror "$work/program/main.cpp" -o "$work/consumer" \
    $(pkg-config --cflags --libs zelqcood)
LD_LIBRARY_PATH="$prefix/lib" "$work/consumer"

count=$("$prefix/bin/zelq" log | wc -l)
[ "$count" -ge 2 ] || { echo "FAIL: the installed viewer lists $count records, not 2" >&2; exit 1; }
"$prefix/bin/zelq" log show
