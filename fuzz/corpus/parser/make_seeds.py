#!/usr/bin/python3
# Writes the seed inputs of the parser fuzzers beside this script.
# Body-mode layout: byte 0 is a second parse offset, parsing starts at offset 1, and the last
# eight bytes place objects 1 to 4 (two big-endian bytes each, counted from the end: object 1
# uses the last two bytes). Direct mode reads the whole input as content-stream text.
import os
import struct
import zlib

HERE = os.path.dirname(os.path.abspath(__file__))


def with_table(body, positions):
    """body followed by the positions of objects 1..4 (object 1's pair last)."""
    tail = b"".join(struct.pack(">H", p) for p in reversed(positions))
    return body + tail


def body_file(objects):
    """A run of ' N 0 obj ... endobj' texts; returns the bytes and the position of each body."""
    out = b" "
    positions = []
    for text in objects:
        out += b"\n%d 0 obj\n" % (len(positions) + 1)
        positions.append(len(out))
        out += text + b"\nendobj"
    return out + b"\n", positions


def write(name, data):
    with open(os.path.join(HERE, name), "wb") as f:
        f.write(data)


page, page_pos = body_file([
    b"<< /Type /Page /Parent 2 0 R /MediaBox [0 0 612 792] /Contents 3 0 R\n"
    b"   /Resources << /Font << /F1 4 0 R >> /ProcSet [/PDF /Text] >> >>",
    b"<< /Type /Pages /Kids [1 0 R] /Count 1 /Resources << /XObject << >> >> >>",
    b"<< /Length 44 >>\nstream\nBT /F1 24 Tf 72 712 Td (Hello, world) Tj ET\nendstream",
    b"<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica /Encoding /WinAnsiEncoding >>",
])
write("page_tree", with_table(page, page_pos))

content = zlib.compress(b"q 1 0 0 1 0 0 cm 0.5 g 0 0 100 100 re f Q\n" * 4)
flate, flate_pos = body_file([
    b"<< /Filter /FlateDecode /Length 2 0 R >>\nstream\n" + content + b"\nendstream",
    b"%d" % len(content),
    b"<< /Filter [/ASCII85Decode /FlateDecode] /DecodeParms [null << /Predictor 12 /Columns 4 >>]"
    b" /Length 9 >>\nstream\n87cURD]i,\nendstream",
    b"(missing Length) 3 0 R",
])
write("flate_stream", with_table(flate, flate_pos))

cycle, cycle_pos = body_file([b"2 0 R", b"1 0 R", b"[3 0 R 4 0 R]", b"<< /Parent 4 0 R /Me 3 0 R >>"])
write("reference_cycle", with_table(cycle, cycle_pos))

write("array_mixed",
      b" [ 1 0 R 2 0 R (a string) <48656C6C6F> /Name#20x -.5 +7 true false null 12 0 3.5e2 ]")
write("strings_literal",
      b" (nested (parens) and \\(escapes\\) \\101\\n\\r\\t\\b\\f \\\n continued\r\nend)")
write("string_utf16", b" (\xfe\xff\x00A\x00(\x00B\x00)\x00\\)\x00C)")
write("string_hex", b" <48 65 6c 6C 6f 2x 7>")
write("comment_bool", b" % a comment before the object\r\ntrue % and after\n")
write("numbers", b" 12 0 R 5-3 1e5 -.5 +7 12 0 obj 3.14159 -2147483649 99999999999999999999 0.000001")
write("nested_dict",
      b" << /A << /B << /C [ [ [ ] ] ] >> >> /D <</E 1 0 R /F[1 2<</G/H>>]>> /Empty << >> >>")
write("content_stream",
      b"BT /F1 12 Tf 72 712 Td (Hello) Tj [(A) -120 (B)] TJ ET q 1 0 0 1 0 0 cm /Im1 Do Q\n"
      b"BI /W 2 /H 2 /BPC 8 /CS /G ID \x00\xff\xff\x00 EI /P <</MCID 0>> BDC EMC 0 0 m 10 10 l S")
write("inline_stream", b" << /Length 5 >> stream\r\nabcde\r\nendstream << /Length 99 >>\nstream\nxy")
