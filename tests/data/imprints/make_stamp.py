#!/usr/bin/python3
"""Writes the stamp fixtures of tests/data/imprints:

stamp.pdf   one page of 100 by 50 points, filled pure red, with the word
            STAMPED in black near its lower-left corner; its content stream
            is Flate-compressed and uses a font resource.
target.pdf  two white pages with a line of text each: the first 300 by 400
            points; the second has /Rotate 90 on a media box of 400 by 300
            (reportlab turns the box), so it is seen 300 wide and 400 high.
stamp_split.pdf  stamp.pdf with its drawing in two content streams (the red box,
            then the word), made with pikepdf.
image_stamp.pdf  one page of 40 by 40 points filled by an 8 by 8 image of pure
            blue, stored Flate-compressed (from a PNG).
green.jpg   an 8 by 8 JPEG of pure green: the file an image imprint names, whose
            bytes replace the blue image when the document is saved.

Run with the Debian python that has reportlab:
    /usr/bin/python3 tests/data/imprints/make_stamp.py [folder]
The output is the same from run to run (reportlab's invariant mode).
"""
import os
import sys

from reportlab import rl_config
from reportlab.pdfgen import canvas

# Plain Flate, without the ASCII85 layer reportlab adds by default.
rl_config.useA85 = 0

FOLDER = sys.argv[1] if len(sys.argv) > 1 else os.path.dirname(os.path.abspath(__file__))


def stamp(path):
    c = canvas.Canvas(path, pagesize=(100, 50), invariant=1, pageCompression=1)
    c.setFillColorRGB(1, 0, 0)
    c.rect(0, 0, 100, 50, stroke=0, fill=1)
    c.setFillColorRGB(0, 0, 0)
    c.setFont("Helvetica", 14)
    c.drawString(10, 30, "STAMPED")
    c.showPage()
    c.save()


def target(path):
    c = canvas.Canvas(path, pagesize=(300, 400), invariant=1, pageCompression=0)
    c.setFont("Helvetica", 12)
    c.drawString(20, 370, "Target page one")
    c.showPage()
    c.setPageRotation(90)
    c.setFont("Helvetica", 12)
    c.drawString(20, 370, "Target page two")
    c.showPage()
    c.save()


def split(source, path):
    import pikepdf

    pdf = pikepdf.open(source)
    page = pdf.pages[0]
    font = list(page.Resources.Font.keys())[0]
    box = pikepdf.Stream(pdf, b"q 1 0 0 rg 0 0 100 50 re f Q")
    word = pikepdf.Stream(pdf, b"BT " + font.encode() + b" 14 Tf 10 30 Td (STAMPED) Tj ET")
    page.obj.Contents = pikepdf.Array([pdf.make_indirect(box), pdf.make_indirect(word)])
    pdf.save(path, static_id=True, compress_streams=False,
             object_stream_mode=pikepdf.ObjectStreamMode.disable)


def image_stamp(path, jpeg):
    from PIL import Image

    png = os.path.join(FOLDER, "blue.png")
    Image.new("RGB", (8, 8), (0, 0, 255)).save(png)
    c = canvas.Canvas(path, pagesize=(40, 40), invariant=1, pageCompression=1)
    c.drawImage(png, 0, 0, 40, 40)
    c.showPage()
    c.save()
    os.remove(png)
    Image.new("RGB", (8, 8), (0, 255, 0)).save(jpeg, quality=95)


if __name__ == "__main__":
    stamp(os.path.join(FOLDER, "stamp.pdf"))
    target(os.path.join(FOLDER, "target.pdf"))
    split(os.path.join(FOLDER, "stamp.pdf"), os.path.join(FOLDER, "stamp_split.pdf"))
    image_stamp(os.path.join(FOLDER, "image_stamp.pdf"), os.path.join(FOLDER, "green.jpg"))
