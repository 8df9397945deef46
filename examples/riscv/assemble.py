#!/usr/bin/env python3
"""Assembles RV32I source into one hexadecimal word a line, as $readmemh takes it.

Knows the base instructions, the usual pseudo-instructions, labels, .equ, .word, .space, .asciz,
.align and .macro, in the notation of the GNU assembler.
"""
import re
import sys

ABI = ("zero ra sp gp tp t0 t1 t2 s0 s1 a0 a1 a2 a3 a4 a5 a6 a7 "
       "s2 s3 s4 s5 s6 s7 s8 s9 s10 s11 t3 t4 t5 t6").split()
REGISTERS = {name: n for n, name in enumerate(ABI)} | {f"x{n}": n for n in range(32)}

# name: (opcode, funct3, funct7)
REGISTER_OPS = {name: (0x33, n & 7, 0x20 if n > 7 else 0) for name, n in {
    "add": 0, "sub": 8, "sll": 1, "slt": 2, "sltu": 3, "xor": 4, "srl": 5, "sra": 13, "or": 6,
    "and": 7}.items()}
IMMEDIATE_OPS = {"addi": 0, "slti": 2, "sltiu": 3, "xori": 4, "ori": 6, "andi": 7}
SHIFT_OPS = {"slli": (1, 0), "srli": (5, 0), "srai": (5, 0x20)}
LOADS = {"lb": 0, "lh": 1, "lw": 2, "lbu": 4, "lhu": 5}
STORES = {"sb": 0, "sh": 1, "sw": 2}
BRANCHES = {"beq": 0, "bne": 1, "blt": 4, "bge": 5, "bltu": 6, "bgeu": 7}
FIXED = {"ecall": 0x00000073, "ebreak": 0x00100073, "fence": 0x0FF0000F}
REWRITES = {
    "nop": "addi x0, x0, 0", "mv": "addi {0}, {1}, 0", "not": "xori {0}, {1}, -1",
    "neg": "sub {0}, x0, {1}", "j": "jal x0, {0}", "call": "jal ra, {0}",
    "jr": "jalr x0, 0({0})", "ret": "jalr x0, 0(ra)", "beqz": "beq {0}, x0, {1}",
    "bnez": "bne {0}, x0, {1}", "bgt": "blt {1}, {0}, {2}", "ble": "bge {1}, {0}, {2}",
}


class SourceError(Exception):
    pass


def expanded(lines):
    """Yields (line number, text) with comments gone and macros put in."""
    macros, recording = {}, None

    def put_in(number, text):
        name, _, rest = text.partition(" ")
        if name not in macros:
            yield number, text
            return
        parameters, body = macros[name]
        values = [part.strip() for part in rest.split(",")]
        if len(values) != len(parameters):
            raise SourceError(f"line {number}: {name} takes {len(parameters)} arguments")
        for line in body:
            for parameter, value in zip(parameters, values):
                line = line.replace("\\" + parameter, value)
            yield from put_in(number, line)

    for number, line in enumerate(lines, 1):
        text = re.sub(r"\s+", " ", line.split("#")[0]).strip() if '"' not in line else line.strip()
        if text.startswith(".macro"):
            name, _, rest = text[6:].strip().partition(" ")
            recording = macros[name] = ([p.strip() for p in rest.split(",")], [])
        elif text == ".endm":
            recording = None
        elif recording:
            recording[1].append(text)
        elif text:
            yield from put_in(number, text)


