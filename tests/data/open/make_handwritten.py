#!/usr/bin/python3
"""Writes the hand-made opening fixtures into a folder.

    /usr/bin/python3 make_handwritten.py OUTDIR

Each function below returns the bytes of one file; README.md beside this
script says what each file exercises. The output depends on nothing but this
code, so two runs give identical files.
"""
import os
import sys
import zlib

from pdfwriter import PdfWriter, Raw, Section, Stream, text_page_content

FONT = (b"<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica "
        b"/Encoding /WinAnsiEncoding >>")
ID = (b"/ID [<4b50504446206669787475726521> <4b50504446206669787475726521>]")


def page(parent, content, extra=b"", font=3, content_generation=0):
    return (b"<< /Type /Page /Parent %d 0 R /MediaBox [0 0 612 792] "
            b"/Resources << /Font << /F1 %d 0 R >> >> /Contents %d %d R%s >>"
            % (parent, font, content, content_generation, extra))


def simple_doc(title, pages, catalog_extra=b"", page_extra=None):
    """Objects 1 catalog, 2 page tree, 3 font, 4 info, then a page and its
    content for each entry of pages (a list of lists of text lines).
    Returns the section and the page object numbers."""
    s = Section()
    numbers = []
    for i, lines in enumerate(pages):
        pnum, cnum = 5 + 2 * i, 6 + 2 * i
        extra = (page_extra or {}).get(i, b"")
        s.add(pnum, page(2, cnum, extra))
        s.add(cnum, Stream(b"", text_page_content(lines)))
        numbers.append(pnum)
    kids = b" ".join(b"%d 0 R" % n for n in numbers)
    s.add(1, b"<< /Type /Catalog /Pages 2 0 R%s >>" % catalog_extra)
    s.add(2, b"<< /Type /Pages /Kids [%s] /Count %d >>" % (kids, len(pages)))
    s.add(3, FONT)
    s.add(4, b"<< /Title (%s) /Producer (KPPDF fixture writer) >>" % title)
    return s, numbers


TWO_PAGES = [
    [b"First page.", b"The quick brown fox jumps over the lazy dog."],
    [b"Second page.", b"Pack my box with five dozen liquor jugs."],
]
TRAILER = b"/Root 1 0 R /Info 4 0 R " + ID


def classic(eol, title):
    w = PdfWriter(eol=eol)
    s, _ = simple_doc(title, TWO_PAGES)
    w.write_section(s, TRAILER)
    return w.bytes()


def classic_lf():
    return classic(b"\n", b"Line feed line ends")


def classic_crlf():
    return classic(b"\r\n", b"Carriage return line feed line ends")


def classic_cr():
    return classic(b"\r", b"Carriage return line ends")


def xref19():
    """Entries of 19 bytes: a one-byte line end and no space before it."""
    w = PdfWriter()
    s, _ = simple_doc(b"Nineteen-byte cross-reference entries", TWO_PAGES)
    w.write_section(s, TRAILER, entry=lambda off, gen, flag:
                    b"%010d %05d %s\n" % (off, gen, flag))
    return w.bytes()


def bad_startxref():
    """startxref points 40 bytes before the xref keyword, into the last
    object."""
    w = PdfWriter()
    s, _ = simple_doc(b"Wrong startxref offset", TWO_PAGES)
    w.write_section(s, TRAILER, startxref_delta=-40)
    return w.bytes()


def bad_xref_offsets():
    """Every in-use entry is 12 bytes past its object's "N G obj" header, so
    each lands inside the object's body."""
    w = PdfWriter()
    s, _ = simple_doc(b"Shifted cross-reference offsets", TWO_PAGES)
    w.write_section(s, TRAILER, offset_shift=12)
    return w.bytes()


def size_small():
    """/Size 5 while objects run up to 8."""
    w = PdfWriter()
    s, _ = simple_doc(b"Size too small", TWO_PAGES)
    w.write_section(s, TRAILER, size=5)
    return w.bytes()


def truncated():
    """A whole file cut off in its cross-reference table: every object is
    there, but there is no trailer, startxref or %%EOF."""
    w = PdfWriter()
    s, _ = simple_doc(b"Truncated file", TWO_PAGES)
    xref = w.write_section(s, TRAILER)
    return w.bytes()[:xref + 30]


