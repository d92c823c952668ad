// The option model: what the command line asks for. Written by the parsing of the command line alone
// (command_line.cpp), read everywhere.
#pragma once

#include <cstdint>
#include <string>

inline std::int32_t DriveNumber = 0;          // DRIVE=n
inline std::string VolumeName = "KORVENTIX";  // VOLUME=, at most 11 characters
inline std::int64_t SizeLimit = 0;            // SIZE=n or 512M: partition size in bytes, 0 for the whole drive
inline std::int16_t FirstPart = 0;            // FIRSTPART=n: 2 to 4, 0 where none is given
inline std::string BootType;                  // file system and loader in one token such as "FAT32BOOTMGR", or empty
inline bool WantBootCode = false;             // a boot type was named: the volume is formatted

inline bool UseFat16 = false;
inline bool UseFat32 = false;
inline bool UseNtfs = false;
inline bool UseExfat = false;
inline bool UseGrub4Dos = false;

inline bool OptZip = false;           // ZIP geometry, floppy-type boot parameters
inline bool OptChs = false;           // the same geometry, and type 6 for FAT16
inline bool Opt2Ptn = false;          // a small second partition
inline bool Opt2Mbr = false;          // a second copy of the MBR in front of the partition
inline bool OptNoAct = false;         // the partition is not marked active
inline bool OptForceLba = false;      // CHS end fields at their maximum
inline bool OptUsbFdd = false;        // a volume without a partition table, as a large floppy
inline bool OptWriteMbrOnly = false;  // renews the MBR's boot code only
inline bool OptAllDrives = false;     // drives count that are not USB
inline bool OptSure = false;          // no prompts
inline bool OptDebug = false;         // diagnostic output
inline bool OptNoWrite = false;       // stops before the first write
