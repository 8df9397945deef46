# Tests every instruction, then computes and reports over the serial line, then leaves with
# ecall (a7 = 93, a0 = 0, or the number of the failed check) and starts over with other numbers.
#
# gp counts checks, s11 counts passes, t6 and t5 belong to the macros.

.equ UART, 0x10000000
.equ TIMER, 0x10000100
.equ GPIO, 0x10000200
.equ STACK, 0x4000
.equ BAUD, 8
.equ PRIME_LIMIT, 400
.equ SORTED_WORDS, 32

.macro expect register, value
    addi gp, gp, 1
    li   t6, \value
    bne  \register, t6, failed
.endm

# A two-operand instruction: both inputs and the result are given.
.macro check name, left, right, value
    li   a1, \left
    li   a2, \right
    \name a0, a1, a2
    expect a0, \value
.endm

.macro check_immediate name, left, right, value
    li   a1, \left
    \name a0, a1, \right
    expect a0, \value
.endm

# A branch that must be taken forwards; the instruction behind it must not be executed.
.macro taken name, left, right
    addi gp, gp, 1
    li   a1, \left
    li   a2, \right
    \name a1, a2, .+8
    j    failed
.endm

.macro passed_by name, left, right
    addi gp, gp, 1
    li   a1, \left
    li   a2, \right
    \name a1, a2, failed
.endm

.macro say text
    la   a0, \text
    call print
.endm

reset:
    li   s11, 0
start:
    li   gp, 0
    li   sp, STACK

# Register with register.
    check add, 5, -7, -2
    check add, 0x7fffffff, 1, 0x80000000
    check sub, 5, -7, 12
    check sub, 0x80000000, 1, 0x7fffffff
    check sll, 0x00f0f0f1, 36, 0x0f0f0f10
    check slt, -1, 1, 1
    check slt, 0x7fffffff, 0x80000000, 0
    check sltu, -1, 1, 0
    check sltu, 0x7fffffff, 0x80000000, 1
    check xor, 0x0ff00ff0, 0x00ffff00, 0x0f0ff0f0
    check srl, 0x80000000, 31, 1
    check srl, 0xf0000000, 36, 0x0f000000
    check sra, 0x80000000, 31, -1
    check sra, 0x40000000, 4, 0x04000000
    check or, 0x0ff00ff0, 0x00ffff00, 0x0ffffff0
    check and, 0x0ff00ff0, 0x00ffff00, 0x00f00f00

# Register with immediate.
    check_immediate addi, -2048, -2048, -4096
    check_immediate addi, 1, 2047, 2048
    check_immediate slti, -5, -4, 1
    check_immediate slti, 5, -4, 0
    check_immediate sltiu, 5, -4, 1
    check_immediate sltiu, -4, 5, 0
    check_immediate xori, 0x0ff00ff0, -1, 0xf00ff00f
    check_immediate ori, 0x0ff00000, 0x7f0, 0x0ff007f0
    check_immediate andi, 0x0ff00ff0, 0x70f, 0x700
    check_immediate slli, 0x00f0f0f1, 4, 0x0f0f0f10
    check_immediate srli, 0xf0000000, 28, 15
    check_immediate srai, 0xf0000000, 28, -1
    check_immediate addi, -1, 1024, 1023
    check_immediate srli, 0x55555555, 1, 0x2aaaaaaa

# Upper immediates, jumps and links. The first register takes no value.
    lui  a0, 0xfffff
    expect a0, -4096
    auipc a0, 0
    la   a1, here
here:
    auipc a2, 1
    sub  a3, a2, a1
    expect a3, 4096
    sub  a3, a1, a0
    expect a3, 12
    addi x0, a1, 5
    expect x0, 0
    jal  a0, over
under:
    j    failed
over:
    la   a1, under
    sub  a2, a0, a1
    expect a2, 0
    la   a1, landing
    jalr a0, 5(a1)
missed:
    j    failed
landing:
    j    failed
here_again:
    auipc a3, 0             # bit 0 of the jump's target must be gone
    la   a1, here_again
    sub  a3, a3, a1
    expect a3, 0
    la   a1, missed
    sub  a2, a0, a1
    expect a2, 0

