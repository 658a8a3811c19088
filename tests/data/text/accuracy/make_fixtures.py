#!/usr/bin/python3
"""Makes the text-accuracy fixtures that tests/text/KPPDFTextAccuracyTest.cpp reads.

Run from any folder:  /usr/bin/python3 tests/data/text/accuracy/make_fixtures.py
Needs python3-reportlab, python3-pikepdf, python3-fonttools, fonts-dejavu-core, qpdf and
poppler-utils (pdftotext).

Every "<name>.pdf" gets a "<name>.txt" beside it: what `pdftotext -enc UTF-8 -raw <name>.pdf -`
prints, kept so that the test can compare with it where pdftotext is not installed.
The producers differ on purpose: reportlab's canvas and page layout with the standard fonts and
with an embedded TrueType subset (Flate streams, and one file with reportlab's default
ASCII85); qpdf's rewrites of those files (QDF, object streams, linearized); hand-made content
with kerning TJ arrays, words and letters placed one by one, a Type0 Identity-H font with a
ToUnicode map, a Type3 font, and standard fonts over WinAnsi and MacRoman with Differences.
"""
import os
import subprocess

import pikepdf
from fontTools.ttLib import TTFont as FTFont
from reportlab import rl_config
from reportlab.lib.enums import TA_JUSTIFY
from reportlab.lib.pagesizes import A4, letter
from reportlab.lib.styles import ParagraphStyle
from reportlab.pdfbase import pdfmetrics
from reportlab.pdfbase.ttfonts import TTFont
from reportlab.pdfgen import canvas
from reportlab.platypus import (BaseDocTemplate, Frame, PageTemplate, Paragraph,
                                SimpleDocTemplate, Spacer)

HERE = os.path.dirname(os.path.abspath(__file__))
DEJAVU = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf"

# Same bytes on every run: no dates or random ids in the files.
rl_config.invariant = 1
# Plain Flate streams; make_standard_a85 makes the one file with reportlab's default ASCII85.
rl_config.useA85 = 0

ENGLISH = [
    "The river had been rising for three days before anyone in the village thought to move "
    "the grain out of the lower barns. By the time the miller sent his sons down with the "
    "cart, the water stood a hand deep on the threshing floor and the sacks nearest the door "
    "were already dark with it.",
    "Nobody blamed the miller. He had said, every spring for twenty years, that the old levee "
    "would hold one more season, and every spring it had. What changed this year was not the "
    "levee but the snow: a late, heavy fall in the hills, followed by a week of warm rain.",
    "Measurements taken at the bridge show the level climbing 41 centimetres on Monday, "
    "57 on Tuesday and a further 38 by noon on Wednesday; the record, set in 1911, was "
    "exceeded shortly after two o'clock that afternoon.",
    "Afterwards the council asked for a survey of every wall, culvert and drain along the "
    "eastern bank. The engineers' report ran to ninety pages, most of them tables, and its "
    "one clear recommendation was the one everybody had expected: build the levee higher.",
]

LATIN1 = [
    "Caf\u00e9 cr\u00e8me, na\u00efve fa\u00e7ade, d\u00e9j\u00e0 vu \u2013 \u201cquoted\u201d "
    "words \u2014 and a r\u00e9sum\u00e9 that costs \u20ac12 or \u00a310.",
    "Gr\u00fc\u00dfe aus M\u00fcnchen; \u00e5ngstr\u00f6m, smørrebrød, ma\u00f1ana, "
    "se\u00f1or Pe\u00f1a.",
]

