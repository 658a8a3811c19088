#!/usr/bin/python3
"""Makes the font fixtures that tests/page/KPPDFFontTest.cpp reads.

Run from any folder:  /usr/bin/python3 tests/data/fonts/make_fonts.py
Needs python3-reportlab, python3-pikepdf, python3-fonttools, fonts-dejavu-core, poppler-utils
(pdftotext) and poppler-data.

Each PDF gets a sidecar "<name>.expect" with one line per record, all text and bytes in hex:
  B <utf-8 of the line pdftotext prints for the next text block>
  S <font object number> <bytes of one shown string>   (the shows of that block, in order)
  W <font object number> <code> <advance width in glyph space units>
The expected text comes from pdftotext, the widths from the fonts' own metrics (reportlab's
standard font widths by glyph name, the TrueType hmtx table), so the tests compare with independent readers.
"""
import os
import subprocess

import pikepdf
from fontTools import agl
from fontTools.ttLib import TTFont as FTFont
from reportlab.pdfbase import _fontdata, pdfmetrics
from reportlab.pdfbase.ttfonts import TTFont
from reportlab.pdfgen import canvas

HERE = os.path.dirname(os.path.abspath(__file__))
DEJAVU = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf"
DEJAVU_MONO = "/usr/share/fonts/truetype/dejavu/DejaVuSansMono.ttf"
JAPAN1_UCS2 = "/usr/share/poppler/cMap/Adobe-Japan1/Adobe-Japan1-UCS2"
# Fixed dates and ids keep the files byte for byte the same on every run.
FIXED_DATE = "D:20240101000000Z"


def out(name):
    return os.path.join(HERE, name)


def raw_show(c, x, y, font, size, pdf_string):
    """Shows a literal string given as PDF syntax, for codes reportlab would not encode."""
    text = c.beginText(x, y)
    text.setFont(font, size)
    text._code.append("%s Tj" % pdf_string)
    c.drawText(text)


def make_standard():
    # Times-Roman over MacRoman with a Differences entry; Courier over the standard encoding
    # with the Differences that make codes 39 and 96 ASCII quotes.
    mac = pdfmetrics.Encoding("KPMacDiff", "MacRomanEncoding")
    mac[200] = "Euro"
    pdfmetrics.registerEncoding(mac)
    pdfmetrics.registerFont(pdfmetrics.Font("Times-KPMac", "Times-Roman", "KPMacDiff"))
    std = pdfmetrics.Encoding("KPStdDiff", "StandardEncoding")
    std[39] = "quotesingle"
    std[96] = "grave"
    std[164] = "Euro"
    pdfmetrics.registerEncoding(std)
    pdfmetrics.registerFont(pdfmetrics.Font("Courier-KPStd", "Courier", "KPStdDiff"))

    path = out("standard.pdf")
    c = canvas.Canvas(path, pageCompression=1, invariant=1)
    c.setFont("Helvetica", 12)
    c.drawString(72, 700, "Price 12 \u20ac na\u00efve caf\u00e9 \u2013 \u201cquoted\u201d \u2022 end")
    raw_show(c, 72, 680, "Times-KPMac", 12, r"(\200rger \047x\047 \140y\140 \310 \344 \247)")
    raw_show(c, 72, 660, "Courier-KPStd", 12, r"(It\047s \140q\140 \251 \252 \244 \261)")
    # Helvetica-Bold loses its Encoding below, so it reads through the standard encoding.
    raw_show(c, 72, 640, "Helvetica-Bold", 12, r"(\140Bold\047 \244 \267 \341 \352 \370)")
    c.showPage()
    c.save()

    with pikepdf.open(path, allow_overwriting_input=True) as pdf:
        fonts = pdf.pages[0].Resources.Font
        for key in fonts.keys():
            if fonts[key].BaseFont == "/Helvetica-Bold":
                del fonts[key].Encoding
        pdf.save(path, static_id=True)
    return path


