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
  for (const auto& [lines, whole] :
       std::vector<std::pair<int, bool>>{{32, true}, {31, false}, {384, true}, {1, false}}) {
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
  const struct {
    void (*load)();
    bool into_sector_buffer;
    std::string start;
    std::vector<std::string> texts;
  } cases[] = {
      {Mbr_Code, true, "", {"Invalid partition table", "Error loading operating system", "Missing operating system"}},
      {Fat32Bootmgr_Code,
       false,
       "\xEB\x58\x90MSDOS5.0",
       {"BOOTMGR    ", "BOOTMGR is missing", "Disk error", "Press any key to restart"}},
      {Fat32BootmgrExt_Code, true, "", {}},
      {Fat32Ntldr_Code,
       false,
       "\xEB\x58\x90MSDOS5.0",
       {"NTLDR      ", "Remove disks or other media.", "Disk error", "Press any key to restart"}},
      {Fat32NtldrExt_Code, true, "", {}},
      {Fat32FreeDos_Code,
       false,
       "\xEB\x58\x90"
       "FreeDOS ",
       {"KERNEL  SYS", "Loading FreeDOS ", "No KERNEL  SYS"}},
      {Fat32MsDos_Code,
       false,
       "\xEB\x58\x90MSWIN4.1",
       {"IO      SYS", "MSDOS   SYS", "WINBOOT SYS", "Invalid system disk", "Disk I/O error",
        "Replace the disk, and then press any key"}},
      {Fat32MsDosExt_Code, true, "", {}},
      {Fat16Zip_Code,
       false,
       "\xEB\x3E\x90MSWIN4.1",
       {"IO      SYS", "MSDOS   SYS", "WINBOOT SYS", "Invalid system disk", "Disk I/O error",
        "Replace the disk, and then press any key"}},
      {Fat16MsDos_Code, false, "\xEB\x3C\x90MSDOS5.0", {"WINBOOT SYS", "MSDOS   SYS", "IO      SYS", "Error!"}},
      {Fat16Bootmgr_Code,
       false,
       "\xEB\x3C\x0EMSDOS5.0",
       {"BOOTMGR    ", "Remove disks or other media.", "Disk error", "Press any key to restart"}},
      {Fat16Ntldr_Code,
       false,
       "\xEB\x3C\x0EMSDOS5.0",
       {"NTLDR      ", "NTLDR is missing", "Disk error", "Press any key to restart"}},
      {Fat16FreeDos_Code,
       false,
       "\xEB\x3C\x90"
       "FRDOS4.1",
       {"KERNEL  SYS", "Error!"}},
      {Fat12Bootmgr_Code,
       false,
       "\xEB\x3C\x90MSDOS5.0",
       {"BOOTMGR    ", "Remove disks or other media.", "Disk error", "Press any key to restart"}},
  };
  for (const auto& row : cases) {
    SizeSectorBuffer(512);
    BinArray.fill(0);
    row.load();
    const std::uint8_t* bytes = row.into_sector_buffer ? SectorBuffer.data() : BinArray.data();
    const std::string image(bytes, bytes + 512);
    EXPECT_TRUE(DumpParsedOk);
    EXPECT_TRUE(image.starts_with(row.start));
    EXPECT_TRUE(image.ends_with("\x55\xAA"));
    for (const std::string& text : row.texts) {
      EXPECT_NE(image.find(text), std::string::npos) << text;
    }
  }
}

TEST(BootImages, ExfatRegionHoldsItsPlaces) {
  constexpr std::size_t kSector = 512;
  const auto text = [](std::size_t from, std::size_t bytes) {
    return std::string(BinArray.begin() + from, BinArray.begin() + from + bytes);
  };
  const std::string code_end("\0\0\x55\xAA", 4);
  BinArray.fill(0xEE);
  BootMgrEXFAT_Code();
  EXPECT_TRUE(DumpParsedOk);
  EXPECT_EQ(text(0, 11),
            "\xEB\x76\x90"
            "EXFAT   ");
  EXPECT_EQ(text(0x15E, 14), std::string("B\0O\0O\0T\0M\0G\0R\0", 14));
  EXPECT_EQ(text(0x304, 1) + text(0x337, 1), "\7\7");
  for (const char* message : {"Remove disks or other media.", "Disk error", "Press any key to restart"}) {
    EXPECT_NE(text(0, 3 * kSector).find(message), std::string::npos) << message;
  }
  EXPECT_EQ(text(510, 2), "\x55\xAA");
  for (std::size_t sector = 1; sector < 9; ++sector) {
    EXPECT_EQ(text(sector * kSector + 508, 4), code_end) << sector;
  }
  for (std::size_t sector = 3; sector < 9; ++sector) {
    EXPECT_EQ(text(sector * kSector, 508), std::string(508, '\0')) << sector;
  }
  EXPECT_EQ(text(9 * kSector, 2 * kSector), std::string(2 * kSector, '\0'));
  EXPECT_EQ(BinArray[12 * kSector], 0xEE);
}

std::string Utf16(const std::string& text) {
  std::string wide;
  for (const char c : text) {
    wide += {c, '\0'};
  }
  return wide;
}

TEST(BootImages, NtfsImagesHoldTheirPlaces) {
  const struct {
    void (*load)();
    std::size_t bytes;
    std::vector<std::string> texts;
    std::vector<std::string> absent;
  } cases[] = {
      {Bootmgr_NTFS_Code,
       4608,
       {Utf16("BOOTMGR"), Utf16("NTLDR"), "BOOTMGR is missing", "BOOTMGR is compressed"},
       {"NTLDR is missing"}},
      {NTLDR_NTFS_Code,
       3584,
       {Utf16("NTLDR"), "NTLDR is missing", "NTLDR is compressed"},
       {Utf16("BOOTMGR"), "BOOTMGR"}},
  };
  for (const auto& row : cases) {
    BinArray.fill(0xEE);
    row.load();
    EXPECT_TRUE(DumpParsedOk);
    const std::string image(BinArray.begin(), BinArray.begin() + static_cast<std::ptrdiff_t>(row.bytes));
    EXPECT_EQ(BinArray[row.bytes - 1], 'X') << "the mark at its end";
    EXPECT_EQ(BinArray[row.bytes], 0xEE);
    EXPECT_TRUE(image.starts_with("\xEB\x52\x90NTFS    "));
    EXPECT_EQ(image.substr(510, 2), "\x55\xAA");
    for (const char* text : {"A disk read error occurred", "Press Ctrl+Alt+Del to restart"}) {
      EXPECT_NE(image.find(text), std::string::npos) << text;
    }
    EXPECT_NE(image.find(Utf16("$I30")), std::string::npos);
    for (const std::string& text : row.texts) {
      EXPECT_NE(image.find(text), std::string::npos) << text;
    }
    for (const std::string& text : row.absent) {
      EXPECT_EQ(image.find(text), std::string::npos) << text;
    }
  }
}

}  // namespace
