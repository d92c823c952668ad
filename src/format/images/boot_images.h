// The boot image store: every boot sector and master boot record that the program installs, carried as dump text and
// turned into bytes by one parser.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "platform/platform.h"

// Target of most boot sector images: 63 sectors and a byte. Never cleared; an image overwrites the bytes that it
// covers.
inline std::array<std::uint8_t, 32'257> BinArray{};
// The result of the latest parse.
inline bool DumpParsedOk = false;

// Stores the bytes of a dump at `target` from index 0. A dump is made of lines of 73 characters (an offset that isn't
// read, a blank, eight pairs of hexadecimal digits each with a blank behind it, a hyphen and a blank, eight more pairs,
// a blank and the bytes as characters, that aren't read) and ends in "ZZZZ". True, also in DumpParsedOk, when the
// number of bytes is a multiple of 512; false for a malformed dump, of which nothing is read or written out of bounds.
bool ParseDump(std::string_view text, ByteSpan target);

// One procedure per image, parsed into SectorBuffer, which must hold at least a sector ...
void Mbr_Code();
void Fat32BootmgrExt_Code();
void Fat32NtldrExt_Code();
void Fat32MsDosExt_Code();
// ... or into BinArray.
void Fat32Bootmgr_Code();
void Fat32Ntldr_Code();
void Fat16Bootmgr_Code();
void Fat16Ntldr_Code();
void Fat12Bootmgr_Code();
void Fat16FreeDos_Code();
void Fat32FreeDos_Code();
void Fat16MsDos_Code();
void Fat16Zip_Code();
void Fat32MsDos_Code();
// The images of several sectors: 12, 9 and 7. A dump that makes no whole sectors is told in a box.
void BootMgrEXFAT_Code();
void Bootmgr_NTFS_Code();
void NTLDR_NTFS_Code();
