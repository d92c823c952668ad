; FAT16 boot code for MS-DOS and Windows 95 to ME.
;
; Assembled once per image: nasm -f bin, with -D ZIP for the one with texts of its own, which looks for IO.SYS first and
; for WINBOOT.SYS if there is none; the other one does it the other way round.
;
; Loaded by   an MBR, or the BIOS where the volume has no partition table, to 0:7C00; DL = drive.
; Loads       the first four sectors of that file to 0070:0000; they lie one behind the other, as the loader in them
;             takes for granted. What they contain tells which kind of loader it is.
; Hand-over   to MS-DOS 7 and up ("BJ" at 0070:0200): CS:IP 0070:0200; DI = first cluster; DS = ES = 0.
;             to MS-DOS 4 to 6: CS:IP 0070:0000; CH = media byte; AX:BX = LBA of cluster 2; DS:SI = INT 1Eh vector; the
;             directory entries of the file at 0:0500 and of MSDOS.SYS, without which it is no system disk, at 0:0520.
;             to both: DL = drive; SS:BP = 0:7C00; on the stack 0000:0078 and the INT 1Eh vector, then the LBA of
;             cluster 2, which so lies at BP-4; direction flag clear; this boot sector at 0:7C00 with the drive in byte
;             24h and, but for ZIP, in byte 2 0Eh where LBA calls work; word 1EEh = address of the table of messages.
; Memory      stack below 7C00h, 0500h to 053Fh, root directory at C000h to FFFFh.
; Fields read sectors per cluster, reserved sectors, total, FAT sectors, media, geometry, hidden sectors. There are two
;             FATs and 512 root entries. Bytes 0Bh to 3Dh are the formatter's.
; Runs at     0:7C00 or 07C0:0000, as the BIOS likes: all jumps are relative.
; Limits      386; sectors of 512 bytes; the volume ends below sector 2^32, with CHS calls where 1024 cylinders end.
; Left out    for want of room: doubts about DL; of ZIP also byte 2, the BIOS's own geometry, and the question for LBA
;             calls, which are tried for each sector instead.
; Failure     "Disk I/O error" for what can't be read or makes no sense, "Invalid system disk" for what is missing;
;             without ZIP "Error!" for both; then a key and INT 19h.

%include "boot.inc"
%include "fat16.inc"

        bits    16
        cpu     386
        org     BOOT_ADDRESS

%define WHOLE_DISK
%define READ_ON
%define LBA_ON       0x0E               ; in byte 2 of the jump, in memory
%define LBA_OFF      0x90
%define BPB_DRIVE    BPB16_DRIVE
%define ROOT_OFFSET  (0x10000 - ROOT_SECTORS * SECTOR_BYTES)  ; the directory ends where the segment ends
%define DATA_LBA     bp-4               ; what the loader finds on the stack
%define DISKETTE     bp-8
%define INT_1E       0x78               ; address of the vector
%define FILE_ENTRY   0x0500
%define DOS_ENTRY    0x0520
%define LOAD_SEGMENT 0x0070
%define LOAD_SECTORS 4
%define DOS7_OFFSET  0x0200
%define DOS7_MARK    "BJ"
%define PLACE        0x1EE              ; word: the table of messages

        jmp     short start
        db      LBA_OFF
%ifdef ZIP
  %define BOTH_WAYS
        db      "MSWIN4.1"
        bpb16   32, 1, 0, 0xF0, 242, 32, 32, 32, 1981408, 0x00, "NO NAME", "FAT16"
        dw      0                       ; the jump goes two bytes further
%else
  %define ASK_GEOMETRY
        db      "MSDOS5.0"
        bpb16   8, 2, 0, 0xF8, 243, 63, 255, 128, 497887, 0x00, "NO NAME", "FAT16"
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
%ifndef ZIP
        mov     byte [bp+BPB_JUMP_END], LBA_ON
  %include "probe_lba.inc"