def long_header():
    """A first line of 120 bytes: the version comment runs on."""
    header = b"%PDF-1.4 " + b"x" * 111
    w = PdfWriter(header=header)
    s, _ = simple_doc(b"Long header line", TWO_PAGES)
    w.write_section(s, TRAILER)
    return w.bytes()


def not_pdf():
    return b"This is a plain text file, not a PDF document.\n"


def multi_revision():
    """A two-page file and an update that rewrites page 1's content and the
    document information, gives page 2 a new content stream under
    generation 1, and adds a third page."""
    w = PdfWriter()
    s, _ = simple_doc(b"Original revision", TWO_PAGES)
    w.write_section(s, TRAILER)
    u = Section()
    u.add(2, b"<< /Type /Pages /Kids [5 0 R 7 0 R 9 0 R] /Count 3 >>")
    u.add(4, b"<< /Title (Updated revision) /Producer (KPPDF fixture writer)"
             b" >>")
    u.add(6, Stream(b"", text_page_content([b"First page, revised.",
                                            b"This text replaced the "
                                            b"original."])))
    u.add(7, page(2, 8, content_generation=1))
    u.add(8, Stream(b"", text_page_content([b"Second page, revised.",
                                            b"Its content is object 8 "
                                            b"generation 1."])), generation=1)
    u.add(9, page(2, 10))
    u.add(10, Stream(b"", text_page_content([b"Third page.",
                                             b"Added by the update."])))
    w.write_section(u, TRAILER)
    return w.bytes()


def prev_loop_self():
    """The only section's trailer names itself as /Prev."""
    w = PdfWriter()
    s, _ = simple_doc(b"Prev loops to itself", TWO_PAGES)
    # The section's own offset is known only after the objects are laid out,
    # and it does not depend on the trailer that follows them.
    probe = PdfWriter()
    xref = probe.write_section(simple_doc(b"Prev loops to itself",
                                          TWO_PAGES)[0], TRAILER)
    w.write_section(s, TRAILER, prev=xref)
    assert w.last_xref == xref
    return w.bytes()


def prev_loop_two():
    """Two sections whose /Prev entries point at each other."""
    guess = 0
    for _ in range(5):
        w = PdfWriter()
        s, _ = simple_doc(b"Prev loop of two sections", TWO_PAGES)
        first = w.write_section(s, TRAILER + b" /Prev %d" % guess)
        u = Section()
        u.add(4, b"<< /Title (Prev loop, second section) >>")
        second = w.write_section(u, TRAILER, prev=first)
        if second == guess:
            return w.bytes()
        guess = second
    raise RuntimeError("prev_loop_two: offsets did not settle")


def pages_doc(title, tree, catalog_extra=b""):
    """A document whose page tree is given as nested lists.

    tree: a Pages node written as ("pages", extra, [kids...]) or a page as
    ("page", text, extra). Returns a writer section; object 1 is the catalog,
    2 the root of the tree, 3 the font, 4 the info dictionary.
    """
    s = Section()
    s.add(1, b"<< /Type /Catalog /Pages 2 0 R%s >>" % catalog_extra)
    s.add(3, FONT)
    s.add(4, b"<< /Title (%s) >>" % title)
    counter = [5]

    def next_number():
        n = counter[0]
        counter[0] += 1
        return n

    def emit(node, number, parent):
        if node[0] == "page":
            _, text, extra = node
            content = next_number()
            s.add(content, Stream(b"", text_page_content([text])))
            body = (b"<< /Type /Page /Parent %d 0 R /Contents %d 0 R%s >>"
                    % (parent, content, extra))
            s.add(number, body)
            return 1
        _, extra, kids = node
        numbers = [next_number() for _ in kids]
        leaves = 0
        for kid, kid_number in zip(kids, numbers):
            leaves += emit(kid, kid_number, number)
        parent_entry = b"" if parent is None else b" /Parent %d 0 R" % parent
        count = extra.pop("count", leaves) if isinstance(extra, dict) else leaves
        extra_bytes = extra if isinstance(extra, bytes) else extra.get("b", b"")
        kids_bytes = b" ".join(b"%d 0 R" % n for n in numbers)
        s.add(number, b"<< /Type /Pages%s /Kids [%s] /Count %d%s >>"
              % (parent_entry, kids_bytes, count, extra_bytes))
        return leaves

    emit(tree, 2, None)
    return s