def make_truetype():
    pdfmetrics.registerFont(TTFont("DejaVuSans", DEJAVU))
    pdfmetrics.registerFont(TTFont("DejaVuSansMono", DEJAVU_MONO))
    path = out("truetype.pdf")
    c = canvas.Canvas(path, pageCompression=1, invariant=1)
    c.setFont("DejaVuSans", 12)
    c.drawString(72, 700, "Gr\u00fc\u00dfe \u0395\u03bb\u03bb\u03b7\u03bd\u03b9\u03ba\u03ac "
                 "\u041f\u0440\u0438\u0432\u0435\u0442 \u20ac \u2264 \u221e")
    c.drawString(72, 680, "Plain ASCII text, digits 0123456789.")
    c.setFont("DejaVuSansMono", 12)
    c.drawString(72, 660, "mono: \u00e6\u00f8\u00e5 \u0161\u010d\u017e \u2192 ok")
    c.showPage()
    c.save()
    return path


def japan1_cids(text):
    """CIDs of the Adobe-Japan1 collection for the characters, from poppler-data's map."""
    reverse = {}
    mode = None
    with open(JAPAN1_UCS2, encoding="latin-1") as f:
        for line in f:
            line = line.strip()
            if line.endswith("beginbfchar"):
                mode = "char"
            elif line.endswith("beginbfrange"):
                mode = "range"
            elif line.startswith("end"):
                mode = None
            elif mode and line.startswith("<"):
                parts = [p.strip("<>") for p in line.split()]
                if mode == "char" and len(parts[1]) == 4:
                    reverse.setdefault(int(parts[1], 16), int(parts[0], 16))
                elif mode == "range" and len(parts[2]) == 4:
                    low, high, dst = (int(p, 16) for p in parts)
                    for cid in range(low, high + 1):
                        reverse.setdefault(dst + cid - low, cid)
    return [reverse[ord(ch)] for ch in text]


def cmap_stream(pdf, chars, ranges):
    lines = ["/CIDInit /ProcSet findresource begin", "12 dict begin", "begincmap",
             "/CIDSystemInfo << /Registry (Adobe) /Ordering (UCS) /Supplement 0 >> def",
             "/CMapName /Adobe-Identity-UCS def", "/CMapType 2 def",
             "1 begincodespacerange", "<0000> <FFFF>", "endcodespacerange"]
    lines.append("%d beginbfchar" % len(chars))
    lines += ["<%04X> <%04X>" % (code, unit) for code, unit in sorted(chars.items())]
    lines.append("endbfchar")
    lines.append("%d beginbfrange" % len(ranges))
    lines += ["<%04X> <%04X> <%04X>" % r for r in ranges]
    lines.append("endbfrange")
    lines += ["endcmap", "CMapName currentdict /CMap defineresource pop", "end", "end"]
    return pikepdf.Stream(pdf, ("\n".join(lines) + "\n").encode("ascii"))


