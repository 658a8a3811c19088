#!/usr/bin/python3
"""Writes tests/data/imprints/annotations.pdf: one page whose Annots hold every
kind of annotation the imprint code tells apart.

Run with the Debian python that has reportlab and pikepdf:
    /usr/bin/python3 tests/data/imprints/make_annotations.py [output.pdf]
The output is the same from run to run (reportlab's invariant mode, pikepdf's
static identifier).

reportlab draws the page and its form: a text field (FT on the widget
itself), a choice field (FT /Ch) and a radio group, whose widgets are kids
of a parent field with FT /Btn (reportlab also writes FT into the kids; it
is taken out of them, so that the field type comes from the parent alone).
pikepdf then appends, in this order: a Square annotation, a FreeText annotation, a signature widget (FT /Sig), a
Text note, and two pop-ups whose Parent are both that note. The page's Annots
order is: text field, choice, radio kid 1, radio kid 2, Square, FreeText, Sig,
Text, Popup, Popup.
"""
import io
import sys

import pikepdf
from pikepdf import Array, Dictionary, Name, String
from reportlab.lib.pagesizes import letter
from reportlab.pdfgen import canvas

OUT = sys.argv[1] if len(sys.argv) > 1 else "annotations.pdf"


def form_page():
    buffer = io.BytesIO()
    c = canvas.Canvas(buffer, pagesize=letter, invariant=1, pageCompression=0)
    c.setFont("Helvetica", 12)
    c.drawString(72, 720, "Annotations of every kind")
    form = c.acroForm
    form.textfield(name="city", value="Lund", x=72, y=640, width=200, height=20)
    form.choice(name="size", value="A4", options=["A4", "Letter"], x=72, y=600,
                width=120, height=20)
    form.radio(name="fit", value="page", selected=True, x=72, y=560, size=16)
    form.radio(name="fit", value="width", selected=False, x=100, y=560, size=16)
    c.showPage()
    c.save()
    return buffer.getvalue()


def main():
    pdf = pikepdf.open(io.BytesIO(form_page()))
    page = pdf.pages[0].obj
    annots = page.Annots
    for annotation in annots:
        if "/Parent" in annotation and "/FT" in annotation:
            del annotation.FT

    def add(entries):
        annotation = pdf.make_indirect(Dictionary(Type=Name.Annot, **entries))
        annots.append(annotation)
        return annotation

    add(dict(Subtype=Name.Square, Rect=Array([300, 600, 400, 680]), F=4,
             C=Array([0, 0, 1])))
    add(dict(Subtype=Name.FreeText, Rect=Array([300, 500, 500, 540]), F=4,
             Contents=String("Free text"), DA=String("0 0 0 rg /Helv 12 Tf")))
    signature = add(dict(Subtype=Name.Widget, FT=Name.Sig, T=String("signed"),
                         Rect=Array([72, 440, 272, 480]), F=4, P=page))
    pdf.Root.AcroForm.Fields.append(signature)
    note = add(dict(Subtype=Name.Text, Rect=Array([550, 700, 570, 720]), F=28,
                    Contents=String("A note with two pop-ups"),
                    C=Array([1, 0.9, 0.2])))
    first = add(dict(Subtype=Name.Popup, Rect=Array([400, 600, 600, 700]),
                     Parent=note, Open=False))
    second = add(dict(Subtype=Name.Popup, Rect=Array([400, 480, 600, 580]),
                      Parent=note, Open=True))
    note.Popup = second
    pdf.save(OUT, static_id=True, compress_streams=False,
             object_stream_mode=pikepdf.ObjectStreamMode.disable)


if __name__ == "__main__":
    main()
