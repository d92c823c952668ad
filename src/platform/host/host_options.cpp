#include "platform/host/host_options.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>

#include "platform/host/code_page.h"

namespace {

constexpr std::uint64_t kHighestSize = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
constexpr std::uint32_t kLowestSectorBytes = 512;
constexpr std::uint32_t kHighestSectorBytes = 65536;
constexpr std::uint32_t kSectorBytesStep = 8;

bool IsDigit(char character) { return character >= '0' && character <= '9'; }

// Plain digits and nothing else, at most `highest`.
std::optional<std::uint64_t> ParseNumber(std::string_view text, std::uint64_t highest) {
  std::uint64_t value = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value);
  if (text.empty() || error != std::errc() || stop != end || value > highest) {
    return std::nullopt;
  }
  return value;
}

// --- Sizes ---------------------------------------------------------------------------------------------------------

struct SizeValue {
  std::uint64_t bytes = 0;
  bool fraction = false;  // it had a decimal point: round down to whole sectors
};

// The unit that a size ends with, which is cut off.
std::uint64_t TakeUnit(std::string_view& text) {
  constexpr std::string_view kUnits = "KMGT";
  const char last = text.empty() ? '\0' : text.back();
  const std::size_t index = kUnits.find(last >= 'a' && last <= 'z' ? static_cast<char>(last - 'a' + 'A') : last);
  if (index == std::string_view::npos) {
    return 1;
  }
  text.remove_suffix(1);
  return std::uint64_t{1} << (10 * (index + 1));
}

// Bytes of the decimal places `digits`, rounded down; from the last digit to the first, so that it is exact.
std::optional<std::uint64_t> FractionBytes(std::string_view digits, std::uint64_t unit) {
  std::uint64_t bytes = 0;
  for (auto digit = digits.rbegin(); digit != digits.rend(); ++digit) {
    if (!IsDigit(*digit)) {
      return std::nullopt;
    }
    bytes = (static_cast<std::uint64_t>(*digit - '0') * unit + bytes) / 10;
  }
  return digits.empty() ? std::nullopt : std::optional(bytes);
}

std::optional<SizeValue> ParseSize(std::string_view text) {
  const std::uint64_t unit = TakeUnit(text);
  const std::size_t point = text.find('.');
  const auto whole = ParseNumber(text.substr(0, point), kHighestSize / unit);
  if (!whole) {
    return std::nullopt;
  }
  SizeValue size{*whole * unit, point != std::string_view::npos};
  if (size.fraction) {
    const auto fraction = FractionBytes(text.substr(point + 1), unit);
    if (!fraction || *fraction > kHighestSize - size.bytes) {
      return std::nullopt;
    }
    size.bytes += *fraction;
  }
  return size;
}

// --- The keys of --drive -------------------------------------------------------------------------------------------

// A drive while its keys are read. The sizes wait for the sector size, which may come behind them.
struct DriveDraft {
  DriveTraits traits;
  SizeValue size;
  SizeValue wrap;
  SizeValue absent;
  SizeValue cache;
};

// Why a value or a drive is bad; empty when it is good.
using Why = std::string;

Why SetSize(SizeValue& to, std::string_view value) {
  const auto size = ParseSize(value);
  if (!size || size->bytes == 0) {
    return "not a size (above 0 and below 2^63 bytes; K, M, G or T behind it)";
  }
  to = *size;
  return {};
}

// `value` is UTF-8 and counts in characters.
Why SetText(std::string& to, std::string_view value, std::size_t highest) {
  to = ToCodePage(value);
  return to.size() > highest ? "longer than " + std::to_string(highest) + " characters" : Why();
}

Why SetBus(DriveDraft& draft, std::string_view value) {
  draft.traits.usb = value == "usb";
  return draft.traits.usb || value == "ata" ? Why() : "usb or ata only";
}

Why SetSectorBytes(DriveDraft& draft, std::string_view value) {
  const auto bytes = ParseNumber(value, kHighestSectorBytes);
  if (!bytes || *bytes < kLowestSectorBytes || *bytes % kSectorBytesStep != 0) {
    return "not a multiple of 8 from 512 to 65536";
  }
  draft.traits.sector_bytes = static_cast<std::uint32_t>(*bytes);
  return {};
}

