#include "cli/usage_text.h"

#include <string>
#include <string_view>

#include "cli/command_line.h"
#include "console/console.h"

namespace {

// clang-format off
// Syntax and options.
constexpr std::string_view kSyntax =
    "\r\n"
    "\r\n"
    "Syntax:\r\n"
    " KORVENTIX [DRIVE=n | FIND | LIST | FILEINFO] [CLEAN | QUICKTEST | SPEEDTEST | ERASE | GETDRV | (copy command)] [SURE][DEBUG]\r\n"
    "Special:\r\n"
    " [ZIP][CHS][2PTN][FORCELBA][WRITEMBRONLY] [USBFDD]{[NTFS]|[FAT32]|[EXFAT]}[NOACT][SIZE=x][ALLDRIVES][FIRSTPART=n][VOLUME=aaa]\r\n"
    "Volume boot code options:\r\n"
    " [DOSZIP | FREEDOS | MSDOS | XP/NTLDR | VISTA/WINP/BOOTMGR/WIN7 | GRUB4DOS]\r\n";

// Copy commands and their examples.
constexpr std::string_view kCopyCommands =
    "\r\n"
    "\r\n"
    "--------------------------- COPY COMMAND USAGE ----------------------------------------\r\n"
    "\r\n"
    "Copy commands:\r\n"
    " KORVENTIX USBTOFILE | FILETOUSB | FILEINFO | USBINFO \r\n"
    "Copy parameters:\r\n"
    " DRIVE=n FILE=\"path\\fname\" USBSTART=s FILESTART=b LENGTH=b\r\n"
    "Where:\r\n"
    " b=bytes, s=sectors or use nSEC,nKB,nMB,nGB,MBR,MBR+,P1-P8,PEXT,PALL or DALL\r\n"
    " MBR   first sector of disk or 512 bytes of file\r\n"
    " MBR+  up to but not including start of first partition\r\n"
    " Pn    start or end of partition (P1-P8)\r\n"
    " PEXT  start or end of MBR extended partition (inc all logical ptns)\r\n"
    " PALL  up to end of last partition (default)\r\n"
    " DALL  all sectors on USB drive (default if no partition table)\r\n"
    " Primary MBR Partitions are P1-P4 and PEXT. GPT Partitions are P1-P8.\r\n"
    " If no partition in source then default is LENGTH=DALL or file length.\r\n"
    "\r\n"
    "------------------------- EXAMPLE FILE COMMANDS -------------------------------------\r\n"
    "\r\n"
    " FILEINFO FILE=\"x.bin\" FileStart=P1             (display 512 bytes)\r\n"
    " USBINFO  DRIVE=1 USBSTART=MBR LENGTH=40SEC     (displays max. of 20 sectors)\r\n"
    " DRIVE=1  USBTOFILE FILE=\"x.bin\" USBSTART=32 FILESTART=32SEC LENGTH=1024\r\n"
    " DRIVE=1  USBTOFILE FILE=\"x.bin\" (create file if not already exist)\r\n"
    " DRIVE=1  FILETOUSB FILE=\"etherboot.bin\" SURE\r\n"
    " DRIVE=1  FILETOUSB FILE=\"x.bin\" FILESTART=32 USBSTART=P1  LENGTH=4MB\r\n"
    " DRIVE=1  FILETOUSB FILE=\"x.bin\" FILESTART=P1 USBSTART=P1  LENGTH=P1\r\n";

// Notes, about, further examples, instructions, errorlevels.
constexpr std::string_view kNotes =
    "\r\n"
    "\r\n"
    "--------------------------- NOTES -----------------------------------------------------\r\n"
    "\r\n"
    "Notes: 2PTN, CHS, NTFS, FORCELBA, FAT32, EXFAT, USBFDD and ZIP are override keywords.\r\n"
    "       XP and NTLDR options have same function (used for XP/WinPE v1/BartPE).\r\n"
    "       WINPE/BOOOTMGR/WIN7/VISTA use for VistaPE/WinPEv2/Vista/Win7 (all same!).\r\n"
    "       GRUB4DOS is only valid with EXFAT - grldr will be loaded.\r\n"
    "       VOLUME= must always be at very end of command line, if used.\r\n"
    "       CHS for max. BIOS compatibility, uses Type 6 if FAT16, 64hds/32secs if poss.\r\n"
    "       ZIP uses CHS and sets volume boot record parameters to floppy disk type.\r\n"
    "       Use ZIP if boot problems or to boot as A: drive.\r\n"
    "       DOSZIP uses a FAT16 MSWIN4.1 BPB, MSDOS uses a FAT16 MSDOS5.0 BPB.\r\n"
    "       NOACT Set partition as non-bootable (not active)\r\n"
    "       2PTN  For maximum HDD compatibility, try adding '2PTN' which adds\r\n"
    "             a small 2nd ptn to ensure a BIOS recognises the UFD as a hard disk.\r\n"
    "       FORCELBA  Sets CHS params in ptn table to max., even if ptn under 8GB.\r\n"
    "       ZIP  + CHS       - Use for maximum ZIP compatibility.\r\n"
    "       ZIP  + USBFDD    - Use for maximum Floppy compatibility.\r\n"
    "       2PTN + FORCELBA  - Use for maximum HDD compatibility.\r\n"
    "\r\n"
    "  USB-ZIP drives are recognised as 'Removable Storage device' by Windows.\r\n"
    "  USB-HDD drives are recognised as 'Removable' or 'Local/Hard Disk' by Windows.\r\n"
    "\r\n"
    "---------------------------- ABOUT ----------------------------------------------------\r\n"
    "\r\n"
    "   Use DALMERION for a user-friendly front-end GUI interface for KORVENTIX.\r\n"
    "\r\n"
    "   TAKE CARE! KORVENTIX destroys all data on a drive and creates a\r\n"
    "              bootable partition on storage devices under Windows.\r\n"
    "\r\n"
    "   Note: Korventix must be run with Administrator rights.\r\n"
    "\r\n"
    "\r\n"
    "------------------------- OTHER EXAMPLE PARAMETERS (default = FAT16) -----------------\r\n"
    "\r\n"
    " LIST    ALLDRIVES            (list all drives, * indicates first drive)\r\n"
    " FIND  > RUNDRV.cmd           (find number and letter of first USB drive)\r\n"
    " DRIVE=1 GETDRV > RUNDRV.cmd  (report drive letter+size+description)\r\n"
    " DRIVE=1 SURE ALLDRIVES       (ptn as FAT16 unformatted - no prompt - even if non-USB)\r\n"
    " DRIVE=1 QUICKTEST            (Quick test of whole drive for bad 128K pages)\r\n"
    " DRIVE=1 ZIP SIZE=900         (900MB unformatted partition ZIP compatible)\r\n"
    " DRIVE=1 WINPE                (ptn and format as FAT16 WinPE v2 bootable HDD)\r\n"
    " DRIVE=1 MSDOS ZIP FAT32      (ptn and format as FAT32 MSDOS bootable ZIP)\r\n"
    " DRIVE=1 FREEDOS ZIP USBFDD   (format as FAT16 FreeDos large floppy - no MBR)\r\n"
    " DRIVE=1 XP NTFS VOLUME=MYXP  (ptn/format as NTFS XP bootable HDD)\r\n"
    " DRIVE=1 WIN7  2PTN FAT32     (ptn and format as FAT32 WINPE bootable HDD)\r\n"
    " DRIVE=1 VISTA 2PTN FORCELBA FAT32  (for most compatible bootable HDD)\r\n"
    " DRIVE=1 WRITEMBRONLY         (writes MBR boot code but leaves disk sig. and ptn table)\r\n"
    " DRIVE=1 EXFAT BOOTMGR        (ptn and format as exFAT with bootmgr bootloader)\r\n"
    " DRIVE=1 EXFAT GRUB4DOS       (ptn and format as exFAT with grldr bootloader)\r\n"
    " DRIVE=1 FIRSTPART=3 SURE     (swaps the 3rd partition table entry with the 1st entry)\r\n"
    "\r\n"
    "-------------------------- INSTRUCTIONS -----------------------------------------------\r\n"
    "\r\n"
    "To make a WinPE, WIN7 or VISTA <2GB bootable FAT32 USB-HDD UFD\r\n"
    "--------------------------------------------------------------\r\n"
    "1. KORVENTIX LIST                       to find USB drive number, e.g. 3\r\n"
    "2. KORVENTIX DRIVE=3 WINPE FAT32 2PTN   where 3 was the number returned above\r\n"
    "3. Use Windows Explorer to all copy files to the new drive.\r\n"
    "\r\n"
    "To make a DOS bootable USB-ZIP UFD\r\n"
    "----------------------------------\r\n"
    "1. KORVENTIX LIST                  find USB drives numbers, e.g. 3\r\n"
    "2. KORVENTIX DRIVE=3 DOSZIP        format as 512MB MSDOS ZIP bootable\r\n"
    "3. Use Explorer to copy DOS boot files (IO.SYS, COMMAND.COM and MSDOS.SYS).\r\n"
    "\r\n"
    "To make a DOS bootable USB-FDD UFD (A:)\r\n"
    "---------------------------------------\r\n"
    "1. KORVENTIX LIST                       find USB drives numbers, e.g. 3\r\n"
    "2. KORVENTIX DRIVE=3 DOSZIP USBFDD      format as MSDOS large floppy\r\n"
    "3. Use Explorer to copy DOS boot files (IO.SYS, COMMAND.COM and MSDOS.SYS).\r\n"
    "\r\n"
    "Errorlevels: 0=OK, 1=Bad param, 2=User abort, 3=Not found, 4=Not a USB device,\r\n"
    "             5=Unknown error, 6=Disk or operational error, 7=Write error.\r\n";

// clang-format on

}  // namespace

void ShowUsage(bool copy_only) {
  if (copy_only) {
    ConsoleWrite(kCopyCommands);
  } else {
    ConsoleWrite(std::string(kSyntax) + std::string(kCopyCommands) + std::string(kNotes));
  }
  if (!HasKeyword(" DRIVE") && !HasKeyword(" FIND") && !HasKeyword(" LIST") && !HasKeyword(" FILEINFO")) {
    ConsoleWrite("Maybe need a DRIVE=n,  FIND, LIST or FILEINFO parameter?");
  }
}
