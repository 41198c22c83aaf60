#!/usr/bin/env bash
# Runs programs of tests built for 32-bit ARM on a real kernel with the module:
# usage run.sh WORKDIR ARM-BUILDDIR PROGRAM[=FILTER]..., the filter as --gtest_filter has it.
#
# Builds the module against Debian's armmp kernel, boots that kernel in an emulated machine whose file system in memory
# holds the programs, and prints a table of their tests. 0 when all passed and the kernel had nothing to complain of; 75
# when the kernel's packages cannot be had. What is downloaded stays in WORKDIR.
set -euo pipefail

source_dir=$(cd "$(dirname "$0")" && pwd)
mkdir -p "${1:?a work directory is missing}"
work=$(cd "$1" && pwd)
arm=$(cd "${2:?an ARM build directory is missing}" && pwd)
programs=("${@:3}")
cross="arm-linux-gnueabihf-"
sysroot=/usr/arm-linux-gnueabihf/lib
packages=$work/packages
unpacked=$work/unpacked

# apt for another architecture, with lists and cache of its own, so that the machine's stay as they are.
foreign_apt() {
    local tool=$1
    shift
    "$tool" -qq -o APT::Architecture=armhf -o APT::Architectures::=armhf \
        -o APT::Architectures::="$(dpkg --print-architecture)" -o Dir::State::lists="$work/lists" \
        -o Dir::Cache="$work/cache" -o Dir::State::status=/dev/null -o APT::Sandbox::User=root "$@" \
        </dev/null 2>>"$work/apt.log"
}

depends_on() { foreign_apt apt-cache depends "$1" | awk -v name="$2" '$1 == "Depends:" && index($2, name) == 1 { print $2; exit }'; }

# The kernel, its headers and the programs that build a module (those for this machine), and a shell for the other one.
download() {
    local headers kbuild
    rm -rf "$packages"
    mkdir -p "$packages" "$work/lists/partial" "$work/cache/archives/partial"
    foreign_apt apt-get update || true # another repository of the machine need not know the architecture
    headers=$(depends_on linux-headers-armmp linux-headers-)
    [ -n "$headers" ] || return 1
    kbuild=$(depends_on "$headers" linux-kbuild-)
    (cd "$packages" && foreign_apt apt-get download "$headers" "${headers%-armmp}-common" "${headers/headers/image}" \
        "$kbuild:$(dpkg --print-architecture)" busybox-static)
}

unpack() {
    local package headers
    rm -rf "$unpacked"
    mkdir "$unpacked"
    for package in "$packages"/*.deb; do
        dpkg-deb -x "$package" "$unpacked"
    done
    headers=$(echo "$unpacked"/usr/src/linux-headers-*-armmp)
    sed -i "s#/usr/src#$unpacked/usr/src#" "$headers/Makefile"
    ln -s "$headers" "$unpacked/headers"
    ln -s "$(echo "$unpacked"/boot/vmlinuz-*)" "$unpacked/kernel"
    touch "$unpacked/complete"
}

build_module() {
    rm -rf "$work/module"
    mkdir "$work/module"
    cp "$source_dir"/{Makefile,qxpkt.c,qxpkt.h} "$work/module"
    make --no-print-directory -s -C "$unpacked/headers" M="$work/module" ARCH=arm CROSS_COMPILE="$cross" W=1 \
        KCFLAGS=-Werror modules
    "${cross}strip" --strip-debug -o "$work/qxpkt.ko" "$work/module/qxpkt.ko"
}

# copy_with_libraries FILE FOLDER: the file, and what it needs into /lib of the machine.
copy_with_libraries() {
    local name found
    cp "$1" "$root/$2"
    for name in $("${cross}readelf" -d "$1" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p'); do
        [ -e "$root/lib/$name" ] && continue
        found=$(find -L "$arm/lib" "$sysroot" -name "$name" -print -quit)
        [ -n "$found" ] || { echo "kernel: $1 needs $name, which is nowhere"; exit 1; }
        copy_with_libraries "$found" lib
    done
}

build_file_system() {
    local program
    root=$work/root
    rm -rf "$root"
    mkdir -p "$root"/{bin,lib,proc,sys,dev,tmp,programs}
    cp "$unpacked/bin/busybox" "$root/bin"
    cp "$source_dir/init" "$root/init"
    cp "$work/qxpkt.ko" "$root/lib"
    for program in "${programs[@]}"; do
        copy_with_libraries "$arm/bin/${program%%=*}" programs
        echo "${program/=/ }" >>"$root/programs.list"
    done
    find "$root" -type f \( -path '*/lib/*.so*' -o -path '*/programs/*' \) -exec "${cross}strip" --strip-debug {} +
    (cd "$root" && find . | cpio --quiet -o -H newc --owner 0:0 | gzip -1) >"$work/initramfs.gz"
}

boot() {
    timeout 170 qemu-system-arm -M virt -accel tcg -cpu cortex-a15 -m 512 -smp 2 -nographic -no-reboot -nodefaults \
        -serial stdio -nic none -kernel "$unpacked/kernel" -initrd "$work/initramfs.gz" \
        -append "console=ttyAMA0 quiet panic=-1" </dev/null 2>&1 | tr -d '\r' >"$work/console.log"
}

print_table() {
    echo "kernel: $(sed -n 's/^MACHINE //p' "$work/console.log"), with the module qxpkt"
    awk '
        BEGIN { printf "%-26s %-84s %-7s %7s\n", "program", "test", "result", "ms" }
        /^PROGRAM / { program = $2 }
        /^\[       OK \] / { row($4, "ok") }
        /^\[  FAILED  \] .* ms\)$/ { row($4, "FAILED") }
        /^\[  SKIPPED \] .* ms\)$/ { row($4, "skipped") }
        function row(test, result) { printf "%-26s %-84s %-7s %7d\n", program, test, result, substr($(NF - 1), 2) }
    ' "$work/console.log"
}

# A program that has passed none of its tests has not run.
has_run() {
    [ "$1" = kernel-log ] || awk -v name="$1" '
        /^PROGRAM / { current = $2 }
        /^\[       OK \]/ && current == name { passed = 1 }
        END { exit !passed }' "$work/console.log"
}

# The last word of each program, and of the look through the kernel's log.
judge() {
    local name bad=0
    for name in "${programs[@]%%=*}" kernel-log; do
        grep -qx "RESULT $name 0" "$work/console.log" && has_run "$name" && continue
        echo "kernel: $name failed"
        bad=1
    done
    if [ $bad -ne 0 ]; then
        echo "kernel: the machine's console:"
        sed 's/^/  | /' "$work/console.log"
        return 1
    fi
    echo "kernel: all $(grep -c '^\[       OK \]' "$work/console.log") tests passed"
}

if [ ! -e "$unpacked/complete" ]; then
    download || exit 75
    unpack
fi
build_module
build_file_system
ended=0
boot || ended=$?
[ $ended -eq 0 ] || echo "kernel: the machine did not end by itself"
print_table
judge
exit $ended
