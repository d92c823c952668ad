; exFAT boot code for BOOTMGR, and for GRLDR once the formatter has patched it: boot sector and extended boot sectors.
;
; Assembled with nasm -f bin.
;
; Loaded by   an MBR: first sector to 0:7C00, DL = drive, DS:SI = the partition's entry.
; Loads       relative sectors 1 and 2 of the volume (known by their marks) to 0:7E00, then the file BOOTMGR of the root
;             directory, whole, to 2000:0000 and up. Case doesn't matter in the name.
; Hand-over   CS:IP 2000:0000; DL = drive, DH = 0; DS = ES = SS = 0, SP = BP = 7C00h; interrupts on, direction flag
;             clear; this boot sector at 0:7C00, made up for a loader that expects a BPB there: in byte 2 1 where LBA
;             calls work, else 0; at 0Bh the bytes per sector; at 18h and 1Ah the BIOS's geometry where LBA calls don't
;             work; at 1Ch the lower half of the volume's first LBA, at 40h all of it; in byte 6Fh the drive.
; Memory      stack below 7C00h, FAT sector at 8200h, directory sector at 8400h; all else below 20000h is left alone.
; Fields read volume's first LBA (0: the partition entry's), FAT offset and length, heap offset, clusters, root cluster,
;             flags, shifts, FATs, drive (only where DL makes no sense).
; Replaced    bytes 0 to 78h are the volume's own, and sector 11 is the checksum. The jump leads to byte 78h, whatever
;             that is: HLT, 0, or the first byte of an instruction. Behind each of them byte 79h, CLC or the ModRM byte
;             of two registers, does no harm but to AX, BX and DI.
; Patched     for GRLDR: the first five characters of the name, at 15Eh, and its length, the operands at 304h and 337h.
; Runs at     0:7C00 or 07C0:0000, as the BIOS likes: all jumps are relative.
; Limits      386; sectors of 512 bytes; the file must end below the memory that INT 12h reports; with CHS calls it ends
;             where 1024 cylinders end. What lies behind a file's valid length is loaded as it is on the disk.
; Failure     "Disk error" for whatever can't be read, doesn't fit or makes no sense, else "Remove disks or other
;             media."; then a key and INT 19h.

%include "boot.inc"

        bits    16
        cpu     386
        org     BOOT_ADDRESS

; Fields of an exFAT boot sector, as distances from its start.
%define EXFAT_START         0x40        ; qword: LBA of the volume's first sector, or 0
%define EXFAT_FAT           0x50        ; dword: first sector of the FAT
%define EXFAT_FAT_SECTORS   0x54        ; dword: of each FAT
%define EXFAT_HEAP          0x58        ; dword: first sector of cluster 2
%define EXFAT_CLUSTERS      0x5C        ; dword
%define EXFAT_ROOT          0x60        ; dword: first cluster of the root directory
%define EXFAT_FLAGS         0x6A        ; word
%define EXFAT_SECTOR_SHIFT  0x6C        ; byte: log2 of the bytes per sector
%define EXFAT_CLUSTER_SHIFT 0x6D        ; byte: log2 of the sectors per cluster
%define EXFAT_FATS          0x6E        ; byte: 1, or 2 on a volume with transactions
%define EXFAT_DRIVE         0x6F        ; byte
%define EXFAT_CODE          0x79        ; first byte of this code
%define SECOND_FAT          0x01        ; of the flags: the second FAT is in use
%define LARGEST_SHIFT       16          ; clusters of 32 MiB
%define CHAIN_END           0xFFFFFFFF  ; in the FAT

