; FAT32 boot code for BOOTMGR and NTLDR: boot sector and extended sector, two images of one program.
;
; Assembled once per image: nasm -f bin -D LOADER=BOOTMGR or NTLDR, with -D EXTENDED for the extended sector. Both
; sectors are assembled each time, since they call each other, and one is written.
;
; Loaded by   an MBR, or the BIOS where the volume has no partition table: first sector to 0:7C00, DL = drive.
; Loads       relative sector 12 of the volume (the extended sector, known by its mark) to 0:7E00, then the file
;             BOOTMGR or NTLDR of the root directory, whole, to 2000:0000 and up.
; Hand-over   CS:IP 2000:0000; DL = drive, DH = 0; DS = ES = SS = 0, SP = BP = 7C00h; interrupts on,
;             direction flag clear; this boot sector at 0:7C00 with
;             the drive in byte 40h, and 0Eh in byte 2 where LBA calls work; where not, BPB_TRACK and BPB_HEADS are
;             the BIOS's and byte 2 is 0 for BOOTMGR (its later versions take anything else for LBA), 90h for NTLDR.
; Memory      stack below 7C00h, FAT sector at 8000h, directory sector at 8200h; all else below 20000h is left alone.
; Fields read sectors per cluster, reserved sectors, FATs, geometry, hidden sectors, total, FAT sectors, root cluster,
;             drive (only where DL makes no sense). Bytes 3 to 59h are the formatter's.
; Runs at     0:7C00 or 07C0:0000, as the BIOS likes: all jumps are relative.
; Limits      386; sectors of 512 bytes; first FAT only; the file must end below the memory that INT 12h reports;
;             the volume starts below sector 2^32; with CHS calls it ends where 1024 cylinders end.
; Failure     "Disk error" for whatever can't be read, doesn't fit or makes no sense, else that the loader is missing;
;             then a key and INT 19h.

%include "boot.inc"
%include "fat32.inc"

        bits    16
        cpu     386

%ifidn LOADER, BOOTMGR
  %define LOADER_NAME  "BOOTMGR    "
  %define MISSING_TEXT "BOOTMGR is missing"
  %define MARK         "KXBM"
  %define LBA_OFF      0
%elifidn LOADER, NTLDR
  %define LOADER_NAME  "NTLDR      "
  %define MISSING_TEXT "Remove disks or other media."
  %define MARK         "KXNL"
  %define LBA_OFF      0x90
%else
  %error "LOADER is BOOTMGR or NTLDR"
%endif

%define LBA_ON           0x0E
%define BPB_DRIVE        BPB32_DRIVE
%define EXTENDED_SECTOR  12
%define EXTENDED_ADDRESS 0x7E00
%define FAT_BUFFER       0x8000
%define DIRECTORY_BUFFER 0x8200
%define LOAD_SEGMENT     0x2000
%define DIRECTORY_LIMIT  4096           ; sectors of the largest FAT directory, 65536 entries

; Only one of the two sectors is written; what the assembler says about the bytes of the other one is no news.
[warning -other]
%ifdef EXTENDED
section .first  nobits   vstart=BOOT_ADDRESS
section .second progbits vstart=EXTENDED_ADDRESS
%else
section .first  progbits vstart=BOOT_ADDRESS
section .second nobits   vstart=EXTENDED_ADDRESS
%endif

section .first

        jmp     short start
        nop
        db      "MSDOS5.0"
%ifidn LOADER, BOOTMGR
        bpb32   8, 32, 63, 255, 128, 1981312, 1932, 0x80, "NO NAME"
%else
        bpb32   8, 32, 63, 255, 32, 1021919, 996, 0x00, "NO NAME"
%endif

start:
%include "start.inc"
        call    probe_lba
        xor     eax, eax
        mov     al, EXTENDED_SECTOR
        mov     cx, 1
        mov     bx, EXTENDED_ADDRESS
        call    read_sectors
        cmp     dword [bx], MARK
        je      find_loader
        jmp     short disk_error        ; an old sector, or none

missing:
        mov     si, text_missing
        jmp     short fail
disk_error:
        mov     si, text_disk
fail:
        sti                             ; a BIOS may come back from a disk call without interrupts
        call    print
        mov     si, text_key
        call    print
        xor     ax, ax
        int     0x16
        int     0x19
.stop:
        hlt
        jmp     short .stop

%include "print.inc"
%include "read_sectors.inc"

loader_name:
        db      LOADER_NAME
text_missing:
        db      13, 10, MISSING_TEXT, 0
text_disk:
        db      13, 10, "Disk error", 0
text_key:
        db      13, 10, "Press any key to restart", 13, 10, 0
must text_missing - loader_name == ENTRY_NAME_BYTES

        pad_to  SECTOR_BYTES - 2
        dw      BOOT_MAGIC

section .second

        db      MARK

find_loader:
        measure_data_area
        mov     eax, [bp+BPB32_ROOT]
.cluster:
        push    eax
        call    cluster_sector
.sector:
        dec     word [directory_left]
        js      disk_error              ; the chain runs in a circle
        call    search_sector
        jnc     load_file
        inc     eax
        loop    .sector
        pop     eax
        call    next_cluster
        cmp     eax, FAT32_END
        jb      .cluster
        jmp     missing

%include "search_sector.inc"
%include "fat32_chain.inc"
%include "load_file.inc"

data_start:
        dd      0
cluster_count:
        dd      0
cached_fat_sector:
        dd      -1
directory_left:
        dw      DIRECTORY_LIMIT

        pad_to  SECTOR_BYTES - 2
        dw      BOOT_MAGIC
