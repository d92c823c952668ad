// The volumes of all simulated drives and their letters, as the tables were when they were last read.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/simulated/simulated_drive.h"

struct Volume {
  int drive;               // number of its drive
  std::uint32_t index;     // which volume of the drive it is, from 1
  std::uint64_t position;  // bytes, from the start of the drive
  std::uint64_t bytes;
  char letter;  // 'D' to 'Z', 0 for none
  bool removable;
};

// A volume as a table describes it, in bytes.
struct VolumePlace {
  std::uint32_t index;
  std::uint64_t position;
  std::uint64_t bytes;
};

class SimulatedVolumes {
 public:
  // Reads a drive's tables again.
  void Refresh(int number, SimulatedDrive& drive);
  // Takes what a drive's tables describe now. Its k-th volume keeps the letter that the k-th volume had; the letters of
  // those that are gone are free, and new ones get the lowest free letter from D, in their order, or none behind Z.
  void Refresh(int number, const std::vector<VolumePlace>& places, bool removable);

  const std::vector<Volume>& All() const { return volumes_; }
  // Null where there is none; a letter in either case.
  const Volume* WithLetter(char letter) const;
  // By system name, "\\?\Volume{...}" with or without the backslash that ends it.
  const Volume* WithName(std::string_view name) const;
  // Gives a volume without a letter the one asked for. False where it has one, or the letter isn't free.
  bool GiveLetter(std::string_view name, char letter);

 private:
  char LowestFreeLetter() const;

  std::vector<Volume> volumes_;
};

// The volume's system name, with the backslash that ends it; the same in every run.
std::string SystemNameOf(const Volume& volume);