// LBA or LBA-LBA, added to one list or to both.
Why AddBad(std::string_view value, std::vector<SectorRange>* reads, std::vector<SectorRange>* writes) {
  const std::size_t hyphen = value.find('-');
  const auto first = ParseNumber(value.substr(0, hyphen), kHighestSize);
  const auto last = hyphen == std::string_view::npos ? first : ParseNumber(value.substr(hyphen + 1), kHighestSize);
  if (!first || !last || *first > *last) {
    return "not a sector (LBA) or a range of sectors (LBA-LBA)";
  }
  for (auto* list : {reads, writes}) {
    if (list != nullptr) {
      list->push_back({*first, *last});
    }
  }
  return {};
}

struct DriveKey {
  std::string_view key;
  bool takes_value;
  bool repeatable;
  Why (*set)(DriveDraft& draft, std::string_view value);
};

constexpr std::array kDriveKeys = {
    DriveKey{"absent", true, false,
             [](DriveDraft& draft, std::string_view value) { return SetSize(draft.absent, value); }},
    DriveKey{"bad", true, true,
             [](DriveDraft& draft, std::string_view value) {
               return AddBad(value, &draft.traits.bad_reads, &draft.traits.bad_writes);
             }},
    DriveKey{"badread", true, true,
             [](DriveDraft& draft, std::string_view value) { return AddBad(value, &draft.traits.bad_reads, nullptr); }},
    DriveKey{
        "badwrite", true, true,
        [](DriveDraft& draft, std::string_view value) { return AddBad(value, nullptr, &draft.traits.bad_writes); }},
    DriveKey{"bus", true, false, SetBus},
    DriveKey{"cache", true, false,
             [](DriveDraft& draft, std::string_view value) { return SetSize(draft.cache, value); }},
    DriveKey{"fixed", false, false,
             [](DriveDraft& draft, std::string_view) {
               draft.traits.removable = false;
               return Why();
             }},
    DriveKey{"product", true, false,
             [](DriveDraft& draft, std::string_view value) { return SetText(draft.traits.product, value, 16); }},
    DriveKey{"readonly", false, false,
             [](DriveDraft& draft, std::string_view) {
               draft.traits.read_only = true;
               return Why();
             }},
    DriveKey{"revision", true, false,
             [](DriveDraft& draft, std::string_view value) { return SetText(draft.traits.revision, value, 4); }},
    DriveKey{"sector", true, false, SetSectorBytes},
    DriveKey{"serial", true, false,
             [](DriveDraft& draft, std::string_view value) { return SetText(draft.traits.serial, value, 20); }},
    DriveKey{"size", true, false, [](DriveDraft& draft, std::string_view value) { return SetSize(draft.size, value); }},
    DriveKey{"vendor", true, false,
             [](DriveDraft& draft, std::string_view value) { return SetText(draft.traits.vendor, value, 8); }},
    DriveKey{"wrap", true, false, [](DriveDraft& draft, std::string_view value) { return SetSize(draft.wrap, value); }},
};

// One of the comma-separated options behind the file.
Why SetDriveKey(DriveDraft& draft, std::string_view option, std::vector<std::string_view>& seen) {
  const std::size_t equals = option.find('=');
  const std::string_view key = option.substr(0, equals);
  const auto* row = std::find_if(kDriveKeys.begin(), kDriveKeys.end(), [&](const DriveKey& k) { return k.key == key; });
  if (row == kDriveKeys.end()) {
    return "no such option of a drive";
  }
  const bool has_value = equals != std::string_view::npos && equals + 1 < option.size();
  if (row->takes_value && !has_value) {
    return "a value is missing";
  }
  if (!row->takes_value && equals != std::string_view::npos) {
    return "takes no value";
  }
  if (!row->repeatable && std::find(seen.begin(), seen.end(), key) != seen.end()) {
    return "given twice";
  }
  seen.push_back(key);
  return row->set(draft, row->takes_value ? option.substr(equals + 1) : std::string_view());
}

// Whole sectors: a value with a decimal point is rounded down, any other has to fit.
Why RoundSize(std::string_view key, const SizeValue& size, std::uint32_t sector_bytes, std::uint64_t& bytes) {
  const std::uint64_t over = size.bytes % sector_bytes;
  bytes = size.bytes - over;
  if (over != 0 && (!size.fraction || bytes == 0)) {
    return std::string(key) + "= is not made of whole sectors of " + std::to_string(sector_bytes) + " bytes";
  }
  return {};
}

Why RoundSizes(const DriveDraft& draft, DriveTraits& traits) {
  struct Row {
    std::string_view key;
    const SizeValue& from;
    std::uint64_t& to;
  };
  for (const Row& row :
       {Row{"size", draft.size, traits.bytes}, Row{"wrap", draft.wrap, traits.wrap_bytes},
        Row{"absent", draft.absent, traits.absent_bytes}, Row{"cache", draft.cache, traits.cache_bytes}}) {
    if (Why why = RoundSize(row.key, row.from, traits.sector_bytes, row.to); !why.empty()) {
      return why;
    }
  }
  return {};
}

// What all keys together make of the drive.
Why FinishDrive(const DriveDraft& draft, DriveOption& drive) {
  DriveTraits& traits = drive.traits;
  traits = draft.traits;
  if (Why why = RoundSizes(draft, traits); !why.empty()) {
    return why;
  }
  if (traits.wrap_bytes != 0 && traits.absent_bytes != 0) {
    return "wrap= and absent= exclude each other";
  }
  const std::uint64_t real_bytes = std::max(traits.wrap_bytes, traits.absent_bytes);
  if (traits.cache_bytes != 0 && real_bytes == 0) {
    return "cache= needs wrap= or absent=";
  }
  if (traits.bytes != 0 && real_bytes > traits.bytes) {
    return "wrap= and absent= can't be above size=";
  }
  drive.file_bytes = real_bytes != 0 ? real_bytes : traits.bytes;
  return {};
}

Why ParseDriveKeys(std::string_view keys, DriveOption& drive) {
  DriveDraft draft;
  std::vector<std::string_view> seen;
  for (bool more = true; more;) {
    const std::size_t comma = keys.find(',');
    const std::string_view option = keys.substr(0, comma);
    if (Why why = SetDriveKey(draft, option, seen); !why.empty()) {
      return std::string(option) + ": " + why;
    }
    more = comma != std::string_view::npos;
    keys.remove_prefix(more ? comma + 1 : keys.size());
  }
  return FinishDrive(draft, drive);
}

Why ParseDrive(std::string_view argument, DriveOption& drive) {
  drive.argument = argument;
  const std::size_t equals = argument.find('=');
  const auto number = ParseNumber(argument.substr(0, equals), kHighestDriveNumber);
  if (equals == std::string_view::npos || !number) {
    return "not N=FILE with a drive number N from 0 to " + std::to_string(kHighestDriveNumber);
  }
  drive.number = static_cast<int>(*number);
  const std::size_t comma = argument.find(',', equals);
  drive.file = argument.substr(equals + 1, comma == std::string_view::npos ? comma : comma - equals - 1);
  if (drive.file.empty()) {
    return "the file is missing";
  }
  return comma == std::string_view::npos ? Why() : ParseDriveKeys(argument.substr(comma + 1), drive);
}

// --- The options ---------------------------------------------------------------------------------------------------

Why AddDrive(HostOptions& options, std::string_view value) {
  DriveOption drive;
  if (Why why = ParseDrive(value, drive); !why.empty()) {
    return why;
  }
  for (const DriveOption& other : options.drives) {
    if (other.number == drive.number) {
      return "drive number " + std::to_string(drive.number) + " is given twice";
    }
  }
  options.drives.push_back(std::move(drive));
  return {};
}

Why SetSeed(HostOptions& options, std::string_view value) {
  options.seed = ParseNumber(value, std::numeric_limits<std::uint64_t>::max());
  return options.seed ? Why() : "not a number from 0 to 2^64 - 1";
}

struct HostOption {
  std::string_view name;
  bool takes_value;
  Why (*set)(HostOptions& options, std::string_view value);
};

