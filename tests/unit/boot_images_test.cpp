#include "format/images/boot_images.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "disk/sector_io.h"

namespace {

// A dump of so many lines whose bytes count up from 0, with rubbish in the columns that aren't read.
std::string Dump(int lines) {
  constexpr const char* kDigits = "0123456789ABCDEF";
  std::string text;
  for (int line = 0; line < lines; ++line) {
    text += "zz?! ";
    for (int i = 0; i < 16; ++i) {
      text += {kDigits[line % 16], kDigits[i], ' '};
      text += i == 7 ? "- " : "";
    }
    text += " ZZZZZZZZ ~~~~~~~~";
  }
  return text + "ZZZZ";
}

TEST(ParseDump, StoresWholeSectors) {
  for (const auto& [lines, whole] : {std::pair(32, true), std::pair(31, false), std::pair(384, true)}) {
    const auto bytes = static_cast<std::size_t>(lines) * 16;
    std::vector<std::uint8_t> target(bytes + 1, 0xEE);
    EXPECT_EQ(ParseDump(Dump(lines), target), whole) << lines;
    EXPECT_EQ(DumpParsedOk, whole);
    for (std::size_t i = 0; i < bytes; ++i) {
      ASSERT_EQ(target[i], i % 256) << lines;
    }
    EXPECT_EQ(target[bytes], 0xEE) << lines;
  }
}

TEST(ParseDump, RefusesWhatIsMalformed) {
  std::string bad_pair = Dump(32);
  bad_pair[73 + 5] = 'G';
  std::string lower_case = Dump(32);
  lower_case[5] = 'a';
  const std::string good = Dump(32);
  for (const std::string& text : {std::string(), std::string("ZZZZ"), good.substr(0, good.size() - 4), good + "ZZZ",
                                  good.substr(0, 100), bad_pair, lower_case, Dump(64)}) {
    std::vector<std::uint8_t> target(512);
    const bool accepted = ParseDump(text, target);
    EXPECT_EQ(accepted, text == good + "ZZZ") << text.size();  // what stands behind the sentinel isn't read
    EXPECT_EQ(DumpParsedOk, accepted);
  }
}

TEST(BootImages, HoldTheirPlaces) {
  // In sector 0 code and signature; what the messages are the boots show.
  const struct {
    void (*load)();
    std::string start;  // empty: none of its own, and into SectorBuffer
  } cases[] = {
      {Mbr_Code, ""},
      {Fat32Bootmgr_Code, "\xEB\x58\x90MSDOS5.0"},
      {Fat32BootmgrExt_Code, ""},
      {Fat32Ntldr_Code, "\xEB\x58\x90MSDOS5.0"},
      {Fat32NtldrExt_Code, ""},
      {Fat32FreeDos_Code, "\xEB\x58\x90\x46reeDOS "},
      {Fat32MsDos_Code, "\xEB\x58\x90MSWIN4.1"},
      {Fat32MsDosExt_Code, ""},
      {Fat16Zip_Code, "\xEB\x3E\x90MSWIN4.1"},
      {Fat16MsDos_Code, "\xEB\x3C\x90MSDOS5.0"},
      {Fat16Bootmgr_Code, "\xEB\x3C\x0EMSDOS5.0"},
      {Fat16Ntldr_Code, "\xEB\x3C\x0EMSDOS5.0"},
      {Fat16FreeDos_Code, "\xEB\x3C\x90\x46RDOS4.1"},
      {Fat12Bootmgr_Code, "\xEB\x3C\x90MSDOS5.0"},
  };
  for (const auto& row : cases) {
    SizeSectorBuffer(512);
    BinArray.fill(0);
    row.load();
    const std::uint8_t* bytes = row.start.empty() ? SectorBuffer.data() : BinArray.data();
    const std::string image(bytes, bytes + 512);
    EXPECT_TRUE(DumpParsedOk);
    EXPECT_TRUE(image.starts_with(row.start));
    EXPECT_TRUE(image.ends_with("\x55\xAA"));
  }
}

TEST(BootImages, ExfatRegionHoldsItsPlaces) {
  constexpr std::size_t kSector = 512;
  const auto text = [](std::size_t from, std::size_t bytes) {
    return std::string(BinArray.begin() + from, BinArray.begin() + from + bytes);
  };
  BinArray.fill(0xEE);
  BootMgrEXFAT_Code();
  EXPECT_TRUE(DumpParsedOk);
  EXPECT_EQ(text(0, 11), "\xEB\x76\x90\x45XFAT   ");
  EXPECT_EQ(text(0x15E, 14), std::string("B\0O\0O\0T\0M\0G\0R\0", 14));
  EXPECT_EQ(text(0x304, 1) + text(0x337, 1), "\7\7");
  for (std::size_t sector = 0; sector < 9; ++sector) {
    EXPECT_EQ(text(sector * kSector + 510, 2), "\x55\xAA") << sector;
  }
  EXPECT_EQ(text(9 * kSector, 2 * kSector), std::string(2 * kSector, '\0'));
  EXPECT_EQ(BinArray[12 * kSector], 0xEE);
}

TEST(BootImages, NtfsImagesHoldTheirPlaces) {
  for (const auto& [load, bytes] : {std::pair(&Bootmgr_NTFS_Code, 4608), std::pair(&NTLDR_NTFS_Code, 3584)}) {
    BinArray.fill(0xEE);
    load();
    EXPECT_TRUE(DumpParsedOk);
    const std::string image(BinArray.begin(), BinArray.begin() + bytes);
    EXPECT_TRUE(image.starts_with("\xEB\x52\x90NTFS    "));
    EXPECT_EQ(image.substr(510, 2), "\x55\xAA");
    EXPECT_TRUE(image.ends_with('X')) << "the mark at its end";
    EXPECT_EQ(BinArray[static_cast<std::size_t>(bytes)], 0xEE);
  }
}

}  // namespace
