; Plays a BIOS with peculiarities. It starts from a drive of its own (80h), moves to the top of low memory, hooks the
; BIOS services, and starts LBA 0 of the second drive (81h) as that BIOS would, with rubbish in every register that a
; BIOS promises nothing for.
;
; What boots then is seen through: characters that it prints, "<key>" where it waits for one, "<int18>", "<int19>", and
; "<halt>" where it stops below 64 KiB; and the report of a loader whose first byte is INT3.
; The host writes the fields of `config`, in this order, to byte 2 and up.

        bits    16
        cpu     386
        org     0

%define OWN_SECTORS  4
%define REAL_DRIVE   0x81
%define NO_LBA       1                  ; calls 41h and 42h are refused
%define FALSE_LBA    2                  ; call 41h promises what 42h refuses
%define NO_GEOMETRY  4                  ; call 08h is refused
%define NO_CROSSING  8                  ; no transfer crosses a 64 KiB page
%define BAD_COMMAND  0x01
%define CROSSING     0x09
%define BAD_SECTOR   0x10
%define ALWAYS       0xFFFF             ; a fault that doesn't wear out

        jmp     short start
config:
memory_kib:     dw 631
drive:          db 0x80                 ; the number under which drive 81h is known
first_dl:       db 0x80                 ; the number that DL has at the start
peculiar:       dw 0                    ; NO_LBA and so on
most_sectors:   dw 128                  ; of one transfer
entry_segment:  dw 0                    ; 0 or 07C0h
faults:         dw 0                    ; reads of fault_lba that fail
fault_lba:      dd 0
loader_bytes:   dd 1
start:
        cli
        xor     ax, ax
        mov     ss, ax
        mov     sp, 0x7000
        mov     es, ax
        jmp     0x7C0:.here
.here:
        push    cs
        pop     ds
        mov     ax, [memory_kib]
        mov     [es:0x413], ax
        shl     ax, 6
        mov     es, ax
        mov     ax, 0x0200 + OWN_SECTORS
        xor     bx, bx
        mov     cx, 1
        mov     dx, 0x80
        int     0x13
        push    es
        push    resident
        retf

        times   510-($-$$) db 0
        dw      0xAA55

%define REPORT_IP 1                     ; behind INT3
%include "report.inc"

resident:
        push    cs
        pop     ds
        mov     ah, 0x08
        xor     di, di
        mov     es, di
        mov     dl, REAL_DRIVE
        int     0x13
        and     cx, 63
        mov     [track], cx
        movzx   dx, dh
        inc     dx
        mov     [heads], dx
        mov     ax, 0x0201
        mov     cx, 1
        mov     dx, REAL_DRIVE
        xor     bx, bx
        mov     es, bx
        mov     bx, BOOT_ADDRESS
        int     0x13
        mov     eax, [es:0x13 * 4]
        mov     [bios_disk], eax
        mov     eax, [es:0x08 * 4]
        mov     [bios_timer], eax
        mov     si, hooks
        mov     cx, HOOKS
.hook:
        lodsw
        xchg    di, ax
        lodsw
        mov     [es:di], ax
        mov     [es:di+2], cs
        loop    .hook
        mov     dl, [first_dl]
        mov     dh, 0x5A
        mov     ax, [entry_segment]
        push    ax                      ; CS:IP = entry_segment:(7C00h - 16 * entry_segment)
        shl     ax, 4
        sub     ax, BOOT_ADDRESS
        neg     ax
        push    ax
        mov     eax, 0xA5A5F00D
        mov     ebx, eax
        mov     ecx, eax
        mov     esi, eax
        mov     edi, eax
        mov     ebp, eax
        mov     ds, ax
        mov     es, ax
        mov     fs, ax
        mov     gs, ax
        std
        retf

hooks:
        dw      0x03 * 4, report          ; the loader is one INT3, however long its file
        dw      0x08 * 4, timer
        dw      0x10 * 4, video
        dw      0x13 * 4, disk
        dw      0x16 * 4, keyboard
        dw      0x18 * 4, no_boot
        dw      0x19 * 4, next_boot
HOOKS   equ     ($ - hooks) / 4

timer:
        push    bp
        mov     bp, sp
        push    ds
        push    bx
        lds     bx, [bp+2]
        cmp     byte [bx-1], 0xF4       ; HLT
        mov     bx, ds
        jne     .go_on
        cmp     bx, 0x1000              ; the BIOS, which also halts, is higher up
        mov     si, halt_text
        jb      say_and_end
.go_on:
        pop     bx
        pop     ds
        pop     bp
        jmp     far [cs:bios_timer]

video:
        cmp     ah, 0x0E
        jne     .out
        out     DEBUG_PORT, al
.out:
        mov     bp, 0xBAD0              ; as BIOSes do that scroll
        iret

keyboard:
        mov     si, key_text
        call    say
        mov     ax, 0x1C0D
        iret
