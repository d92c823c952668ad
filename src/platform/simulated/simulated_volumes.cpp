#include "platform/simulated/simulated_volumes.h"

#include <algorithm>
#include <iterator>

#include "platform/simulated/volume_table.h"

namespace {

constexpr char kFirstLetter = 'D';
constexpr char kLastLetter = 'Z';

char UpperLetter(char letter) {
  return letter >= 'a' && letter <= 'z' ? static_cast<char>(letter - 'a' + 'A') : letter;
}

std::string Digits(std::uint64_t value, std::size_t count) {
  const std::string digits = std::to_string(value);
  return std::string(count - std::min(count, digits.size()), '0') + digits;
}

}  // namespace

std::string SystemNameOf(const Volume& volume) {
  return "\\\\?\\Volume{6b6f7276-0000-0000-" + Digits(static_cast<std::uint64_t>(volume.drive), 4) + "-" +
         Digits(volume.index, 12) + "}\\";
}

void SimulatedVolumes::Refresh(int number, SimulatedDrive& drive) {
  const std::uint64_t sector_bytes = drive.Traits().sector_bytes;
  std::vector<VolumePlace> places;
  for (const VolumeExtent& extent : ReadVolumeExtents(drive)) {
    places.push_back({static_cast<std::uint32_t>(places.size() + 1), extent.first_sector * sector_bytes,
                      extent.sectors * sector_bytes});
  }
  Refresh(number, places, drive.Traits().removable);
}

void SimulatedVolumes::Refresh(int number, const std::vector<VolumePlace>& places, bool removable) {
  std::vector<char> letters;  // of the drive's volumes up to now
  for (const Volume& volume : volumes_) {
    if (volume.drive == number) {
      letters.push_back(volume.letter);
    }
  }
  std::erase_if(volumes_, [=](const Volume& volume) { return volume.drive == number; });
  letters.resize(places.size());  // those of volumes that are gone are free from here on
  for (std::size_t i = 0; i < places.size(); ++i) {
    volumes_.push_back({number, places[i].index, places[i].position, places[i].bytes, letters[i], removable});
  }
  for (Volume& volume : volumes_) {
    if (volume.drive == number && volume.letter == 0) {
      volume.letter = LowestFreeLetter();
    }
  }
  std::stable_sort(volumes_.begin(), volumes_.end(),
                   [](const Volume& left, const Volume& right) { return left.drive < right.drive; });
}

char SimulatedVolumes::LowestFreeLetter() const {
  for (char letter = kFirstLetter; letter <= kLastLetter; ++letter) {
    if (WithLetter(letter) == nullptr) {
      return letter;
    }
  }
  return 0;
}

const Volume* SimulatedVolumes::WithLetter(char letter) const {
  const char upper = UpperLetter(letter);
  const auto found = std::find_if(volumes_.begin(), volumes_.end(),
                                  [=](const Volume& volume) { return volume.letter == upper && upper != 0; });
  return found == volumes_.end() ? nullptr : &*found;
}

const Volume* SimulatedVolumes::WithName(std::string_view name) const {
  const std::string full = std::string(name) + (name.ends_with('\\') ? "" : "\\");
  const auto found = std::find_if(volumes_.begin(), volumes_.end(),
                                  [&](const Volume& volume) { return SystemNameOf(volume) == full; });
  return found == volumes_.end() ? nullptr : &*found;
}

bool SimulatedVolumes::GiveLetter(std::string_view name, char letter) {
  const char upper = UpperLetter(letter);
  const Volume* volume = WithName(name);
  if (volume == nullptr || volume->letter != 0 || upper < kFirstLetter || upper > kLastLetter ||
      WithLetter(upper) != nullptr) {
    return false;
  }
  volumes_[static_cast<std::size_t>(volume - volumes_.data())].letter = upper;
  return true;
}