# Branches, both ways.
    taken     beq, 0, 0
    passed_by beq, 3, 4
    taken     bne, 3, 4
    passed_by bne, 4, 4
    taken     blt, -1, 1
    passed_by blt, 1, -1
    passed_by blt, 1, 1
    taken     bge, 1, -1
    taken     bge, 1, 1
    passed_by bge, -1, 1
    taken     bltu, 1, -1
    passed_by bltu, -1, 1
    passed_by bltu, 7, 7
    taken     bgeu, -1, 1
    taken     bgeu, 7, 7
    passed_by bgeu, 1, -1

# Stores of each width leave their neighbours alone; loads extend as they should.
    la   s0, scratch
    li   a1, 0x11223344
    sw   a1, 0(s0)
    sw   a1, 4(s0)
    li   a1, 0xa5
    sb   a1, 1(s0)
    lw   a0, 0(s0)
    expect a0, 0x1122a544
    li   a1, 0x9bcd
    sh   a1, 6(s0)
    addi s1, s0, 8
    lw   a0, -4(s1)
    expect a0, 0x9bcd3344
    sh   a1, 0(s0)
    lw   a0, 0(s0)
    expect a0, 0x11229bcd
    li   a1, 0xa5
    sb   a1, 1(s0)
    lb   a0, 1(s0)
    expect a0, 0xffffffa5
    lbu  a0, 1(s0)
    expect a0, 0xa5
    lb   a0, 3(s0)
    expect a0, 0x11
    lh   a0, 6(s0)
    expect a0, 0xffff9bcd
    lhu  a0, 6(s0)
    expect a0, 0x9bcd
    lh   a0, 2(s0)
    expect a0, 0x1122

# The debugger that answers ebreak lets the program go on behind it; fence orders nothing here.
    fence
    ebreak
    li   a7, 1
    ecall
    li   a7, 0
    mv   s2, gp
    j    devices

failed:
    mv   a0, gp
    li   a7, 93
    ecall
    j    failed

# Pins: driven ones read back, the others are pulled up, switches come from outside.
devices:
    li   s0, UART
    li   a0, BAUD
    sw   a0, 4(s0)
    lw   a0, 4(s0)
    expect a0, BAUD
    li   s1, GPIO
    sw   zero, 12(s1)
    li   a0, 0x0f
    sw   a0, 4(s1)
    li   a0, 0x05
    sw   a0, 0(s1)
    call settle
    lw   a0, 8(s1)
    andi a0, a0, 0x0f
    expect a0, 0x05
    sw   zero, 4(s1)
    call settle
    lw   a0, 8(s1)
    andi a0, a0, 0x0f
    expect a0, 0x0f
    li   a0, 0x0f
    sw   a0, 4(s1)
    slli a1, s11, 4         # pin 0 glows brighter in every pass
    addi a1, a1, 48
    sw   a1, 32(s1)
    li   a1, 200
    sw   a1, 36(s1)
    li   a0, 3
    sw   a0, 12(s1)

# The timer expires three ticks from now, not before.
    li   s1, TIMER
    sw   zero, 0(s1)
    li   a0, 3
    sw   a0, 4(s1)
    lw   a0, 8(s1)
    expect a0, 0
    li   a1, 0
waiting:
    addi a1, a1, 1
    lw   a0, 8(s1)
    beqz a0, waiting
    lw   a0, 0(s1)
    expect a0, 3
    li   a0, 10
    addi gp, gp, 1
    blt  a1, a0, failed

    say  checks_text
    mv   a0, s2
    call print_number

# Primes by the sieve; the count goes out as well.
    la   s0, area
    li   s1, PRIME_LIMIT
    mv   a0, s0
    add  a1, s0, s1
clear:
    sb   zero, 0(a0)
    addi a0, a0, 1
    bltu a0, a1, clear
    li   s3, 0
    li   a0, 2
next_number:
    add  a1, s0, a0
    lbu  a2, 0(a1)
    bnez a2, composite
    addi s3, s3, 1
    add  a2, a0, a0
