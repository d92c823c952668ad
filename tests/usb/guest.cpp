#include "usb/guest.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

namespace {

const std::string kKernel = std::string(KERNEL_FOLDER) + "/vmlinuz";
// The machine's end has to come in this time.
constexpr const char* kSeconds = "270";

GuestResults ParseResults(const std::string& text) {
  GuestResults results;
  for (std::size_t at = text.find("<<<"); at != std::string::npos; at = text.find("<<<", at)) {
    const std::size_t label = at + 3;
    const std::size_t out = text.find('\n', label) + 1;
    const std::size_t err = text.find("\n---\n", out);
    const std::size_t code = text.find("\n>>>", err);
    if (code == std::string::npos) {
      break;
    }
    RunResult& result = results[text.substr(label, out - 1 - label)];
    result.out = text.substr(out, err - out);
    result.err = text.substr(err + 5, code - err - 5);
    result.exit_code = std::atoi(text.c_str() + code + 4);
    at = code;
  }
  return results;
}

}  // namespace

void Guest::AddImage(const std::string& name, const std::string& image, const std::string& chain) {
  Argue({"-blockdev", "node-name=" + name + "," + chain + image});
}

void Guest::Attach(const std::string& serial, const std::string& image, const std::string& device,
                   const std::string& chain) {
  AddImage(serial, image, chain);
  Add(device + ",id=dev-" + serial + ",drive=" + serial + ",serial=" + serial);
}

GuestResults Guest::Run(const std::string& script) {
  if (!std::filesystem::exists(kKernel)) {
    ADD_FAILURE() << kKernel << " is missing: scripts/test fetches it";
    return {};
  }
  const ScratchFolder folder;
  const std::string initramfs = folder.File("initramfs");
  std::vector<std::string> packing = {"sh", MAKE_INITRAMFS, KERNEL_FOLDER, initramfs};
  packing.insert(packing.end(), programs_.begin(), programs_.end());
  const RunResult made = RunCommand(packing);
  EXPECT_EQ(made.exit_code, 0) << made.err;
  WriteBytes(folder.File("script"), 0, script);
  const std::string monitor = folder.File("monitor");
  std::vector<std::string> command = {
      "timeout", kSeconds, "qemu-system-x86_64", "-nodefaults", "-no-user-config", "-accel", "tcg", "-m", "256",
      "-display", "none", "-no-reboot", "-kernel", kKernel, "-initrd", initramfs, "-append",
      "console=ttyS0 quiet panic=-1 mitigations=off nokaslr random.trust_cpu=on usb_storage.delay_use=0", "-fw_cfg",
      "name=opt/korventix/script,file=" + folder.File("script"),
      // The console, what the script leaves, and a line from the machine to the emulator's own monitor.
      "-serial", "file:" + folder.File("console"), "-serial", "stdio", "-chardev",
      "socket,id=line,server=on,wait=off,path=" + monitor, "-device", "pci-serial,chardev=line", "-chardev",
      "socket,id=monitor,path=" + monitor, "-mon", "chardev=monitor", "-device", "ahci,id=ahci", "-device",
      "qemu-xhci,id=xhci,p2=15,p3=15", "-device", "usb-ehci,id=ehci"};
  command.insert(command.end(), arguments_.begin(), arguments_.end());
  const RunResult run = RunCommand(command);
  const std::string console = ReadBytes(folder.File("console"), 0, std::size_t{1} << 20U);
  EXPECT_EQ(run.exit_code, 0) << run.err << console;
  EXPECT_EQ(console.find("in vain"), std::string::npos) << console;
  return ParseResults(run.out);
}
