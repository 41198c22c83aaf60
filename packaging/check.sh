#!/usr/bin/env bash
# usage: packaging/check.sh SOURCE SCRATCH. Builds the Debian packages twice, in two places, and compares them byte by
# byte; installs them into a scratch root, builds the examples against it as an outside consumer does, runs the demo
# with what was installed, removes the packages and looks for what they left.
set -euo pipefail

source=$(cd "${1:?usage: packaging/check.sh SOURCE SCRATCH}" && pwd)
mkdir -p "${2:?}"
scratch=$(cd "$2" && pwd)
SOURCE_DATE_EPOCH=$(git -C "$source" log -1 --format=%ct)
export SOURCE_DATE_EPOCH

say() { printf '\n== %s\n' "$1"; }
fail() {
    echo "packages: FAILED: $1"
    exit 1
}

build_packages() {
    rm -rf "$1"
    cp -r "$scratch/source" "$1"
    cmake -S "$1" -B "$1/build" -G Ninja -DCMAKE_INSTALL_PREFIX=/usr -DCMAKE_SKIP_INSTALL_RPATH=ON \
        -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
    cmake --build "$1/build" >/dev/null
    (cd "$1/build" && cpack >/dev/null 2>"$scratch/cpack") || fail "$(cat "$scratch/cpack")"
}

say "two builds in two places"
rm -rf "$scratch/source"
mkdir "$scratch/source"
git -C "$source" archive HEAD | tar -x -C "$scratch/source"
build_packages "$scratch/first"
build_packages "$scratch/and-a-second"
for package in "$scratch"/first/build/packages/*.deb; do
    cmp "$package" "$scratch/and-a-second/build/packages/$(basename "$package")" || fail "the builds differ"
    sha256sum "$package" | sed "s#$scratch/first/build/packages/##"
done

say "installed into a scratch root"
root=$scratch/root
rm -rf "$root"
mkdir -p "$root/var/lib/dpkg/info" "$root/var/lib/dpkg/updates"
touch "$root/var/lib/dpkg/status"
# Their dependencies are the machine's own, which the scratch root's records do not know.
names=()
for package in "$scratch"/first/build/packages/*.deb; do names+=("$(dpkg-deb -f "$package" Package)"); done
# The packages' scripts run here, with the loader's cache that of the scratch root.
mkdir -p "$scratch/sbin" "$root/etc"
printf '#!/bin/sh\nexec /sbin/ldconfig -r "%s"\n' "$root" >"$scratch/sbin/ldconfig"
chmod +x "$scratch/sbin/ldconfig"
run_dpkg() {
    PATH=$scratch/sbin:$PATH:/usr/sbin:/sbin dpkg --root="$root" --force-not-root --force-depends \
        --force-script-chrootless --log=/dev/null "$@" >/dev/null 2>"$scratch/dpkg"
}
run_dpkg --install "$scratch"/first/build/packages/*.deb || fail "$(cat "$scratch/dpkg")"
dpkg-query --admindir="$root/var/lib/dpkg" -W -f '  ${Package} ${Version} ${Installed-Size} KiB: ${Depends}\n'

say "the demo, with what was installed"
library=$(dirname "$(find "$root/usr/lib" -name libzema.so)")
mkdir -p "$scratch/bin"
export PKG_CONFIG_PATH=$library/pkgconfig
ln -sf "$root"/usr/bin/* "$scratch/bin/"
read -ra flags < <(pkg-config --cflags --libs zema)
for example in "$source"/examples/*.c; do
    cc -O2 "$example" -o "$scratch/bin/$(basename "$example" .c)" "${flags[@]}" -pthread
done
for example in "$source"/examples/*.cpp; do
    c++ -std=c++20 -O2 "$example" -o "$scratch/bin/$(basename "$example" .cpp)" "${flags[@]}"
done
LD_LIBRARY_PATH=$library "$source/tools/demo.sh" "$scratch/bin" | tail -1

say "removed"
run_dpkg --purge "${names[@]}" || fail "$(cat "$scratch/dpkg")"
find "$root" -type f -not -path "$root/var/lib/dpkg/*" -not -path "$root/etc/ld.so.cache" \
    -not -path "$root/var/cache/ldconfig/*" >"$scratch/left"
[ ! -s "$scratch/left" ] || fail "left behind: $(cat "$scratch/left")"
echo "packages: all checks passed"