GREEK_CYRILLIC = [
    "\u0395\u03bb\u03bb\u03b7\u03bd\u03b9\u03ba\u03ac \u03ba\u03b5\u03af\u03bc\u03b5\u03bd\u03bf "
    "\u03bc\u03b5 \u03c4\u03cc\u03bd\u03bf\u03c5\u03c2 \u03ba\u03b1\u03b9 \u03c3\u03b7\u03bc\u03b5"
    "\u03af\u03b1 \u03c3\u03c4\u03af\u03be\u03b7\u03c2.",
    "\u041f\u0440\u0438\u0432\u0435\u0442, \u043c\u0438\u0440! \u042d\u0442\u043e "
    "\u043a\u043e\u0440\u043e\u0442\u043a\u0438\u0439 \u0440\u0443\u0441\u0441\u043a\u0438\u0439 "
    "\u0442\u0435\u043a\u0441\u0442 \u0434\u043b\u044f \u043f\u0440\u043e\u0432\u0435\u0440\u043a"
    "\u0438.",
]


def out(name):
    return os.path.join(HERE, name)


def save_pikepdf(pdf, path):
    pdf.save(path, static_id=True)


def make_standard(name="standard.pdf"):
    """reportlab's page layout: justified paragraphs (word spacing through Tw) in the three
    families of the standard fonts, over two pages."""
    path = out(name)
    doc = SimpleDocTemplate(path, pagesize=letter, invariant=1, title="standard")
    styles = [
        ParagraphStyle("h", fontName="Helvetica", fontSize=11, leading=14, alignment=TA_JUSTIFY),
        ParagraphStyle("t", fontName="Times-Roman", fontSize=12, leading=15, alignment=TA_JUSTIFY),
        ParagraphStyle("c", fontName="Courier", fontSize=9, leading=11),
        ParagraphStyle("b", fontName="Helvetica-Bold", fontSize=14, leading=18),
    ]
    story = [Paragraph("Flood report for the lower valley", styles[3])]
    for round_ in range(3):
        for i, text in enumerate(ENGLISH + LATIN1):
            story.append(Paragraph(text, styles[(i + round_) % 3]))
            story.append(Spacer(1, 6))
    doc.build(story)
    return path


def make_standard_a85():
    """The same as standard.pdf with reportlab's default stream encoding, ASCII85 over Flate."""
    rl_config.useA85 = 1
    try:
        return make_standard("standard-a85.pdf")
    finally:
        rl_config.useA85 = 0


def make_truetype():
    """reportlab's page layout with an embedded TrueType subset (simple fonts with ToUnicode
    maps)."""
    pdfmetrics.registerFont(TTFont("DejaVuSans", DEJAVU))
    path = out("truetype.pdf")
    doc = SimpleDocTemplate(path, pagesize=A4, invariant=1, title="truetype")
    sans = ParagraphStyle("s", fontName="DejaVuSans", fontSize=10, leading=13)
    justified = ParagraphStyle("r", fontName="DejaVuSans", fontSize=11, leading=14,
                               alignment=TA_JUSTIFY)
    story = []
    for i, text in enumerate(GREEK_CYRILLIC + LATIN1 + ENGLISH[:2]):
        story.append(Paragraph(text, sans if i % 2 else justified))
        story.append(Spacer(1, 4))
    doc.build(story)
    return path


def make_twocolumn():
    """Two frames side by side: each column's lines start at its own left edge."""
    path = out("twocolumn.pdf")
    doc = BaseDocTemplate(path, pagesize=letter, invariant=1, title="twocolumn")
    width = (letter[0] - 72 * 2 - 24) / 2
    frames = [Frame(72, 72, width, letter[1] - 144, id="left"),
              Frame(72 + width + 24, 72, width, letter[1] - 144, id="right")]
    doc.addPageTemplates([PageTemplate(id="two", frames=frames)])
    style = ParagraphStyle("p", fontName="Times-Roman", fontSize=10, leading=12)
    story = []
    for text in ENGLISH * 3:
        story.append(Paragraph(text, style))
        story.append(Spacer(1, 6))
    doc.build(story)
    return path