constexpr std::array kHostOptions = {
    HostOption{"--drive", true, AddDrive},
    HostOption{"--help", false,
               [](HostOptions& options, std::string_view) {
                 options.help = true;
                 return Why();
               }},
    HostOption{"--no-wait", false,
               [](HostOptions& options, std::string_view) {
                 options.no_wait = true;
                 return Why();
               }},
    HostOption{"--seed", true, SetSeed},
    HostOption{"--version", false,
               [](HostOptions& options, std::string_view) {
                 options.version = true;
                 return Why();
               }},
};

// Takes the option at `consumed`, with its value.
Why TakeOption(const std::vector<std::string>& arguments, HostOptions& options) {
  const std::string& name = arguments[options.consumed];
  const auto* row = std::find_if(kHostOptions.begin(), kHostOptions.end(),
                                 [&](const HostOption& option) { return option.name == name; });
  if (row == kHostOptions.end()) {
    return name + ": no such option (--help shows them)";
  }
  ++options.consumed;
  std::string value;
  if (row->takes_value) {
    if (options.consumed == arguments.size()) {
      return name + ": a value is missing";
    }
    value = arguments[options.consumed++];
  }
  const Why why = row->set(options, value);
  return why.empty() ? why : name + " " + value + ": " + why;
}

char UpperAscii(char character) {
  return character >= 'a' && character <= 'z' ? static_cast<char>(character - 'a' + 'A') : character;
}

bool IsBlank(char character) { return character == ' ' || character == '\t'; }

}  // namespace

bool ParseHostOptions(const std::vector<std::string>& arguments, HostOptions& options, std::string& problem) {
  options = {};
  while (options.consumed < arguments.size() && arguments[options.consumed].starts_with("--")) {
    problem = TakeOption(arguments, options);
    if (!problem.empty()) {
      return false;
    }
  }
  if (options.no_wait && options.drives.empty()) {
    problem = "--no-wait: only with --drive";
    return false;
  }
  return true;
}

std::string JoinCommandLine(const std::vector<std::string>& arguments, std::size_t first) {
  constexpr std::string_view kFileKey = "FILE=";
  std::string line;
  for (std::size_t i = first; i < arguments.size(); ++i) {
    const std::string& argument = arguments[i];
    line += i == first ? "" : " ";
    std::string key = argument.substr(0, kFileKey.size());
    std::transform(key.begin(), key.end(), key.begin(), UpperAscii);
    if (key == kFileKey && argument.find('"') == std::string::npos) {
      line += argument.substr(0, kFileKey.size()) + '"' + argument.substr(kFileKey.size()) + '"';
    } else {
      line += argument;
    }
  }
  return line;
}

// Backslashes count only in front of a double quote: two stand for one, and an odd one makes the quote a plain
// character. Two quotes in a quoted part are one plain quote. None of this holds for the program's name.
std::vector<LineArgument> SplitCommandLine(std::string_view line) {
  std::vector<LineArgument> arguments;
  std::size_t at = 0;
  while (at < line.size() || arguments.empty()) {
    LineArgument argument{};
    bool quoted = false;
    for (; at < line.size() && (quoted || !IsBlank(line[at])); ++at) {
      std::size_t backslashes = 0;
      while (!arguments.empty() && at + backslashes < line.size() && line[at + backslashes] == '\\') {
        ++backslashes;
      }
      at += backslashes;
      const bool at_quote = at < line.size() && line[at] == '"';
      argument.text.append(at_quote ? backslashes / 2 : backslashes, '\\');
      if (at == line.size() || (!at_quote && !quoted && IsBlank(line[at]))) {
        break;
      }
      if (!at_quote || backslashes % 2 != 0) {
        argument.text += line[at];
      } else if (quoted && !arguments.empty() && at + 1 < line.size() && line[at + 1] == '"') {
        argument.text += line[++at];
      } else {
        quoted = !quoted;
      }
    }
    while (at < line.size() && IsBlank(line[at])) {
      ++at;
    }
    argument.end = at;
    arguments.push_back(std::move(argument));
  }
  return arguments;
}
