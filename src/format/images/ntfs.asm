; NTFS boot code for BOOTMGR and NTLDR: boot sector and the sectors behind it, two images of one program.
;
; Assembled once per image: nasm -f bin -D LOADER=BOOTMGR or NTLDR.
;
; Loaded by   an MBR: first sector to 0:7C00, DL = drive, DS:SI = the partition's entry.
; Loads       the rest of the image (relative sectors 1 and up of the volume, known by the mark at its end) to 0:7E00,
;             then a file of the root directory, whole, to 2000:0000 and up: NTLDR, or BOOTMGR and, where there is
;             none, NTLDR. Case doesn't matter in the name.
; Hand-over   CS:IP 2000:0000; DL = drive, DH = 0; DS = ES = SS = 0, SP = BP = 7C00h; interrupts on, direction flag
;             clear; this boot sector at 0:7C00 with the drive in byte 24h, and 0Eh in byte 2 where LBA calls work;
;             where not, BPB_TRACK and BPB_HEADS are the BIOS's and byte 2 is 0 in the image for BOOTMGR (its later
;             versions take anything else for LBA), 90h in the one for NTLDR.
; Memory      stack below 7C00h; 8E00h to 1FFFFh as listed under "Memory" below.
; Fields read bytes per sector, sectors per cluster, geometry, hidden sectors (0: the partition entry's), total, first
;             cluster of $MFT, clusters per record, drive (only where DL makes no sense). The size of an index block
;             is that of the index itself.
; Replaced    bytes 0 to 53h are the volume's own.
; Runs at     0:7C00 or 07C0:0000, as the BIOS likes: all jumps are relative.
; Bears       clusters of 512 bytes to 2 MiB, records and index blocks of 512 to 4096 bytes, $MFT, directory and file
;             in pieces, attribute lists resident or not, short and empty runs, a file inside its own record.
; Limits      386; sectors of 512 bytes; 2729 pieces each of $MFT, directory and file; an attribute list of 11.5 KiB;
;             the file must end below the memory that INT 12h reports; with CHS calls it ends where 1024 cylinders end.
; Failure     "A disk read error occurred" for whatever can't be read, doesn't fit or makes no sense, that the loader is
;             missing, or that it is compressed (encrypted, kept elsewhere); then it stops.
; Source      the structures as the Linux-NTFS project documents them.

%include "boot.inc"

        bits    16
        cpu     386
        org     BOOT_ADDRESS

%ifidn LOADER, BOOTMGR
  %define LOADER_TEXT "BOOTMGR"
  %define SECTORS     9
  %define LBA_OFF     0
%elifidn LOADER, NTLDR
  %define LOADER_TEXT "NTLDR"
  %define SECTORS     7
  %define LBA_OFF     0x90
%else
  %error "LOADER is BOOTMGR or NTLDR"
%endif

; Fields of an NTFS boot sector, as distances from its start.
%define BPB_SECTOR_BYTES 0x0B
%define BPB_DRIVE        0x24           ; byte
%define NTFS_TOTAL       0x28           ; qword: sectors of the volume
%define NTFS_MFT         0x30           ; qword: first cluster of $MFT
%define NTFS_RECORD      0x40           ; byte: clusters per record of $MFT, or 256 minus the power of two of its bytes
%define NTFS_CODE        0x54           ; first byte of this code

; Fields of the entry that an MBR names.
%define PARTITION_STATUS 0x00
%define ACTIVE           0x80
%define PARTITION_TYPE   0x04
%define PARTITION_LBA    0x08

%define LBA_ON           0x0E
%define DEFAULT_TRACK    63             ; the geometry where neither volume nor BIOS tells one
%define DEFAULT_HEADS    255
%define IMAGE_END        (BOOT_ADDRESS + SECTORS * SECTOR_BYTES)
%define MARK             "KX"
%define LOAD_SEGMENT     0x2000

; An entry of the list of loaders.
%define LOADER_NAME      0              ; word: address of the name
%define LOADER_PACKED    2              ; word: of the text for a file that is compressed
%define LOADER_BYTES     4

; Memory.
%define VARIABLES        0x8E00
%define RECORD_BUFFER    0x9000         ; the record of the file at hand
%define EXTENT_BUFFER    0xA000         ; a further record of it
%define BLOCK_BUFFER     0xB000         ; a block of the root directory's index
%define ROOT_BUFFER      0xC000         ; the root of this index
%define LIST_BUFFER      0xD000         ; the attribute list of the file at hand
%define RUN_SEGMENT      0x1000         ; FS; two tables of runs, each up to RUN_TABLE_BYTES
%define MFT_RUNS         0x0000
%define DATA_RUNS        0x8000
%define RUN_TABLE_BYTES  0x8000
%define BUFFER_SECTORS   8              ; of each buffer but the list's
%define BUFFER_BYTES     (BUFFER_SECTORS * SECTOR_BYTES)
%define LIST_SECTORS     ((0x10000 - LIST_BUFFER) / SECTOR_BYTES - 1)

absolute VARIABLES
attribute:                              ; header of the attribute opened last
        resb    0x40
resident_at:                            ; the whole of it, if its value stands there
        resw    1
found:                                  ; there is such an attribute
        resb    1
next_vcn:                               ; clusters of its runs that are in the table
        resd    1
runs_end:                               ; of the table
        resw    1
latest_cluster:                         ; of add_runs
        resd    2
record:                                 ; of the file at hand
        resd    1
list_end:                               ; its attribute list
        resw    1
cluster_shift:                          ; powers of two: a cluster in sectors ...
        resb    1
record_shift:                           ; ... a record ...
        resb    1
vcn_shift:                              ; ... and the unit in which blocks of the index are counted
        resb    1
block_sectors:
        resw    1
blocks_left:                            ; of find_name
        resb    1
wanted_name:
        resw    1
must $ <= RECORD_BUFFER && IMAGE_END <= VARIABLES

section .text
%define WIDE_SECTORS
%macro ADD_START 0
        add     eax, [bp+BPB_HIDDEN]
        adc     edx, 0
%endmacro

; wide TEXT: the characters of a name in UTF-16.
%macro wide 1
  %strlen %%length %1
  %assign %%i 1
  %rep %%length
    %substr %%character %1 %%i
        dw      %%character
    %assign %%i %%i + 1
  %endrep
%endmacro

        db      0xEB, 0x52, 0x90        ; the jump of every volume
        db      "NTFS    "
must $-$$ == BPB_SECTOR_BYTES           ; a sample, 1 GiB in clusters of 4 KiB
        dw      SECTOR_BYTES
must $-$$ == BPB_CLUSTER
        db      8
        dw      0
        times   5 db 0
        db      0xF8
        dw      0, DEFAULT_TRACK, DEFAULT_HEADS
must $-$$ == BPB_HIDDEN
        dd      2048, 0
must $-$$ == BPB_DRIVE
        dd      0x00800080
must $-$$ == NTFS_TOTAL
        dq      2097151
must $-$$ == NTFS_MFT
        dq      4, 131071
must $-$$ == NTFS_RECORD
        dd      0xF6, 1                 ; 1 KiB; an index block is a cluster
        dq      0
        dd      0
must $-$$ == NTFS_CODE
must BPB_HEADS == BPB_TRACK + 2

start:
        mov     cx, ds
%include "start.inc"
        cmp     dword [bp+BPB_HIDDEN], 0
        jne     .start_known
        inc     cx
        loop    .start_known            ; a partition's entry lies in segment 0
        test    byte [si+PARTITION_STATUS], ~ACTIVE & 0xFF
        jnz     .start_known
        cmp     [si+PARTITION_TYPE], al
        je      .start_known
        mov     eax, [si+PARTITION_LBA]
        mov     [bp+BPB_HIDDEN], eax
.start_known:
        cmp     word [bp+BPB_TRACK], 0
        je      .no_geometry
        cmp     word [bp+BPB_HEADS], 0
        jne     .geometry_known
.no_geometry:
        mov     dword [bp+BPB_TRACK], DEFAULT_HEADS << 16 | DEFAULT_TRACK
.geometry_known:
        call    probe_lba
        xor     eax, eax
        cdq
        inc     ax
        mov     cx, SECTORS - 1
        mov     bx, BOOT_ADDRESS + SECTOR_BYTES
        call    read_sectors
        cmp     word [IMAGE_END - 2], MARK
        je      find_loader
                                        ; falls into disk_error: old sectors, or none
disk_error:
        mov     si, text_disk
; Prints the text at SI and stops.
fail:
        sti                             ; a BIOS may come back from a disk call without interrupts
        call    print
        mov     si, text_restart
        call    print
.stop:
        hlt
        jmp     short .stop

%include "print.inc"

%include "read_sectors.inc"

text_disk:
        db      13, 10, "A disk read error occurred", 0
text_restart:
        db      13, 10, "Press Ctrl+Alt+Del to restart", 13, 10, 0

        pad_to  SECTOR_BYTES - 2
        dw      BOOT_MAGIC

; --- Sector 1 and up ---

%include "ntfs_records.inc"
%include "ntfs_attributes.inc"
%include "ntfs_index.inc"

find_loader:
        push    RUN_SEGMENT
        pop     fs
        call    read_sizes
        call    open_mft
        call    open_root
        mov     si, loaders
.loader:
        mov     dx, [si+LOADER_NAME]
        call    find_name
        je      load
        add     si, LOADER_BYTES
        cmp     si, loaders_end
        jb      .loader
        mov     si, text_missing
        jmp     fail

; In: EAX = record number of the loader's file, SI = its entry in the list of loaders.  Does not return.
load:
        push    word [si+LOADER_PACKED]
        call    open_record
        mov     eax, ATTRIBUTE_REPARSE  ; the data are somewhere else
        call    open_attribute
        je      .packed
        mov     eax, ATTRIBUTE_DATA
        call    open_attribute
        jne     disk_error
        cmp     byte [attribute+NOT_RESIDENT], 0
        je      .plain                  ; the flags only tell how it would be stored elsewhere
        test    word [attribute+ATTRIBUTE_FLAGS], PACKED
        jz      .plain
.packed:
        pop     si
        jmp     fail
.plain:
        int     0x12
        add     ax, ax                  ; KiB to sectors
        sub     ax, LOAD_SEGMENT >> 5
        cwde
        push    LOAD_SEGMENT
        pop     es
        call    load_attribute
        mov     sp, bp
        sti                             ; a BIOS may come back from a disk call without interrupts
        movzx   dx, byte [bp+BPB_DRIVE]
        push    ds
        pop     es
        jmp     LOAD_SEGMENT:0
must SECTOR_BYTES == 16 << 5

; Takes the sizes from the boot sector.  Clobbered: AX, flags.
read_sizes:
        cmp     word [bp+BPB_SECTOR_BYTES], SECTOR_BYTES
        jne     disk_error
        mov     al, [bp+BPB_CLUSTER]
        call    power_of
        cmp     al, LARGEST_CLUSTER
        ja      disk_error
        mov     [cluster_shift], al
        mov     al, [bp+NTFS_RECORD]
        call    power_of
        jc      .in_clusters
        sub     al, SECTOR_SHIFT        ; given in bytes
        jmp     short .known
.in_clusters:
        add     al, [cluster_shift]
.known:
        mov     [record_shift], al
        cmp     al, LARGEST_RECORD
        ja      disk_error
        ret

; In: AL = a number of units, or 256 minus a power of two.  Out: AL = that power, or the one that gives the number;
; carry set: it was a number.  Clobbered: AH, flags.
power_of:
        movzx   ax, al
        cmp     al, 0x80
        ja      .power
        bsf     ax, ax
        stc
        ret
.power:
        neg     al
        clc
        ret

; The files to look for, in this order.
loaders:
%ifidn LOADER, BOOTMGR
        dw      bootmgr_name, text_bootmgr_packed
%endif
        dw      ntldr_name, text_ntldr_packed
loaders_end:

; Names in UTF-16, ended by 0.
%ifidn LOADER, BOOTMGR
bootmgr_name:
        wide    "BOOTMGR"
        dw      0
text_bootmgr_packed:
        db      13, 10, "BOOTMGR is compressed", 0
%endif
ntldr_name:
        wide    "NTLDR"
        dw      0
text_ntldr_packed:
        db      13, 10, "NTLDR is compressed", 0
index_name:
        wide    "$I30"
must $ - index_name == INDEX_NAME_CHARACTERS * 2
text_missing:
        db      13, 10, LOADER_TEXT, " is missing", 0

        pad_to  SECTORS * SECTOR_BYTES - 2
        dw      MARK
