#!/usr/bin/env python3
"""Writes cp932_table.cpp: the Microsoft mapping of code page 932, and what is written for characters that it lacks.

    platform/codec/make_cp932_table.py >platform/codec/cp932_table.cpp && ./dev format

It reads Unicode's own data (Debian's package unicode-data) and the C library's table of kanji variants and of plain
forms (Debian's package locales). A character that the code page lacks takes the first of these that can be written:

1. nothing: what is never seen (default-ignorable characters, controls, marks upon another character);
2. a look-alike by its general category or its name: blanks, dashes, bullets, arrows, squares, check marks;
3. the C library's plain form: ss for a sharp s, ae for a ligature, EUR for the euro sign;
4. its compatibility decomposition: letters without their marks, fractions with a slash, superscripts behind a ^;
5. for a kanji the form that the standard has: the simplified, the traditional or another shape of the same; for a Japanese one
   also a wider variant that has its radical and about its strokes.
"""
import bz2
import collections
import re
import sys

UNICODE = '/usr/share/unicode/'
LOCALES = '/usr/share/i18n/locales/'

LEADS = [*range(0x81, 0xA0), *range(0xE0, 0xFD)]
TRAILS = [*range(0x40, 0x7F), *range(0x80, 0xFD)]
USER_DEFINED = range(0xF0, 0xFA)  # by arithmetic, not in the table

# Where the rules below would find another one, or none.
CHOSEN = {
    0x00A0: ' ', 0x2800: ' ', 0x2028: ' ', 0x2029: ' ',
    0x00A2: '￠', 0x00A3: '￡', 0x00A5: '￥', 0x00AC: '￢', 0x00A6: '｜',
    0x2014: '―', 0x2016: '∥', 0x203E: '￣', 0x2212: '－', 0x301C: '～', 0x223C: '～', 0x2015: '―',
    0x00AB: '≪', 0x00BB: '≫', 0x2039: '〈', 0x203A: '〉', 0x201A: '，', 0x201B: '‘', 0x201E: '“', 0x201F: '“',
    0x2044: '/', 0x2122: '(TM)', 0x2117: '(P)', 0x2120: '(SM)',
    0x3099: '゛', 0x309A: '゜', 0x30F7: 'ワ゛', 0x30F8: 'ヰ゛', 0x30F9: 'ヱ゛', 0x30FA: 'ヲ゛', 0x0338: '/',
    0x2715: '×', 0x25AC: '━', 0x23AF: '─', 0x229A: '◎', 0x2299: '◎', 0x1F51F: '10',
    0x2764: '(ハート)', 0x2665: '(ハート)', 0x2661: '(ハート)',
    0x2264: '≦', 0x2265: '≧', 0x2248: '≒', 0x2B50: '★', 0x3094: 'ヴ',
    0x0406: 'I', 0x0456: 'i', 0x0408: 'J', 0x0458: 'j', 0x0405: 'S', 0x0455: 's', 0x0404: 'Е', 0x0454: 'е',
    0x0490: 'Г', 0x0491: 'г', 0x03C2: 'σ', 0x20AC: 'EUR', 0xFFFD: '?', 0x260E: 'TEL', 0x260F: 'TEL', 0x2709: 'Mail', 0x0409: 'ЛЬ', 0x0459: 'ль', 0x040A: 'НЬ', 0x045A: 'нь', 0x275D: '“', 0x275E: '”', 0x275B: '‘',
    0x275C: '’', 0x276E: '〈', 0x276F: '〉', 0x0085: ' ', 0x207B: '-', 0x208B: '-', 0x263A: '(^_^)', 0x2639: '(T_T)',
    0x0131: 'i', 0x0192: 'f', 0x2024: '.', 0x00BC: ' 1/4',
}