; The three kinds of directory entries that make up a file, in this order; bit 7 tells that they are in use.
%define FILE_ENTRY          0x85
%define FILE_ATTRIBUTES     0x04        ; byte of a file entry
%define DIRECTORY           0x10
%define STREAM_ENTRY        0xC0
%define STREAM_FLAGS        0x01        ; byte of a stream entry
%define NO_CHAIN            0x02        ; the file's clusters follow each other, the FAT has nothing of them
%define STREAM_NAME_LENGTH  0x03        ; byte: characters
%define STREAM_CLUSTER      0x14        ; dword
%define STREAM_BYTES        0x18        ; qword
%define NAME_ENTRY          0xC1
%define NAME_CHARACTERS     0x02        ; 15 words
%define UNUSED_ENTRY        0x00        ; ... and all behind it

; Fields of the entry that an MBR names.
%define PARTITION_STATUS    0x00
%define ACTIVE              0x80
%define PARTITION_TYPE      0x04
%define PARTITION_LBA       0x08

%define LBA_ON              1
%define LBA_OFF             0
%define BPB_DRIVE           EXFAT_DRIVE
%define BPB_SECTOR_BYTES    0x0B
%define DEFAULT_TRACK       63          ; the geometry where the BIOS doesn't tell its own
%define DEFAULT_HEADS       255
%define EXTENDED_ADDRESS    (BOOT_ADDRESS + SECTOR_BYTES)
%define EXTENDED_SECTORS    2
%define FAT_BUFFER          0x8200
%define DIRECTORY_BUFFER    0x8400
%define LOAD_SEGMENT        0x2000
%define MARK                "KX"
%define EXTENDED_MAGIC      0xAA550000
%define REGION_SECTORS      12
%define SIGNED_SECTORS      9           ; the boot sector and the eight extended ones

; What load_file.inc reads of a directory entry: here the stream entry.
%define ENTRY_LOW           STREAM_CLUSTER
%define ENTRY_HIGH          (STREAM_CLUSTER + 2)
%define ENTRY_SIZE          STREAM_BYTES

; Where the formatter patches.
%define NAME_PLACE          0x15E
%define NAME_LENGTH         7
%define LENGTH_PLACE_1      0x304
%define LENGTH_PLACE_2      0x337

%define SEARCH_PLACE        (LENGTH_PLACE_1 - 38)  ; so begins the routine that has both lengths

%define WIDE_SECTORS
%macro ADD_START 0
        add     eax, [bp+EXFAT_START]
        adc     edx, [bp+EXFAT_START+4]
%endmacro

; end_extended: the end of an extended boot sector.
%macro end_extended 0
        times   (SECTOR_BYTES - 4 - ($-$$) % SECTOR_BYTES) db 0
        dd      EXTENDED_MAGIC
%endmacro

        db      0xEB, 0x76, 0x90        ; the jump of every volume
        db      "EXFAT   "
        pad_to  EXFAT_START             ; a sample, 1 GiB in clusters of 32 KiB
        dq      2048, 2097152
        dd      2048, 256, 4096, 32704, 4, 0
        dw      0x0100, 0
        db      9, 6, 1, 0x80
        pad_to  EXFAT_CODE - 1
        hlt
must $-$$ == EXFAT_CODE
        clc                             ; may be the second byte of the volume's instruction
        jmp     near start

%include "read_sectors.inc"

%include "print.inc"

        pad_to  NAME_PLACE
loader_name:
        dw      "B", "O", "O", "T", "M", "G", "R"
must $ - loader_name == NAME_LENGTH * 2

start:
        mov     cx, ds
%include "start.inc"
        mov     eax, [bp+EXFAT_START]
        or      eax, [bp+EXFAT_START+4]
        jnz     .start_known
        inc     cx
        loop    .start_known            ; a partition's entry lies in segment 0
        test    byte [si+PARTITION_STATUS], ~ACTIVE & 0xFF
        jnz     .start_known
        cmp     [si+PARTITION_TYPE], al
        je      .start_known
        mov     eax, [si+PARTITION_LBA]
        mov     [bp+EXFAT_START], eax
