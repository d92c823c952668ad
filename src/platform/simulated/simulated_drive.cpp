#include "platform/simulated/simulated_drive.h"

#include <algorithm>

namespace {

// Operation codes and the places in command and answer.
constexpr std::uint8_t kReadCapacity10 = 0x25;
constexpr std::uint8_t kInquiry = 0x12;
constexpr std::size_t kReadCapacityLength = 10;
constexpr std::size_t kInquiryLength = 6;
constexpr std::uint8_t kVitalProductData = 0x01;  // bit of command byte 1: answer with the page of byte 2
constexpr std::uint8_t kSerialPage = 0x80;
constexpr std::size_t kPageHeaderBytes = 4;
constexpr std::uint64_t kHighestLba32 = 0xFFFFFFFF;

constexpr std::size_t kInquiryBytes = 96;
constexpr std::uint8_t kAdditionalLength = kInquiryBytes - 5;  // counted behind the byte that holds it
constexpr std::uint8_t kRemovableBit = 0x80;
constexpr std::uint8_t kSpc2 = 4;
constexpr std::uint8_t kResponseFormat = 2;
constexpr std::size_t kVendorOffset = 8;
constexpr std::size_t kVendorBytes = 8;
constexpr std::size_t kProductOffset = 16;
constexpr std::size_t kProductBytes = 16;
constexpr std::size_t kRevisionOffset = 32;
constexpr std::size_t kRevisionBytes = 4;

void AppendBig32(std::vector<std::uint8_t>& to, std::uint32_t value) {
  for (int shift = 24; shift >= 0; shift -= 8) {
    to.push_back(static_cast<std::uint8_t>(value >> shift));
  }
}

// Text in a field, filled up with blanks.
void PutField(std::vector<std::uint8_t>& to, std::size_t offset, std::size_t length, std::string_view text) {
  std::fill_n(to.begin() + static_cast<std::ptrdiff_t>(offset), length, ' ');
  std::copy_n(text.begin(), std::min(length, text.size()), to.begin() + static_cast<std::ptrdiff_t>(offset));
}

bool Touches(const std::vector<SectorRange>& ranges, std::uint64_t first, std::uint64_t last) {
  return std::any_of(ranges.begin(), ranges.end(),
                     [=](const SectorRange& range) { return range.first <= last && first <= range.last; });
}

}  // namespace

SimulatedDrive::SimulatedDrive(DriveTraits traits, std::unique_ptr<Store> store)
    : traits_(std::move(traits)),
      store_(std::move(store)),
      bytes_(traits_.bytes != 0 ? traits_.bytes : store_->Size()) {}

ErrorCode SimulatedDrive::CheckTransfer(std::uint64_t position, std::uint64_t bytes,
                                        const std::vector<SectorRange>& bad) const {
  const std::uint64_t sector = traits_.sector_bytes;
  if (position % sector != 0 || bytes % sector != 0) {
    return kErrorInvalidParameter;
  }
  if (position > bytes_ || bytes > bytes_ - position) {
    return kErrorSectorNotFound;
  }
  return bytes != 0 && Touches(bad, position / sector, (position + bytes) / sector - 1) ? kErrorCrc : kErrorNone;
}

ErrorCode SimulatedDrive::Read(std::uint64_t position, ByteSpan buffer) {
  ErrorCode code = CheckTransfer(position, buffer.size(), traits_.bad_reads);
  if (code == kErrorNone) {
    code = ReadMemory(position, buffer);
  }
  if (code == kErrorNone && !cache_.empty()) {
    OverlayCache(position, buffer);
  }
  return code;
}

ErrorCode SimulatedDrive::Write(std::uint64_t position, ConstByteSpan bytes) {
  static const std::vector<SectorRange> kNoneBad;
  // A protected drive refuses before it touches any sector.
  ErrorCode code = CheckTransfer(position, bytes.size(), traits_.read_only ? kNoneBad : traits_.bad_writes);
  if (code == kErrorNone && traits_.read_only) {
    code = kErrorWriteProtected;
  }
  if (code == kErrorNone) {
    code = WriteMemory(position, bytes);
  }
  if (code == kErrorNone && traits_.cache_bytes != 0) {
    CacheSectors(position, bytes);
  }
  return code;
}

std::vector<SimulatedDrive::Piece> SimulatedDrive::PiecesOf(std::uint64_t position, std::size_t bytes) const {
  const std::uint64_t wrap = traits_.wrap_bytes;
  const std::uint64_t absent = traits_.absent_bytes;
  std::vector<Piece> pieces;
  for (std::size_t offset = 0; offset < bytes;) {
    const std::uint64_t at = position + offset;
    Piece piece{wrap != 0 ? at % wrap : at, offset, bytes - offset, absent == 0 || at < absent};
    if (const std::uint64_t memory_end = std::max(wrap, absent); memory_end > piece.place) {
      piece.bytes = static_cast<std::size_t>(std::min<std::uint64_t>(piece.bytes, memory_end - piece.place));
    }
    offset += piece.bytes;
    pieces.push_back(piece);
  }
  return pieces;
}

