#!/usr/bin/python3
"""Writes tests/data/sample.pdf: a five-page document made by reportlab.

Run with the Debian python that has reportlab:
    /usr/bin/python3 tests/data/make_sample.py [output.pdf]
The output is byte-identical from run to run (reportlab's invariant mode).

What the file holds, page by page:
  1  US Letter; title, prose in Times and Helvetica; a URI link, a link to a
     named destination on page 4, a Text annotation with a pop-up.
  2  US Letter; prose set in two columns; the content stream is compressed.
  3  US Letter media box with /Rotate 90; the text is drawn turned a quarter
     turn counter-clockwise so that it reads upright once the page is shown
     rotated (landscape, 792 x 612 as displayed); Courier.
  4  A4 media box; Helvetica with oblique and bold oblique; compressed.
  5  US Letter with a CropBox inset 36 points; Times bold and bold italic;
     a link back to page 2 with an explicit destination.
Outline: three levels, one closed item with children. Named destinations in
a /Names /Dests name tree (one value an array, one a dictionary with /D).
Document information: Title, Author, Subject.
"""
import sys

from reportlab import rl_config
from reportlab.lib.pagesizes import A4, letter
from reportlab.lib.utils import simpleSplit
from reportlab.pdfbase.pdfdoc import (PDFArray, PDFDictionary, PDFName,
                                      PDFString, LinkAnnotation)
from reportlab.pdfgen import canvas

OUT = sys.argv[1] if len(sys.argv) > 1 else "sample.pdf"

TITLE = "Notes on Paper and Type"

P1 = [
    "Every printed page is a small negotiation between the sheet and the "
    "words that have to fit on it. The size of the paper decides how long a "
    "line can be, how many lines a reader meets before turning over, and how "
    "much white space is left to rest the eye. These notes collect a few "
    "observations about that negotiation, written down while preparing a "
    "handbook for a small press.",
    "The first thing a printer learns is that paper is never quite the size "
    "its name promises. Sheets shrink and swell with the weather, guillotines "
    "drift by a fraction of a millimetre, and a stack that looked square in "
    "the morning is a trapezoid by the afternoon. Good layouts leave room for "
    "that drift; fragile ones put a rule right at the edge and hope.",
    "The second thing is that readers notice far more than they can name. A "
    "column that is a little too wide tires them without their knowing why; "
    "a margin that is a little too narrow makes a book feel cheap. Albrecht "
    "D\u00fcrer drew his capitals with compass and ruler so that a "
    "craftsman could reproduce them exactly, and the same wish for "
    "repeatable proportion runs through every page format described here.",
]

P1_ITALIC = ("A caf\u00e9 menu, a railway timetable and a novel all ask "
             "different things of the same sheet of paper.")

P2 = [
    "The measure is the length of a line of text. Typographers have argued "
    "for centuries about the ideal measure, and most of them settle "
    "somewhere between forty-five and seventy-five characters. Shorter "
    "lines break phrases too often; longer ones make the eye hunt for the "
    "start of the next line and sometimes read the same line twice.",
    "Two columns are the usual answer when the sheet is wide and the type is "
    "small. Newspapers took the idea to its limit with eight or nine narrow "
    "columns, each one short enough to be read almost at a glance. Journals "
    "and manuals tend to stop at two, which keeps the measure comfortable "
    "without chopping every sentence into fragments.",
    "The gutter between columns deserves as much care as the outer margins. "
    "If it is too narrow the columns run together and a careless reader "
    "jumps across; if it is too wide the page falls apart into two separate "
    "strips. A gutter about the width of two or three letters of the body "
    "type is a reasonable place to begin.",
    "Margins were once generous because paper was valuable and a book was "
    "expected to last; readers wrote in them, binders trimmed them, and "
    "thumbs held them. The classical proportions leave the inner margin "
    "smallest, the top a little larger, the outer larger still and the foot "
    "the largest of all, so that the text block appears to sit slightly "
    "above the middle of the page.",
    "Modern office documents rarely follow those proportions. A report "
    "printed on a desk printer usually gets the same margin on all four "
    "sides, because the printer cannot reach the edge of the sheet and the "
    "software offers one number for all of them. The result is tidy but "
    "rather lifeless, and a little adjustment goes a long way.",
    "When a document will mostly be read on a screen, columns become a "
    "nuisance: the reader scrolls down the first column, then back up to "
    "start the second. For such documents a single column with a moderate "
    "measure is kinder, even if it leaves some of the page empty.",
]

