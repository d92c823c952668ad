// One physical drive of the machine: what is known of it in this run, and the only way to its device.
//
// Reading takes nothing from anybody: descriptors are open for reading alone, and what is mounted stays mounted. The
// first one stays open to the end of the run, so that no other device can get the drive's number meanwhile. The run
// that works on a drive holds it, by a lock on its node that others respect, and before the first write the drive is
// freed and claimed from the kernel, so that nothing can be mounted on it until the run ends. A drive that can't be
// freed is refused for the rest of the run, with one line on standard error.
#pragma once

#include <cstdint>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/drive_facts.h"
#include "platform/platform.h"

class LinuxDrive {
 public:
  LinuxDrive(LinuxSystem& system, int number) : system_(system), number_(number) {}

  // Looks at the drive anew: kErrorFileNotFound where there is none, kErrorAccessDenied where there is another one than
  // Open opened first in this run.
  ErrorCode Find();
  // What Find has found last.
  const DriveFacts& Facts() const { return facts_; }

  // Finds the drive, and opens it for reading past the system's cache.
  ErrorCode Open(Descriptor& descriptor);
  // Keeps other runs from the drive until this one ends; kErrorSharingViolation where another has it.
  ErrorCode Hold();
  // Holds the drive, frees it and claims it for writing, unless that is done. kErrorWriteProtected for a drive that can
  // only be read, kErrorAccessDenied for one that is in use or may not be written by this user.
  ErrorCode Claim();
  // Frees the drive and opens one of its partitions past the system's cache, for a tool that writes to it. The claim is
  // given back for that; the next write claims the drive again. kErrorFileNotFound where the system knows no such
  // partition of this place and length (in bytes), kErrorSharingViolation where the table has been written and the
  // system has not taken it: its partitions may be the old ones then.
  ErrorCode LendPartition(std::uint32_t number, std::uint64_t position, std::uint64_t bytes, Descriptor& descriptor);

  // Transfers of whole sectors inside the drive. They move everything or fail; a write claims the drive, and returns
  // when the medium has the bytes. One that finds another medium in the drive fails, and all behind it.
  ErrorCode Read(int descriptor, std::uint64_t position, ByteSpan buffer);
  ErrorCode Write(std::uint64_t position, ConstByteSpan bytes);

  // Has the kernel read the partition table again, through `descriptor` where the drive is not claimed, and waits a
  // little for what else looks at a drive at that moment, and for the new nodes.
  ErrorCode RereadTable(int descriptor);

 private:
  struct FreeAligned {
    void operator()(std::uint8_t* bytes) const;
  };

  ErrorCode OpenNode(int flags, Descriptor& descriptor);
  ErrorCode OpenWriter();
  // Null where the system knows no such partition.
  const Partition* PartitionAt(std::uint32_t number, std::uint64_t position, std::uint64_t bytes) const;
  // The claimed drive has another medium, or none: why nothing may be written any more.
  ErrorCode LostMedium();
  ErrorCode Refuse(ErrorCode code, const std::string& why);
  std::uint8_t* Buffer();
  std::string Node() const { return NodeOf(system_, facts_.name); }

  LinuxSystem& system_;
  int number_;
  DriveFacts facts_;
  std::optional<DriveFacts> known_;  // as it was when this run first opened it
  Descriptor pin_;                   // the first that was opened
  bool held_ = false;                // by a lock on it
  Descriptor writer_;
  ErrorCode refused_ = kErrorNone;
  std::vector<std::string> unmounted_;  // on the way to a claim
  bool table_changed_ = false;          // by a write, since the kernel has last read it
  int reread_error_ = 0;                // of the last time that it didn't
  bool complained_ = false;
  std::unique_ptr<std::uint8_t, FreeAligned> buffer_;  // transfers past the cache want an aligned place in memory
};
