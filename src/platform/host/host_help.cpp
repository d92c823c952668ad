#include <array>

#include "platform/host/host_options.h"

namespace {

constexpr auto kLines = std::to_array<std::string_view>({
    "korventix [HOST OPTION...] [COMMAND LINE]",
    "",
    "Host options stand in front of the command line, which is all that follows them.",
    "",
    "  --drive N=FILE[,OPTION...]  attach the image file FILE as physical drive N (0 to 98); repeatable.",
    "      With any --drive the program sees attached drives only, and no real one can be touched.",
    "      FILE is a regular file without a comma in its name, and in use by no other run. Options:",
    "",
    "      size=SIZE         create the file, or grow it, to SIZE; what is larger already is an error",
    "      bus=usb|ata       the bus (usb)",
    "      fixed             a fixed drive and not a removable one",
    "      vendor=TEXT       at most 8 characters (Generic)",
    "      product=TEXT      at most 16 characters (Flash Disk)",
    "      revision=TEXT     at most 4 characters (1.00)",
    "      serial=TEXT       at most 20 characters (no serial number)",
    "      sector=BYTES      the sector size, a multiple of 8 from 512 to 65536 (512)",
    "      readonly          writes fail as on a write-protected drive",
    "      bad=LBA[-LBA]     reads and writes that touch these sectors fail; repeatable",
    "      badread=, badwrite=   the same, one way only",
    "      wrap=SIZE         a counterfeit: what lies behind SIZE is stored from the beginning again;",
    "                        the file is SIZE long, and size= is what the drive claims",
    "      absent=SIZE       a counterfeit: behind SIZE writes are lost and reads give zeros;",
    "                        file and size= as for wrap=",
    "      cache=SIZE        of a counterfeit: the last SIZE bytes written are still answered right",
    "",
    "      SIZE is a number of bytes, or of K, M, G or T (powers of 1024), decimals allowed: 7.5G.",
    "      It makes whole sectors; one with decimals is rounded down to them.",
    "",
    "  --no-wait     the fixed waits take no time; only with --drive",
    "  --seed N      fixes the random source, so that the same command gives the same bytes",
    "  --version     shows the version",
    "  --help        shows this text",
    "",
    "Example: a new drive of 8 GB, prepared with FAT32.",
    "",
    "  korventix --drive 1=stick.img,size=8G DRIVE=1 SURE FAT32 WINPE",
});

}  // namespace

std::string HostHelpText() {
  std::string text;
  for (const std::string_view line : kLines) {
    text.append(line).append("\r\n");
  }
  return text;
}