P3_HEAD = "Table of Paper Sizes"
P3_ROWS = [
    "Name        Width x Height (mm)   Width x Height (pt)   Used for",
    "----------  --------------------  --------------------  ----------------",
    "A3          297 x 420             842 x 1191            drawings, posters",
    "A4          210 x 297             595 x 842             letters, reports",
    "A5          148 x 210             420 x 595             notebooks",
    "B5          176 x 250             499 x 709             journals",
    "Letter      215.9 x 279.4         612 x 792             letters (US)",
    "Legal       215.9 x 355.6         612 x 1008            contracts (US)",
    "Tabloid     279.4 x 431.8         792 x 1224            newspapers",
    "Executive   184.2 x 266.7         522 x 756             stationery",
]
P3_TEXT = [
    "This page is set in landscape so that the table fits on one line per "
    "row. The sheet itself is an ordinary letter page turned a quarter "
    "turn; a viewer rotates it for display, and a printer feeds it the "
    "usual way round.",
    "Points are the unit used inside the file: one point is one seventy-"
    "second of an inch, so a letter page is 612 points wide and 792 high.",
]

P4 = [
    "The ISO 216 series starts from a sheet of one square metre whose sides "
    "are in the ratio of one to the square root of two. Cutting such a sheet "
    "in half across its long side gives two sheets of exactly the same "
    "shape, each half the area of the original. That sheet is A0; halving "
    "it gives A1, halving again gives A2, and so on down to the A4 page "
    "that most of the world uses for letters.",
    "The property is more useful than it first appears. Two A4 pages placed "
    "side by side make an A3 page, so a booklet of A5 pages can be printed "
    "on A4 sheets and folded; an A4 original can be reduced to fit an A5 "
    "page with the copier set to seventy-one per cent, and nothing is "
    "cropped or left over.",
]
P4_OBLIQUE = ("Why the square root of two: it is the only ratio that "
              "survives halving unchanged.")
P4_MORE = [
    "The B series fills the gaps between the A sizes, each B sheet being "
    "the geometric mean of its neighbours, and the C series does the same "
    "for envelopes, so that an A4 letter slides into a C4 envelope flat or "
    "into a C5 envelope folded once.",
    "North America kept its own sizes. The letter page, eight and a half by "
    "eleven inches, is a little wider and shorter than A4, and documents "
    "that travel between the two often lose a line at the foot or gain an "
    "awkward strip of white at the side.",
]
P4_BOLD_OBLIQUE = "Halving and doubling"
P4_LAST = ("A sheet of A0 cut in half four times gives sixteen A4 pages, "
           "and a ream of five hundred A4 sheets at eighty grams per square "
           "metre weighs two and a half kilograms.")

P5 = [
    "Printers rarely print on paper of the final size. They print on a "
    "larger sheet, let the ink run a few millimetres past the edge of the "
    "finished page, and then trim the stack. The extra ink is called the "
    "bleed; without it, the slightest error in trimming would leave a thin "
    "white line along a coloured edge.",
    "A PDF file can record both sizes. The media box describes the whole "
    "sheet, bleed and all, while the crop box says which part a viewer "
    "should show. This page carries a crop box set half an inch inside its "
    "media box, so a viewer displays a page of 540 by 720 points.",
    "Crop marks, the short hairlines printed in the corners, tell the "
    "person at the guillotine where to cut. They sit outside the crop box "
    "and are therefore invisible on screen, which is exactly what is "
    "wanted.",
]
P5_BOLD_ITALIC = "Go back to the notes on margins and measure."


def draw_paragraphs(c, paragraphs, font, size, x, y, width, leading,
                    gap=None):
    """Sets each paragraph ragged right; returns the baseline below the last."""
    gap = leading * 0.6 if gap is None else gap
    c.setFont(font, size)
    for para in paragraphs:
        for line in simpleSplit(para, font, size, width):
            c.drawString(x, y, line)
            y -= leading
        y -= gap
    return y


