#!/usr/bin/python3
"""Writes base.pdf, the reportlab file that qpdf turns into the encrypted and
cross-reference-stream fixtures.

    /usr/bin/python3 make_base.py OUT.pdf

Three US Letter pages of text in Helvetica and Times (compressed content
streams), a two-level outline and document information. Invariant mode makes
the bytes the same on every run.
"""
import sys

from reportlab.lib.pagesizes import letter
from reportlab.lib.utils import simpleSplit
from reportlab.pdfgen import canvas

PAGES = [
    ("Opening a File",
     "A reader starts at the end of a PDF file, where the last lines name the "
     "offset of the newest cross-reference section. From there it follows the "
     "chain of sections back through every earlier revision."),
    ("Objects and Offsets",
     "Each entry of a cross-reference table is twenty bytes long: ten digits "
     "of offset, five of generation, a flag and a two-byte line end. Readers "
     "that trust those offsets find an object in one step."),
    ("Encryption",
     "Strings and streams of an encrypted file are scrambled with a key made "
     "from the password, the file identifier and the object's own number, so "
     "no two objects share a key stream."),
]


def main():
    out = sys.argv[1]
    c = canvas.Canvas(out, pagesize=letter, invariant=1, pageCompression=1)
    c.setTitle("Fixture base document")
    c.setAuthor("KPPDF test data")
    w, h = letter
    for i, (head, text) in enumerate(PAGES):
        key = "page%d" % (i + 1)
        c.bookmarkPage(key)
        c.addOutlineEntry(head, key, level=0)
        c.setFont("Helvetica-Bold", 18)
        c.drawString(72, h - 90, head)
        y = h - 120
        c.setFont("Times-Roman", 12)
        for line in simpleSplit(text, "Times-Roman", 12, w - 144):
            c.drawString(72, y, line)
            y -= 15
        c.bookmarkPage(key + "end", fit="FitH", top=y)
        c.addOutlineEntry("Caf\u00e9 note %d" % (i + 1), key + "end", level=1)
        c.setFont("Times-Italic", 12)
        c.drawString(72, y - 10, "Page %d of %d." % (i + 1, len(PAGES)))
        c.showPage()
    c.showOutline()
    c.save()


if __name__ == "__main__":
    main()