.start_known:
        mov     dword [bp+BPB_TRACK], DEFAULT_HEADS << 16 | DEFAULT_TRACK
        call    probe_lba
        xor     eax, eax
        cdq
        inc     ax
        mov     cx, EXTENDED_SECTORS
        mov     bx, EXTENDED_ADDRESS
        call    read_sectors
        cmp     word [bx], MARK
        je      find_loader
                                        ; falls into disk_error: old sectors, or none
disk_error:
        mov     si, text_disk
; Prints the text at SI, waits for a key and lets the BIOS look for another drive.
fail:
        sti                             ; a BIOS may come back from a disk call without interrupts
        call    print
        xor     ax, ax
        int     0x16
        int     0x19
.stop:
        hlt
        jmp     short .stop

text_disk:
        db      13, 10, "Disk error"    ; goes on
text_key:
        db      13, 10, "Press any key to restart", 13, 10, 0

        pad_to  SECTOR_BYTES - 2
        dw      BOOT_MAGIC

must $-$$ == SECTOR_BYTES
        dw      MARK

find_loader:
        cmp     word [sector_2], MARK
        jne     disk_error
        mov     eax, [bp+EXFAT_START]
        mov     [bp+BPB_HIDDEN], eax
        mov     word [bp+BPB_SECTOR_BYTES], SECTOR_BYTES
        cmp     byte [bp+EXFAT_SECTOR_SHIFT], 9
        jne     disk_error
        cmp     byte [bp+EXFAT_CLUSTER_SHIFT], LARGEST_SHIFT
        ja      disk_error
        mov     eax, [bp+EXFAT_FAT]
        test    byte [bp+EXFAT_FLAGS], SECOND_FAT
        jz      .fat_known
        cmp     byte [bp+EXFAT_FATS], 2
        jb      .fat_known
        add     eax, [bp+EXFAT_FAT_SECTORS]
.fat_known:
        mov     [fat_start], eax
        mov     eax, [bp+EXFAT_ROOT]
.cluster:
        call    check_circle
        push    eax
        call    cluster_sector
.sector:
        call    search_sector
        add     eax, 1
        adc     edx, 0
        dec     ecx
        jnz     .sector
        pop     eax
        call    next_cluster
        cmp     eax, CHAIN_END
        jne     .cluster
        jmp     missing
must BPB_HEADS == BPB_TRACK + 2

; In: EAX = next cluster of the root directory.  Ends at disk_error where the chain runs in a circle: every cluster is
; compared with the one whose number in the chain was the latest power of two.  Clobbered: ECX, EDX, flags.
check_circle:
        cmp     eax, [landmark]
        je      disk_error
        mov     ecx, [clusters_seen]
        inc     ecx
        mov     [clusters_seen], ecx
        lea     edx, [ecx-1]
        test    ecx, edx
        jnz     .out
        mov     [landmark], eax
.out:
        ret

missing:
        mov     si, text_missing
        call    print
        mov     si, text_key
        jmp     fail

        pad_to  SEARCH_PLACE
; Looks for the loader in a sector of the root directory; a file's entries may have begun in the sector before.
; In: EDX:EAX = sector; ES = 0.  Out: all registers but those as before.  Clobbered: BX, SI, DI, flags.  Goes on at
; load_file once it has found the file, at `missing` where the directory ends.
search_sector:
        push    ecx
        push    eax
        mov     bx, DIRECTORY_BUFFER
        mov     cx, 1
        call    read_sectors
        mov     di, bx
.entry:
        mov     al, [di]
        cmp     al, UNUSED_ENTRY
        je      missing
        cmp     al, FILE_ENTRY
        je      .file
        cmp     al, [expected]
        jne     .no_file
        cmp     al, NAME_ENTRY
        je      .name
        cmp     byte [di+STREAM_NAME_LENGTH], NAME_LENGTH
must $-$$ == LENGTH_PLACE_1 + 1
        jne     .no_file
        mov     si, di
        mov     di, stream
        mov     cx, ENTRY_BYTES / 2
        rep     movsw
        lea     di, [si-ENTRY_BYTES]
        mov     al, NAME_ENTRY
        jmp     short .expect