ErrorCode SimulatedDrive::ReadMemory(std::uint64_t position, ByteSpan buffer) {
  for (const Piece& piece : PiecesOf(position, buffer.size())) {
    const ByteSpan part = buffer.subspan(piece.offset, piece.bytes);
    ErrorCode code = kErrorNone;
    if (piece.present) {
      code = store_->Read(piece.place, part);
    } else {
      std::fill(part.begin(), part.end(), std::uint8_t{0});
    }
    if (code != kErrorNone) {
      return code;
    }
  }
  return kErrorNone;
}

ErrorCode SimulatedDrive::WriteMemory(std::uint64_t position, ConstByteSpan bytes) {
  for (const Piece& piece : PiecesOf(position, bytes.size())) {
    if (!piece.present) {
      continue;
    }
    if (const ErrorCode code = store_->Write(piece.place, bytes.subspan(piece.offset, piece.bytes));
        code != kErrorNone) {
      return code;
    }
  }
  return kErrorNone;
}

void SimulatedDrive::CacheSectors(std::uint64_t position, ConstByteSpan bytes) {
  const std::size_t sector_bytes = traits_.sector_bytes;
  for (std::uint64_t sector = position / sector_bytes; !bytes.empty(); ++sector) {
    const ConstByteSpan one = bytes.first(sector_bytes);
    ++writes_;
    cache_[sector] = {writes_, {one.begin(), one.end()}};
    cache_order_.push_back({sector, writes_});
    bytes = bytes.subspan(sector_bytes);
    if (cache_order_.size() * sector_bytes > traits_.cache_bytes) {
      const CachedWrite oldest = cache_order_.front();
      cache_order_.pop_front();
      const auto found = cache_.find(oldest.sector);
      if (found->second.written == oldest.written) {
        cache_.erase(found);
      }
    }
  }
}

void SimulatedDrive::OverlayCache(std::uint64_t position, ByteSpan buffer) const {
  const std::size_t sector_bytes = traits_.sector_bytes;
  for (std::uint64_t sector = position / sector_bytes; !buffer.empty(); ++sector) {
    if (const auto found = cache_.find(sector); found != cache_.end()) {
      std::copy(found->second.bytes.begin(), found->second.bytes.end(), buffer.begin());
    }
    buffer = buffer.subspan(sector_bytes);
  }
}

std::vector<std::uint8_t> SimulatedDrive::Capacity() const {
  const std::uint64_t last = bytes_ / traits_.sector_bytes - 1;
  std::vector<std::uint8_t> answer;
  AppendBig32(answer, static_cast<std::uint32_t>(std::min(last, kHighestLba32)));
  AppendBig32(answer, traits_.sector_bytes);
  return answer;
}

std::vector<std::uint8_t> SimulatedDrive::Inquiry() const {
  std::vector<std::uint8_t> answer(kInquiryBytes);
  answer[1] = traits_.removable ? kRemovableBit : 0;
  answer[2] = kSpc2;
  answer[3] = kResponseFormat;
  answer[4] = kAdditionalLength;
  PutField(answer, kVendorOffset, kVendorBytes, traits_.vendor);
  PutField(answer, kProductOffset, kProductBytes, traits_.product);
  PutField(answer, kRevisionOffset, kRevisionBytes, traits_.revision);
  return answer;
}

std::vector<std::uint8_t> SimulatedDrive::SerialPage() const {
  std::vector<std::uint8_t> answer(kPageHeaderBytes + traits_.serial.size());
  answer[1] = kSerialPage;
  answer[3] = static_cast<std::uint8_t>(traits_.serial.size());
  PutField(answer, kPageHeaderBytes, traits_.serial.size(), traits_.serial);
  return answer;
}

bool SimulatedDrive::Scsi(ConstByteSpan cdb, ByteSpan data, std::uint32_t& returned) const {
  std::vector<std::uint8_t> answer;
  std::size_t allocated = data.size();
  if (cdb.size() >= kReadCapacityLength && cdb[0] == kReadCapacity10) {
    answer = Capacity();
  } else if (cdb.size() >= kInquiryLength && cdb[0] == kInquiry) {
    allocated = std::min<std::size_t>(allocated, static_cast<std::size_t>(cdb[3] << 8 | cdb[4]));
    if (cdb[1] == 0 && cdb[2] == 0) {
      answer = Inquiry();
    } else if (cdb[1] == kVitalProductData && cdb[2] == kSerialPage) {
      answer = SerialPage();
    }
  }
  answer.resize(std::min(answer.size(), allocated));
  std::copy(answer.begin(), answer.end(), data.begin());
  returned = static_cast<std::uint32_t>(answer.size());
  return returned != 0;
}
