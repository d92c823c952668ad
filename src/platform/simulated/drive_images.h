// Image files for the drives of the host options.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/host/host_options.h"
#include "platform/simulated/simulated_drive.h"

// A drive with its number.
struct AttachedDrive {
  int number;
  std::unique_ptr<SimulatedDrive> drive;
};

// Opens, creates and grows the files of all drives. False when one of them can't be had: `problem` then names its
// argument and says why, in one line, and no file is created or longer than it was.
bool AttachImages(const std::vector<DriveOption>& options, std::vector<AttachedDrive>& drives, std::string& problem);
