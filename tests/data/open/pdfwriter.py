"""A small writer for hand-made PDF test files.

It lays out numbered objects, computes their byte offsets and writes a
classic cross-reference table (ISO 32000-1, section 7.5.4) and trailer.
Every knob that a broken or unusual file needs is a parameter: the line end,
the form of the cross-reference entries, wrong offsets, a wrong /Size or
startxref, and appended update sections (section 7.5.6).

Object bodies are written with "\\n" as the line end; the writer turns every
"\\n" into the file's line end, stream data included, and sets each stream's
/Length after that conversion.
"""


class Stream:
    """A stream object: dictionary entries (without /Length) and data."""

    def __init__(self, entries, data):
        self.entries = entries
        self.data = data


class Raw:
    """Bytes written as they are, with no line-end conversion."""

    def __init__(self, data):
        self.data = data


def eol_entry(eol):
    """The two bytes that end a 20-byte cross-reference entry."""
    return b"\r\n" if eol == b"\r\n" else b" " + eol


def text_page_content(lines, font=b"F1", size=12, x=72, top=720, leading=16):
    """A content stream drawing lines of text, one under another."""
    out = [b"BT", b"/%s %d Tf" % (font, size), b"%d TL" % leading,
           b"%d %d Td" % (x, top)]
    for line in lines:
        escaped = (line.replace(b"\\", b"\\\\").replace(b"(", b"\\(")
                   .replace(b")", b"\\)"))
        out.append(b"(%s) Tj T*" % escaped)
    out.append(b"ET")
    return b"\n".join(out) + b"\n"


class Section:
    """Objects added in one revision of a file."""

    def __init__(self):
        self.objects = {}  # number -> (generation, body)

    def add(self, number, body, generation=0):
        self.objects[number] = (generation, body)
        return number


class PdfWriter:
    """Builds a file revision by revision.

    eol: the line end used everywhere (LF, CR LF or CR).
    header: the first line, without its line end.
    """

    def __init__(self, eol=b"\n", header=b"%PDF-1.4"):
        self.eol = eol
        self.data = bytearray(header + eol + b"%\xe2\xe3\xcf\xd3" + eol)
        self.offsets = {}  # number -> offset of "N G obj", newest revision
        self.last_xref = None

    def _lines(self, text):
        return text.replace(b"\n", self.eol)

    def _object_bytes(self, number, generation, body):
        head = b"%d %d obj\n" % (number, generation)
        if isinstance(body, Stream):
            data = self._lines(body.data)
            # "stream" must be followed by CR LF or LF, never CR alone
            # (ISO 32000-1, section 7.3.8.1), so a CR file uses CR LF here.
            keyword_end = b"\n" if self.eol == b"\n" else b"\r\n"
            entries = self._lines(body.entries + b" " if body.entries else b"")
            return (self._lines(head) + b"<< " + entries +
                    b"/Length %d >>" % len(data) + self._lines(b"\nstream") +
                    keyword_end + data +
                    self._lines(b"\nendstream\nendobj\n"))
        if isinstance(body, Raw):
            return self._lines(head) + body.data + self._lines(b"\nendobj\n")
        return self._lines(head + body + b"\nendobj\n")

    def write_section(self, section, trailer, entry=None, offset_shift=0,
                      size=None, subsections=None, prev=None,
                      startxref_delta=0, free_entries=None):
        """Appends the section's objects, its xref table and trailer.

        trailer: trailer entries other than /Size and /Prev (bytes).
        entry: function (offset, generation, flag) -> entry bytes; the default
            is the standard 20-byte entry with this file's line end.
        offset_shift: added to every in-use offset written in the table.
        size: the /Size to write (default: highest number + 1).
        subsections: list of (first, count) to write; default: one
            subsection from 0 for a first revision, else one per run of
            consecutive numbers.
        prev: the /Prev value (default: the previous section's xref offset).
        startxref_delta: added to the offset written after startxref.
        free_entries: number -> (next free, generation) for "f" entries.
        Returns the offset of the "xref" keyword.
        """
        first_revision = self.last_xref is None
        generations = {}
        for number in sorted(section.objects):
            generation, body = section.objects[number]
            self.offsets[number] = len(self.data)
            generations[number] = generation
            self.data += self._object_bytes(number, generation, body)

        if entry is None:
            tail = eol_entry(self.eol)

            def entry(offset, generation, flag):
                return b"%010d %05d %s" % (offset, generation, flag) + tail

        free_entries = free_entries or {}
        highest = max(list(section.objects) + list(self.offsets))
        if subsections is None:
            if first_revision:
                subsections = [(0, highest + 1)]
            else:
                subsections = _runs(sorted(section.objects))
        xref = len(self.data)
        out = bytearray(self._lines(b"xref\n"))
        for first, count in subsections:
            out += self._lines(b"%d %d\n" % (first, count))
            for number in range(first, first + count):
                if number in generations:
                    out += entry(self.offsets[number] + offset_shift,
                                 generations[number], b"n")
                elif number == 0:
                    nxt, gen = free_entries.get(0, (0, 65535))
                    out += entry(nxt, gen, b"f")
                else:
                    nxt, gen = free_entries.get(number, (0, 0))
                    out += entry(nxt, gen, b"f")
        self.data += out
        size = highest + 1 if size is None else size
        if prev is None and not first_revision:
            prev = self.last_xref
        text = b"trailer\n<< /Size %d " % size + trailer
        if prev is not None:
            text += b" /Prev %d" % prev
        text += b" >>\nstartxref\n%d\n%%%%EOF\n" % (xref + startxref_delta)
        self.data += self._lines(text)
        self.last_xref = xref
        return xref

    def bytes(self):
        return bytes(self.data)


def _runs(numbers):
    """(first, count) for each run of consecutive numbers."""
    runs = []
    for number in numbers:
        if runs and runs[-1][0] + runs[-1][1] == number:
            runs[-1] = (runs[-1][0], runs[-1][1] + 1)
        else:
            runs.append((number, 1))
    return runs
