#include "platform/linux/scsi_command.h"

#include <algorithm>
#include <array>
#include <vector>

ErrorCode SendScsiCommand(LinuxSystem& system, int descriptor, ConstByteSpan cdb, ByteSpan data,
                          std::uint32_t& returned) {
  constexpr unsigned kTimeout = 2000;  // milliseconds
  constexpr std::size_t kSenseBytes = 24;
  std::vector<std::uint8_t> command(cdb.begin(), cdb.end());
  std::vector<std::uint8_t> reply(data.size());
  std::array<std::uint8_t, kSenseBytes> sense{};
  sg_io_hdr header{};
  header.interface_id = 'S';
  header.dxfer_direction = SG_DXFER_FROM_DEV;
  header.cmdp = command.data();
  header.cmd_len = static_cast<unsigned char>(command.size());
  header.dxferp = reply.data();
  header.dxfer_len = static_cast<unsigned>(reply.size());
  header.sbp = sense.data();
  header.mx_sb_len = kSenseBytes;
  header.timeout = kTimeout;
  returned = 0;
  if (system.SendScsi(descriptor, header) != 0 || header.status != 0 || header.host_status != 0 ||
      header.driver_status != 0) {
    return kErrorIoDevice;
  }
  const unsigned missing = header.resid > 0 ? static_cast<unsigned>(header.resid) : 0;
  returned = header.dxfer_len - std::min(missing, header.dxfer_len);
  std::copy_n(reply.begin(), returned, data.begin());
  return returned != 0 ? kErrorNone : kErrorIoDevice;
}