def make_rotated():
    """Pages turned by Rotate 90 and 270, and text drawn turned by the CTM."""
    path = out("rotated.pdf")
    c = canvas.Canvas(path, pagesize=letter, invariant=1)
    for rotation, lines in ((90, ENGLISH[:1]), (270, ENGLISH[1:2]), (0, ENGLISH[2:3])):
        c.setPageRotation(rotation)
        c.setFont("Helvetica", 11)
        words = " ".join(lines).split()
        # reportlab swaps the media box of a turned page, which is then 612 high.
        y = 560
        while words:
            line = []
            while words and c.stringWidth(" ".join(line + words[:1]), "Helvetica", 11) < 440:
                line.append(words.pop(0))
            c.drawString(72, y, " ".join(line))
            y -= 14
        if rotation == 0:
            c.saveState()
            c.translate(560, 100)
            c.rotate(90)
            c.drawString(0, 0, "Sideways caption along the right margin")
            c.restoreState()
        c.showPage()
    c.save()
    return path


def simple_font(pdf, base, encoding):
    return pdf.make_indirect(pikepdf.Dictionary(
        Type=pikepdf.Name.Font, Subtype=pikepdf.Name.Type1, BaseFont=pikepdf.Name("/" + base),
        Encoding=encoding))


def one_page(pdf, fonts, content, rotate=None):
    page = pdf.add_blank_page(page_size=(612, 792))
    page.Resources = pikepdf.Dictionary(Font=pikepdf.Dictionary(fonts))
    page.Contents = pdf.make_indirect(pikepdf.Stream(pdf, content.encode("latin-1")))
    if rotate:
        page.Rotate = rotate
    return page


def pdf_literal(data):
    out_ = "("
    for byte in data:
        ch = chr(byte)
        if ch in "()\\":
            out_ += "\\" + ch
        elif 32 <= byte < 127:
            out_ += ch
        else:
            out_ += "\\%03o" % byte
    return out_ + ")"


def make_kerning():
    """TJ arrays as typesetters write them: kerning inside words, and word spaces that are
    either a space glyph or only a wide negative adjustment."""
    pdf = pikepdf.new()
    font = simple_font(pdf, "Helvetica", pikepdf.Name.WinAnsiEncoding)
    lines = []
    y = 720
    for text in ENGLISH:
        words = text.split()
        while words:
            chunk, words = words[:9], words[9:]
            parts = []
            for n, word in enumerate(chunk):
                # Kern a pair inside the word the way a layout engine does for "AV"-like pairs.
                if len(word) > 3:
                    parts.append("%s -35 %s" % (pdf_literal(word[:2].encode("cp1252")),
                                                pdf_literal(word[2:].encode("cp1252"))))
                else:
                    parts.append(pdf_literal(word.encode("cp1252")))
                if n + 1 < len(chunk):
                    # Every other gap is a space glyph, the rest an adjustment alone.
                    parts.append("( )" if n % 2 else "-278")
            lines.append("BT /F1 10 Tf 1 0 0 1 72 %d Tm [%s] TJ ET" % (y, " ".join(parts)))
            y -= 13
        y -= 6
    one_page(pdf, {"/F1": font}, "\n".join(lines) + "\n")
    path = out("kerning.pdf")
    save_pikepdf(pdf, path)
    return path