class Assembler:
    def __init__(self):
        self.symbols = {}
        self.image = bytearray()
        self.here = 0  # address of the statement at hand, for ".+8"

    def value(self, text):
        text = text.strip()
        if text.startswith(".+"):
            return self.here + int(text[2:], 0)
        if text in self.symbols:
            return self.symbols[text]
        try:
            return int(text, 0)
        except ValueError:
            raise SourceError(f"unknown value '{text}'") from None

    @staticmethod
    def register(text):
        if text.strip() not in REGISTERS:
            raise SourceError(f"unknown register '{text}'")
        return REGISTERS[text.strip()]

    @staticmethod
    def fitting(value, bits, what):
        if not -(1 << (bits - 1)) <= value < 1 << (bits - 1):
            raise SourceError(f"{what} {value} does not fit in {bits} bits")
        return value & ((1 << bits) - 1)

    def size_of(self, name, arguments, here):
        """Bytes that a statement takes, known before any label is."""
        if name == ".word":
            return 4 * len(arguments)
        if name == ".space":
            return self.value(arguments[0])
        if name == ".asciz":
            return len(self.text_of(arguments)) + 1
        if name == ".align":
            return -here % (1 << self.value(arguments[0]))
        if name == "la":
            return 8
        if name == "li":
            return 4 if -2048 <= self.signed(arguments[1]) < 2048 or \
                self.signed(arguments[1]) & 0xFFF == 0 else 8
        return 4

    def signed(self, text):
        value = self.value(text) & 0xFFFFFFFF
        return value - (1 << 32) if value >> 31 else value

    @staticmethod
    def text_of(arguments):
        quoted = ",".join(arguments).strip()
        return quoted[1:-1].encode("ascii").decode("unicode_escape").encode("latin-1")

    def load_constant(self, rd, value, always_two):
        low = (value & 0xFFF) - (0x1000 if value & 0x800 else 0)
        high = (value - low) >> 12 & 0xFFFFF
        if not always_two and high == 0:
            return [low << 20 & 0xFFFFFFFF | rd << 7 | 0x13]
        words = [high << 12 | rd << 7 | 0x37]
        if always_two or low:
            words.append(low << 20 & 0xFFFFFFFF | rd << 15 | rd << 7 | 0x13)
        return words

    def offset_and_base(self, text):
        match = re.fullmatch(r"(.*)\((\w+)\)", text.strip())
        if not match:
            raise SourceError(f"'{text}' is no offset(register)")
        return self.value(match[1] or "0"), self.register(match[2])

    def encoded(self, name, args):
        """The words of one instruction."""
        if name in REWRITES:
            name, _, rest = REWRITES[name].format(*args).partition(" ")
            args = rest.split(",")
        if name in FIXED:
            return [FIXED[name]]
        if name in ("li", "la"):
            value = self.signed(args[1]) if name == "li" else self.value(args[1])
            return self.load_constant(self.register(args[0]), value, name == "la")
        if name in STORES or name in LOADS or name == "jalr":
            offset, base = self.offset_and_base(args[1])
            imm = self.fitting(offset, 12, "offset")
            first = self.register(args[0])
            if name in STORES:
                return [(imm >> 5) << 25 | first << 20 | base << 15 | STORES[name] << 12
                        | (imm & 31) << 7 | 0x23]
            opcode, funct3 = (0x67, 0) if name == "jalr" else (0x03, LOADS[name])
            return [imm << 20 | base << 15 | funct3 << 12 | first << 7 | opcode]
        rd = self.register(args[0])
        if name in REGISTER_OPS:
            opcode, funct3, funct7 = REGISTER_OPS[name]
            return [funct7 << 25 | self.register(args[2]) << 20 | self.register(args[1]) << 15
                    | funct3 << 12 | rd << 7 | opcode]
        if name in IMMEDIATE_OPS:
            imm = self.fitting(self.value(args[2]), 12, "immediate")
            return [imm << 20 | self.register(args[1]) << 15 | IMMEDIATE_OPS[name] << 12
                    | rd << 7 | 0x13]
        if name in SHIFT_OPS:
            funct3, funct7 = SHIFT_OPS[name]
            amount = self.fitting(self.value(args[2]), 6, "shift amount")
            return [funct7 << 25 | amount << 20 | self.register(args[1]) << 15 | funct3 << 12
                    | rd << 7 | 0x13]
        if name in BRANCHES:
            imm = self.fitting(self.value(args[2]) - self.here, 13, "branch distance")
            return [(imm >> 12) << 31 | (imm >> 5 & 63) << 25 | self.register(args[1]) << 20
                    | rd << 15 | BRANCHES[name] << 12 | (imm >> 1 & 15) << 8
                    | (imm >> 11 & 1) << 7 | 0x63]
        if name == "jal":
            imm = self.fitting(self.value(args[1]) - self.here, 21, "jump distance")
            return [(imm >> 20) << 31 | (imm >> 1 & 0x3FF) << 21 | (imm >> 11 & 1) << 20
                    | (imm >> 12 & 0xFF) << 12 | rd << 7 | 0x6F]
        if name in ("lui", "auipc"):
            return [self.value(args[1]) << 12 & 0xFFFFFFFF | rd << 7
                    | (0x37 if name == "lui" else 0x17)]
        raise SourceError(f"unknown instruction '{name}'")

    def statements(self, lines):
        """First pass: places labels, leaves (line, address, name, arguments)."""
        here, placed = 0, []
        for number, text in expanded(lines):
            while match := re.match(r"(\w+):\s*", text):
                self.symbols[match[1]] = here
                text = text[match.end():]
            if not text:
                continue
            name, _, rest = text.partition(" ")
            arguments = [a.strip() for a in rest.split(",")] if rest.strip() else []
            if name == ".equ":
                self.symbols[arguments[0]] = self.value(arguments[1])
                continue
            placed.append((number, here, name, arguments))
            try:
                here += self.size_of(name, arguments, here)
            except SourceError as error:
                raise SourceError(f"line {number}: {error}") from None
        return placed

    def assemble(self, lines):
        for number, here, name, arguments in self.statements(lines):
            self.here = here
            try:
                if name == ".word":
                    words = [self.value(a) & 0xFFFFFFFF for a in arguments]
                elif name in (".space", ".align"):
                    self.image += bytes(self.size_of(name, arguments, here))
                    continue
                elif name == ".asciz":
                    self.image += self.text_of(arguments) + b"\0"
                    continue
                else:
                    words = self.encoded(name, arguments)
            except (SourceError, IndexError) as error:
                raise SourceError(f"line {number}: {error}") from None
            for word in words:
                self.image += word.to_bytes(4, "little")
        self.image += bytes(-len(self.image) % 4)
        return self.image


def main():
    if len(sys.argv) != 3:
        sys.exit("usage: assemble.py SOURCE.s OUT.hex")
    try:
        with open(sys.argv[1], encoding="ascii") as source:
            image = Assembler().assemble(source.read().splitlines())
    except SourceError as error:
        sys.exit(f"{sys.argv[1]}: {error}")
    with open(sys.argv[2], "w", encoding="ascii") as out:
        for at in range(0, len(image), 4):
            out.write(f"{int.from_bytes(image[at:at + 4], 'little'):08x}\n")


if __name__ == "__main__":
    main()
