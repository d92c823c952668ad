; FAT16 boot code for BOOTMGR and NTLDR, and FAT12 boot code for BOOTMGR.
;
; Assembled once per image: nasm -f bin -D LOADER=BOOTMGR or NTLDR, with -D FAT12 for the small second partition. The
; two FAT16 images differ only in the file name, the message about it and the places of messages at 1FCh and 1FDh.
;
; Loaded by   an MBR, or the BIOS where the volume has no partition table, to 0:7C00; DL = drive.
; Loads       the file BOOTMGR or NTLDR of the root directory, whole, to 2000:0000 and up.
; Hand-over   CS:IP 2000:0000; DL = drive, DH = 0; DS = ES = SS = 0, BP = 7C00h, SP a few bytes lower; direction flag
;             clear; this boot sector at 0:7C00 with the drive in byte 24h, and in byte 2 0Eh where LBA calls work, 90h
;             where not.
; Memory      stack below 7C00h, FAT at 8000h (of FAT16 one sector), root directory at C000h to FFFFh; all else below
;             20000h is left alone.
; Fields read sectors per cluster, reserved sectors, total, FAT sectors, geometry, hidden sectors. There are two FATs
;             and 512 root entries. Bytes 0Bh to 3Dh are the formatter's.
; Runs at     0:7C00 or 07C0:0000, as the BIOS likes: all jumps are relative.
; Limits      386; sectors of 512 bytes; first FAT only, with 16-bit entries whatever the number of clusters (FAT12:
;             12-bit ones); the file must end below the memory that the BIOS reports; the volume starts below sector
;             2^32; with CHS calls it ends where 1024 cylinders of the volume's geometry end.
; Left out    for want of room: doubts about DL, the BIOS's own geometry.
; Failure     "Disk error" for whatever can't be read, doesn't fit or makes no sense, else that the loader is missing;
;             then a key and INT 19h.

%include "boot.inc"
%include "fat16.inc"

        bits    16
        cpu     386
        org     BOOT_ADDRESS

%ifidn LOADER, BOOTMGR
  %define LOADER_NAME  "BOOTMGR    "
  %define MISSING_TEXT "Remove disks or other media."
%elifidn LOADER, NTLDR
  %define LOADER_NAME  "NTLDR      "
  %define MISSING_TEXT "NTLDR is missing"
%else
  %error "LOADER is BOOTMGR or NTLDR"
%endif

%define LBA_ON       0x0E
%define LBA_OFF      0x90
%define BPB_DRIVE    BPB16_DRIVE
%define LOAD_SEGMENT 0x2000
%define FAT_OFFSET   0x8000
%define FAT_SEGMENT  (FAT_OFFSET / 16)
%define ROOT_OFFSET  (0x10000 - ROOT_SECTORS * SECTOR_BYTES)  ; the directory ends where the segment ends
%define DATA_START   bp-4               ; variables at the top of the stack
%define CACHED       bp-6
%define PLACES       0x1FC              ; low bytes of two texts' addresses
%define BIOS_MEMORY  0x413              ; word: KiB
%define NO_MORE      missing

%macro COMPARE_ROOM 0
        imul    di, [BIOS_MEMORY], 64
        cmp     bx, di
%endmacro

%macro COMPARE_END 0
  %ifdef FAT12
        cmp     ax, [bp+BPB16_TOTAL]
  %else
        cmp     eax, [bp+BPB_TOTAL]
  %endif
%endmacro

        jmp     short start
%ifdef FAT12
        db      0x90
        db      "MSDOS5.0"
        bpb16   1, 6, 63, 0xF8, 1, 63, 255, 0, 0, 0x80, "NO NAME", "FAT12"
%else
        db      LBA_ON
        db      "MSDOS5.0"
        bpb16   32, 4, 0, 0xF8, 242, 63, 255, 128, 1981312, 0x80, "NO NAME", "FAT16"
%endif

start:
        xor     eax, eax
        mov     ss, ax
        mov     sp, BOOT_ADDRESS
        mov     bp, sp
        mov     ds, ax
        sti
        cld
        mov     [bp+BPB_DRIVE], dl
%ifdef FAT12
        mov     byte [bp+BPB_JUMP_END], LBA_ON
%endif
%include "probe_lba.inc"
        mov     si, bp                  ; more than will be read here
%ifdef FAT12
        mov     ax, [bp+BPB_RESERVED]
        mov     cx, [bp+BPB16_FAT_SECTORS]
        push    FAT_SEGMENT
        pop     es
        call    read_run
        add     ax, [bp+BPB16_FAT_SECTORS]
%else
        mov     ax, [bp+BPB16_FAT_SECTORS]
        add     ax, ax
        add     ax, [bp+BPB_RESERVED]
%endif
        mov     cx, ROOT_SECTORS
        push    ROOT_OFFSET / 16
        pop     es
        call    read_run
        push    eax                     ; DATA_START
        push    -1                      ; CACHED
        push    ds
        pop     es
        mov     di, ROOT_OFFSET
.entry:
%include "match_entry.inc"
        jnz     .entry
                                        ; falls into missing

missing:
        mov     al, [BOOT_ADDRESS+PLACES]
        jmp     short fail
; Prints text and closing text, waits for a key and lets the BIOS look for another drive.
print:
        mov     ah, 0x0E
        mov     bx, 7
        int     0x10
        jmp     short fail.next
disk_error:
        mov     al, [BOOT_ADDRESS+PLACES+1]
fail:
        mov     ah, BOOT_ADDRESS / 256 + 1
        xchg    ax, si
.next:
        lodsb
        test    al, al
        jg      print
        mov     si, text_key
        jz      .next
        xor     ax, ax
        int     0x16
        int     0x19

%include "read_sector.inc"
%include "load_file16.inc"

start_loader:
        movzx   dx, byte [bp+BPB_DRIVE]
        push    ds
        pop     es
        jmp     LOAD_SEGMENT:0

loader_name:
        db      LOADER_NAME
must $ - loader_name == ENTRY_NAME_BYTES

%strlen MISSING_LENGTH MISSING_TEXT
        pad_to  PLACES - MISSING_LENGTH - 41
text_disk:
        db      13, 10, "Disk error", 0
text_missing:
        db      13, 10, MISSING_TEXT
text_key:                               ; goes on from text_missing; the next byte's sign ends it
        db      13, 10, "Press any key to restart"
must $-$$ == PLACES
        db      text_missing - $$ - 256, text_disk - $$ - 256
        dw      BOOT_MAGIC
must text_missing - $$ >= 256 + 128 && text_disk - $$ >= 256