%endif
        mov     ax, [bp+BPB16_FAT_SECTORS]
        add     ax, ax
        add     ax, [bp+BPB_RESERVED]
        add     eax, [bp+BPB_HIDDEN]
        mov     cx, ROOT_SECTORS
        push    ROOT_OFFSET / 16
        pop     es
        call    read_sector
        push    eax                     ; DATA_LBA
        push    dword [INT_1E]          ; DISKETTE
        push    dword INT_1E
        mov     si, names
        mov     bx, FILE_ENTRY
        call    find_file
        movzx   eax, word [di-ENTRY_BYTES+ENTRY_LOW]
        sub     eax, 2                  ; far beyond the end for 0 and 1
        movzx   ecx, byte [bp+BPB_CLUSTER]
        mul     ecx
        cmp     eax, [bp+BPB_TOTAL]
        jae     disk_error
        add     eax, [DATA_LBA]
        mov     cl, LOAD_SECTORS
        push    LOAD_SEGMENT
        pop     es
        call    read_sector
        mov     dl, [bp+BPB_DRIVE]
        mov     di, [FILE_ENTRY+ENTRY_LOW]
        cmp     word [LOAD_SEGMENT*16+DOS7_OFFSET], DOS7_MARK
        je      start_dos7
        mov     si, name_dos
        mov     bx, DOS_ENTRY
        call    find_file
        mov     ch, [bp+BPB16_MEDIA]
        les     bx, [DATA_LBA]
        mov     ax, es
        lds     si, [DISKETTE]
        jmp     LOAD_SEGMENT:0
start_dos7:
        jmp     LOAD_SEGMENT:DOS7_OFFSET

; Copies the directory entry of a file.  In: SI = name; BX = address for the entry; CH = 0.  Out: ES = 0, CX = 0, DI =
; address behind the entry.  Clobbered: SI, flags.  Ends at `missing` where there is no such file, nor, if that was the
; first name, one of the last.
find_file:
        push    ds
        pop     es
        mov     di, ROOT_OFFSET
.entry:
        cmp     [di], ch                ; never used, like all behind it
        je      .none
        test    byte [di+ENTRY_ATTRIBUTES], NO_FILE
        jnz     .next
        pusha
        mov     cl, ENTRY_NAME_BYTES
        repe    cmpsb                   ; a deleted entry begins with E5h
        popa
        je      .copy
.next:
        add     di, ENTRY_BYTES
        jnz     .entry
.none:
        add     si, name_last - names
        cmp     si, name_last
        je      find_file
                                        ; falls into missing
missing:
        mov     si, text_missing
        jmp     fail
find_file.copy:
        mov     si, di
        mov     di, bx
        mov     cl, ENTRY_BYTES
        rep     movsb
        ret

%include "read_sector.inc"

disk_error:
        mov     si, text_disk
; Prints the text at SI and the closing one, waits for a key and lets the BIOS look for another drive.
fail:
        lodsb
        test    al, al
        jg      .print
        mov     si, text_closing
        js      fail
        xor     ax, ax
        int     0x16
        int     0x19
.print:
        mov     ah, 0x0E
        xor     bx, bx
        int     0x10
        jmp     short fail

; The messages, as the loaders of MS-DOS 7 use them too. `messages`: for "no system", "can't be read", "no system" once
; more and the closing text the distance from behind that byte; a text ends in FFh, the closing text in 0.
; The names are those under which the loader is looked for, the first and, if there is none, the last; between them the
; rest of an older system.
%macro table_of_messages 0
messages:
        db      text_missing - $ - 1
        db      text_disk - $ - 1
        db      text_missing - $ - 1
        db      text_closing - $ - 1
%endmacro
%ifdef ZIP
names:
        db      "IO      SYS"
name_dos:
        db      "MSDOS   SYS"
        table_of_messages
text_missing:
        db      13, 10, "Invalid system disk", 0xFF
text_disk:
        db      13, 10, "Disk I/O error", 0xFF
text_closing:
        db      13, 10, "Replace the disk, and then press any key", 13, 10, 0

        pad_to  PLACE
        dw      messages
name_last:
        db      "WINBOOT SYS"
%else
names:
        db      "WINBOOT SYS"
name_dos:
        db      "MSDOS   SYS"
name_last:
        db      "IO      SYS"

        pad_to  PLACE
        dw      messages
        table_of_messages
text_missing:
text_disk:
        db      13, 10, "Error!", 0xFF
text_closing:
        db      0
%endif
        pad_to  SECTOR_BYTES - 2
        dw      BOOT_MAGIC