# Look-alikes by the name of the character: the first pattern counts.
BY_NAME = [
    (r'\bSTROKED?\b.*\bARROW\b|\bARROW\b.*\bSTROKE\b|\bARROW ABOVE\b|\bUPWARDS\b.*\bDOWNWARDS\b', None),
    (r'\bTRAIN\b', None),
    (r'\b(BULLET|INTERPUNCT|MIDDLE DOT|DOT OPERATOR|HYPHENATION POINT|RIGHT-POINTING SMALL TRIANGLE)\b', '・'),
    (r'\bCHECK MARK\b|\bWITH CHECK\b', '○'),
    (r'\b(BALLOT X|CROSS MARK|MULTIPLICATION X|SALTIRE|CANCELLATION X)\b|\bBALLOT BOX WITH X\b', '×'),
    (r'\bLEFT RIGHT .*ARROW\b|\bRIGHTWARDS\b.*\bLEFTWARDS\b|\bLEFTWARDS\b.*\bRIGHTWARDS\b', '⇔'),
    (r'\bARROW\b.*\bRIGHTWARDS$|\bRIGHTWARDS\b.*\bARROW\b|\bRIGHTWARDS ARROWHEAD\b', '→'),
    (r'\bRIGHT-POINTING (TRIANGLE|POINTER|ISOSCELES|DOUBLE TRIANGLE)|\bRIGHT POINTING INDEX$', '→'),
    (r'\bARROW\b.*\bLEFTWARDS$|\bLEFTWARDS\b.*\bARROW\b', '←'),
    (r'\bLEFT-POINTING (TRIANGLE|POINTER|ISOSCELES|DOUBLE TRIANGLE)|\bLEFT POINTING INDEX$', '←'),
    (r'\bUPWARDS\b.*\bARROW\b', '↑'), (r'\bDOWNWARDS\b.*\bARROW\b', '↓'),
    (r'\bWHITE\b.*\bSTAR\b', '☆'), (r'\b(BLACK|HEAVY|TEARDROP)\b.*\bSTAR\b|^(GLOWING )?STAR$|\bPOINTED .*STAR\b', '★'),
    (r'\bLEFT WHITE SQUARE BRACKET\b|\bLEFT .*SQUARE BRACKET\b', '［'),
    (r'\bRIGHT WHITE SQUARE BRACKET\b|\bRIGHT .*SQUARE BRACKET\b', '］'),
    (r'\bBLACK\b.*\bSQUARE\b|\bLARGE .* SQUARE\b', '■'), (r'\bWHITE\b.*\bSQUARE\b|^BALLOT BOX$', '□'),
    (r'\bBLACK\b.*\bCIRCLE\b|\bLARGE .* CIRCLE\b', '●'), (r'\bWHITE\b.*\bCIRCLE\b|^HEAVY LARGE CIRCLE$', '○'),
    (r'\bBLACK\b.*\b(DIAMOND|LOZENGE)\b', '◆'), (r'\bWHITE\b.*\b(DIAMOND|LOZENGE)\b|^LOZENGE$', '◇'),
    (r'\bBLACK UP-POINTING\b.*\bTRIANGLE\b', '▲'), (r'\bWHITE UP-POINTING\b.*\bTRIANGLE\b', '△'),
    (r'\bBLACK DOWN-POINTING\b.*\bTRIANGLE\b', '▼'), (r'\bWHITE DOWN-POINTING\b.*\bTRIANGLE\b', '▽'),
    (r'^LOWER ONE (EIGHTH|QUARTER) BLOCK$', '＿'), (r'\bBLOCK$|\b(LIGHT|MEDIUM|DARK) SHADE$', '■'),
    (r'^BOX DRAWINGS LIGHT DIAGONAL UPPER RIGHT', '／'), (r'^BOX DRAWINGS LIGHT DIAGONAL UPPER LEFT', '＼'),
    (r'^BOX DRAWINGS LIGHT DIAGONAL CROSS', '×'),
    (r'\b(MUSICAL NOTE|MUSICAL NOTES|BEAMED EIGHTH NOTES|BEAMED SIXTEENTH NOTES)\b', '♪'),
    (r'\bQUESTION MARK ORNAMENT\b', '？'), (r'\bEXCLAMATION MARK (SYMBOL|ORNAMENT)\b', '！'),
    (r'^HEAVY PLUS SIGN$', '+'), (r'^HEAVY MINUS SIGN$', '-'), (r'^HEAVY DIVISION SIGN$', '÷'),
    (r'\bINVERTED (EXCLAMATION|QUESTION) MARK\b', ''),
]

# In the place of a character that counts in a header: a folding must not make an address, or an encoded word.
STRUCTURE = dict(zip('<>@,;:"\\[]=?', '＜＞＠，；：”＼［］＝？'))


def code_of(character):
    """The Shift-JIS code of a character as the Microsoft mapping has it, or None. ASCII is itself."""
    try:
        encoded = character.encode('cp932')
    except UnicodeEncodeError:
        return None
    if encoded[0] in USER_DEFINED or encoded.decode('cp932') != character:
        return None
    if len(encoded) == 1 and not (0x20 <= encoded[0] < 0x7F or 0xA1 <= encoded[0] <= 0xDF):
        return None
    return int.from_bytes(encoded, 'big')


def decode(lead, trail):
    if lead in USER_DEFINED:
        return 0
    try:
        return ord(bytes([lead, trail]).decode('cp932'))
    except UnicodeDecodeError:
        return 0


# ---- what the packages say

