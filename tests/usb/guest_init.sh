#!/bin/busybox sh
# The first process of the bench's machine: brings up the drivers of drives, runs the script that the bench hands over,
# writes what it left to the second serial line, and ends the machine. Scripts use the functions here.
/bin/busybox --install -s /bin
mount -t proc none /proc
mount -t sysfs none /sys
mount -t devtmpfs none /dev
mkdir -p /dev/shm /mnt /results /tmp
for module in qemu_fw_cfg ahci usb-storage uas sd_mod vfat nls_cp437 nls_ascii ext4 loop xhci-pci ehci-pci; do
  modprobe "$module" || echo "no module $module"
done
stty -F /dev/ttyS1 raw -echo
# The emulator's monitor, where there is one, greets and gets that back from a line that still echoes.
monitor=$(ls -d /sys/bus/pci/devices/*/tty/ttyS* 2>/dev/null | sed 's,.*/,/dev/,')
exec 4<>"${monitor:-/dev/null}"
[ -z "$monitor" ] || stty -F "$monitor" raw -echo
echo >&4

# wait_for COMMAND...: until it succeeds; at most 30 s.
wait_for() {
  tries=0
  until "$@" >/dev/null 2>&1; do
    tries=$((tries + 1))
    [ $tries -lt 300 ] || { echo "waited for $* in vain"; return 1; }
    usleep 100000
  done
}

# device SERIAL: the node of the drive with that serial number, of USB or not. drive SERIAL: its number.
device() {
  grep -lsw "$1" /sys/block/sd*/device/../../../../serial /sys/block/sd*/device/vpd_pg80 |
    sed 's,/sys/block/\([^/]*\)/.*,/dev/\1,' | grep .
}
drive() { node=$(device "$1") && echo $(($(printf %d "'${node#/dev/sd}") - 97)); }

# run LABEL COMMAND...: its output, messages and exit code under /results; its input is closed.
run() {
  result=/results/$1
  shift
  "$@" </dev/null >"$result.out" 2>"$result.err"
  echo $? >"$result.code"
}

# on SERIAL LABEL WORD...: the program on that drive.
on() {
  serial=$1
  label=$2
  shift 2
  run "$label" korventix --seed 1 "DRIVE=$(drive "$serial")" "$@"
}

# monitor COMMAND...: has the emulator do something, such as device_del.
monitor() { echo "$*" >&4; }

cd /tmp
. /sys/firmware/qemu_fw_cfg/by_name/opt/korventix/script/raw
for code in /results/*.code; do
  label=$(basename "$code" .code)
  printf '<<<%s\n' "$label"
  cat "/results/$label.out"
  printf '\n---\n'
  cat "/results/$label.err"
  printf '\n>>>'
  cat "$code"
done >/dev/ttyS1
stty -F /dev/ttyS1 >/dev/null  # waits until the line has taken everything
poweroff -f
