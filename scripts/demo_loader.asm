; The demo's loader, put on the stick under the name BOOTMGR: loaded whole at 2000:0000 and entered there with DL the
; drive number, it prints a line on the screen and on QEMU's debug port (E9h) and ends QEMU through its exit port (F4h).

        bits 16
        org 0

DEBUG_PORT      equ 0E9h
EXIT_PORT       equ 0F4h
EXIT_VALUE      equ 15h

start:
        push cs                         ; the text lies in this very segment
        pop ds
        cld
        mov si, text
.next:  lodsb
        test al, al
        jz .done
        out DEBUG_PORT, al
        mov ah, 0Eh                     ; teletype output
        mov bx, 7
        int 10h
        jmp .next
.done:  mov al, EXIT_VALUE
        out EXIT_PORT, al
.halt:  hlt
        jmp .halt

text    db "Hello from BOOTMGR, started from the stick.", 13, 10, 0