Entry = collections.namedtuple('Entry', 'name category form decomposition number')


def read_unicode_data():
    for line in open(UNICODE + 'UnicodeData.txt', encoding='ascii'):
        fields = line.split(';')
        form, _, points = fields[5].rpartition('> ')
        if fields[1].endswith(', First>') or fields[1].endswith(', Last>'):
            continue
        yield int(fields[0], 16), Entry(fields[1], fields[2], form.lstrip('<'),
                                            [int(p, 16) for p in points.split()], fields[8])


def read_property(name):
    points = set()
    for line in open(UNICODE + 'DerivedCoreProperties.txt', encoding='utf-8'):
        match = re.match(r'([0-9A-F]+)(?:\.\.([0-9A-F]+))? *; (\w+)', line)
        if match and match[3] == name:
            points.update(range(int(match[1], 16), int(match[2] or match[1], 16) + 1))
    return points


def read_transliterations(name):
    """The C library's forms of a character, the best first."""
    for line in open(LOCALES + name, encoding='utf-8'):
        match = re.match(r'<U([0-9A-F]+)> (.*)', line)
        if match:
            yield int(match[1], 16), [''.join(chr(int(point, 16)) for point in re.findall(r'<U([0-9A-F]+)>', form))
                                      for form in match[2].split('%')[0].split(';')]


def read_unihan(name):
    for line in bz2.open(UNICODE + name + '.txt.bz2', 'rt', encoding='utf-8'):
        if line.startswith('U+'):
            yield line.rstrip('\n').split('\t')


DATA = dict(read_unicode_data())
IGNORABLE = read_property('Default_Ignorable_Code_Point')
PLAIN = {}
for table in ['translit_neutral', 'translit_combining', 'translit_compat', 'translit_font', 'translit_small']:
    for point, forms in read_transliterations(table):
        PLAIN.setdefault(point, forms)

# ---- kanji

STROKES = {}
JAPANESE = set()  # that a Japanese standard has
SAME = collections.defaultdict(list)  # the simplified form, the traditional one, another shape of the same
LIKE = collections.defaultdict(list)  # variants of a wider kind
for point, key, value in read_unihan('Unihan_IRGSources'):
    if key == 'kRSUnicode':
        radical, strokes = value.split()[0].split('.')
        STROKES[int(point[2:], 16)] = radical.rstrip("'"), int(strokes)
    elif key == 'kIRG_JSource':
        JAPANESE.add(int(point[2:], 16))
for point, key, value in read_unihan('Unihan_Variants'):
    if key in ('kZVariant', 'kSimplifiedVariant', 'kTraditionalVariant', 'kSpoofingVariant'):
        for other in (int(other, 16) for other in re.findall(r'U\+([0-9A-F]+)', value)):
            SAME[int(point[2:], 16)].append(other)
            SAME[other].append(int(point[2:], 16))
for point, forms in read_transliterations('translit_cjk_variants'):
    LIKE[point] += [ord(form) for form in forms if len(form) == 1]


def in_standard(character):
    """JIS X 0208: not the rows that only Microsoft's converter has."""
    code = code_of(character)
    row = None if not code or code < 0x100 else ((code >> 8) - (0x81 if code < 0xA000 else 0xC1)) * 2 + (
        1 if code & 0xFF < 0x9F else 2)
    return code is not None and (row is None or row <= 8 or 16 <= row <= 84)


def kanji(point, depth=1):
    """The form that the standard has: of a Japanese kanji also a wider variant with its radical and about its strokes."""
    radical, strokes = STROKES.get(point, (None, 0))

    def distance(other):
        return STROKES.get(other, ('', 0))[0] != radical, abs(STROKES.get(other, ('', 0))[1] - strokes)

    others = [other for other in SAME[point] if other > 0x7F]
    if point in JAPANESE:
        others += [other for other in LIKE[point] if distance(other) < (True, 0) and distance(other)[1] <= 8]
    there = [other for other in others if in_standard(chr(other))]
    if there:
        return chr(min(there, key=distance) if point in JAPANESE else there[0])
    further = [form for other in others if depth > 0 and (form := kanji(other, depth - 1))]
    return further[0] if further else None


# ---- the choice

CACHE = {}


def text_of(point):
    """What is written for the character: characters of the code page, or None where there is nothing to be written."""
    if point not in CACHE:
        CACHE[point] = None  # for a circle
        CACHE[point] = chr(point) if point >= 0x20 and point != 0x7F and code_of(chr(point)) else form_of(point)
    return CACHE[point]


BOXES = {entry.name: chr(point) for point, entry in DATA.items()
         if entry.name.startswith('BOX DRAWINGS') and code_of(chr(point))}