def make_placed():
    """Text placed piece by piece, as some printer drivers write it: every word shown on its own
    at its x (no space glyphs), a line with every letter placed on its own, and superscripts
    raised with Ts."""
    pdf = pikepdf.new()
    font = simple_font(pdf, "Helvetica", pikepdf.Name.WinAnsiEncoding)
    size = 10
    space = pdfmetrics.stringWidth(" ", "Helvetica", size)
    lines = []
    y = 720
    for text in ENGLISH[:3]:
        words = text.split()
        while words:
            chunk, words = words[:10], words[10:]
            x = 72.0
            for word in chunk:
                lines.append("BT /F1 %d Tf %.3f %d Td %s Tj ET" % (
                    size, x, y, pdf_literal(word.encode("cp1252"))))
                x += pdfmetrics.stringWidth(word, "Helvetica", size) + space
            y -= 14
        y -= 6
    for text in ("Letters placed one by one, every single one.", ENGLISH[3][:60]):
        x = 72.0
        for ch in text:
            if ch != " ":
                lines.append("BT /F1 %d Tf %.3f %d Td %s Tj ET" % (
                    size, x, y, pdf_literal(ch.encode("cp1252"))))
            x += pdfmetrics.stringWidth(ch, "Helvetica", size)
        y -= 14
    lines.append("BT /F1 10 Tf 72 %d Td (Einstein wrote E = mc) Tj 5 Ts (2) Tj 0 Ts "
                 "( in 1905, see note) Tj 4 Ts (3) Tj 0 Ts (.) Tj ET" % (y - 6))
    one_page(pdf, {"/F1": font}, "\n".join(lines) + "\n")
    path = out("placed.pdf")
    save_pikepdf(pdf, path)
    return path


def make_type0():
    """A Type0 font over DejaVu Sans glyph ids (Identity-H) with a ToUnicode map; the font is
    not embedded, text extraction needs no glyph outlines."""
    tt = FTFont(DEJAVU)
    upem = tt["head"].unitsPerEm
    cmap = tt.getBestCmap()
    hmtx = tt["hmtx"]
    texts = GREEK_CYRILLIC + LATIN1 + ENGLISH[:2]
    chars = sorted(set("".join(texts)))
    gid_of = {ch: tt.getGlyphID(cmap[ord(ch)]) for ch in chars}
    width_of = {gid_of[ch]: round(hmtx[cmap[ord(ch)]][0] * 1000 / upem) for ch in chars}

    pdf = pikepdf.new()
    w = []
    for gid in sorted(width_of):
        w += [gid, [width_of[gid]]]
    descriptor = pdf.make_indirect(pikepdf.Dictionary(
        Type=pikepdf.Name.FontDescriptor, FontName=pikepdf.Name("/ABCDEF+DejaVuSans"), Flags=32,
        FontBBox=[-1021, -463, 1793, 1232], ItalicAngle=0, Ascent=928, Descent=-236,
        CapHeight=729, StemV=80))
    descendant = pdf.make_indirect(pikepdf.Dictionary(
        Type=pikepdf.Name.Font, Subtype=pikepdf.Name.CIDFontType2,
        BaseFont=pikepdf.Name("/ABCDEF+DejaVuSans"), FontDescriptor=descriptor,
        CIDSystemInfo=pikepdf.Dictionary(Registry="Adobe", Ordering="Identity", Supplement=0),
        DW=1000, W=w, CIDToGIDMap=pikepdf.Name.Identity))
    bfchar = ["<%04X> <%04X>" % (gid_of[ch], ord(ch)) for ch in chars]
    cmap_lines = ["/CIDInit /ProcSet findresource begin", "12 dict begin", "begincmap",
                  "/CIDSystemInfo << /Registry (Adobe) /Ordering (UCS) /Supplement 0 >> def",
                  "/CMapName /Adobe-Identity-UCS def", "/CMapType 2 def",
                  "1 begincodespacerange", "<0000> <FFFF>", "endcodespacerange"]
    for start in range(0, len(bfchar), 100):
        block = bfchar[start:start + 100]
        cmap_lines += ["%d beginbfchar" % len(block)] + block + ["endbfchar"]
    cmap_lines += ["endcmap", "CMapName currentdict /CMap defineresource pop", "end", "end"]
    tounicode = pdf.make_indirect(pikepdf.Stream(pdf, ("\n".join(cmap_lines) + "\n").encode()))
    font = pdf.make_indirect(pikepdf.Dictionary(
        Type=pikepdf.Name.Font, Subtype=pikepdf.Name.Type0,
        BaseFont=pikepdf.Name("/ABCDEF+DejaVuSans"), Encoding=pikepdf.Name("/Identity-H"),
        DescendantFonts=[descendant], ToUnicode=tounicode))

    def measure(text):
        return sum(width_of[gid_of[ch]] for ch in text) * 11 / 1000.0

    lines = []
    y = 740
    for text in texts:
        words = text.split()
        while words:
            line = []
            while words and measure(" ".join(line + words[:1])) < 460:
                line.append(words.pop(0))
            # Each word a hex string; a space glyph between them, and a kern inside long words.
            parts = []
            for n, word in enumerate(line):
                codes = ["%04X" % gid_of[ch] for ch in word]
                if len(codes) > 4:
                    parts.append("<%s> 20 <%s>" % ("".join(codes[:2]), "".join(codes[2:])))
                else:
                    parts.append("<%s>" % "".join(codes))
                if n + 1 < len(line):
                    parts.append("<%04X>" % gid_of[" "])
            lines.append("BT /F1 11 Tf 72 %d Td [%s] TJ ET" % (y, " ".join(parts)))
            y -= 14
        y -= 6
    one_page(pdf, {"/F1": font}, "\n".join(lines) + "\n")
    path = out("type0.pdf")
    save_pikepdf(pdf, path)
    return path