def draw_two_columns(c, paragraphs, font, size, x, top, width, gutter,
                     leading):
    """Sets the paragraphs in two columns of about equal length."""
    lines = []
    for para in paragraphs:
        lines.extend(simpleSplit(para, font, size, width))
        lines.append(None)  # paragraph break
    lines.pop()
    half = (len(lines) + 1) // 2
    if lines[half - 1] is None:
        half -= 1  # keep the break out of the foot of the left column
    c.setFont(font, size)
    for col_x, col in ((x, lines[:half]), (x + width + gutter, lines[half:])):
        y = top
        for line in col:
            if line is None:
                if y != top:
                    y -= leading * 0.6
                continue
            c.drawString(col_x, y, line)
            y -= leading


def add_named_destinations(c, named):
    """Builds the catalog's /Names /Dests name tree from bookmark keys.

    The leaf's keys must be sorted (ISO 32000-1, section 7.9.6); values are
    either the destination array or a dictionary holding it under /D.
    """
    pairs = []
    for key in sorted(named):
        dest = c._bookmarkReference(key)
        if named[key] == "dict":
            dest = PDFDictionary({"D": dest})
        pairs.extend([PDFString(key), dest])
    leaf = PDFDictionary({"Names": PDFArray(pairs)})
    c.setCatalogEntry("Names", PDFDictionary({"Dests": leaf}))


