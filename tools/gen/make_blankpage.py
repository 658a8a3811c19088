#!/usr/bin/python3
"""Writes resources/blankpage.pdf: one empty US Letter page.

    /usr/bin/python3 tools/gen/make_blankpage.py [output.pdf]

The file is written by hand so that it stays minimal and byte-stable: a
classic cross-reference table with LF line ends, a catalog, a page tree with
one page, and an empty content stream. The page's /Contents is an indirect
reference, since content imprints add their drawing to that stream.
"""
import sys

OUT = sys.argv[1] if len(sys.argv) > 1 else "resources/blankpage.pdf"

OBJECTS = [
    b"<< /Type /Catalog /Pages 2 0 R >>",
    b"<< /Type /Pages /Kids [3 0 R] /Count 1 >>",
    b"<< /Type /Page /Parent 2 0 R /MediaBox [0 0 612 792] "
    b"/Resources << >> /Contents 4 0 R >>",
    b"<< /Length 0 >>\nstream\n\nendstream",
]


def build():
    out = bytearray(b"%PDF-1.4\n%\xe2\xe3\xcf\xd3\n")
    offsets = []
    for number, body in enumerate(OBJECTS, start=1):
        offsets.append(len(out))
        out += b"%d 0 obj\n" % number + body + b"\nendobj\n"
    xref = len(out)
    out += b"xref\n0 %d\n" % (len(OBJECTS) + 1)
    out += b"0000000000 65535 f \n"
    for offset in offsets:
        out += b"%010d 00000 n \n" % offset
    out += b"trailer\n<< /Size %d /Root 1 0 R >>\n" % (len(OBJECTS) + 1)
    out += b"startxref\n%d\n%%%%EOF\n" % xref
    return bytes(out)


if __name__ == "__main__":
    with open(OUT, "wb") as f:
        f.write(build())
