#!/usr/bin/env python3
"""Writes cp932_table.cpp: the Microsoft mapping of code page 932 and the foldings on top of it.

    platform/codec/make_cp932_table.py >platform/codec/cp932_table.cpp && ./dev format
"""
import unicodedata

LEADS = [*range(0x81, 0xA0), *range(0xE0, 0xFD)]
TRAILS = [*range(0x40, 0x7F), *range(0x80, 0xFD)]
USER_DEFINED = range(0xF0, 0xFA)  # by arithmetic, not in the table

# Characters that mail from other systems uses where code page 932 has a look-alike.
LOOK_ALIKES = {
    0x00A2: 0xFFE0,  # cent
    0x00A3: 0xFFE1,  # pound
    0x00A5: 0xFFE5,  # yen
    0x00AC: 0xFFE2,  # not
    0x2014: 0x2015,  # em dash
    0x2016: 0x2225,  # parallel
    0x203E: 0xFFE3,  # overline
    0x2212: 0xFF0D,  # minus
    0x301C: 0xFF5E,  # wave dash
    0x00A0: 0x0020,  # no-break blank
}
INVISIBLE = [0x200B, 0x200C, 0x200D, 0x2060, 0xFEFF, *range(0xFE00, 0xFE10)]


def decode(lead, trail):
    if lead in USER_DEFINED:
        return 0
    try:
        return ord(bytes([lead, trail]).decode('cp932'))
    except UnicodeDecodeError:
        return 0


def base_letter(code):
    """The ASCII letter of an accented Latin letter, else 0."""
    base, *marks = unicodedata.normalize('NFD', chr(code))
    accented = marks and all(unicodedata.combining(mark) for mark in marks)
    return ord(base) if accented and base.isascii() and base.isalpha() else 0


def foldings():
    table = dict(LOOK_ALIKES)
    table.update((code, 0) for code in INVISIBLE)
    for code in [*range(0x00C0, 0x0250), *range(0x1E00, 0x1F00)]:
        if letter := base_letter(code):
            table[code] = letter
    return sorted(table.items())


def rows(values, per_line, form):
    for i in range(0, len(values), per_line):
        print('    ' + ' '.join(form(value) for value in values[i:i + per_line]))


print('// Made by make_cp932_table.py: do not edit.\n')
print('#include "platform/codec/cp932_table.h"\n')
print('namespace tarvex {\n')
print('// clang-format off')
print('const std::array<char16_t, kCp932Characters> kCp932ToUnicode = {')
rows([decode(lead, trail) for lead in LEADS for trail in TRAILS], 16, lambda value: '0x%04X,' % value)
print('};\n')
folded = foldings()
print('const std::array<Folding, %d> kFoldingTable = {{' % len(folded))
rows(folded, 6, lambda pair: '{0x%04X, 0x%04X},' % pair)
print('}};')
print('// clang-format on\n')
print('const std::span<const Folding> kFoldings = kFoldingTable;\n')
print('}  // namespace tarvex')
