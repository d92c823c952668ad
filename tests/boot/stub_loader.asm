; Stands for BOOTMGR on a machine with nothing but its own BIOS: reports how it was entered and what lies in memory.
; Loaded to and entered at CS:0. The host writes the file's length to bytes 2 to 5 and appends bytes that depend on
; their position.

        bits    16
        cpu     386
        org     0

        jmp     short entry
length:
        dd      0
entry:
        pushf
        push    bp
        push    si
        push    dx
        push    es
        push    ds
        push    sp                      ; 12 below what it was at entry
        push    ss
        call    .here
.here:
        push    cs
        mov     bp, sp
        sub     word [bp+2], .here      ; IP at entry, if the offset of this code is 0
        add     word [bp+6], 12
        mov     ecx, [cs:length]
        jmp     report

%include "report.inc"