def make_composite():
    """Type0 fonts made by hand: Identity-H over DejaVu Sans glyph ids with a ToUnicode map
    (not embedded: text extraction needs no glyphs), and an Adobe-Japan1 font without one."""
    tt = FTFont(DEJAVU)
    upem = tt["head"].unitsPerEm
    cmap = tt.getBestCmap()
    hmtx = tt["hmtx"]

    text1 = "Composite \u00c5ngstr\u00f6m \u03a9mega"
    text2 = "ABC xyz"
    gids, widths, chars = {}, {}, {}
    for ch in set(text1 + text2):
        gid = tt.getGlyphID(cmap[ord(ch)])
        gids[ch] = gid
        widths[gid] = round(hmtx[cmap[ord(ch)]][0] * 1000 / upem)
    # Letters of "ABC" and "xyz" go through ranges, everything else through single entries.
    ranges = []
    for run in ("ABC", "xyz"):
        first = gids[run[0]]
        assert [gids[ch] for ch in run] == list(range(first, first + 3))
        ranges.append((first, first + 2, ord(run[0])))
    for ch, gid in gids.items():
        if ch not in "ABCxyz":
            chars[gid] = ord(ch)
    # W: one list run for the sorted ids that follow each other, constant runs elsewhere.
    w = []
    ordered = sorted(widths)
    i = 0
    while i < len(ordered):
        j = i
        while j + 1 < len(ordered) and ordered[j + 1] == ordered[j] + 1:
            j += 1
        if j > i:
            w += [ordered[i], [widths[g] for g in ordered[i:j + 1]]]
        else:
            w += [ordered[i], ordered[i], widths[ordered[i]]]
        i = j + 1

    pdf = pikepdf.new()
    descriptor = pdf.make_indirect(pikepdf.Dictionary(
        Type=pikepdf.Name.FontDescriptor, FontName=pikepdf.Name("/DejaVuSans"), Flags=32,
        FontBBox=[-1021, -463, 1793, 1232], ItalicAngle=0, Ascent=928, Descent=-236,
        CapHeight=729, StemV=80))
    descendant = pdf.make_indirect(pikepdf.Dictionary(
        Type=pikepdf.Name.Font, Subtype=pikepdf.Name.CIDFontType2,
        BaseFont=pikepdf.Name("/DejaVuSans"), FontDescriptor=descriptor,
        CIDSystemInfo=pikepdf.Dictionary(Registry="Adobe", Ordering="Identity", Supplement=0),
        DW=1000, W=w, CIDToGIDMap=pikepdf.Name.Identity))
    font1 = pdf.make_indirect(pikepdf.Dictionary(
        Type=pikepdf.Name.Font, Subtype=pikepdf.Name.Type0, BaseFont=pikepdf.Name("/DejaVuSans"),
        Encoding=pikepdf.Name("/Identity-H"), DescendantFonts=[descendant],
        ToUnicode=pdf.make_indirect(cmap_stream(pdf, chars, ranges))))

    japanese = "\u65e5\u672c\u8a9e\u6587\u5b57\u5217"
    jdescriptor = pdf.make_indirect(pikepdf.Dictionary(
        Type=pikepdf.Name.FontDescriptor, FontName=pikepdf.Name("/Ryumin-Light"), Flags=6,
        FontBBox=[-170, -331, 1024, 903], ItalicAngle=0, Ascent=723, Descent=-241,
        CapHeight=709, StemV=69))
    jdescendant = pdf.make_indirect(pikepdf.Dictionary(
        Type=pikepdf.Name.Font, Subtype=pikepdf.Name.CIDFontType0,
        BaseFont=pikepdf.Name("/Ryumin-Light"), FontDescriptor=jdescriptor,
        CIDSystemInfo=pikepdf.Dictionary(Registry="Adobe", Ordering="Japan1", Supplement=2),
        DW=1000, W=[1, [250] * 3]))
    font2 = pdf.make_indirect(pikepdf.Dictionary(
        Type=pikepdf.Name.Font, Subtype=pikepdf.Name.Type0,
        BaseFont=pikepdf.Name("/Ryumin-Light"), Encoding=pikepdf.Name("/Identity-H"),
        DescendantFonts=[jdescendant]))

    def hexstring(codes):
        return "<" + "".join("%04X" % c for c in codes) + ">"

    line1 = hexstring(gids[ch] for ch in text1)
    line2a, line2b = text2.split(" ")
    content = "\n".join([
        "BT /F1 12 Tf 72 700 Td %s Tj ET" % line1,
        "BT /F1 12 Tf 72 680 Td [%s -250 %s %s] TJ ET" % (
            hexstring(gids[ch] for ch in line2a), hexstring([gids[" "]]),
            hexstring(gids[ch] for ch in line2b)),
        "BT /F2 12 Tf 72 660 Td %s Tj ET" % hexstring(japan1_cids(japanese)),
    ]) + "\n"
    page = pdf.add_blank_page(page_size=(612, 792))
    page.Resources = pikepdf.Dictionary(Font=pikepdf.Dictionary(F1=font1, F2=font2))
    page.Contents = pdf.make_indirect(pikepdf.Stream(pdf, content.encode("ascii")))
    path = out("composite.pdf")
    # Uncompressed and without object streams, so that the test finds each "N 0 obj".
    pdf.save(path, static_id=True, compress_streams=False,
             object_stream_mode=pikepdf.ObjectStreamMode.disable)
    return path, widths


