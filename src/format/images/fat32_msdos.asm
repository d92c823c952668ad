; FAT32 boot code for Windows 95 to ME (MS-DOS 7 and 8): boot sector and extended sector, two images of one program.
;
; Assembled once per image: nasm -f bin, with -D EXTENDED for the extended sector. Both sectors are assembled each time,
; since they call each other, and one is written.
;
; Loaded by   an MBR, or the BIOS where the volume has no partition table: first sector to 0:7C00, DL = drive.
; Loads       relative sector 2 of the volume (the extended sector, known by its mark) to 0:7E00, then the first four
;             sectors of IO.SYS, MSDOS.SYS or WINBOOT.SYS to 0070:0000; they lie one behind the other, as the loader in
;             them takes for granted. The first of these files, in this order, that is such a loader is started: on
;             most drives MSDOS.SYS is a text, and older systems can't read FAT32.
; Hand-over   CS:IP 0070:0200; DL = drive; SI:DI = first cluster; SS:BP = 0:7C00; DS = ES = 0; on the stack 0000:0078
;             and the INT 1Eh vector, then the LBA of cluster 2, which so lies at BP-4; interrupts on, direction flag
;             clear; this boot sector at 0:7C00 with the drive in byte 40h, and in byte 2 0Ch where LBA calls work; word
;             1EEh = address of the table of messages.
; Memory      stack below 7C00h, directory entries at 0500h to 055Fh, FAT sector at 8000h, directory sector at 8200h.
; Fields read sectors per cluster, reserved sectors, FATs, geometry, hidden sectors, total, FAT sectors, root cluster,
;             drive (only where DL makes no sense). Bytes 3 to 59h are the formatter's.
; Runs at     0:7C00 or 07C0:0000, as the BIOS likes: all jumps are relative.
; Limits      386; sectors of 512 bytes; first FAT only; the volume starts below sector 2^32; with CHS calls it ends
;             where 1024 cylinders end.
; Failure     "Disk I/O error" for what can't be read or makes no sense, else "Invalid system disk", then a key and
;             INT 19h.

%include "boot.inc"
%include "fat32.inc"

        bits    16
        cpu     386

%define LBA_ON           0x0C
%define LBA_OFF          0x90
%define BPB_DRIVE        BPB32_DRIVE
%define EXTENDED_SECTOR  2
%define EXTENDED_ADDRESS 0x7E00
%define MARK             "KXMS"
%define FAT_BUFFER       0x8000
%define DIRECTORY_BUFFER 0x8200
%define DIRECTORY_LIMIT  4096           ; sectors of the largest FAT directory, 65536 entries
%define INT_1E           0x78           ; address of the vector
%define FOUND_ENTRIES    0x0500         ; one for each name
%define NAMES            3
%define NAME_STEP        13
%define LOAD_SEGMENT     0x0070
%define LOAD_SECTORS     4
%define ENTRY_OFFSET     0x0200         ; of the loader
%define LOADER_MARK      "BJ"           ; there
%define PLACE            0x1EE          ; word: the table of messages

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
        db      "MSWIN4.1"
        bpb32   16, 32, 63, 255, 63, 25302312, 12349, 0x80, "DRIVE_C"

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
                                        ; falls into disk_error: an old sector, or none
disk_error:
        mov     si, text_disk
        jmp     short fail
missing:
        mov     si, text_missing
; Prints the text at SI and the closing one, waits for a key and lets the BIOS look for another drive.
fail:
        sti                             ; a BIOS may come back from a disk call without interrupts
.next:
        lodsb
        test    al, al
        jg      .print
        mov     si, text_closing
        js      .next
        xor     ax, ax
        int     0x16
        int     0x19
.stop:
        hlt
        jmp     short .stop
.print:
        mov     ah, 0x0E
        mov     bx, 7
        push    si
        int     0x10
        pop     si
        jmp     short .next

%include "read_sectors.inc"

; The messages, as the loader uses them too: for "no system", "can't be read", "no system" once more and the closing
; text the distance from behind that byte; a text ends in FFh, the closing text in 0.
messages:
        db      text_missing - $ - 1
        db      text_disk - $ - 1
        db      text_missing - $ - 1
        db      text_closing - $ - 1