def main():
    # Compressed pages are plain Flate streams (reportlab would add an ASCII85 layer).
    rl_config.useA85 = 0
    c = canvas.Canvas(OUT, pagesize=letter, invariant=1, pageCompression=0)
    c.setTitle(TITLE)
    c.setAuthor("Mara Lindqvist")
    c.setSubject("Paper formats, margins and type")
    c.setCreator("KPPDF test data")

    # Page 1: title page with links and a note.
    w, h = letter
    c.bookmarkPage("intro", fit="Fit")
    c.addOutlineEntry(TITLE, "intro", level=0)
    c.setFont("Helvetica-Bold", 22)
    c.drawString(72, h - 90, TITLE)
    c.setFont("Helvetica", 11)
    c.drawString(72, h - 112, "A short handbook for the press room, first draft")
    c.bookmarkPage("howto", fit="XYZ", left=72, top=h - 130, zoom=0)
    c.addOutlineEntry("How to read this sample", "howto", level=1)
    y = draw_paragraphs(c, P1, "Times-Roman", 12, 72, h - 150, w - 144, 15)
    c.setFont("Times-Italic", 12)
    c.drawString(72, y, P1_ITALIC)
    y -= 30
    c.bookmarkPage("links", fit="FitH", top=y + 14)
    c.addOutlineEntry("A note about links", "links", level=1)
    c.setFont("Helvetica", 11)
    line1 = "The ISO series of paper sizes is described on page four."
    c.drawString(72, y, line1)
    iso_rect = (72, y - 3, 72 + c.stringWidth(line1, "Helvetica", 11), y + 11)
    c._addAnnotation(LinkAnnotation(Rect=iso_rect, Contents="",
                                    Destination=PDFString("iso"),
                                    Border="[0 0 0]"))
    y -= 18
    line2 = "An overview of paper formats: https://example.com/paper-sizes"
    c.drawString(72, y, line2)
    c.linkURL("https://example.com/paper-sizes",
              (72, y - 3, 72 + c.stringWidth(line2, "Helvetica", 11), y + 11),
              thickness=0)
    # The note's /Popup and the pop-up's /Parent point at each other.
    c.textAnnotation("Check the margins on a printed copy before sending "
                     "this to the binder.",
                     Rect=(w - 60, h - 100, w - 40, h - 80), name="note1",
                     T=PDFString("Editor"), Color=(1, 0.9, 0.2),
                     Popup=c._doc.refAnnotation("popup1"))
    popup = PDFDictionary()
    popup["Type"] = PDFName("Annot")
    popup["Subtype"] = PDFName("Popup")
    popup["Rect"] = PDFArray([w - 240, h - 200, w - 40, h - 100])
    popup["Parent"] = c._doc.refAnnotation("note1")
    popup["Open"] = "false"  # written as is: a PDF boolean
    c._addAnnotation(popup, name="popup1")
    c.showPage()

    # Page 2: two columns, compressed content.
    c.setPageCompression(1)
    c.bookmarkPage("columns", fit="Fit")
    c.addOutlineEntry("Margins and Measure", "columns", level=0)
    c.setFont("Helvetica-Bold", 16)
    c.drawString(72, h - 72, "Margins and Measure")
    col_w, gutter = (w - 144 - 24) / 2, 24
    c.bookmarkPage("leftcol", fit="FitV", left=72)
    c.addOutlineEntry("Left column", "leftcol", level=1)
    c.bookmarkPage("rightcol", fit="FitV", left=72 + col_w + gutter)
    c.addOutlineEntry("Right column", "rightcol", level=1)
    draw_two_columns(c, P2, "Times-Roman", 11, 72, h - 104, col_w, gutter, 13.5)
    c.showPage()

    # Page 3: letter media box shown in landscape through /Rotate 90.
    c.setPageCompression(0)
    c.setPageSize((h, w))  # reportlab swaps this back for the media box
    c.setPageRotation(90)
    c.bookmarkPage("table", fit="Fit")
    c.addOutlineEntry(P3_HEAD, "table", level=0)
    c.saveState()
    c.translate(w, 0)
    c.rotate(90)  # landscape space: 792 wide, 612 high
    c.setFont("Courier-Bold", 14)
    c.drawString(54, w - 72, P3_HEAD)
    c.setFont("Courier", 10)
    y = w - 100
    for row in P3_ROWS:
        c.drawString(54, y, row)
        y -= 13
    draw_paragraphs(c, P3_TEXT, "Courier-Oblique", 10, 54, y - 20, h - 108,
                    13)
    c.restoreState()
    c.showPage()

    # Page 4: A4, compressed.
    c.setPageRotation(0)
    c.setPageSize(A4)
    c.setPageCompression(1)
    aw, ah = A4
    c.bookmarkPage("iso", fit="XYZ", left=0, top=ah, zoom=1)
    c.addOutlineEntry("The ISO Series", "iso", level=0, closed=1)
    c.setFont("Helvetica-Bold", 16)
    c.drawString(64, ah - 72, "The ISO Series")
    y = draw_paragraphs(c, P4, "Helvetica", 10.5, 64, ah - 100, aw - 128, 14)
    c.bookmarkPage("sqrt2", fit="FitH", top=y + 12)
    c.addOutlineEntry("Why the square root of two", "sqrt2", level=1)
    c.setFont("Helvetica-Oblique", 10.5)
    c.drawString(64, y, P4_OBLIQUE)
    y = draw_paragraphs(c, P4_MORE, "Helvetica", 10.5, 64, y - 22, aw - 128,
                        14)
    c.bookmarkPage("halving", fit="FitR", left=60, bottom=y - 40,
                   right=aw - 60, top=y + 14)
    c.addOutlineEntry(P4_BOLD_OBLIQUE, "halving", level=2)
    c.setFont("Helvetica-BoldOblique", 11)
    c.drawString(64, y, P4_BOLD_OBLIQUE)
    draw_paragraphs(c, [P4_LAST], "Helvetica", 10.5, 64, y - 18, aw - 128, 14)
    c.showPage()

    # Page 5: letter with a crop box inside the media box.
    c.setPageSize(letter)
    c.setPageCompression(0)
    c.setCropBox((36, 36, w - 36, h - 36))
    c.bookmarkPage("bleed", fit="Fit")
    c.addOutlineEntry("Trimming and Bleed", "bleed", level=0)
    c.setFont("Times-Bold", 16)
    c.drawString(72, h - 90, "Trimming and Bleed")
    y = draw_paragraphs(c, P5, "Times-Roman", 12, 72, h - 120, w - 144, 15)
    c.setFont("Times-BoldItalic", 12)
    c.drawString(72, y, P5_BOLD_ITALIC)
    c.linkAbsolute("", "columns",
                   Rect=(72, y - 3,
                         72 + c.stringWidth(P5_BOLD_ITALIC, "Times-BoldItalic",
                                            12), y + 12),
                   Border="[0 0 0]")
    # Crop marks in the corners, outside the crop box.
    c.setLineWidth(0.25)
    for cx, cy, dx, dy in ((36, 36, -1, -1), (w - 36, 36, 1, -1),
                           (36, h - 36, -1, 1), (w - 36, h - 36, 1, 1)):
        c.line(cx + dx * 6, cy, cx + dx * 30, cy)
        c.line(cx, cy + dy * 6, cx, cy + dy * 30)
    c.showPage()

    add_named_destinations(c, {"intro": "array", "columns": "dict",
                               "iso": "array"})
    c.showOutline()
    c.save()


if __name__ == "__main__":
    main()