ROOT_ATTRS = (b" /MediaBox [0 0 612 792] /Resources << /Font << /F1 3 0 R >> "
              b">>")


def pagetree_deep():
    """Six levels of page tree nodes; pages 1 to 7 in depth-first order."""
    def nest(levels, kids):
        node = ("pages", b"", kids)
        for _ in range(levels - 1):
            node = ("pages", b"", [node])
        return node

    tree = ("pages", ROOT_ATTRS, [
        ("page", b"Page 1", b""),
        ("pages", b"", [
            ("page", b"Page 2", b""),
            ("pages", b"", [
                nest(3, [("page", b"Page 3", b""), ("page", b"Page 4", b"")]),
                ("page", b"Page 5", b""),
            ]),
        ]),
        ("page", b"Page 6", b""),
        nest(5, [("page", b"Page 7", b"")]),
    ])
    w = PdfWriter()
    w.write_section(pages_doc(b"Deep page tree", tree), TRAILER)
    return w.bytes()


def pagetree_count():
    """The root says /Count 5; the tree holds three pages."""
    tree = ("pages", {"b": ROOT_ATTRS, "count": 5}, [
        ("page", b"Page 1", b""),
        ("pages", b"", [("page", b"Page 2", b""), ("page", b"Page 3", b"")]),
    ])
    w = PdfWriter()
    w.write_section(pages_doc(b"Count larger than the leaves", tree), TRAILER)
    return w.bytes()


def pagetree_cycle():
    """An intermediate node lists the root among its kids, after its two
    pages; the counts describe the three real pages."""
    tree = ("pages", ROOT_ATTRS, [
        ("pages", b"", [("page", b"Page 1", b""), ("page", b"Page 2", b"")]),
        ("page", b"Page 3", b""),
    ])
    s = pages_doc(b"Page tree with a cycle", tree)
    generation, body = s.objects[5]  # the intermediate node
    assert b"/Kids [7 0 R 8 0 R]" in body
    s.add(5, body.replace(b"/Kids [7 0 R 8 0 R]", b"/Kids [7 0 R 8 0 R 2 0 R]"),
          generation)
    w = PdfWriter()
    w.write_section(s, TRAILER)
    return w.bytes()


def pagetree_inherit():
    """Page attributes inherited from page tree nodes.

    Root: MediaBox Letter, Resources. Page 1 inherits both.
    Middle node: MediaBox A4, CropBox, Rotate 90. Page 2 inherits all three;
    page 3 overrides Rotate with 180; page 4 overrides the MediaBox with
    [0 0 400 400] and inherits the CropBox and Rotate 90.
    Page 5, under the root again, has its own Rotate 270.
    """
    middle = (b" /MediaBox [0 0 595 842] /CropBox [20 20 575 822]"
              b" /Rotate 90")
    tree = ("pages", ROOT_ATTRS, [
        ("page", b"Page 1", b""),
        ("pages", middle, [
            ("page", b"Page 2", b""),
            ("page", b"Page 3", b" /Rotate 180"),
            ("page", b"Page 4", b" /MediaBox [0 0 400 400]"),
        ]),
        ("page", b"Page 5", b" /Rotate 270"),
    ])
    w = PdfWriter()
    w.write_section(pages_doc(b"Inherited page attributes", tree), TRAILER)
    return w.bytes()


def link(rect, action):
    return (b"<< /Type /Annot /Subtype /Link /Rect [%s] /Border [0 0 0] %s >>"
            % (rect, action))


def flat_outline(section, root, items):
    """A one-level outline: root object number, then (number, title,
    target) for each item in order."""
    for i, (number, title, target) in enumerate(items):
        body = b"<< /Title (%s) /Parent %d 0 R %s" % (title, root, target)
        if i > 0:
            body += b" /Prev %d 0 R" % items[i - 1][0]
        if i + 1 < len(items):
            body += b" /Next %d 0 R" % items[i + 1][0]
        section.add(number, body + b" >>")
    section.add(root, b"<< /Type /Outlines /First %d 0 R /Last %d 0 R "
                      b"/Count %d >>" % (items[0][0], items[-1][0], len(items)))


THREE_PAGES = [[b"Page 1", b"Links on this page lead to named destinations."],
               [b"Page 2"], [b"Page 3"]]


