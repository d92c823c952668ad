; Master boot record: starts the active partition.
;
; Assembled with nasm -f bin.
;
; Loaded by   the BIOS, or by another copy of itself in front of the partition, to 0:7C00; DL = drive. Nothing else is
;             taken as given.
; Runs at     0:0600, where it moves itself; stack below 7C00h.
; Loads       the first sector of the active partition to 0:7C00.
; Hand-over   CS:IP 0:7C00; DL as it came, also when 0; DS = ES = SS = 0, SP = 7C00h; SI = BP = the partition's entry
;             (07BEh and up); interrupts on, direction flag clear.
; Fields read of each entry the status, of the active one the first LBA. The CHS start bytes are not looked at: on FAT
;             drives they name another sector. The CHS end bytes stand in for a geometry that the BIOS won't tell.
; Limits      386; partitions that start below sector 2^32, without LBA calls below cylinder 1024.
; Failure     one of three messages, then it stops.
; Replaced    1B8h to 1FDh (disk signature, table) by the formatter.

%include "boot.inc"

        bits    16
        cpu     386
        org     0x600

%define READ_TRIES       5
%define CYLINDERS        1024           ; what INT 13h can say
%define PACKET_BYTES     16
%define SIGNATURE_OFFSET 0x1B8
%define TABLE_OFFSET     0x1BE
%define ENTRIES          4
%define TABLE_ENTRY      16             ; bytes
%define ACTIVE           0x80
%define ENTRY_END_HEAD   5
%define ENTRY_END_SECTOR 6
%define ENTRY_LBA        8
%define SECTOR_BITS      0x3F           ; of CL: the sector; above it bits 8 and 9 of the cylinder

start:
        xor     ax, ax
        mov     ss, ax
        mov     sp, BOOT_ADDRESS
        mov     ds, ax
        mov     es, ax
        cld
        mov     si, sp
        mov     di, start
        mov     cx, SECTOR_BYTES / 2
        rep     movsw
        jmp     0:moved
moved:
        sti
        mov     [drive], dl
        mov     si, table
        xor     bp, bp                  ; the active entry
        mov     cx, ENTRIES
.entry:
        cmp     byte [si], 0
        je      .next
        cmp     byte [si], ACTIVE
        jne     .invalid
        test    bp, bp
        jnz     .invalid
        mov     bp, si
.next:
        add     si, TABLE_ENTRY
        loop    .entry
        test    bp, bp
        jnz     .load
.invalid:
        mov     si, text_invalid
        jmp     short stop
.load:
        call    read_first_sector
        mov     si, text_error
        jc      stop
        mov     si, text_missing
        cmp     word [BOOT_ADDRESS + SECTOR_BYTES - 2], BOOT_MAGIC
        jne     stop
        mov     si, bp
        mov     dl, [drive]
        sti                             ; a BIOS may come back from a disk call without interrupts
        jmp     0:BOOT_ADDRESS

; Prints the text at DS:SI and stops.
stop:
        sti
.character:
        lodsb
        test    al, al
        jz      .halt
        mov     ah, 0x0E
        mov     bx, 7
        push    si
        int     0x10
        pop     si
        jmp     short .character
.halt:
        hlt
        jmp     short .halt

; Reads the first sector of the partition.  In: BP = its entry.  Out: the sector at BOOT_ADDRESS, or carry set.
; Clobbered: all registers but BP.
read_first_sector:
        mov     ah, 0x41
        mov     bx, 0x55AA
        stc                             ; a BIOS that doesn't know the call may leave the flags alone
        call    drive_service
        jc      .by_chs
        cmp     bx, 0xAA55
        jne     .by_chs
        shr     cx, 1                   ; bit 0: packet calls
        jnc     .by_chs
        mov     si, read_by_lba
        call    try_reading
        jnc     .out
.by_chs:                                ; also where LBA calls are promised but fail
        mov     si, read_by_chs
        call    try_reading
.out:
        ret

; Calls the routine at SI until it clears the carry, five times at most with a reset in between.
; Out: carry as it left it.  Clobbered: CX.
try_reading:
        mov     cx, READ_TRIES
.try:
        pushad
        call    si
        popad
        jnc     .out
        pushad
        xor     ah, ah
        call    drive_service
        popad
        loop    .try
        stc
.out:
        ret

; INT 13h for the boot drive.  In: AH and what the service takes but for DL.  Out: as the service, BP kept.
drive_service:
        mov     dl, [drive]
        push    bp                      ; not every BIOS keeps it
        int     0x13
        pop     bp
        ret

; These two read the sector.  In: BP = entry.  Out: carry set on failure.  Clobbered: all registers but BP.
read_by_lba:
        push    dword 0
        push    dword [bp+ENTRY_LBA]
        push    dword BOOT_ADDRESS
        push    1
        push    PACKET_BYTES
        mov     si, sp
        mov     ah, 0x42
        call    drive_service
        popa                            ; drops the packet and keeps the carry
        ret

read_by_chs:
        mov     ah, 0x08
        push    es
        xor     di, di                  ; some BIOSes go astray with another ES:DI
        mov     es, di
        call    drive_service
        pop     es
        jc      .geometry_of_entry
        test    cl, SECTOR_BITS
        jnz     .geometry_known
.geometry_of_entry:
        mov     cl, [bp+ENTRY_END_SECTOR]
        mov     dh, [bp+ENTRY_END_HEAD]
.geometry_known:
        movzx   ebx, dh                 ; highest head
        inc     bx
        and     ecx, SECTOR_BITS
        stc
        jz      .out
        mov     eax, [bp+ENTRY_LBA]
        xor     edx, edx
        div     ecx
        inc     dx                      ; sectors count from 1
        mov     cx, dx
        xor     edx, edx
        div     ebx
        cmp     eax, CYLINDERS
        jae     .beyond                 ; a wrapped cylinder would read another place
        mov     dh, dl
        mov     ch, al
        shl     ah, 6
        or      cl, ah
        mov     ax, 0x0201
        mov     bx, BOOT_ADDRESS
        jmp     short drive_service
.beyond:
        stc
.out:
        ret

text_invalid:
        db      "Invalid partition table", 0
text_error:
        db      "Error loading operating system", 0
text_missing:
        db      "Missing operating system", 0
drive:
        db      0

        pad_to  SIGNATURE_OFFSET
        times   TABLE_OFFSET - SIGNATURE_OFFSET db 0
table:                                  ; a sample: one active FAT32 partition of 1 GiB at LBA 2048
        db      ACTIVE, 1, 1, 0, 0x0C, 254, 63, 129
        dd      2048, 2097152
        times   (ENTRIES - 1) * TABLE_ENTRY db 0
        pad_to  SECTOR_BYTES - 2
        dw      BOOT_MAGIC
