// A machine with emulated USB and other drives, on which the program runs under a real kernel.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "support/run.h"

// What the program says of itself on the serial lines of one start of the machine: the results of `run` and `on` in the
// script, by their labels.
using GuestResults = std::map<std::string, RunResult>;

inline const std::string kStick = "usb-storage,bus=xhci.0,removable=on";
inline const std::string kPlain = "driver=raw,file.driver=file,file.filename=";

class Guest {
 public:
  // An emulated device, with its options.
  void Add(const std::string& device) { arguments_.insert(arguments_.end(), {"-device", device}); }
  // A drive on an image file: `device` is an emulated device with options, and `chain` leads to the image, whose path
  // is put behind it.
  void Attach(const std::string& serial, const std::string& image, const std::string& device = kStick,
              const std::string& chain = kPlain);
  // The image alone, for a device that comes later.
  void AddImage(const std::string& name, const std::string& image, const std::string& chain = kPlain);
  // A program of this system that the script may run, with its libraries.
  void Bring(const std::string& program) { programs_.push_back(program); }
  // Any other arguments of the emulator.
  void Argue(const std::vector<std::string>& arguments) {
    arguments_.insert(arguments_.end(), arguments.begin(), arguments.end());
  }
  // Starts the machine with a shell script (the functions that it may use are in guest_init.sh), and waits for its end.
  // A machine that doesn't come to the script's end fails the test.
  GuestResults Run(const std::string& script);

 private:
  std::vector<std::string> arguments_;
  std::vector<std::string> programs_{KORVENTIX_BINARY, "/usr/sbin/mkfs.exfat", "/usr/sbin/mkntfs"};
};