def dests_catalog():
    """Named destinations in the catalog's /Dests dictionary (name keys).

    first -> [page 1 /Fit]; second -> << /D [page 2 /XYZ 0 792 1] >>;
    third -> object 13, an indirect array [page 3 /FitH 700].
    Page 1 links to /second and /third by name; the outline reaches /first
    and /second by name.
    """
    s, pages = simple_doc(b"Destinations in the catalog", THREE_PAGES,
                          catalog_extra=b" /Dests 11 0 R /Outlines 16 0 R",
                          page_extra={0: b" /Annots [14 0 R 15 0 R]"})
    s.add(11, b"<< /first [%d 0 R /Fit] /second << /D [%d 0 R /XYZ 0 792 1]"
              b" >> /third 13 0 R >>" % (pages[0], pages[1]))
    s.add(13, b"[%d 0 R /FitH 700]" % pages[2])
    s.add(14, link(b"72 690 300 710", b"/Dest /second"))
    s.add(15, link(b"72 670 300 690", b"/A << /S /GoTo /D /third >>"))
    flat_outline(s, 16, [(17, b"Named first", b"/Dest /first"),
                         (18, b"GoTo second", b"/A << /S /GoTo /D /second >>")])
    w = PdfWriter()
    w.write_section(s, TRAILER)
    return w.bytes()


def dests_nametree():
    """Named destinations in a /Names /Dests name tree three levels deep,
    with /Limits on every node below the root.

    alpha, beta, charlie, delta under one intermediate node; echo, foxtrot
    in a leaf hung directly from the root. Values: arrays, a dictionary with
    /D, and an indirect array. Page 1 links to (beta) and (foxtrot); the
    outline reaches alpha, charlie and beta by name.
    """
    s, p = simple_doc(b"Destinations in a name tree", THREE_PAGES,
                      catalog_extra=b" /Names << /Dests 11 0 R >> "
                                    b"/Outlines 20 0 R",
                      page_extra={0: b" /Annots [18 0 R 19 0 R]"})
    s.add(11, b"<< /Kids [12 0 R 13 0 R] >>")
    s.add(12, b"<< /Limits [(alpha) (delta)] /Kids [14 0 R 15 0 R] >>")
    s.add(13, b"<< /Limits [(echo) (foxtrot)] /Names [(echo) [%d 0 R /Fit] "
              b"(foxtrot) [%d 0 R /FitV 100]] >>" % (p[2], p[2]))
    s.add(14, b"<< /Limits [(alpha) (beta)] /Names [(alpha) [%d 0 R /Fit] "
              b"(beta) << /D [%d 0 R /FitR 10 20 30 40] >>] >>" % (p[0], p[1]))
    s.add(15, b"<< /Limits [(charlie) (delta)] /Names [(charlie) 16 0 R "
              b"(delta) [%d 0 R /FitB]] >>" % p[1])
    s.add(16, b"[%d 0 R /XYZ 72 720 0]" % p[2])
    s.add(18, link(b"72 690 300 710", b"/Dest (beta)"))
    s.add(19, link(b"72 670 300 690", b"/A << /S /GoTo /D (foxtrot) >>"))
    flat_outline(s, 20, [(21, b"Named alpha", b"/Dest (alpha)"),
                         (22, b"Named charlie", b"/Dest (charlie)"),
                         (23, b"GoTo beta", b"/A << /S /GoTo /D (beta) >>")])
    w = PdfWriter()
    w.write_section(s, TRAILER)
    return w.bytes()


def dests_both():
    """Both forms at once: catalog /Dests has old and shared, the name tree
    has shared and new. A link on page 1 and the outline's only item use
    (shared): page 2 by the name tree, page 1 by the catalog's dictionary."""
    s, p = simple_doc(b"Both kinds of named destinations", THREE_PAGES,
                      catalog_extra=b" /Dests 11 0 R /Names << /Dests 12 0 R"
                                    b" >> /Outlines 14 0 R",
                      page_extra={0: b" /Annots [13 0 R]"})
    s.add(11, b"<< /old [%d 0 R /Fit] /shared [%d 0 R /Fit] >>"
              % (p[0], p[0]))
    s.add(12, b"<< /Names [(new) [%d 0 R /Fit] (shared) [%d 0 R /Fit]] >>"
              % (p[2], p[1]))
    s.add(13, link(b"72 690 300 710", b"/Dest (shared)"))
    flat_outline(s, 14, [(15, b"Shared name", b"/Dest (shared)")])
    w = PdfWriter()
    w.write_section(s, TRAILER)
    return w.bytes()