def box(name):
    """A frame with the same arms, heavy for double lines, else light."""
    arms = ' AND '.join(re.findall(r'\b(?:UP|DOWN|LEFT|RIGHT|VERTICAL|HORIZONTAL)\b', name))
    heavy = 'HEAVY' in name or 'DOUBLE' in name.replace('DOUBLE DASH', '')
    return BOXES.get('BOX DRAWINGS ' + ('HEAVY ' if heavy else 'LIGHT ') + arms)


def form_of(point):
    entry = DATA.get(point)
    if point in CHOSEN:
        return CHOSEN[point]
    if point in IGNORABLE or (entry and entry.category in ('Cc', 'Cf', 'Mn', 'Me') and point > 0x7F):
        return ''
    if not entry:
        return kanji(point)
    if entry.name.startswith('EMOJI MODIFIER'):
        return ''
    if entry.category == 'Zs':
        return ' '
    if entry.category == 'Pd':
        return '-'
    if 'CIRCLED' in entry.name and entry.number.isdigit():
        return '(' + entry.number + ')'
    if match := re.search(r'(?:REGIONAL INDICATOR SYMBOL|SQUARED LATIN CAPITAL|CIRCLED LATIN CAPITAL) LETTER ([A-Z])$',
                          entry.name):
        return match[1] if 'CIRCLED' not in entry.name else '(' + match[1] + ')'
    if match := re.match(r'SQUARED (CL|COOL|FREE|ID|NEW|NG|OK|SOS|UP|VS)\b', entry.name):
        return match[1]
    if frame := box(entry.name) if entry.name.startswith('BOX DRAWINGS') else None:
        return frame
    for pattern, form in BY_NAME:
        if re.search(pattern, entry.name):
            return form
    if entry.form == 'super' and entry.number.isdigit():
        return '^' + entry.number
    for form in PLAIN.get(point, []):
        written = [text_of(ord(character)) for character in form]
        if form and None not in written:
            return ''.join(written)
    written = [text_of(part) for part in entry.decomposition]
    if not written or None in written:
        return kanji(point)
    text = ''.join(written)
    if entry.form == 'circle' and text.isascii():
        return '(' + text + ')'
    return ' ' + text if entry.form == 'fraction' else text


def forms():
    points = {*DATA, *IGNORABLE, *SAME, *LIKE}
    for point in sorted(points):
        if point < 0x80 or 0xD800 <= point <= 0xF8FF or code_of(chr(point)):
            continue
        text = text_of(point)
        if text is not None and all(in_standard(character) for character in text):
            yield point, ''.join(STRUCTURE.get(character, character) for character in text)


def rows(values, per_line, form):
    for i in range(0, len(values), per_line):
        print('    ' + ' '.join(form(value) for value in values[i:i + per_line]))


def escaped(text):
    """A C++ string with octal escapes: a digit behind a hexadecimal one would belong to it."""
    return '"' + ''.join(chr(byte) if 0x20 <= byte < 0x7F and chr(byte) not in '"\\?' else '\\%03o' % byte
                         for byte in text.encode('cp932')) + '"'


FIRST_TEXT = 0x100  # see LookAlike
texts = []
look_alikes = []
for point, text in forms():
    if len(text) <= 1:
        to = code_of(text) if text else 0
    else:
        if text not in texts:
            texts.append(text)
        to = FIRST_TEXT + texts.index(text)
    look_alikes.append((point, to))
if FIRST_TEXT + len(texts) > 0x8140:
    sys.exit('too many texts')

print('// Made by make_cp932_table.py: do not edit.\n')
print('#include "platform/codec/cp932_table.h"\n')
print('namespace tarvex {\n')
print('// clang-format off')
print('const std::array<char16_t, kCp932Characters> kCp932ToUnicode = {')
rows([decode(lead, trail) for lead in LEADS for trail in TRAILS], 16, lambda value: '0x%04X,' % value)
print('};\n')
print('static constexpr std::array<LookAlike, %d> kLookAlikeTable = {{' % len(look_alikes))
rows(look_alikes, 8, lambda pair: '{0x%04X, 0x%04X},' % pair)
print('}};')
print('static constexpr std::array<std::string_view, %d> kLookAlikeTextTable = {' % len(texts))
rows(texts, 8, lambda text: escaped(text) + ',')
print('};')
print('// clang-format on\n')
print('const std::span<const LookAlike> kLookAlikes = kLookAlikeTable;')
print('const std::span<const std::string_view> kLookAlikeTexts = kLookAlikeTextTable;\n')
print('}  // namespace tarvex')
