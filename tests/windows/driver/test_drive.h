// What the driver of the test drive and its tests agree on.
#pragma once

#define TEST_DRIVE_DEVICE L"\\Device\\KorventixTestDrive"
#define TEST_DRIVE_LINK L"\\??\\PhysicalDrive1"

// Control code: the input is the path of an image file as the kernel names it ("\\??\\Z:\\..."), UTF-16 without a NUL
// at its end. The drive takes the file's bytes and its length from now on.
enum { kAttachImage = 0x00222400 };
