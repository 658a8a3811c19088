# Remakes the writer fixtures in this folder from tests/data/sample.pdf with pikepdf:
#   /usr/bin/python3 tests/data/writer/make_fixtures.py
# forward_link.pdf: page 1 gets a link annotation whose destination is page 3 and whose P is
# page 1, so a writer reaches page 3 from page 1 before it copies page 3.
import os
import pikepdf

here = os.path.dirname(os.path.abspath(__file__))
pdf = pikepdf.open(os.path.join(here, "..", "sample.pdf"))
first, third = pdf.pages[0].obj, pdf.pages[2].obj
link = pdf.make_indirect(pikepdf.Dictionary(
    Type=pikepdf.Name.Annot, Subtype=pikepdf.Name.Link, Rect=[72, 72, 144, 90],
    Border=[0, 0, 0], Dest=[third, pikepdf.Name.Fit], P=first))
if "/Annots" in first:
    first.Annots.append(link)
else:
    first.Annots = pikepdf.Array([link])
pdf.save(os.path.join(here, "forward_link.pdf"), static_id=True)