def make_type3():
    """A Type3 font whose glyphs are plain boxes, named through Differences with standard
    glyph names (which is how a reader learns their Unicode values)."""
    pdf = pikepdf.new()
    text = " ".join(ENGLISH[:2])
    alphabet = sorted(set(text))
    names = {" ": "space", ",": "comma", ".": "period", ":": "colon", ";": "semicolon",
             "'": "quotesingle", "-": "hyphen"}
    for ch in alphabet:
        if ch not in names:
            names[ch] = ch if ch.isalpha() else {"0": "zero", "1": "one", "2": "two",
                                                  "3": "three", "4": "four", "5": "five",
                                                  "6": "six", "7": "seven", "8": "eight",
                                                  "9": "nine"}[ch]
    code_of = {ch: 32 + i for i, ch in enumerate(alphabet)}
    procs = {}
    for ch in alphabet:
        body = b"500 0 0 0 450 700 d1\n" + (b"" if ch == " " else b"50 0 400 700 re f\n")
        procs["/" + names[ch]] = pdf.make_indirect(pikepdf.Stream(pdf, body))
    differences = [32] + [pikepdf.Name("/" + names[ch]) for ch in alphabet]
    font = pdf.make_indirect(pikepdf.Dictionary(
        Type=pikepdf.Name.Font, Subtype=pikepdf.Name.Type3, FontBBox=[0, 0, 500, 700],
        FontMatrix=[0.001, 0, 0, 0.001, 0, 0], CharProcs=pikepdf.Dictionary(procs),
        Encoding=pikepdf.Dictionary(Type=pikepdf.Name.Encoding, Differences=differences),
        FirstChar=32, LastChar=32 + len(alphabet) - 1, Widths=[500] * len(alphabet),
        Resources=pikepdf.Dictionary()))
    words = text.split()
    lines = []
    y = 720
    while words:
        chunk, words = words[:11], words[11:]
        data = bytes(code_of[ch] for ch in " ".join(chunk))
        lines.append("BT /T3 9 Tf 72 %d Td %s Tj ET" % (y, pdf_literal(data)))
        y -= 12
    one_page(pdf, {"/T3": font}, "\n".join(lines) + "\n")
    path = out("type3.pdf")
    save_pikepdf(pdf, path)
    return path


