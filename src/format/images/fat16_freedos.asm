; FAT16 boot code for FreeDOS.
;
; Assembled with nasm -f bin.
;
; Loaded by   an MBR, or the BIOS where the volume has no partition table, to 0:7C00; DL = drive.
; Runs at     1FE0:7C00, where it moves itself with its stack and buffers: the file is loaded over its first place.
; Loads       the file KERNEL.SYS of the root directory, whole, to 0060:0000 and up.
; Hand-over   CS:IP 0060:0000; BL = DL = drive; SS:BP = the boot sector, with the drive in byte 24h; the word at BP-14h
;             is not "CL", which would announce a command line; interrupts on, direction flag clear; DS = ES = SS.
; Memory      stack below 279A0h, boot sector at 27A00h, FAT sector at 27E00h, root directory at 2BE00h to 2FDFFh.
; Fields read sectors per cluster, reserved sectors, total, FAT sectors, geometry, hidden sectors, drive (only where
;             DL makes no sense). There are two FATs and 512 root entries. Bytes 0Bh to 3Dh are the formatter's.
; Limits      386; sectors of 512 bytes; first FAT only, with 16-bit entries whatever the number of clusters; the file
;             has at most 153 KiB; the volume starts below sector 2^32; with CHS calls it ends where 1024 cylinders end.
; Failure     "Error!", a key and INT 19h.

%include "boot.inc"
%include "fat16.inc"

        bits    16
        cpu     386
        org     BOOT_ADDRESS

%define ASK_GEOMETRY
%define LBA_ON       0x0E               ; in byte 2 of the jump, in memory
%define LBA_OFF      0x90
%define BPB_DRIVE    BPB16_DRIVE
%define BASE         0x1FE0             ; the segment of all that follows
%define STACK        0x7BA0
%define FAT_SEGMENT  (BASE + 0x0800)
%define ROOT_OFFSET  (0x10000 - ROOT_SECTORS * SECTOR_BYTES)  ; the directory ends where the segment ends
%define ROOT_SEGMENT (BASE + ROOT_OFFSET / 16)
%define LOAD_SEGMENT 0x0060
%define LOAD_LIMIT   307                ; sectors, up to 26C00h; leaves the stack 3 KiB
%define DATA_START   bp-0x18            ; between boot sector and stack
%define CACHED       bp-0x14            ; the number of a FAT sector is never "CL"
%define NO_MORE      disk_error

%macro COMPARE_END 0
        cmp     eax, [bp+BPB_TOTAL]
%endmacro

        jmp     short start
        nop
        db      "FRDOS4.1"
        bpb16   16, 1, 0, 0xF8, 256, 32, 64, 32, 1046495, 0x80, "FREEDOS", "FAT16"

start:
        cld
        xor     eax, eax
        mov     ds, ax
        mov     si, BOOT_ADDRESS
        mov     di, si
        mov     bp, si
        push    BASE
        pop     es
        mov     cx, SECTOR_BYTES / 2
        rep     movsw
        jmp     BASE:moved
moved:
        push    es
        pop     ds
        push    es
        pop     ss
        mov     sp, STACK
        sti
        test    dl, ODD_DRIVE_BITS      ; some old BIOSes leave DL alone
        jnz     .drive_known
        mov     [bp+BPB_DRIVE], dl
.drive_known:
        mov     dl, [bp+BPB_DRIVE]
        mov     byte [bp+BPB_JUMP_END], LBA_ON
%include "probe_lba.inc"
        mov     si, bp                  ; more than will be read here
        mov     ax, [bp+BPB16_FAT_SECTORS]
        add     ax, ax
        add     ax, [bp+BPB_RESERVED]
        mov     cx, ROOT_SECTORS
        push    ROOT_SEGMENT
        pop     es
        call    read_run
        mov     [DATA_START], eax
        mov     word [CACHED], -1
        push    ds
        pop     es
        mov     di, ROOT_OFFSET
.entry:
%include "match_entry.inc"
        jnz     .entry
                                        ; falls into disk_error
disk_error:
        mov     si, text_error
        mov     bx, 7
.next:
        mov     ah, 0x0E
        lodsb
        int     0x10
        cmp     [si], bh
        jne     .next
        xor     ax, ax
        int     0x16
        int     0x19

%include "read_sector.inc"
%include "load_file16.inc"

start_loader:
        sti
        mov     dl, [bp+BPB_DRIVE]
        mov     bl, dl
        push    ds
        pop     es
        jmp     LOAD_SEGMENT:0

loader_name:
        db      "KERNEL  SYS"
text_error:
        db      13, 10, "Error!", 0
must text_error - loader_name == ENTRY_NAME_BYTES

        pad_to  SECTOR_BYTES - 2
        dw      BOOT_MAGIC
