// A test helper in assembly: it fills every register that ZBSetJmp must
// keep with a known pattern, sets unusual MXCSR and x87 control modes, calls
// ZBSetJmp, destroys all of them, jumps back with ZBLongJmp, and writes what
// the registers hold after the jump for the test to compare.
//
// int zb_test_jump_keeps_registers(ZBJmpBuf buffer, JumpRegisters *out, int value)
// JumpRegisters: 8 general registers (rbx rbp rdi rsi r12 r13 r14 r15),
// xmm6 to xmm15 (16 bytes each), MXCSR (4 bytes), x87 control word (2 bytes).

        .section .rdata,"dr"
        .p2align 4
zb_test_vector_patterns:
        .quad   0x0600000000000606, 0xF000000000060006
        .quad   0x0600000000000707, 0xF000000000070007
        .quad   0x0600000000000808, 0xF000000000080008
        .quad   0x0600000000000909, 0xF000000000090009
        .quad   0x0600000000000A0A, 0xF0000000000A000A
        .quad   0x0600000000000B0B, 0xF0000000000B000B
        .quad   0x0600000000000C0C, 0xF0000000000C000C
        .quad   0x0600000000000D0D, 0xF0000000000D000D
        .quad   0x0600000000000E0E, 0xF0000000000E000E
        .quad   0x0600000000000F0F, 0xF0000000000F000F

        .text
        .globl  zb_test_jump_keeps_registers
        .def    zb_test_jump_keeps_registers; .scl 2; .type 32; .endef
        .p2align 4
zb_test_jump_keeps_registers:
        pushq   %rbx
        pushq   %rbp
        pushq   %rdi
        pushq   %rsi
        pushq   %r12
        pushq   %r13
        pushq   %r14
        pushq   %r15
        subq    $232, %rsp              // 16-byte aligned for the calls
        // 0-31 shadow space, 32 buffer, 40 out, 48 value, 52 caller's MXCSR,
        // 56 caller's x87 word, 58 test x87 word, 60 test MXCSR, 64-223 xmm6-15
        movq    %rcx, 32(%rsp)
        movq    %rdx, 40(%rsp)
        movl    %r8d, 48(%rsp)
        stmxcsr 52(%rsp)
        fnstcw  56(%rsp)
        movaps  %xmm6, 64(%rsp)
        movaps  %xmm7, 80(%rsp)
        movaps  %xmm8, 96(%rsp)
        movaps  %xmm9, 112(%rsp)
        movaps  %xmm10, 128(%rsp)
        movaps  %xmm11, 144(%rsp)
        movaps  %xmm12, 160(%rsp)
        movaps  %xmm13, 176(%rsp)
        movaps  %xmm14, 192(%rsp)
        movaps  %xmm15, 208(%rsp)
        movabsq $0x1111111111111111, %rbx
        movabsq $0x2222222222222222, %rbp
        movabsq $0x3333333333333333, %rdi
        movabsq $0x4444444444444444, %rsi
        movabsq $0x5555555555555555, %r12
        movabsq $0x6666666666666666, %r13
        movabsq $0x7777777777777777, %r14
        movabsq $0x8888888888888888, %r15
        movdqu  zb_test_vector_patterns+0(%rip), %xmm6
        movdqu  zb_test_vector_patterns+16(%rip), %xmm7
        movdqu  zb_test_vector_patterns+32(%rip), %xmm8
        movdqu  zb_test_vector_patterns+48(%rip), %xmm9
        movdqu  zb_test_vector_patterns+64(%rip), %xmm10
        movdqu  zb_test_vector_patterns+80(%rip), %xmm11
        movdqu  zb_test_vector_patterns+96(%rip), %xmm12
        movdqu  zb_test_vector_patterns+112(%rip), %xmm13
        movdqu  zb_test_vector_patterns+128(%rip), %xmm14
        movdqu  zb_test_vector_patterns+144(%rip), %xmm15
        movl    $0x7F80, 60(%rsp)       // round toward zero, exceptions masked
        ldmxcsr 60(%rsp)
        movw    $0x0F7F, 58(%rsp)       // 64-bit precision, round toward zero
        fldcw   58(%rsp)
        movq    32(%rsp), %rcx
        call    *__imp_ZBSetJmp(%rip)
        testl   %eax, %eax
        jnz     2f
        xorl    %ebx, %ebx
        xorl    %ebp, %ebp
        xorl    %edi, %edi
        xorl    %esi, %esi
        xorl    %r12d, %r12d
        xorl    %r13d, %r13d
        xorl    %r14d, %r14d
        xorl    %r15d, %r15d
        pxor    %xmm6, %xmm6
        pxor    %xmm7, %xmm7
        pxor    %xmm8, %xmm8
        pxor    %xmm9, %xmm9
        pxor    %xmm10, %xmm10
        pxor    %xmm11, %xmm11
        pxor    %xmm12, %xmm12
        pxor    %xmm13, %xmm13
        pxor    %xmm14, %xmm14
        pxor    %xmm15, %xmm15
        ldmxcsr 52(%rsp)
        fldcw   56(%rsp)
        movq    32(%rsp), %rcx
        movl    48(%rsp), %edx
        call    *__imp_ZBLongJmp(%rip)
        ud2                             // ZBLongJmp does not return
2:
        movq    40(%rsp), %rdx
        movq    %rbx, 0(%rdx)
        movq    %rbp, 8(%rdx)
        movq    %rdi, 16(%rdx)
        movq    %rsi, 24(%rdx)
        movq    %r12, 32(%rdx)
        movq    %r13, 40(%rdx)
        movq    %r14, 48(%rdx)
        movq    %r15, 56(%rdx)
        movdqu  %xmm6, 64(%rdx)
        movdqu  %xmm7, 80(%rdx)
        movdqu  %xmm8, 96(%rdx)
        movdqu  %xmm9, 112(%rdx)
        movdqu  %xmm10, 128(%rdx)
        movdqu  %xmm11, 144(%rdx)
        movdqu  %xmm12, 160(%rdx)
        movdqu  %xmm13, 176(%rdx)
        movdqu  %xmm14, 192(%rdx)
        movdqu  %xmm15, 208(%rdx)
        stmxcsr 224(%rdx)
        fnstcw  228(%rdx)
        ldmxcsr 52(%rsp)
        fldcw   56(%rsp)
        movaps  64(%rsp), %xmm6
        movaps  80(%rsp), %xmm7
        movaps  96(%rsp), %xmm8
        movaps  112(%rsp), %xmm9
        movaps  128(%rsp), %xmm10
        movaps  144(%rsp), %xmm11
        movaps  160(%rsp), %xmm12
        movaps  176(%rsp), %xmm13
        movaps  192(%rsp), %xmm14
        movaps  208(%rsp), %xmm15
        addq    $232, %rsp
        popq    %r15
        popq    %r14
        popq    %r13
        popq    %r12
        popq    %rsi
        popq    %rdi
        popq    %rbp
        popq    %rbx
        ret
