#!/bin/sh
# installed_test.sh SOURCE BUILD FLAGS: programs of others use the library in each way that they can:
# installed, through CMake and through pkg-config; and as a subdirectory of their sources.
set -eu
source=$1
build=$2
flags=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix
export ZELQ_DIR="$work/state"

fail() {
    echo "FAIL: $*" >&2
    exit 1
}

# Runs a command that is expected to work without a word, and shows what it said when it did not.
quietly() {
    "$@" >"$work/log" 2>&1 || { cat "$work/log"; fail "$*"; }
}

# consume PROJECT ARGUMENTS: builds and runs the program of a project.
consume() {
    project=$1
    shift
    quietly cmake -S "$project" -B "$project/build" "$@"
    quietly cmake --build "$project/build" -j 2
    "$project/build/consumer"
}

cmake --install "$build" --prefix "$prefix" >/dev/null
for file in lib/libzelqcood.so lib/libzelqcoob.so lib/libpumwtrac.so lib/libzelqsp1.so include/zelqcood/log.h \
    include/zelqplatform/zostring.h lib/pkgconfig/zelqcood.pc lib/cmake/zelqcood/zelqcoodConfig.cmake bin/zelq \
    share/man/man1/zelq.1 share/man/man3/zelqcood.3 share/bash-completion/completions/zelq; do
    [ -f "$prefix/$file" ] || fail "$file is not installed"
done

for page in "$prefix"/share/man/man*/*; do
    groff -man -ww -z -Tutf8 "$page" 2>"$work/log" && [ ! -s "$work/log" ] || { cat "$work/log"; fail "$page"; }
done

mkdir "$work/found" "$work/inside"
awk '/^```cpp$/ { inside = 1; next } /^```$/ { inside = 0 } inside' "$source/README.md" >"$work/found/main.cpp"
# The manual page's program; roff wants a backslash written as \e.
sed -n '/^\.EX$/,/^\.EE$/p' "$source/docs/zelqcood.3" | sed '/^\./d; s/\\e/\\/g; s/\\-/-/g' >"$work/inside/main.cpp"

cp "$source/tests/install/consumer/CMakeLists.txt" "$work/found"
consume "$work/found" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_CXX_FLAGS="$flags"

# The other width is told apart while CMake looks for the package, not by the linker.
other=-m32
[ -z "$flags" ] || other=-m64
if cmake -S "$work/found" -B "$work/other" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_CXX_FLAGS="$other" >"$work/log" 2>&1 ||
    ! grep -q 'zelqcoodConfig.cmake, version: .*bit)' "$work/log"; then
    cat "$work/log"
    fail "find_package() took libraries of the wrong width"
fi

export PKG_CONFIG_PATH="$prefix/lib/pkgconfig"
# shellcheck disable=SC2046,SC2086  # flags are words
c++ $flags -std=c++17 -Wall -Wextra -Wpedantic -Werror "$work/found/main.cpp" -o "$work/consumer" \
    $(pkg-config --cflags --libs zelqcood)
LD_LIBRARY_PATH="$prefix/lib" "$work/consumer"

# As a subdirectory the library brings itself and nothing else: no tests, no programs, no install
# rules, and no settings that the parent did not make.
cat >"$work/inside/CMakeLists.txt" <<END
cmake_minimum_required(VERSION 3.25)
project(parent LANGUAGES CXX)
enable_testing()
add_subdirectory("$source" zelqcood)
add_executable(consumer main.cpp)
target_link_libraries(consumer PRIVATE zelqcood::zelqcood)
target_compile_options(consumer PRIVATE -Wall -Wextra -Wpedantic -Werror)
install(TARGETS consumer)
foreach(setting CMAKE_BUILD_TYPE CMAKE_CXX_STANDARD CMAKE_CXX_VISIBILITY_PRESET CMAKE_POSITION_INDEPENDENT_CODE
    CMAKE_EXPORT_COMPILE_COMMANDS CMAKE_INSTALL_LIBDIR)
  if(NOT "\${\${setting}}" STREQUAL "")
    message(SEND_ERROR "\${setting} is set to \${\${setting}}")
  endif()
endforeach()
get_directory_property(properties COMPILE_OPTIONS)
get_directory_property(more LINK_OPTIONS)
if(properties OR more)
  message(SEND_ERROR "options of the parent: \${properties} \${more}")
endif()
get_property(folders DIRECTORY "$source" PROPERTY SUBDIRECTORIES)
if(NOT "\${folders}" STREQUAL "$source/platform")
  message(SEND_ERROR "folders that are built: \${folders}")
endif()
END
consume "$work/inside" -DCMAKE_CXX_FLAGS="$flags"
quietly cmake --install "$work/inside/build" --prefix "$work/parent"
installed=$(cd "$work/parent" && find . ! -type d)
[ "$installed" = ./bin/consumer ] || fail "installed by the parent: $installed"
ctest --test-dir "$work/inside/build" -N | grep -q 'Total Tests: 0' || fail "tests in the parent's build"

count=$("$prefix/bin/zelq" log | wc -l)
[ "$count" -ge 3 ] || fail "the installed viewer lists $count records, not 3"
"$prefix/bin/zelq" log show
