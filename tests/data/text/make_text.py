#!/usr/bin/python3
"""Writes the text extraction fixtures of this folder with reportlab.

Run with the Debian python that has reportlab, from any folder:
    /usr/bin/python3 tests/data/text/make_text.py
The files are byte-identical from run to run (reportlab's invariant mode) and are
written uncompressed so that their content streams can be read in a text editor.

  fonts.pdf    Helvetica, Times-Roman, Courier and Helvetica-Bold at known
               baselines; a three-line text object that moves with TL and T*;
               a Td/Tj pair that continues a line without moving.
  kerning.pdf  TJ arrays with small kerning moves (inside words) and larger
               ones that stand for word spaces, one line per move size, in
               thousandths of the font size.
  rotated.pdf  a line turned a quarter turn, a line scaled by the CTM, a line
               set with a 12 by 12 text matrix and 1 Tf, and a superscript
               raised with Ts.
  form.pdf     a form XObject that sets Courier 10 and shows a line, drawn
               twice (translated, then translated and doubled), with
               Helvetica page text before and after it: the page's font
               must come back once the form is done.
"""
import os

from reportlab import rl_config
from reportlab.lib.pagesizes import letter
from reportlab.pdfgen import canvas

rl_config.invariant = 1
HERE = os.path.dirname(os.path.abspath(__file__))


def new_canvas(name):
    c = canvas.Canvas(os.path.join(HERE, name), pagesize=letter, pageCompression=0)
    c.setAuthor("KPPDF tests")
    c.setTitle(name)
    return c


def font_name(c, face):
    """The resource name reportlab gives a standard font, registering it first."""
    c.setFont(face, 12)
    return c._doc.getInternalFontName(face)


def fonts():
    c = new_canvas("fonts.pdf")
    c.setFont("Helvetica", 12)
    c.drawString(72, 720, "Helvetica at twelve points")
    c.setFont("Times-Roman", 14)
    c.drawString(72, 690, "Times Roman at fourteen")
    c.setFont("Courier", 10)
    c.drawString(72, 660, "Courier ten")
    c.setFont("Helvetica-Bold", 18)
    c.drawString(300, 660, "Bold")
    t = c.beginText(72, 600)
    t.setFont("Times-Roman", 12)
    t.setLeading(15)
    t.textLines("first line\nsecond line\nthird line")
    c.drawText(t)
    # One text object, two strings: the second starts where the first ended.
    f1 = font_name(c, "Helvetica")
    c._code.append("BT %s 12 Tf 72 500 Td (Hello,) Tj ( world) Tj ET" % f1)
    c.showPage()
    c.save()


KERNING_MOVES = [-100, -150, -199, -201, -250, -300, -500, 120]


def kerning():
    c = new_canvas("kerning.pdf")
    f1 = font_name(c, "Helvetica")
    y = 720
    for move in KERNING_MOVES:
        c._code.append("BT %s 12 Tf 72 %d Td [(one) %d (two) -80 (three)] TJ ET" % (f1, y, move))
        y -= 20
    # Kerning inside a word, as typesetters emit it.
    c._code.append("BT %s 12 Tf 72 500 Td [(W) 80 (ave) -30 (s) -333 (and) -333 (T) 70 (o) 15 (y)] TJ ET"
                   % f1)
    # A number before the first string moves the start of the text.
    c._code.append("BT %s 12 Tf 72 470 Td [-1000 (indented)] TJ ET" % f1)
    c.showPage()
    c.save()


def rotated():
    c = new_canvas("rotated.pdf")
    c.setFont("Helvetica", 12)
    c.saveState()
    c.translate(300, 300)
    c.rotate(90)
    c.drawString(0, 0, "turned a quarter")
    c.restoreState()
    c.saveState()
    c.translate(72, 600)
    c.scale(2, 2)
    c.drawString(0, 0, "doubled")
    c.restoreState()
    f1 = font_name(c, "Helvetica")
    c._code.append("BT %s 1 Tf 12 0 0 12 72 500 Tm (matrix sized) Tj ET" % f1)
    c._code.append("BT %s 12 Tf 72 400 Td (E = mc) Tj 5 Ts (2) Tj ET" % f1)
    c.showPage()
    c.save()


def form():
    c = new_canvas("form.pdf")
    c.setFont("Helvetica", 12)
    c.drawString(72, 720, "Page text before the form")
    c.beginForm("stamp")
    c.setFont("Courier", 10)
    c.drawString(0, 0, "Inside the form")
    c.endForm()
    c.saveState()
    c.translate(100, 500)
    c.doForm("stamp")
    c.restoreState()
    c.saveState()
    c.translate(100, 400)
    c.scale(2, 2)
    c.doForm("stamp")
    c.restoreState()
    c.setFont("Helvetica", 12)
    c.drawString(72, 300, "Page text after the form")
    c.showPage()
    c.save()


if __name__ == "__main__":
    fonts()
    kerning()
    rotated()
    form()