no_boot:
        mov     si, int18_text
        jmp     say_and_end
next_boot:
        mov     si, int19_text
say_and_end:
        call    say
        jmp     end_machine

; Says the text of this program at SI.  Clobbered: AL, SI, flags.
say:
        cs lodsb
        out     DEBUG_PORT, al
        cmp     byte [cs:si], 0
        jne     say
        ret

disk:
        push    bp
        mov     bp, sp
        and     word [bp+6], ~0x201     ; carry clear, and interrupts stay off as behind some BIOS calls
        cmp     dl, [cs:drive]
        jne     refuse
        cmp     ah, 0x00
        je      .reset
        cmp     ah, 0x02
        je      chs_read
        cmp     ah, 0x08
        je      .geometry
        cmp     ah, 0x41
        je      .has_lba
        cmp     ah, 0x42
        je      lba_read
        jmp     refuse
.reset:
        mov     byte [cs:stuck], 0
        jmp     pass_on
.geometry:
        test    byte [cs:peculiar], NO_GEOMETRY
        jnz     refuse
        jmp     pass_on
.has_lba:
        test    byte [cs:peculiar], NO_LBA
        jnz     refuse

; Lets the BIOS do it, and answers as the drive that was asked.
pass_on:
        mov     [cs:number], dl
        mov     [cs:function], ah
        mov     dl, REAL_DRIVE
        pushf
        call    far [cs:bios_disk]
        jnc     .fine
        or      byte [bp+6], 1
.fine:
        cmp     byte [cs:function], 0x08
        je      .out
        mov     dl, [cs:number]
.out:
        pop     bp
        iret

refuse:
        mov     ah, BAD_COMMAND
fail:
        or      byte [bp+6], 1
        pop     bp
        iret

lba_read:
        test    byte [cs:peculiar], NO_LBA | FALSE_LBA
        jnz     refuse
        pushad
        mov     eax, [si+8]
        mov     cx, [si+2]
        mov     di, [si+4]
        mov     dx, [si+6]
        call    check_read
        jnc     .good
        mov     word [si+2], 0          ; how many were read
        jmp     failed_check
.good:
        popad
        jmp     pass_on

chs_read:
        pushad
        mov     [cs:number], al
        mov     di, bx
        mov     bl, cl
        and     bx, 63                  ; sector
        mov     al, ch
        mov     ah, cl
        shr     ah, 6
        mov     cl, dh
        mul     word [cs:heads]
        movzx   cx, cl
        add     ax, cx
        adc     dx, 0
        push    dx
        push    ax
        pop     eax
        movzx   ecx, word [cs:track]
        mul     ecx
        dec     bx
        movzx   ebx, bx
        add     eax, ebx
        movzx   cx, byte [cs:number]
        add     bx, cx
        cmp     bx, [cs:track]
        ja      .crosses_track
        mov     dx, es
        call    check_read
        jc      failed_check
        popad
        jmp     pass_on
.crosses_track:
        mov     byte [cs:error], BAD_COMMAND
failed_check:
        popad
        mov     ah, [cs:error]
        jmp     fail

; In: EAX = LBA, CX = sectors, DX:DI = buffer.  Out: carry set: refused with the code in `error`.
; Clobbered: BX, ECX, EDX, EDI, flags.
check_read:
        inc     word [cs:reads]
        mov     byte [cs:error], BAD_COMMAND
        cmp     cx, [cs:most_sectors]
        ja      .refused
        movzx   ecx, cx
        test    byte [cs:peculiar], NO_CROSSING
        jz      .boundary_kept
        mov     byte [cs:error], CROSSING
        shl     dx, 4                   ; where in its 64 KiB page the buffer begins
        add     dx, di
        movzx   edx, dx
        mov     ebx, ecx
        shl     ebx, 9
        add     edx, ebx
        cmp     edx, 0x10000
        ja      .refused
.boundary_kept:
        mov     byte [cs:error], BAD_SECTOR
        cmp     byte [cs:stuck], 0      ; in error until a reset
        jne     .refused
        mov     edx, [cs:fault_lba]
        sub     edx, eax
        cmp     edx, ecx
        jae     .sound
        cmp     word [cs:faults], 0
        je      .sound
        mov     byte [cs:stuck], 1
        cmp     word [cs:faults], ALWAYS
        je      .refused
        dec     word [cs:faults]
.refused:
        stc
        ret
.sound:
        clc
        ret

key_text:       db "<key>", 0
halt_text:      db "<halt>", 0
int18_text:     db "<int18>", 0
int19_text:     db "<int19>", 0
bios_disk:      dd 0
bios_timer:     dd 0
track:          dw 0
heads:          dw 0
reads:          dw 0
number:         db 0
function:       db 0
error:          db 0
stuck:          db 0

        times   OWN_SECTORS*512-($-$$) db 0