strike:
    bge  a2, s1, composite
    add  a3, s0, a2
    li   a4, 1
    sb   a4, 0(a3)
    add  a2, a2, a0
    j    strike
composite:
    addi a0, a0, 1
    blt  a0, s1, next_number
    say  primes_text
    mv   a0, s3
    call print_number

# A recursion that needs the stack.
    li   a0, 10
    call fibonacci
    mv   s3, a0
    say  fibonacci_text
    mv   a0, s3
    call print_number

# Words from a generator seeded by the pass, sorted by insertion; sum and order must hold.
    la   s0, area
    li   s1, SORTED_WORDS
    slli s1, s1, 2
    add  s1, s1, s0
    addi a0, s11, 77
    mv   a1, s0
    li   s4, 0
fill:
    slli a2, a0, 13
    xor  a0, a0, a2
    srli a2, a0, 17
    xor  a0, a0, a2
    slli a2, a0, 5
    xor  a0, a0, a2
    sw   a0, 0(a1)
    add  s4, s4, a0
    addi a1, a1, 4
    bltu a1, s1, fill
    addi a0, s0, 4
insert:
    lw   a1, 0(a0)
    mv   a2, a0
shift_up:
    beq  a2, s0, place
    lw   a3, -4(a2)
    ble  a3, a1, place
    sw   a3, 0(a2)
    addi a2, a2, -4
    j    shift_up
place:
    sw   a1, 0(a2)
    addi a0, a0, 4
    bltu a0, s1, insert
    mv   a0, s0
    lw   a1, 0(a0)
in_order:
    lw   a2, 0(a0)
    addi gp, gp, 1
    bgt  a1, a2, wrong_order
    sub  s4, s4, a2
    mv   a1, a2
    addi a0, a0, 4
    bltu a0, s1, in_order
    addi gp, gp, 1
    bnez s4, wrong_order
    say  sorted_text
    li   a0, SORTED_WORDS
    call print_number

# Done once the last byte has left.
    call drained
    li   a0, 0
    li   a7, 93
    ecall
    addi s11, s11, 1
    andi s11, s11, 7
    j    start
wrong_order:
    j    failed

settle:
    nop
    nop
    nop
    ret

fibonacci:
    li   a1, 2
    blt  a0, a1, fibonacci_end
    addi sp, sp, -12
    sw   ra, 0(sp)
    sw   a0, 4(sp)
    addi a0, a0, -1
    call fibonacci
    sw   a0, 8(sp)
    lw   a0, 4(sp)
    addi a0, a0, -2
    call fibonacci
    lw   a1, 8(sp)
    add  a0, a0, a1
    lw   ra, 0(sp)
    addi sp, sp, 12
fibonacci_end:
    ret

# Sends the text at a0, up to its zero byte.
print:
    mv   s6, ra
    mv   s5, a0
print_next:
    lbu  a0, 0(s5)
    beqz a0, print_end
    call send
    addi s5, s5, 1
    j    print_next
print_end:
    jr   s6

# Sends a0 (below 1000) in decimal and ends the line.
print_number:
    mv   s6, ra
    mv   s5, a0
    li   s7, 100
    li   s8, 0              # whether a digit has been sent
digits:
    li   a0, 0
subtract:
    blt  s5, s7, digit_found
    sub  s5, s5, s7
    addi a0, a0, 1
    j    subtract
digit_found:
    or   s8, s8, a0
    beqz s8, digit_done
    addi a0, a0, 48
    call send
digit_done:
    li   a0, 10
    beq  s7, a0, ones
    mv   s7, a0
    j    digits
ones:
    addi a0, s5, 48
    call send
    li   a0, 10
    call send
    jr   s6

send:
    li   a1, UART
busy:
    lw   a2, 0(a1)
    bnez a2, busy
    sw   a0, 0(a1)
    ret

drained:
    li   a1, UART
draining:
    lw   a2, 0(a1)
    bnez a2, draining
    ret

checks_text:
    .asciz "checks "
primes_text:
    .asciz "primes "
fibonacci_text:
    .asciz "fibonacci "
sorted_text:
    .asciz "sorted "
    .align 2
scratch:
    .space 8
area:
