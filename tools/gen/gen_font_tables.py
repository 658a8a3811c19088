#!/usr/bin/env python3
"""Writes kppdf/page/internal/KPPDFFontTablesData.{h,cpp}: the glyph names, base encodings and
standard 14 font metrics that simple fonts need, as constant arrays.

Run it with a Python that has reportlab and fontTools (Debian: /usr/bin/python3 with
python3-reportlab and python3-fonttools; fonts-urw-base35 for the AFM files):

    /usr/bin/python3 tools/gen/gen_font_tables.py [--afm-dir DIR] [--out-dir DIR]

Sources:
  - fontTools.agl: the Adobe Glyph List 2.0 text and the ITC Zapf Dingbats glyph list.
  - reportlab.pdfbase._fontdata: the Standard, MacRoman, WinAnsi, PDFDoc, MacExpert, Symbol and
    ZapfDingbats encodings as glyph-name vectors (ISO 32000-1, Annex D), and the widths by glyph
    name, ascender and descender of the 14 standard fonts.
  - The URW base35 AFM files: bounding box, cap height, x height and italic angle (these are the
    URW designs' values, which approximate the Adobe fonts').

The output depends only on those inputs: running the script twice gives identical files.
"""

import argparse
import os
import re
import sys

import fontTools
import fontTools.agl as agl
import reportlab
import reportlab.pdfbase._fontdata as fontdata

REPO = os.path.normpath(os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", ".."))
SCRIPT = "tools/gen/gen_font_tables.py"

# Order matters: it is the order of kppdf_tables::Encoding.
ENCODINGS = [
    ("kStandard", "StandardEncoding"),
    ("kMacRoman", "MacRomanEncoding"),
    ("kWinAnsi", "WinAnsiEncoding"),
    ("kPDFDoc", "PDFDocEncoding"),
    ("kMacExpert", "MacExpertEncoding"),
    ("kSymbol", "SymbolEncoding"),
    ("kZapfDingbats", "ZapfDingbatsEncoding"),
]

# Byte codes that map to themselves in the UTF-16 tables although no glyph is encoded there:
# the control characters of the two platform encodings, and the three control characters that
# PDFDocEncoding defines for text strings (ISO 32000-1, Annex D, Table D.2).
IDENTITY_CODES = {
    "MacRomanEncoding": range(0, 32),
    "WinAnsiEncoding": range(0, 32),
    "PDFDocEncoding": (0x09, 0x0A, 0x0D),
}

# The Differences array this system writes for the fonts it makes (PDFDocEncoding over the
# standard encoding) starts its runs at these codes; each run ends at the last differing code
# before the next start, so a run may carry an unchanged glyph (guillemotright at 187).
PDFDOC_RUN_STARTS = [24, 39, 96, 128, 160, 164, 166, 168, 172, 183, 192]

# Standard font: (file name of the URW AFM, abbreviation, class, bold, italic).
STANDARD_FONTS = [
    ("Courier", "NimbusMonoPS-Regular", "Cour", "kFixedPitch", False, False),
    ("Courier-Bold", "NimbusMonoPS-Bold", "CoBo", "kFixedPitch", True, False),
    ("Courier-Oblique", "NimbusMonoPS-Italic", "CoOb", "kFixedPitch", False, True),
    ("Courier-BoldOblique", "NimbusMonoPS-BoldItalic", "CoBO", "kFixedPitch", True, True),
    ("Helvetica", "NimbusSans-Regular", "Helv", "kSansSerif", False, False),
    ("Helvetica-Bold", "NimbusSans-Bold", "HeBo", "kSansSerif", True, False),
    ("Helvetica-Oblique", "NimbusSans-Italic", "HeOb", "kSansSerif", False, True),
    ("Helvetica-BoldOblique", "NimbusSans-BoldItalic", "HeBO", "kSansSerif", True, True),
    ("Times-Roman", "NimbusRoman-Regular", "TiRo", "kSerif", False, False),
    ("Times-Bold", "NimbusRoman-Bold", "TiBo", "kSerif", True, False),
    ("Times-Italic", "NimbusRoman-Italic", "TiOb", "kSerif", False, True),
    ("Times-BoldItalic", "NimbusRoman-BoldItalic", "TiBO", "kSerif", True, True),
    ("Symbol", "StandardSymbolsPS", "Symb", "kSymbolic", False, False),
    ("ZapfDingbats", "D050000L", "ZaDb", "kSymbolic", False, False),
]

# Further names that stand for a standard font, as PDF writers commonly name them.
ALIASES = {
    "Times-Roman": ["TimesNewRoman", "TimesNewRomanPS", "TimesNewRomanPSMT", "Times",
                    "Times New Roman"],
    "Times-Bold": ["TimesNewRoman-Bold", "TimesNewRoman,Bold", "TimesNewRomanPS-Bold",
                   "TimesNewRomanPS-BoldMT"],
    "Times-Italic": ["TimesNewRoman-Italic", "TimesNewRoman,Italic", "TimesNewRomanPS-Italic",
                     "TimesNewRomanPS-ItalicMT"],
    "Times-BoldItalic": ["TimesNewRoman-BoldItalic", "TimesNewRoman,BoldItalic",
                         "TimesNewRomanPS-BoldItalic", "TimesNewRomanPS-BoldItalicMT"],
    "Helvetica": ["Arial", "ArialMT"],
    "Helvetica-Bold": ["Helvetica,Bold", "Arial-Bold", "Arial,Bold", "Arial-BoldMT"],
    "Helvetica-Oblique": ["Helvetica-Italic", "Helvetica,Italic", "Arial-Italic", "Arial,Italic",
                          "Arial-ItalicMT"],
    "Helvetica-BoldOblique": ["Helvetica-BoldItalic", "Helvetica,BoldItalic", "Arial-BoldItalic",
                              "Arial,BoldItalic", "Arial-BoldItalicMT"],
    "Courier": ["CourierNew", "CourierPSMT"],
    "Courier-Bold": ["Courier,Bold", "CourierNew-Bold", "CourierNew,Bold",
                     "CourierNewPS-BoldMT"],
    "Courier-Oblique": ["Courier,Italic", "CourierNew-Italic", "CourierNew,Italic",
                        "CourierNewPS-ItalicMT"],
    "Courier-BoldOblique": ["Courier,BoldItalic", "CourierNew-BoldItalic",
                            "CourierNew,BoldItalic", "CourierNewPS-BoldItalicMT"],
    "Symbol": [],
    "ZapfDingbats": [],
}

# Font descriptor flags, ISO 32000-1 section 9.8.2, Table 123.
FLAG_FIXED_PITCH = 1 << 0
FLAG_SERIF = 1 << 1
FLAG_SYMBOLIC = 1 << 2
FLAG_NONSYMBOLIC = 1 << 5
FLAG_ITALIC = 1 << 6

LINE_WIDTH = 100


def warn(message):
    print("gen_font_tables: " + message, file=sys.stderr)


def parse_agl():
    """The glyph list in its published order: [(name, [code points])]."""
    entries = []
    line_re = re.compile(r"^([A-Za-z0-9]+);([0-9A-F]{4}(?: [0-9A-F]{4})*)$")
    for line in agl._aglText.splitlines():
        if not line or line.startswith("#"):
            continue
        m = line_re.match(line)
        if not m:
            sys.exit("gen_font_tables: unexpected glyph list line %r" % line)
        entries.append((m.group(1), [int(c, 16) for c in m.group(2).split()]))
    return entries


def agl_notice():
    """The copyright and licence lines that head the glyph list text."""
    lines = []
    for line in agl._aglText.splitlines():
        if not line.startswith("#"):
            break
        lines.append(line[1:].rstrip())
    while lines and not lines[-1].strip():
        lines.pop()
    return lines


def zapf_dingbats_unicode():
    """Code point of "a<N>" in the ITC Zapf Dingbats glyph list, indexed by N (0 for none)."""
    table = []
    for ch in agl._AGL_ZAPF_DINGBATS:
        table.append(0 if ch == " " else ord(ch))
    return table


def parse_afm(path):
    header = {}
    boxes = {}
    with open(path, encoding="latin-1") as f:
        for line in f:
            if line.startswith("C "):
                fields = {}
                for part in line.split(";"):
                    words = part.split()
                    if words:
                        fields[words[0]] = words[1:]
                boxes[fields["N"][0]] = (int(fields["WX"][0]), [int(v) for v in fields["B"]])
            else:
                key, _, value = line.strip().partition(" ")
                header.setdefault(key, value.strip())
    return header, boxes


def c_string(s):
    out = []
    for ch in s:
        if ch in '"\\':
            out.append("\\" + ch)
        elif " " <= ch <= "~":
            out.append(ch)
        else:
            sys.exit("gen_font_tables: unexpected character in %r" % s)
    return '"' + "".join(out) + '"'


def wrap(items, indent="    "):
    """Comma-separated items, packed into lines."""
    lines = []
    line = indent
    for item in items:
        piece = item + ","
        if len(line) + len(piece) + 1 > LINE_WIDTH and line.strip():
            lines.append(line.rstrip())
            line = indent
        line += piece + " "
    if line.strip():
        lines.append(line.rstrip())
    return "\n".join(lines)


def build(afm_dir):
    agl_entries = parse_agl()
    agl_map = dict(agl_entries)
    zapf = zapf_dingbats_unicode()

    encodings = {name: list(fontdata.encodings[name]) for _, name in ENCODINGS}
    for name, vector in encodings.items():
        if len(vector) != 256:
            sys.exit("gen_font_tables: %s has %d entries" % (name, len(vector)))

    widths = {}
    for font, *_ in STANDARD_FONTS:
        widths[font] = dict(fontdata.widthsByFontGlyph[font])

    names = {".notdef"}
    names.update(agl_map)
    for vector in encodings.values():
        names.update(n for n in vector if n)
    for table in widths.values():
        names.update(table)
    for n in names:
        if not n.isascii():
            sys.exit("gen_font_tables: non-ASCII glyph name %r" % n)
    # Byte order, which is what the C++ binary search compares by.
    glyphs = sorted(names, key=lambda n: n.encode("ascii"))
    if glyphs[0] != ".notdef":
        sys.exit("gen_font_tables: .notdef does not sort first")
    if len(glyphs) > 0xFFFF:
        sys.exit("gen_font_tables: too many glyph names for 16-bit indices")
    index = {n: i for i, n in enumerate(glyphs)}

    def dingbat_unicode(name):
        if re.fullmatch(r"a[0-9]{1,3}", name):
            n = int(name[1:])
            if n < len(zapf):
                return zapf[n]
        return 0

    def unicode_for(name, dingbats):
        if dingbats:
            u = dingbat_unicode(name)
            if u:
                return u
        cps = agl_map.get(name)
        return cps[0] if cps else 0

    # Encodings.
    enc_glyphs = []
    enc_unicode = []
    for _, enc_name in ENCODINGS:
        vector = encodings[enc_name]
        dingbats = enc_name == "ZapfDingbatsEncoding"
        g = [index[n] if n else 0 for n in vector]
        u = []
        for code, n in enumerate(vector):
            if n:
                cp = unicode_for(n, dingbats)
                if not cp:
                    warn("%s: no Unicode for %s at %d" % (enc_name, n, code))
                if cp > 0xFFFF:
                    sys.exit("gen_font_tables: %s is outside the BMP" % n)
                u.append(cp)
            elif code in IDENTITY_CODES.get(enc_name, ()):
                u.append(code)
            else:
                u.append(0)
        enc_glyphs.append(g)
        enc_unicode.append(u)

    # PDFDoc differences over the standard encoding.
    std = encodings["StandardEncoding"]
    doc = encodings["PDFDocEncoding"]
    differing = [c for c in range(256) if (doc[c] or ".notdef") != (std[c] or ".notdef")
                 and (doc[c] or std[c])]
    differences = []
    for i, start in enumerate(PDFDOC_RUN_STARTS):
        limit = PDFDOC_RUN_STARTS[i + 1] if i + 1 < len(PDFDOC_RUN_STARTS) else 256
        if start not in differing:
            sys.exit("gen_font_tables: run start %d does not differ" % start)
        end = max(c for c in differing if start <= c < limit)
        for code in range(start, end + 1):
            differences.append((code, index[doc[code] or ".notdef"]))
    covered = {c for c, _ in differences}
    lost = [c for c in differing if c not in covered]
    if lost:
        sys.exit("gen_font_tables: differences miss codes %r" % lost)

    # Multi-code-point glyph list entries.
    multi = [(index[n], cps) for n, cps in agl_entries if len(cps) > 1]
    max_multi = max(len(cps) for _, cps in multi)
    for n, cps in agl_entries:
        if any(cp > 0xFFFF for cp in cps):
            sys.exit("gen_font_tables: %s is outside the BMP" % n)

    # Fonts.
    fonts = []
    for font, afm_name, abbreviation, font_class, bold, italic in STANDARD_FONTS:
        header, boxes = parse_afm(os.path.join(afm_dir, afm_name + ".afm"))
        table = widths[font]
        for g, w in sorted(table.items()):
            if g in boxes and boxes[g][0] != w:
                warn("%s: %s is %d wide, %d in %s" % (font, g, w, boxes[g][0], afm_name))
        missing = [g for g in table if g not in boxes]
        if missing:
            sys.exit("gen_font_tables: %s lacks %r" % (afm_name, missing))
        bbox = [min(boxes[g][1][0] for g in table), min(boxes[g][1][1] for g in table),
                max(boxes[g][1][2] for g in table), max(boxes[g][1][3] for g in table)]
        ascent, descent = fontdata.ascent_descent[font]
        if ascent == 0 and descent == 0:
            # The symbol fonts have no Ascender and Descender; their box stands in.
            ascent, descent = bbox[3], bbox[1]
        dingbats = font == "ZapfDingbats"
        builtin = ("kZapfDingbats" if dingbats else
                   "kSymbol" if font == "Symbol" else "kStandard")
        flags = {"kFixedPitch": FLAG_FIXED_PITCH | FLAG_SERIF | FLAG_NONSYMBOLIC,
                 "kSerif": FLAG_SERIF | FLAG_NONSYMBOLIC,
                 "kSansSerif": FLAG_NONSYMBOLIC,
                 "kSymbolic": FLAG_SYMBOLIC}[font_class]
        if italic:
            flags |= FLAG_ITALIC
        glyph_widths = sorted((index[g], w) for g, w in table.items())
        by_unicode = {}
        for g in sorted(table, key=lambda n: index[n]):
            cp = unicode_for(g, dingbats)
            if not cp:
                warn("%s: no Unicode for %s" % (font, g))
                continue
            if len(agl_map.get(g, [])) > 1 and not (dingbats and dingbat_unicode(g)):
                continue
            if cp in by_unicode:
                warn("%s: U+%04X is both %s and another glyph" % (font, cp, g))
                continue
            by_unicode[cp] = table[g]
        fonts.append({
            "name": font, "abbreviation": abbreviation, "class": font_class, "bold": bold,
            "italic": italic, "flags": flags, "ascent": ascent, "descent": descent,
            "capHeight": int(header["CapHeight"]), "xHeight": int(header["XHeight"]),
            "italicAngle": float(header["ItalicAngle"]), "bbox": bbox, "builtin": builtin,
            "glyphWidths": glyph_widths, "unicodeWidths": sorted(by_unicode.items()),
            "afm": afm_name,
        })

    font_index = {f["name"]: i for i, f in enumerate(fonts)}
    aliases = []
    for standard, further in ALIASES.items():
        aliases.append((standard, font_index[standard]))
        aliases.extend((alias, font_index[standard]) for alias in further)
    alias_names = [a for a, _ in aliases]
    if len(set(alias_names)) != len(alias_names):
        sys.exit("gen_font_tables: duplicate font alias")
    aliases.sort(key=lambda a: a[0].encode("ascii"))

    return {
        "glyphs": glyphs, "glyph_unicode": [agl_map[n][0] if n in agl_map else 0 for n in glyphs],
        "multi": multi, "max_multi": max_multi, "zapf": zapf, "enc_glyphs": enc_glyphs,
        "enc_unicode": enc_unicode, "differences": differences, "fonts": fonts,
        "aliases": aliases,
    }


def provenance(afm_dir):
    return [
        "// Generated by %s; do not edit. Remake it with that script." % SCRIPT,
        "// Data: fontTools %s (fontTools.agl: Adobe Glyph List 2.0, ITC Zapf Dingbats glyph list),"
        % fontTools.version,
        "// reportlab %s (reportlab.pdfbase._fontdata: base encodings, standard 14 font widths,"
        % reportlab.Version,
        "// ascender and descender), URW base35 AFM files (bounding boxes, cap and x heights,",
        "// italic angles) from %s." % afm_dir,
    ]


def write_header(data, afm_dir):
    out = provenance(afm_dir) + [
        "#pragma once",
        "#include <cstddef>",
        "#include <cstdint>",
        "",
        '#include "kppdf/page/internal/KPPDFFontTables.h"',
        "",
        "namespace kppdf_tables::generated {",
        "",
        "inline constexpr size_t kGlyphCount = %d;" % len(data["glyphs"]),
        "inline constexpr size_t kMultiUnicodeGlyphCount = %d;" % len(data["multi"]),
        "inline constexpr size_t kMaxGlyphListCodePoints = %d;" % data["max_multi"],
        "inline constexpr size_t kZapfDingbatsCount = %d;" % len(data["zapf"]),
        "inline constexpr size_t kGeneratedEncodingCount = %d;" % len(ENCODINGS),
        "inline constexpr size_t kPDFDocDifferenceCount = %d;" % len(data["differences"]),
        "inline constexpr size_t kStandardFontCount = %d;" % len(data["fonts"]),
        "inline constexpr size_t kFontAliasCount = %d;" % len(data["aliases"]),
        "",
        "// A glyph list entry that maps one name to several code points.",
        "struct MultiUnicode {",
        "    GlyphIndex glyph;",
        "    uint16_t count;",
        "    uint16_t codePoints[kMaxGlyphListCodePoints];",
        "};",
        "",
        "struct FontAlias {",
        "    const char* name;",
        "    uint8_t font; // index into kStandardFonts",
        "};",
        "",
        "// Glyph names, NUL-terminated, in byte order; name i spans",
        "// [kGlyphNameOffsets[i], kGlyphNameOffsets[i + 1] - 1).",
        "extern const char kGlyphNamePool[];",
        "extern const uint32_t kGlyphNameOffsets[kGlyphCount + 1];",
        "// First code point of each name's glyph list entry, 0 for names outside the list.",
        "extern const uint16_t kGlyphUnicode[kGlyphCount];",
        "extern const MultiUnicode kMultiUnicode[kMultiUnicodeGlyphCount]; // by glyph",
        "extern const uint16_t kZapfDingbatsUnicode[kZapfDingbatsCount];  // \"a<N>\" by N",
        "extern const char* const kEncodingNames[kGeneratedEncodingCount];",
        "extern const GlyphIndex kEncodingGlyphs[kGeneratedEncodingCount][256];",
        "extern const uint16_t kEncodingUnicode[kGeneratedEncodingCount][256];",
        "extern const EncodingDifference kPDFDocDifferences[kPDFDocDifferenceCount];",
        "extern const KPPDFStandardFontMetrics kStandardFonts[kStandardFontCount];",
        "extern const FontAlias kFontAliases[kFontAliasCount]; // by name, byte order",
        "",
        "} // namespace kppdf_tables::generated",
        "",
    ]
    return "\n".join(out)


def write_source(data, afm_dir):
    out = provenance(afm_dir)
    out.append("//")
    out.append("// The glyph list data carries this notice:")
    out.extend(("//" + (" " + line if line.strip() else "")).rstrip() for line in agl_notice())
    out += [
        '#include "kppdf/page/internal/KPPDFFontTablesData.h"',
        "",
        "namespace kppdf_tables::generated {",
        "",
    ]

    glyphs = data["glyphs"]
    # One literal per name, so that a "\0" never runs into a following digit.
    out.append("constexpr char kGlyphNamePool[] =")
    pieces = [c_string(n)[:-1] + '\\0"' for n in glyphs]
    line = "    "
    body = []
    for p in pieces:
        if len(line) + len(p) + 1 > LINE_WIDTH and line.strip():
            body.append(line.rstrip())
            line = "    "
        line += p + " "
    body.append(line.rstrip() + ";")
    out.extend(body)
    out.append("")

    offsets = []
    pos = 0
    for n in glyphs:
        offsets.append(pos)
        pos += len(n) + 1
    offsets.append(pos)
    out.append("constexpr uint32_t kGlyphNameOffsets[kGlyphCount + 1] = {")
    out.append(wrap(str(o) for o in offsets))
    out.append("};")
    out.append("")

    out.append("constexpr uint16_t kGlyphUnicode[kGlyphCount] = {")
    out.append(wrap("0x%04X" % u for u in data["glyph_unicode"]))
    out.append("};")
    out.append("")

    out.append("constexpr MultiUnicode kMultiUnicode[kMultiUnicodeGlyphCount] = {")
    items = []
    for g, cps in data["multi"]:
        items.append("{%d, %d, {%s}}" % (g, len(cps), ", ".join("0x%04X" % c for c in cps)))
    out.append(wrap(items))
    out.append("};")
    out.append("")

    out.append("constexpr uint16_t kZapfDingbatsUnicode[kZapfDingbatsCount] = {")
    out.append(wrap("0x%04X" % u for u in data["zapf"]))
    out.append("};")
    out.append("")

    out.append("constexpr const char* kEncodingNames[kGeneratedEncodingCount] = {")
    out.append(wrap(c_string(name) for _, name in ENCODINGS))
    out.append("};")
    out.append("")

    out.append("constexpr GlyphIndex kEncodingGlyphs[kGeneratedEncodingCount][256] = {")
    for (_, name), g in zip(ENCODINGS, data["enc_glyphs"]):
        out.append("    // %s" % name)
        out.append("    {")
        out.append(wrap((str(v) for v in g), "        "))
        out.append("    },")
    out.append("};")
    out.append("")

    out.append("constexpr uint16_t kEncodingUnicode[kGeneratedEncodingCount][256] = {")
    for (_, name), u in zip(ENCODINGS, data["enc_unicode"]):
        out.append("    // %s" % name)
        out.append("    {")
        out.append(wrap(("0x%04X" % v for v in u), "        "))
        out.append("    },")
    out.append("};")
    out.append("")

    out.append("constexpr EncodingDifference kPDFDocDifferences[kPDFDocDifferenceCount] = {")
    out.append(wrap("{%d, %d}" % d for d in data["differences"]))
    out.append("};")
    out.append("")

    for i, f in enumerate(data["fonts"]):
        out.append("// %s (%s)" % (f["name"], f["afm"]))
        out.append("constexpr GlyphWidth kGlyphWidths%d[] = {" % i)
        out.append(wrap("{%d, %d}" % gw for gw in f["glyphWidths"]))
        out.append("};")
        out.append("constexpr UnicodeWidth kUnicodeWidths%d[] = {" % i)
        out.append(wrap("{0x%04X, %d}" % uw for uw in f["unicodeWidths"]))
        out.append("};")
        out.append("")

    out.append("constexpr KPPDFStandardFontMetrics kStandardFonts[kStandardFontCount] = {")
    for i, f in enumerate(data["fonts"]):
        out.append("    {%s, %s, FontClass::%s, %s, %s, 0x%X," % (
            c_string(f["name"]), c_string(f["abbreviation"]), f["class"],
            "true" if f["bold"] else "false", "true" if f["italic"] else "false", f["flags"]))
        out.append("     %d, %d, %d, %d, %sf, {%d, %d, %d, %d}, Encoding::%s," % (
            f["ascent"], f["descent"], f["capHeight"], f["xHeight"], repr(f["italicAngle"]),
            *f["bbox"], f["builtin"]))
        out.append("     kGlyphWidths%d, %d, kUnicodeWidths%d, %d}," % (
            i, len(f["glyphWidths"]), i, len(f["unicodeWidths"])))
    out.append("};")
    out.append("")

    out.append("constexpr FontAlias kFontAliases[kFontAliasCount] = {")
    out.append(wrap("{%s, %d}" % (c_string(a), i) for a, i in data["aliases"]))
    out.append("};")
    out.append("")
    out.append("} // namespace kppdf_tables::generated")
    out.append("")
    return "\n".join(out)


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--afm-dir", default="/usr/share/fonts/type1/urw-base35")
    parser.add_argument("--out-dir", default=os.path.join(REPO, "kppdf", "page", "internal"))
    args = parser.parse_args()
    data = build(args.afm_dir)
    for name, text in (("KPPDFFontTablesData.h", write_header(data, args.afm_dir)),
                       ("KPPDFFontTablesData.cpp", write_source(data, args.afm_dir))):
        path = os.path.join(args.out_dir, name)
        with open(path, "w", encoding="ascii", newline="\n") as f:
            f.write(text)
        print("wrote %s (%d bytes)" % (path, len(text)))


if __name__ == "__main__":
    main()
