; FAT32 boot code for FreeDOS.
;
; Assembled with nasm -f bin.
;
; Loaded by   an MBR, or the BIOS where the volume has no partition table, to 0:7C00; DL = drive.
; Runs at     2400:7C00, where it moves itself with its stack and buffer: the file is loaded over its first place.
; Loads       the file KERNEL.SYS of the root directory, whole, to 0060:0000 and up.
; Hand-over   CS:IP 0060:0000; BL = DL = drive; SS:BP = the boot sector, with the drive in byte 40h; the word at BP-14h
;             is not "CL", which would announce a command line; direction flag clear; DS = SS.
; Memory      sector of FAT or directory at 24000h, stack below 2BBEAh, boot sector at 2BC00h; the move also fills what
;             lies behind it, up to 33800h.
; Fields read sectors per cluster, reserved sectors, total, geometry, hidden sectors, FAT sectors, root cluster. There
;             are two FATs. Bytes 3 to 59h are the formatter's.
; Limits      386; sectors of 512 bytes; first FAT only; the file has at most 142 KiB; the volume starts below sector
;             2^32; with CHS calls it ends where 1024 cylinders of the volume's geometry end.
; Left out    for want of room: the BIOS's own geometry, the question for LBA calls, which are tried instead, and where
;             they fail given up.
; Failure     "No KERNEL  SYS" for whatever is missing, can't be read, doesn't fit or makes no sense; a key and INT 19h.

%include "boot.inc"
%include "fat32.inc"

        bits    16
        cpu     386
        org     BOOT_ADDRESS

%define LBA_ON       0x90               ; in byte 2 of the jump, in memory
%define LBA_OFF      0x00
%define BPB_DRIVE    BPB32_DRIVE
%define BASE         0x2400             ; the segment of all that follows; the buffer lies at its start
%define LOAD_SEGMENT 0x0060
%define STACK        (BOOT_ADDRESS - 0x12)
%define DATA_START   bp-0x16            ; dword: the first sector of cluster 2, counted from the volume's start
%define DIRECTORY_LIMIT 4096            ; sectors of the largest directory, 65536 entries
%define NO_MORE      disk_error

%macro COMPARE_END 0
        cmp     eax, [bp+BPB_TOTAL]
%endmacro
%macro GIVE_UP_LBA 0
        mov     byte [bp+BPB_JUMP_END], LBA_OFF
%endmacro

        jmp     short start
        db      LBA_ON
        db      "FreeDOS "
        bpb32   32, 34, 63, 255, 63, 61432497, 14991, 0xFF, "NO NAME"

start:
        cld
        xor     ax, ax
        mov     ds, ax
        mov     si, BOOT_ADDRESS
        mov     di, si
        mov     cx, si                  ; more than needed
        push    BASE
        pop     es
        rep     movsb
        jmp     BASE:moved
moved:
        push    es
        pop     ds
        push    es
        pop     ss
        mov     sp, STACK
        sti
        mov     si, text_loading
        call    print
        mov     bp, BOOT_ADDRESS        ; some BIOSes change it when they print
        test    dl, ODD_DRIVE_BITS      ; some old BIOSes leave DL alone
        jnz     .drive_known
        mov     [bp+BPB_DRIVE], dl
.drive_known:
        mov     eax, [bp+BPB32_FAT_SECTORS]
        add     eax, eax
        movzx   edx, word [bp+BPB_RESERVED]
        add     eax, edx
        push    eax                     ; DATA_START; its upper word, below 1024, is what lies at BP-14h
        mov     eax, [bp+BPB32_ROOT]
        mov     bx, search_sector

; Reads a chain, sector after sector, to ES:0.  In: EAX = cluster; BX = routine to call after each sector; it keeps EAX,
; BX and CX and may move ES.  Does not return.
read_chain:
        push    eax
        sub     eax, 2
        movzx   ecx, byte [bp+BPB_CLUSTER]
        mul     ecx
        jc      disk_error              ; clusters 0 and 1, or far beyond the end
        add     eax, [DATA_START]
        jc      disk_error
.sector:
        call    read_sector
        call    bx
        inc     eax
        loop    .sector
        pop     eax
        mov     di, ax
        and     di, SECTOR_BYTES / 4 - 1
        shl     di, 2
        shr     eax, 7
        movzx   edx, word [bp+BPB_RESERVED]
        add     eax, edx
        push    es
        push    ds
        pop     es
        call    read_sector
        pop     es
        mov     eax, [di]
        and     eax, FAT32_MASK
        jmp     short read_chain        ; an end mark is no cluster of the volume

; Looks for the kernel in the directory sector at DS:0; goes on at load_file with DI = its entry.
search_sector:
        dec     word [directory_left]
        jz      disk_error              ; the chain runs in a circle
        xor     di, di
        push    cx
.entry:
%include "match_entry.inc"
        cmp     di, SECTOR_BYTES
        jb      .entry
        pop     cx
        ret

load_file:
        mov     esi, [di+ENTRY_SIZE]
        dec     esi
        shr     esi, 9                  ; ESI = sectors to load behind the next; an empty file counts as the largest
        push    word [di+ENTRY_HIGH]
        push    word [di+ENTRY_LOW]
        pop     eax
        push    LOAD_SEGMENT
        pop     es
        mov     bx, .count
        jmp     read_chain
.count:
        dec     esi
        js      start_loader
        mov     di, es
        add     di, SECTOR_BYTES / 16
        mov     es, di
        cmp     di, BASE - SECTOR_BYTES / 16
        jbe     .more
                                        ; falls into disk_error
disk_error:
        mov     si, text_missing
        call    print
        xor     ax, ax
        int     0x16
        int     0x19

print:
        lodsb
        mov     ah, 0x0E
        xor     bx, bx
        int     0x10
        cmp     [si], bh
        jne     print
load_file.more:
        ret

%include "read_sector.inc"

start_loader:
        mov     dl, [bp+BPB_DRIVE]
        mov     bl, dl
        jmp     LOAD_SEGMENT:0

text_loading:
        db      "Loading FreeDOS ", 0
text_missing:
        db      13, 10, "No "
loader_name:
        db      "KERNEL  SYS", 0
must $ - loader_name == ENTRY_NAME_BYTES + 1

directory_left:
        dw      DIRECTORY_LIMIT + 1

        pad_to  SECTOR_BYTES - 2
        dw      BOOT_MAGIC