def utf16(text):
    return b"<feff" + text.encode("utf-16-be").hex().encode() + b">"


def outline():
    """An outline three levels deep; see README.md for the item list."""
    pages_text = [[b"Page %d" % (i + 1)] for i in range(4)]
    s, p = simple_doc(b"Outline", pages_text,
                      catalog_extra=b" /Outlines 20 0 R /PageMode /UseOutlines"
                                    b" /Names << /Dests 19 0 R >>")
    s.add(19, b"<< /Names [(sec111) [%d 0 R /XYZ 72 600 0] (sec121) "
              b"<< /D [%d 0 R /FitH 400] >>] >>" % (p[0], p[1]))
    # number: (title, parent, dest-or-action, flags, colour, kids, open)
    items = {
        21: (b"(Chapter 1)", 20, b"/Dest [%d 0 R /Fit]" % p[0], None,
             b"[0 0 0]", [22, 25], True),
        22: (b"(Section 1.1)", 21, b"/Dest [%d 0 R /XYZ 72 700 0]" % p[0], 1,
             b"[1 0 0]", [23, 24], True),
        23: (b"(Detail 1.1.1)", 22, b"/Dest (sec111)", 2, None, [], True),
        24: (b"(Detail 1.1.2)", 22,
             b"/A << /S /GoTo /D [%d 0 R /FitH 500] >>" % p[1], None, None,
             [], True),
        25: (b"(Section 1.2)", 21, b"/Dest [%d 0 R /Fit]" % p[1], None, None,
             [26], False),
        26: (b"(Detail 1.2.1)", 25, b"/A << /S /GoTo /D (sec121) >>", None,
             None, [], True),
        27: (b"(Chapter 2)", 20, b"/Dest [%d 0 R /Fit]" % p[2], 3,
             b"[0 0 0.5]", [28, 29], False),
        28: (b"(Section 2.1)", 27, b"/Dest [%d 0 R /FitR 10 20 30 40]" % p[2],
             None, None, [], True),
        29: (b"(Section 2.2)", 27, b"/Dest [%d 0 R /FitB]" % p[2], None,
             b"[0.2 0.6 0.2]", [30], True),
        30: (b"(Detail 2.2.1)", 29, b"/Dest [%d 0 R /FitBH 300]" % p[3], None,
             None, [], True),
        31: (utf16("Caf\u00e9 et th\u00e9"), 20, b"/Dest [%d 0 R /FitV 100]"
             % p[3], None, None, [], True),
        32: (b"(R\xe9sum\xe9)", 20,
             b"/A << /S /GoTo /D [%d 0 R /FitBV 50] >>" % p[3], None, None,
             [], True),
        33: (b"(Project website)", 20,
             b"/A << /S /URI /URI (https://example.com/kppdf) >>", None, None,
             [], True),
        34: (b"(Companion file)", 20,
             b"/A << /S /GoToR /F (companion.pdf) /D [0 /Fit] >>", None, None,
             [], True),
    }
    top = [21, 27, 31, 32, 33, 34]

    def visible(number):
        """Open descendants counted as ISO 32000-1, section 12.3.3 says."""
        kids = items[number][5]
        return sum(1 + (visible(k) if items[k][6] else 0) for k in kids)

    def siblings(numbers):
        links = {}
        for i, n in enumerate(numbers):
            entry = b""
            if i > 0:
                entry += b" /Prev %d 0 R" % numbers[i - 1]
            if i + 1 < len(numbers):
                entry += b" /Next %d 0 R" % numbers[i + 1]
            links[n] = entry
        return links

    links = siblings(top)
    for n, item in items.items():
        links.update(siblings(item[5]))
    for n, (title, parent, target, flags, colour, kids, is_open) in \
            items.items():
        body = b"<< /Title %s /Parent %d 0 R %s" % (title, parent, target)
        body += links[n]
        if kids:
            count = visible(n)
            body += b" /First %d 0 R /Last %d 0 R /Count %d" % (
                kids[0], kids[-1], count if is_open else -count)
        if flags is not None:
            body += b" /F %d" % flags
        if colour is not None:
            body += b" /C %s" % colour
        s.add(n, body + b" >>")
    root_count = sum(1 + (visible(k) if items[k][6] else 0) for k in top)
    s.add(20, b"<< /Type /Outlines /First %d 0 R /Last %d 0 R /Count %d >>"
          % (top[0], top[-1], root_count))
    w = PdfWriter()
    w.write_section(s, TRAILER)
    return w.bytes()


