#!/usr/bin/python3
"""Writes release.pdf, the fixture of the page tests that drop a page's text state and read it
again.

Run with the Debian python that has reportlab and pikepdf, from any folder:
    /usr/bin/python3 tests/data/page/make_release.py
reportlab draws two pages with compressed content: page 1 has Helvetica text, a small grey
image and a form XObject (Courier text) drawn twice; page 2 has two lines of Times text.
pikepdf then appends a second, compressed content stream to page 1, so that its Contents is an
array of two streams whose text must both be read. The output is the same from run to run.
"""
import os
import zlib

import pikepdf
from reportlab import rl_config
from reportlab.lib.pagesizes import letter
from reportlab.lib.utils import ImageReader
from reportlab.pdfgen import canvas

rl_config.invariant = 1
HERE = os.path.dirname(os.path.abspath(__file__))
TMP = os.path.join(HERE, "release.tmp.pdf")
OUT = os.path.join(HERE, "release.pdf")


def grey_image():
    """A 4 by 2 grey ramp (python3-pil), or None without PIL."""
    from io import BytesIO
    try:
        from PIL import Image
    except ImportError:
        return None
    image = Image.new("L", (4, 2))
    image.putdata([0, 64, 128, 192, 255, 192, 128, 64])
    buffer = BytesIO()
    image.save(buffer, "PNG")
    buffer.seek(0)
    return ImageReader(buffer)


def draw():
    c = canvas.Canvas(TMP, pagesize=letter, pageCompression=1)
    c.setAuthor("KPPDF tests")
    c.setTitle("release.pdf")
    c.beginForm("stamp")
    c.setFont("Courier", 10)
    c.drawString(0, 0, "stamped form text")
    c.endForm()
    c.setFont("Helvetica", 12)
    c.drawString(72, 720, "Page one opens here")
    image = grey_image()
    if image is None:
        raise SystemExit("python3-pil is needed for the image of release.pdf")
    c.drawImage(image, 72, 600, width=80, height=40)
    c.saveState()
    c.translate(72, 560)
    c.doForm("stamp")
    c.restoreState()
    c.saveState()
    c.translate(300, 560)
    c.doForm("stamp")
    c.restoreState()
    c.drawString(72, 500, "Page one closes here")
    c.showPage()
    c.setFont("Times-Roman", 14)
    c.drawString(72, 720, "Second page first line")
    c.drawString(72, 690, "Second page last line")
    c.showPage()
    c.save()


def add_stream():
    with pikepdf.open(TMP) as pdf:
        page = pdf.pages[0]
        font = page.obj.Resources.Font
        name = sorted(str(key) for key in font.keys())[0]
        content = ("BT %s 12 Tf 72 450 Td (Appended stream line) Tj ET" % name).encode()
        page.contents_add(pikepdf.Stream(pdf, content), prepend=False)
        # Compress the added stream too, as the page's own content is.
        for stream in page.obj.Contents:
            if "/Filter" not in stream:
                stream.write(zlib.compress(stream.read_bytes()), filter=pikepdf.Name.FlateDecode)
        pdf.save(OUT, static_id=True, compress_streams=True)
    os.remove(TMP)


if __name__ == "__main__":
    draw()
    add_stream()
