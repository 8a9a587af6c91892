#!/bin/sh
# package_test.sh SOURCE: the Debian packages in build/packages are complete, install, serve programs
# of both widths, and leave nothing behind when they are removed.
#
# Installing needs root. It is done in a copy of the system that only this test sees, an overlay over
# the root folder; where that cannot be had, as in many containers, on the system itself.
set -eu
source=$1
packages='lib32zelqcood lib32zelqcood-dev libzelqcood libzelqcood-dev zelqcood-headers zelq'

fail() {
    echo "FAIL: $*" >&2
    exit 1
}

# What a user does, in the folder $work, which holds the packages and a program.
use_packages() {
    trap 'dpkg -P $packages >/dev/null 2>&1 || true' EXIT
    dpkg -i "$work"/*.deb
    # shellcheck disable=SC2086  # one word per package
    dpkg -L $packages | grep 'zelq\|pumwtrac' >"$work/paths"

    export ZELQ_DIR="$work/state"
    for width in 32 64; do
        cmake -S "$work" -B "$work/build$width" -DCMAKE_CXX_FLAGS=-m$width
        cmake --build "$work/build$width"
        "$work/build$width/consumer"
    done
    for folder in /usr/lib32/pkgconfig ''; do
        # shellcheck disable=SC2046  # flags are words
        c++ -std=c++17 "$work/main.cpp" -o "$work/consumer" $(PKG_CONFIG_PATH=$folder pkg-config --cflags --libs zelqcood)
        "$work/consumer"
    done
    readelf -h "$work/build32/consumer" | grep -q ELF32 || fail "no 32-bit program"
    [ "$(zelq log | wc -l)" -ge 4 ] || fail "the viewer shows fewer records than were made"
    for library in zelqcood zelqsp1 zelqcoob pumwtrac; do
        [ "$(ldconfig -p | grep -c "lib$library.so ")" -eq 2 ] || fail "lib$library.so is not known to ldconfig twice"
    done

    # shellcheck disable=SC2086
    dpkg -P $packages
    while read -r path; do
        [ ! -e "$path" ] || fail "$path is left over"
    done <"$work/paths"
    ! ldconfig -p | grep zelq || fail "ldconfig still knows the libraries"
}

if [ "$source" = --use ]; then
    work=$2
    use_packages
    exit 0
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Each file that `cmake --install` installs is in one package, and nothing else is.
for preset in package-native package-i386; do
    DESTDIR="$work/$preset" cmake --install "$source/build/$preset" >/dev/null
    (cd "$work/$preset" && find . ! -type d) | sed '/share\/man/s/$/.gz/' | sort >"$work/installed"
    case $preset in
    *i386) own='lib32zelqcood lib32zelqcood-dev' ;;
    *) own='libzelqcood libzelqcood-dev zelqcood-headers zelq' ;;
    esac
    for package in $own; do
        dpkg-deb --fsys-tarfile "$source/build/packages/$package"_*.deb | tar -t | grep -v '/$'
    done | sort >"$work/packed"
    # The 32-bit build installs the headers as well; the packages take them from the other.
    [ "$preset" = package-native ] || sed -i '/include\|share\/man\|zelqcood-headers/d' "$work/installed"
    diff -u "$work/installed" "$work/packed" || fail "$preset: installed files (-) and packed ones (+) differ"
done
depends=$(dpkg-deb -f "$source"/build/packages/lib32zelqcood_*.deb Depends)
for package in lib32stdc++6 lib32gcc-s1 libc6-i386; do
    case $depends in *"$package ("*) ;; *) fail "lib32zelqcood does not depend on $package: $depends" ;; esac
done

if [ "$(id -u)" -ne 0 ]; then
    echo "SKIPPED: installing the packages needs root; their contents are as they should be"
    exit 0
fi
mkdir "$work/use" "$work/root"
cp "$source"/build/packages/*.deb "$0" "$source/tests/install/consumer/CMakeLists.txt" "$work/use"
awk '/^```cpp$/ { inside = 1; next } /^```$/ { inside = 0 } inside' "$source/README.md" >"$work/use/main.cpp"

# shellcheck disable=SC2016  # expanded inside
private_root='
    mount -t tmpfs tmpfs "$1/root"
    mkdir "$1/root/upper" "$1/root/work" "$1/root/all"
    mount -t overlay overlay -o "lowerdir=/,upperdir=$1/root/upper,workdir=$1/root/work" "$1/root/all"
    mount --rbind /dev "$1/root/all/dev"
    mount -t proc proc "$1/root/all/proc"
    mkdir -p "$1/root/all$1/use"
    mount --bind "$1/use" "$1/root/all$1/use"
    exec chroot "$1/root/all" "$2" "$3" "$4"'
if unshare --mount sh -ec "$private_root" sh "$work" /bin/true x x >"$work/log" 2>&1; then
    set -- unshare --mount sh -ec "$private_root" sh "$work"
    echo "installing in a private copy of the system"
else
    # shellcheck disable=SC2086
    if dpkg -l $packages 2>/dev/null | grep -q '^.i'; then
        echo "SKIPPED: no private copy of the system can be had, and the packages are installed on it"
        exit 0
    fi
    set --
    echo "installing on the system itself"
fi
"$@" "$work/use/package_test.sh" --use "$work/use" >"$work/log" 2>&1 || { cat "$work/log"; exit 1; }
echo "installed, used and removed: $packages"
