#!/bin/sh
# make_initramfs.sh KERNEL_FOLDER OUTPUT PROGRAM...: the bench machine's first file system: the kernel's modules, a shell,
# and programs with their libraries.
set -eu
kernel=$1
output=$2
shift 2
root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT

chmod 755 "$root"
mkdir -p "$root/bin" "$root/sbin" "$root/dev" "$root/proc" "$root/sys" "$root/etc"
cp -r "$kernel/lib" "$kernel/bin" "$root/"
cp "$(dirname "$0")/guest_init.sh" "$root/init"
chmod +x "$root/init"
ln -s ../bin/busybox "$root/sbin/modprobe"
printf 'root:x:0:0::/:/bin/sh\nuser:x:1000:1000::/:/bin/sh\n' >"$root/etc/passwd"

# A program, and the libraries that it names by their full paths.
add() {
  cp -L "$1" "$root/bin/"
  ldd "$1" | grep -o '/[^ ]*' | while read -r library; do
    mkdir -p "$root$(dirname "$library")"
    cp -Lu "$library" "$root$library"
  done
}
for program in "$@"; do
  add "$program"
done

(cd "$root" && find . | "$root/bin/busybox" cpio -o -H newc 2>/dev/null) | gzip -1 >"$output"
