// A run of the program's routines on the Windows machine with its calls recorded.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "support/program.h"
#include "windows/machine/recorder.h"

using Calls = std::vector<std::string>;

class RecordedMachine : public testing::Test {
 protected:
  // A USB stick with the number 1 and the letters E: and F:, and another disk with C:.
  RecordedMachine() : machine({}, RecordingCalls()) {
    recorder = {};
    recorder.devices = {{"\\\\.\\PhysicalDrive1", 1}, {"\\\\.\\C:", 0}, {"\\\\.\\E:", 1}, {"\\\\.\\F:", 1}};
    recorder.roots = {"C:\\", "D:\\", "E:\\", "F:\\"};
    ResetProgram(machine);
  }

  // The calls so far, which are forgotten.
  static Calls TakeCalls() { return std::exchange(recorder.calls, {}); }

  WindowsMachine machine;
};
