# What the scripts share: finding the project's root and installing the packages that a step needs.

set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

build_packages=(g++ cmake ninja-build nasm)
demo_packages=(qemu-system-x86 mtools)
bench_packages=(python3 dosfstools exfatprogs ntfs-3g time f3)
release_packages=(g++-mingw-w64-x86-64-posix dpkg-dev gzip)
fuzz_packages=(libgtest-dev clang-14 libclang-rt-14-dev)
test_packages=(
  libgtest-dev dosfstools mtools fdisk gdisk exfatprogs ntfs-3g qemu-system-x86 g++-mingw-w64-x86-64-posix wine64
  clang-format clang-tidy f3 locales
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