def make_differences():
    """Helvetica over WinAnsi and Times over MacRoman, each with Differences that move some
    characters to other codes; the text is accented Latin."""
    pdf = pikepdf.new()
    # Codes that both base encodings leave free or hold as something else are remapped.
    win_diff = {0x80: "Euro", 0x81: "Zcaron", 0x8D: "quotedblleft", 0x8F: "quotedblright",
                0x90: "ellipsis", 0x9D: "OE"}
    mac_diff = {0xDB: "Euro", 0xF0: "Scaron", 0xBD: "dotlessi", 0xD7: "eacute"}
    win = simple_font(pdf, "Helvetica", pikepdf.Dictionary(
        Type=pikepdf.Name.Encoding, BaseEncoding=pikepdf.Name.WinAnsiEncoding,
        Differences=[x for code, name in sorted(win_diff.items())
                     for x in (code, pikepdf.Name("/" + name))]))
    mac = simple_font(pdf, "Times-Roman", pikepdf.Dictionary(
        Type=pikepdf.Name.Encoding, BaseEncoding=pikepdf.Name.MacRomanEncoding,
        Differences=[x for code, name in sorted(mac_diff.items())
                     for x in (code, pikepdf.Name("/" + name))]))
    win_extra = {"\u20ac": 0x80, "\u017d": 0x81, "\u201c": 0x8D, "\u201d": 0x8F,
                 "\u2026": 0x90, "\u0152": 0x9D}
    mac_extra = {"\u20ac": 0xDB, "\u0160": 0xF0, "\u0131": 0xBD, "\u00e9": 0xD7}

    def encode(text, codec, extra):
        data = bytearray()
        for ch in text:
            if ch in extra:
                data.append(extra[ch])
            else:
                data += ch.encode(codec)
        return bytes(data)

    samples = [
        "\u201cCaf\u00e9 cr\u00e8me\u201d costs \u20ac3 \u2026 na\u00efve fa\u00e7ade, "
        "\u017dilina and \u0152uvre.",
        "Gr\u00fc\u00dfe aus M\u00fcnchen; \u00e5ngstr\u00f6m, ma\u00f1ana, se\u00f1or "
        "Pe\u00f1a, d\u00e9j\u00e0 vu.",
    ] + ENGLISH[:1]
    lines = []
    y = 720
    for font, codec, extra in (("/FW", "cp1252", win_extra), ("/FM", "mac_roman", mac_extra)):
        for text in samples:
            if font == "/FM":
                text = text.replace("\u017d", "\u0160").replace("\u0152", "Oe").replace(
                    "\u201c", "\"").replace("\u201d", "\"").replace("\u2026", "...")
                text += " \u0160koda \u0131"
            words = text.split()
            while words:
                chunk, words = words[:10], words[10:]
                lines.append("BT %s 11 Tf 72 %d Td %s Tj ET" % (
                    font, y, pdf_literal(encode(" ".join(chunk), codec, extra))))
                y -= 14
        y -= 10
    one_page(pdf, {"/FW": win, "/FM": mac}, "\n".join(lines) + "\n")
    path = out("differences.pdf")
    save_pikepdf(pdf, path)
    return path


QPDF_VARIANTS = {"qdf": ["--qdf"], "objstm": ["--object-streams=generate"],
                 "linear": ["--linearize"]}


def qpdf_variants(source, kinds):
    """The same file as qpdf rewrites it: QDF form, object streams, linearized."""
    made = []
    for kind in kinds:
        path = os.path.splitext(source)[0] + "-" + kind + ".pdf"
        subprocess.run(["qpdf", "--static-id"] + QPDF_VARIANTS[kind] + [source, path],
                       check=True)
        made.append(path)
    return made


def write_oracle(path):
    text = subprocess.run(["pdftotext", "-enc", "UTF-8", "-raw", path, "-"], check=True,
                          capture_output=True).stdout
    with open(os.path.splitext(path)[0] + ".txt", "wb") as f:
        f.write(text)


def main():
    made = [make_standard(), make_truetype(), make_twocolumn(), make_rotated(), make_kerning(),
            make_type0(), make_type3(), make_differences(), make_standard_a85(), make_placed()]
    made += qpdf_variants(made[0], ["qdf", "objstm", "linear"])
    made += qpdf_variants(made[1], ["objstm"])
    for path in made:
        write_oracle(path)
        print(os.path.basename(path), os.path.getsize(path))


if __name__ == "__main__":
    main()
