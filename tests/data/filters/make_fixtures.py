#!/usr/bin/python3
"""Makes the filter fixtures in this folder with real encoders.

Run from anywhere with Debian's python (Pillow, reportlab) and with qpdf and pdftoppm on PATH:
    /usr/bin/python3 tests/data/filters/make_fixtures.py

png-rows.flate    the IDAT data of a PNG written by pdftoppm (libpng, adaptive row filters Sub,
                  Up, Average, Paeth): a FlateDecode stream with /Predictor 15 /Colors 3
                  /BitsPerComponent 8 /Columns 32; png-rows.rgb holds its 32x32 pixels.
tiff-rows.flate   the strip of a TIFF written by libtiff (through Pillow) with Deflate and
                  predictor 2: FlateDecode with /Predictor 2 /Colors 3 /Columns 32;
                  tiff-rows.rgb holds its pixels.
xref-stream.flate a cross-reference stream written by qpdf (/Predictor 12 /Columns 4);
                  xref-stream.bin is the same stream as qpdf decodes it.
rgb.jpg, gray.jpg, cmyk.jpg, progressive.jpg   small JPEGs written by Pillow (libjpeg);
                  rgb.pixels and progressive.pixels hold what Pillow decodes from them.
a85-random.bin, a85-random.txt   bytes and their ASCII85 text by Python's base64.a85encode,
                  wrapped at 40 columns and closed with "~>".
"""
import base64
import math
import os
import random
import struct
import subprocess
import tempfile
import zlib

from PIL import Image
from reportlab.pdfgen import canvas

HERE = os.path.dirname(os.path.abspath(__file__))


def write(name, data):
    with open(os.path.join(HERE, name), "wb") as f:
        f.write(data)


def png_chunks(data, kind):
    pos, out = 8, b""
    while pos < len(data):
        (n,) = struct.unpack(">I", data[pos:pos + 4])
        if data[pos + 4:pos + 8] == kind:
            out += data[pos + 8:pos + 8 + n]
        pos += 12 + n
    return out


def source_image():
    # Half the rows follow (left + up) / 2, where libpng picks Average; the rest are smooth
    # waves, where it picks Paeth, Sub or Up.
    random.seed(5)
    w = h = 32
    v = [[[0] * 3 for _ in range(w)] for _ in range(h)]
    for y in range(h):
        for x in range(w):
            for k in range(3):
                if y % 8 < 4:
                    a = v[y][x - 1][k] if x else 0
                    b = v[y - 1][x][k] if y else 0
                    v[y][x][k] = ((a + b) // 2 + random.choice([37, 91, 150]) * (k + 1)) % 256
                else:
                    v[y][x][k] = int(128 + 100 * math.sin(x / 5 + y / 7 + k))
    im = Image.new("RGB", (w, h))
    im.putdata([tuple(v[y][x]) for y in range(h) for x in range(w)])
    return im


def main():
    im = source_image()
    with tempfile.TemporaryDirectory() as tmp:
        src = os.path.join(tmp, "src.png")
        im.save(src)
        pdf = os.path.join(tmp, "page.pdf")
        c = canvas.Canvas(pdf, pagesize=(32, 32), invariant=1)
        c.drawImage(src, 0, 0, 32, 32)
        c.save()

        subprocess.run(["pdftoppm", "-png", "-r", "72", "-singlefile", pdf,
                        os.path.join(tmp, "render")], check=True)
        png = open(os.path.join(tmp, "render.png"), "rb").read()
        write("png-rows.flate", png_chunks(png, b"IDAT"))
        write("png-rows.rgb", Image.open(os.path.join(tmp, "render.png")).convert("RGB").tobytes())

        tif = os.path.join(tmp, "rows.tif")
        im.save(tif, compression="tiff_adobe_deflate", tiffinfo={317: 2})
        t = Image.open(tif)
        assert t.tag_v2[317] == 2 and len(t.tag_v2[273]) == 1
        data = open(tif, "rb").read()
        write("tiff-rows.flate", data[t.tag_v2[273][0]:t.tag_v2[273][0] + t.tag_v2[279][0]])
        write("tiff-rows.rgb", im.tobytes())

        packed = os.path.join(tmp, "packed.pdf")
        subprocess.run(["qpdf", "--object-streams=generate", pdf, packed], check=True)
        xref = subprocess.run(["qpdf", "--show-xref", packed], check=True,
                              capture_output=True, text=True).stdout
        # The cross-reference stream is the one object qpdf lists as uncompressed last.
        number = max(int(line.split("/")[0]) for line in xref.splitlines()
                     if "uncompressed" in line)
        for option, name in (("--raw-stream-data", "xref-stream.flate"),
                             ("--filtered-stream-data", "xref-stream.bin")):
            out = subprocess.run(["qpdf", "--show-object=%d" % number, option, packed],
                                 check=True, capture_output=True).stdout
            write(name, out)

    small = Image.new("RGB", (13, 7))
    small.putdata([(x * 19, y * 36, 200 - x * 10) for y in range(7) for x in range(13)])
    small.save(os.path.join(HERE, "rgb.jpg"), quality=90)
    Image.new("L", (9, 5), 77).save(os.path.join(HERE, "gray.jpg"), quality=95)
    Image.new("CMYK", (8, 8), (200, 50, 0, 10)).save(os.path.join(HERE, "cmyk.jpg"), quality=95)
    im.save(os.path.join(HERE, "progressive.jpg"), quality=80, progressive=True)
    for name in ("rgb", "progressive"):
        write(name + ".pixels", Image.open(os.path.join(HERE, name + ".jpg")).tobytes())

    random.seed(85)
    raw = bytes(random.randrange(256) for _ in range(96))
    raw = raw[:40] + b"\0\0\0\0" + raw[40:]  # an all-zero group, written as "z"
    write("a85-random.bin", raw)
    write("a85-random.txt", base64.a85encode(raw, wrapcol=40) + b"~>")


if __name__ == "__main__":
    main()
