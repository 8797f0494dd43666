// The entry points of messages. The receiver's method is looked up with every register that may hold an
// argument put by, and is then entered by a jump, so that it sees the caller's frame as its own.
#if !defined __x86_64__
#error "the message entry points are written for x86-64 only"
#endif

__asm__(R"(
.macro LOOKUP
  pushq %rbp
  movq %rsp, %rbp
  subq $192, %rsp
  movq %rdi, -8(%rbp)
  movq %rsi, -16(%rbp)
  movq %rdx, -24(%rbp)
  movq %rcx, -32(%rbp)
  movq %r8, -40(%rbp)
  movq %r9, -48(%rbp)
  movq %rax, -56(%rbp)
  movups %xmm0, -80(%rbp)
  movups %xmm1, -96(%rbp)
  movups %xmm2, -112(%rbp)
  movups %xmm3, -128(%rbp)
  movups %xmm4, -144(%rbp)
  movups %xmm5, -160(%rbp)
  movups %xmm6, -176(%rbp)
  movups %xmm7, -192(%rbp)
  movq %r10, %rdi
  call standin_lookUp@PLT
  movq %rax, %r11
  movq -8(%rbp), %rdi
  movq -16(%rbp), %rsi
  movq -24(%rbp), %rdx
  movq -32(%rbp), %rcx
  movq -40(%rbp), %r8
  movq -48(%rbp), %r9
  movq -56(%rbp), %rax
  movups -80(%rbp), %xmm0
  movups -96(%rbp), %xmm1
  movups -112(%rbp), %xmm2
  movups -128(%rbp), %xmm3
  movups -144(%rbp), %xmm4
  movups -160(%rbp), %xmm5
  movups -176(%rbp), %xmm6
  movups -192(%rbp), %xmm7
  leave
.endm

.text
.globl objc_msgSend
.type objc_msgSend, @function
objc_msgSend:
  testq %rdi, %rdi
  jz 1f
  movq (%rdi), %r10
  LOOKUP
  jmpq *%r11
1: # a message to nil: every kind of result is zero
  xorl %eax, %eax
  xorl %edx, %edx
  pxor %xmm0, %xmm0
  pxor %xmm1, %xmm1
  ret
.size objc_msgSend, .-objc_msgSend

.globl objc_msgSendSuper2
.type objc_msgSendSuper2, @function
objc_msgSendSuper2:
  movq 8(%rdi), %r10
  movq 8(%r10), %r10
  movq (%rdi), %rdi
  LOOKUP
  jmpq *%r11
.size objc_msgSendSuper2, .-objc_msgSendSuper2
)");