def hybrid():
    """A hybrid-reference file (ISO 32000-1, section 7.5.8.4).

    The classic table lists every object except the two outline items, which
    live only in object stream 12 and are listed by the cross-reference
    stream 13 that the trailer's /XRefStm names. A reader that ignores
    /XRefStm still sees both pages, but no outline items.
    """
    s, p = simple_doc(b"Hybrid-reference file", TWO_PAGES,
                      catalog_extra=b" /Outlines 9 0 R")
    s.add(9, b"<< /Type /Outlines /First 10 0 R /Last 11 0 R /Count 2 >>")
    compressed = [
        (10, b"<< /Title (Compressed item one) /Parent 9 0 R /Next 11 0 R "
             b"/Dest [%d 0 R /Fit] >>" % p[0]),
        (11, b"<< /Title (Compressed item two) /Parent 9 0 R /Prev 10 0 R "
             b"/Dest [%d 0 R /Fit] >>" % p[1]),
    ]
    bodies, header, pos = b"", b"", 0
    for number, body in compressed:
        header += b"%d %d " % (number, pos)
        bodies += body + b"\n"
        pos += len(body) + 1
    objstm = header + bodies
    s.add(12, Raw(b"<< /Type /ObjStm /N 2 /First %d /Filter /FlateDecode "
                  b"/Length %d >>\nstream\n" % (len(header),
                                               len(zlib.compress(objstm, 9)))
                  + zlib.compress(objstm, 9) + b"\nendstream"))
    # Type 2 rows: (2, object stream number, index), /W [1 2 1].
    rows = b"".join(bytes([2]) + (12).to_bytes(2, "big") + bytes([i])
                    for i in range(len(compressed)))
    packed = zlib.compress(rows, 9)
    s.add(13, Raw(b"<< /Type /XRef /Size 14 /Index [10 2] /W [1 2 1] "
                  b"/Filter /FlateDecode /Length %d >>\nstream\n"
                  % len(packed) + packed + b"\nendstream"))
    # The classic table: 10 and 11 are free there, chained from entry 0.
    free = {0: (10, 65535), 10: (11, 0), 11: (0, 0)}
    w = PdfWriter(header=b"%PDF-1.5")
    # /XRefStm needs object 13's offset, which is fixed once the objects are
    # laid out; lay them out once to learn it.
    probe = PdfWriter(header=b"%PDF-1.5")
    probe.write_section(s, TRAILER, free_entries=free)
    w.write_section(s, TRAILER + b" /XRefStm %d" % probe.offsets[13],
                    free_entries=free)
    assert w.offsets[13] == probe.offsets[13]
    return w.bytes()


FIXTURES = {
    "classic_lf.pdf": classic_lf,
    "classic_crlf.pdf": classic_crlf,
    "classic_cr.pdf": classic_cr,
    "xref19.pdf": xref19,
    "bad_startxref.pdf": bad_startxref,
    "bad_xref_offsets.pdf": bad_xref_offsets,
    "size_small.pdf": size_small,
    "truncated.pdf": truncated,
    "long_header.pdf": long_header,
    "not_pdf.pdf": not_pdf,
    "multi_revision.pdf": multi_revision,
    "prev_loop_self.pdf": prev_loop_self,
    "prev_loop_two.pdf": prev_loop_two,
    "pagetree_deep.pdf": pagetree_deep,
    "pagetree_count.pdf": pagetree_count,
    "pagetree_cycle.pdf": pagetree_cycle,
    "pagetree_inherit.pdf": pagetree_inherit,
    "dests_catalog.pdf": dests_catalog,
    "dests_nametree.pdf": dests_nametree,
    "dests_both.pdf": dests_both,
    "outline.pdf": outline,
    "hybrid.pdf": hybrid,
}


def main():
    outdir = sys.argv[1]
    for name, make in FIXTURES.items():
        with open(os.path.join(outdir, name), "wb") as f:
            f.write(make())


if __name__ == "__main__":
    main()
