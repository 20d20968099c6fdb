// ZBSetJmp and ZBLongJmp for x86-64 Windows: save and restore the
// registers the Microsoft x64 calling convention preserves across calls
// (rbx, rbp, rdi, rsi, r12 to r15, xmm6 to xmm15, the stack pointer),
// the return address, MXCSR's control bits and the x87 control word. No
// unwinding: the jump is a restore and an indirect branch, so it crosses
// frames without unwind data.
//
// Buffer layout (ZBJmpBuf, 256 bytes, 16-byte aligned):
//   0 rbx  8 rbp  16 rdi  24 rsi  32 r12  40 r13  48 r14  56 r15
//   64 the stack pointer after the return  72 the return address
//   80 MXCSR (4 bytes)  84 x87 control word (2 bytes)  96 xmm6 ... 240 xmm15

        .text

// int ZBSetJmp(ZBJmpBuf buffer): buffer in rcx.
        .globl  ZBSetJmp
        .def    ZBSetJmp; .scl 2; .type 32; .endef
        .p2align 4
ZBSetJmp:
        movq    %rbx, 0(%rcx)
        movq    %rbp, 8(%rcx)
        movq    %rdi, 16(%rcx)
        movq    %rsi, 24(%rcx)
        movq    %r12, 32(%rcx)
        movq    %r13, 40(%rcx)
        movq    %r14, 48(%rcx)
        movq    %r15, 56(%rcx)
        leaq    8(%rsp), %rdx           // the caller's stack pointer after our return
        movq    %rdx, 64(%rcx)
        movq    (%rsp), %rdx            // the return address
        movq    %rdx, 72(%rcx)
        stmxcsr 80(%rcx)
        fnstcw  84(%rcx)
        movaps  %xmm6, 96(%rcx)
        movaps  %xmm7, 112(%rcx)
        movaps  %xmm8, 128(%rcx)
        movaps  %xmm9, 144(%rcx)
        movaps  %xmm10, 160(%rcx)
        movaps  %xmm11, 176(%rcx)
        movaps  %xmm12, 192(%rcx)
        movaps  %xmm13, 208(%rcx)
        movaps  %xmm14, 224(%rcx)
        movaps  %xmm15, 240(%rcx)
        xorl    %eax, %eax
        ret

// void ZBLongJmp(ZBJmpBuf buffer, int value): buffer in rcx, value in edx.
        .globl  ZBLongJmp
        .def    ZBLongJmp; .scl 2; .type 32; .endef
        .p2align 4
ZBLongJmp:
        movl    %edx, %eax
        testl   %eax, %eax
        jnz     1f
        movl    $1, %eax                // ZBSetJmp never returns 0 from a jump
1:
        movq    0(%rcx), %rbx
        movq    8(%rcx), %rbp
        movq    16(%rcx), %rdi
        movq    24(%rcx), %rsi
        movq    32(%rcx), %r12
        movq    40(%rcx), %r13
        movq    48(%rcx), %r14
        movq    56(%rcx), %r15
        ldmxcsr 80(%rcx)
        fnclex                          // no pending x87 exception may fire on the restored word
        fldcw   84(%rcx)
        movaps  96(%rcx), %xmm6
        movaps  112(%rcx), %xmm7
        movaps  128(%rcx), %xmm8
        movaps  144(%rcx), %xmm9
        movaps  160(%rcx), %xmm10
        movaps  176(%rcx), %xmm11
        movaps  192(%rcx), %xmm12
        movaps  208(%rcx), %xmm13
        movaps  224(%rcx), %xmm14
        movaps  240(%rcx), %xmm15
        movq    64(%rcx), %rsp
        jmpq    *72(%rcx)

// Exported from the DLL as the header's ZB_EXPORT declares them.
        .section .drectve
        .ascii  " -export:ZBSetJmp -export:ZBLongJmp"
