; Stands for a loader on a machine with nothing but its own BIOS: reports how it was entered and what lies in memory.
; Loaded to and entered at CS:0. The host writes the file's length to bytes 2 to 5 and appends bytes that depend on
; their position.

        bits    16
        cpu     386
        org     0

        jmp     short entry
loader_bytes:
        dd      0
reads:                                  ; not counted
        dw      0
entry:
        pushf
        push    cs
        call    report
behind_call:

%define REPORT_IP behind_call           ; 0 from there is the first instruction, if the offset of this code is 0
%include "report.inc"