def shows_by_block(path):
    """Text blocks (BT..ET) of page 1 that show something: lists of (font number, bytes)."""
    blocks, current, font = [], None, None
    with pikepdf.open(path) as pdf:
        page = pdf.pages[0]
        fonts = page.Resources.Font
        for operands, operator in pikepdf.parse_content_stream(page):
            op = str(operator)
            if op == "BT":
                current = []
            elif op == "ET":
                if current:
                    blocks.append(current)
                current = None
            elif op == "Tf":
                font = fonts[str(operands[0])].objgen[0]
            elif op in ("Tj", "'", '"'):
                current.append((font, bytes(operands[-1])))
            elif op == "TJ":
                for item in operands[0]:
                    if isinstance(item, pikepdf.String):
                        current.append((font, bytes(item)))
    return blocks


def pdftotext_lines(path):
    text = subprocess.run(["pdftotext", "-enc", "UTF-8", path, "-"], check=True,
                          capture_output=True, text=True).stdout
    return [line for line in text.replace("\f", "\n").split("\n") if line.strip()]


def write_expect(path, width_source):
    blocks = shows_by_block(path)
    lines = pdftotext_lines(path)
    assert len(blocks) == len(lines), (path, len(blocks), lines)
    records = []
    widths = {}
    for block, line in zip(blocks, lines):
        records.append("B " + line.encode("utf-8").hex())
        for font, data in block:
            records.append("S %d %s" % (font, data.hex()))
        for font, code, width in width_source(block, line):
            widths[(font, code)] = width
    for (font, code), width in sorted(widths.items()):
        records.append("W %d %d %s" % (font, code, width))
    with open(os.path.splitext(path)[0] + ".expect", "w") as f:
        f.write("\n".join(records) + "\n")


def simple_widths(path):
    """Widths of one-byte fonts: the font's Widths array when it has one (the TrueType
    subsets), else reportlab's metrics of the standard font for the character pdftotext read."""
    pdf = pikepdf.open(path)
    by_number = {}
    for key, font in pdf.pages[0].Resources.Font.items():
        by_number[font.objgen[0]] = font

    def source(block, line):
        codes = [(font, code) for font, data in block for code in data]
        if len(codes) != len(line):
            return []
        result = []
        for (font, code), ch in zip(codes, line):
            dictionary = by_number[font]
            if "/Widths" in dictionary:
                width = float(dictionary.Widths[code - int(dictionary.FirstChar)])
            else:
                # By glyph name: stringWidth measures only what reportlab's own encoding holds.
                # A glyph the font lacks (Times has no "pi") gets no record.
                glyphs = _fontdata.widthsByFontGlyph[str(dictionary.BaseFont)[1:]]
                width = glyphs.get(agl.UV2AGL.get(ord(ch)))
                if width is None:
                    continue
            result.append((font, code, "%g" % width))
        return result
    return source


def main():
    for path in (make_standard(), make_truetype()):
        write_expect(path, simple_widths(path))
    path, widths = make_composite()
    # Saving numbers the objects anew: find the DejaVu font by its name in the saved file.
    with pikepdf.open(path) as pdf:
        dejavu = [font.objgen[0] for _, font in pdf.pages[0].Resources.Font.items()
                  if font.BaseFont == "/DejaVuSans"]

    def composite_source(block, line):
        return [(font, int.from_bytes(data[i:i + 2], "big"),
                 "%g" % widths[int.from_bytes(data[i:i + 2], "big")])
                for font, data in block if font in dejavu for i in range(0, len(data), 2)]
    write_expect(path, composite_source)


if __name__ == "__main__":
    main()