.file:
        mov     al, STREAM_ENTRY
        test    byte [di+FILE_ATTRIBUTES], DIRECTORY
        jz      .expect
.no_file:
        mov     al, UNUSED_ENTRY
.expect:
        mov     [expected], al
        add     di, ENTRY_BYTES
        cmp     di, DIRECTORY_BUFFER + SECTOR_BYTES
        jb      .entry
        pop     eax
        pop     ecx
        ret

        pad_to  LENGTH_PLACE_2 - 1
.name:
        mov     cl, NAME_LENGTH         ; CH is 0
must $-$$ == LENGTH_PLACE_2 + 1
        mov     si, loader_name
        push    di
.character:
        inc     di
        inc     di
        mov     bx, [di]
        cmp     bx, "a"
        jb      .folded
        cmp     bx, "z"
        ja      .folded
        sub     bl, "a" - "A"
.folded:
        lodsw
        cmp     ax, bx
        loope   .character
        pop     di
        jne     .no_file
        mov     di, stream
        cmp     dword [di+STREAM_BYTES+4], 0
        jne     disk_error
        mov     al, [di+STREAM_FLAGS]
        mov     [file_flags], al
        jmp     load_file
must NAME_CHARACTERS == 2

        end_extended

sector_2:
        dw      MARK

; In: EAX = cluster.  Out: EDX:EAX = its first sector, counted from the volume's start; ECX = sectors per cluster.
; Clobbered: EBX, flags.  Ends at disk_error for what is no cluster of this volume: 0, 1, a bad mark, an end mark.
cluster_sector:
        sub     eax, 2
        cmp     eax, [bp+EXFAT_CLUSTERS]
        jae     disk_error
        mov     cl, [bp+EXFAT_CLUSTER_SHIFT]
        xor     edx, edx
        shld    edx, eax, cl
        shl     eax, cl
        add     eax, [bp+EXFAT_HEAP]
        adc     edx, 0
        xor     ebx, ebx
        inc     bx
        shl     ebx, cl
        mov     ecx, ebx
        ret

; In: EAX = cluster of this volume, of the file once file_flags are set, else of a chain.  Out: EAX = the next one, or
; CHAIN_END.  Clobbered: BX, CX, EDX, flags.
; The last FAT sector read is kept: a file in one-sector clusters would else be read at half the speed.
next_cluster:
        test    byte [file_flags], NO_CHAIN
        jz      .in_fat
        inc     eax
        ret
.in_fat:
        mov     bx, ax
        and     bx, SECTOR_BYTES / 4 - 1
        shl     bx, 2
        shr     eax, 7
        cmp     eax, [cached_fat_sector]
        je      .cached
        mov     [cached_fat_sector], eax
        xor     edx, edx
        add     eax, [fat_start]
        adc     dl, dh
        push    es
        push    bx
        push    ds                      ; 0
        pop     es
        mov     bx, FAT_BUFFER
        mov     cx, 1
        call    read_sectors
        pop     bx
        pop     es
.cached:
        mov     eax, [bx+FAT_BUFFER]
        ret

%include "load_file.inc"

text_missing:
        db      13, 10, "Remove disks or other media.", 0

fat_start:                              ; first sector of the FAT in use
        dd      0
landmark:                               ; of check_circle
        dd      0
clusters_seen:
        dd      0
cached_fat_sector:
        dd      -1
expected:                               ; the entry that would go on with a file's; 0: none
        db      0
file_flags:                             ; STREAM_FLAGS of the file that was found
        db      0
stream:                                 ; the latest stream entry with a name of the right length
        times   ENTRY_BYTES db 0

%rep SIGNED_SECTORS - 2
        end_extended
%endrep
must $-$$ == SIGNED_SECTORS * SECTOR_BYTES
        pad_to  REGION_SECTORS * SECTOR_BYTES
