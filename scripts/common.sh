# What the scripts share: finding the project's root and installing the packages that a step needs.

set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

build_packages=(g++ cmake ninja-build nasm)
demo_packages=(qemu-system-x86 mtools)
bench_packages=(python3 dosfstools exfatprogs ntfs-3g time f3)
release_packages=(g++-mingw-w64-x86-64-posix dpkg-dev gzip)
fuzz_packages=(libgtest-dev clang-14 libclang-rt-14-dev)
test_packages=(
  libgtest-dev dosfstools mtools fdisk gdisk exfatprogs ntfs-3g qemu-system-x86 g++-mingw-w64-x86-64-posix
  g++-mingw-w64-i686-posix wine64
  clang-format clang-tidy f3 locales strace
)

# install_missing PACKAGE...: installs those packages that the system lacks, as root or through sudo.
install_missing() {
  local missing=() package
  for package in "$@"; do
    dpkg-query -W -f '${Status}' "$package" 2>/dev/null | grep -q ' installed$' || missing+=("$package")
  done
  [ ${#missing[@]} -gt 0 ] || return 0
  local as_root=()
  [ "$(id -u)" -eq 0 ] || as_root=(sudo)
  echo "Installing: ${missing[*]}"
  "${as_root[@]}" apt-get -qq update
  DEBIAN_FRONTEND=noninteractive "${as_root[@]}" apt-get -qq install -y --no-install-recommends "${missing[@]}" >/dev/null
}

# build PRESET [TARGET]: configures and builds quietly; the log is shown when it fails.
build() {
  local log
  log=$(mktemp)
  if ! { cmake --preset "$1" && cmake --build --preset "$1" --target "${2:-all}"; } >"$log" 2>&1; then
    cat "$log"
    rm -f "$log"
    echo "The build of preset $1 failed." >&2
    return 1
  fi
  rm -f "$log"
}

# What the USB bench's kernel loads; what these need comes with them.
kernel_modules=(
  qemu_fw_cfg ahci usb-storage uas sd_mod vfat nls_cp437 nls_ascii ext4 crc32c_generic loop xhci-pci ehci-pci
)

# download_kernel FOLDER: Debian's kernel package and a shell for it, into that folder.
download_kernel() {
  local package
  package=$(apt-cache depends linux-image-amd64 2>/dev/null | sed -n 's/.*Depends: \(linux-image-[0-9].*\)/\1/p' | head -n 1)
  [ -n "$package" ] && (cd "$1" && apt-get -qq download "$package" busybox-static 2>/dev/null)
}

# fetch_kernel: the kernel of the USB bench with its modules and a shell, unpacked under build/kernel and kept there;
# nothing is installed.
fetch_kernel() {
  local folder=build/kernel scratch=build/kernel.new as_root=() package version module
  [ ! -e "$folder/vmlinuz" ] || return 0
  echo "Fetching the kernel of the USB bench"
  rm -rf "$scratch" "$folder"
  mkdir -p "$scratch/all"
  [ "$(id -u)" -eq 0 ] || as_root=(sudo)
  if ! download_kernel "$scratch" && ! { "${as_root[@]}" apt-get -qq update && download_kernel "$scratch"; }; then
    echo "The kernel of the USB bench can't be had: packages linux-image-amd64 and busybox-static." >&2
    return 1
  fi
  for package in "$scratch"/*.deb; do
    dpkg-deb -x "$package" "$scratch/all"
  done
  version=$(ls "$scratch/all/lib/modules")
  local busybox=$scratch/all/bin/busybox from=$scratch/all/lib/modules/$version to=$scratch/kernel/lib/modules/$version
  "$busybox" depmod -b "$scratch/all" "$version"
  mkdir -p "$scratch/kernel/bin" "$to"
  cp "$busybox" "$scratch/kernel/bin/"
  cp "$scratch/all/boot/vmlinuz-$version" "$scratch/kernel/vmlinuz"
  for module in "${kernel_modules[@]}"; do
    grep "/$module\.ko:" "$from/modules.dep" | tr -d : | tr ' ' '\n' | (cd "$from" && xargs cp --parents -ut "$OLDPWD/$to")
  done
  cp "$from/modules.builtin" "$to/"
  "$busybox" depmod -b "$scratch/kernel" "$version"
  mv "$scratch/kernel" "$folder"
  rm -rf "$scratch"
}