text_missing:
        db      13, 10, "Invalid system disk", 0xFF
text_disk:
        db      13, 10, "Disk I/O error", 0xFF
text_closing:
        db      13, 10, "Replace the disk, and then press any key", 13, 10, 0

; One name in each NAME_STEP bytes: the place of the table's address lies between two of them.
        pad_to  PLACE + 2 - 2 * NAME_STEP
names:
        db      "IO      SYS"
        pad_to  PLACE + 2 - NAME_STEP
        db      "MSDOS   SYS"
must $-$$ == PLACE
        dw      messages
must $ - names == 2 * NAME_STEP
        db      "WINBOOT SYS"
        pad_to  SECTOR_BYTES - 2
        dw      BOOT_MAGIC

section .second

        db      MARK

find_loader:
        measure_data_area
        mov     di, FOUND_ENTRIES
        mov     cx, NAMES * ENTRY_BYTES / 2
        xor     ax, ax
        rep     stosw
        mov     eax, [bp+BPB32_ROOT]
.cluster:
        push    eax
        call    cluster_sector
.sector:
        dec     word [directory_left]
        js      disk_error              ; the chain runs in a circle
        call    search_sector
        jc      start_loader
        inc     eax
        loop    .sector
        pop     eax
        call    next_cluster
        cmp     eax, FAT32_END
        jb      .cluster

; Starts the first of the files found that is a loader.
start_loader:
        mov     di, FOUND_ENTRIES
.file:
        cmp     dword [di+ENTRY_SIZE], LOAD_SECTORS * SECTOR_BYTES
        jb      .next                   ; also where none was found
        push    word [di+ENTRY_HIGH]
        push    word [di+ENTRY_LOW]
        pop     eax
        call    cluster_sector
        mov     cx, LOAD_SECTORS
        mov     bx, LOAD_SEGMENT * 16
        call    read_sectors
        cmp     word [bx+ENTRY_OFFSET], LOADER_MARK
        je      .start
.next:
        add     di, ENTRY_BYTES
        cmp     di, FOUND_ENTRIES + NAMES * ENTRY_BYTES
        jb      .file
        jmp     missing
.start:
        mov     sp, bp
        mov     eax, [data_start]
        add     eax, [bp+BPB_HIDDEN]
        push    eax
        push    dword [INT_1E]
        push    dword INT_1E
        mov     dl, [bp+BPB_DRIVE]
        mov     si, [di+ENTRY_HIGH]
        mov     di, [di+ENTRY_LOW]
        sti                             ; a BIOS may come back from a disk call without interrupts
        jmp     LOAD_SEGMENT:ENTRY_OFFSET

; Looks for the names in one sector of the directory and copies what it finds to the entry of that name.
; In: EAX = sector; ES = 0.  Out: carry set where the directory ends.  Clobbered: BX, SI, DI, flags.
search_sector:
        push    cx
        mov     bx, DIRECTORY_BUFFER
        mov     cx, 1
        call    read_sectors
        mov     di, bx
.entry:
        cmp     byte [di], 1            ; 0: never used, like all behind it
        jb      .out
        test    byte [di+ENTRY_ATTRIBUTES], NO_FILE
        jnz     .next
        mov     si, names
        mov     bx, FOUND_ENTRIES
.name:
        pusha
        mov     cx, ENTRY_NAME_BYTES
        repe    cmpsb                   ; a deleted entry begins with E5h
        popa
        je      .found
        add     si, NAME_STEP
        add     bx, ENTRY_BYTES
        cmp     bx, FOUND_ENTRIES + NAMES * ENTRY_BYTES
        jb      .name
.next:
        add     di, ENTRY_BYTES
        cmp     di, DIRECTORY_BUFFER + SECTOR_BYTES
        jb      .entry
        clc
.out:
        pop     cx
        ret
.found:
        pusha
        mov     si, di
        mov     di, bx
        mov     cx, ENTRY_BYTES / 2
        rep     movsw
        popa
        jmp     short .next

%include "fat32_chain.inc"

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
