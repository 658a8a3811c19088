#!/usr/bin/python3
"""Writes expected.json: what a reader should find in each fixture that it
ought to open, as reported by qpdf, poppler and mupdf.

    /usr/bin/python3 make_expected.py OUT.json FILE.pdf...

For each file: {"pages": N, "outline": [titles], "encrypted": bool,
"password": "user" or ""}.
- pages: the number of page objects reached by walking the page tree
  (qpdf --json, key "pages"). `qpdf --show-npages` is not used because it
  reports the root's /Count, which one fixture falsifies on purpose. Where
  qpdf refuses to walk the tree (a loop), pdftotext's page count is used.
  pdftotext must agree in every case, or the script stops.
- outline: the item titles in document order, depth first (qpdf --json, key
  "outlines"; mutool show where qpdf refuses the file).
- encrypted: qpdf --is-encrypted.
- password: "user" when the file needs a password to open
  (qpdf --requires-password), which is then checked to open it.
"""
import json
import os
import subprocess
import sys

USER_PASSWORD = "user"
# qpdf exits 0 when clean and 3 when it succeeded with warnings.
QPDF_OK = (0, 3)


def run(args):
    return subprocess.run(args, capture_output=True)


def qpdf_json(path, key, password):
    result = run(["qpdf", "--password=" + password, "--json=2",
                  "--json-key=" + key, path])
    if result.returncode not in QPDF_OK:
        return None
    return json.loads(result.stdout)[key]


def pdftotext_pages(path, password):
    args = ["pdftotext"]
    if password:
        args += ["-upw", password]
    result = run(args + [path, "-"])
    if result.returncode != 0:
        raise SystemExit("pdftotext failed on %s: %s" % (path, result.stderr))
    return result.stdout.count(b"\f")


def outline_titles(path, password):
    items = qpdf_json(path, "outlines", password)
    titles = []
    if items is not None:
        def walk(level):
            for item in level:
                titles.append(item["title"])
                walk(item["kids"])
        walk(items)
        return titles
    # mutool prints one item a line: open/closed mark, a tab per level,
    # the quoted title, a tab and the target.
    args = ["mutool", "show"]
    if password:
        args += ["-p", password]
    result = run(args + [path, "outline"])
    if result.returncode != 0:
        raise SystemExit("no outline from qpdf or mutool for %s" % path)
    for line in result.stdout.decode("utf-8").splitlines():
        quoted = line.split("\t\"", 1)[1]
        titles.append(quoted[:quoted.rindex("\"")])
    return titles


def expectation(path):
    encrypted = run(["qpdf", "--is-encrypted", path]).returncode == 0
    password = ""
    if encrypted and run(["qpdf", "--requires-password",
                          path]).returncode == 0:
        password = USER_PASSWORD
        check = run(["qpdf", "--password=" + password, "--check", path])
        if check.returncode != 0:
            raise SystemExit("%s does not open with password %r"
                             % (path, password))
    pages = qpdf_json(path, "pages", password)
    text_pages = pdftotext_pages(path, password)
    count = text_pages if pages is None else len(pages)
    if count != text_pages:
        raise SystemExit("%s: qpdf walks %d pages, pdftotext shows %d"
                         % (path, count, text_pages))
    return {"pages": count, "outline": outline_titles(path, password),
            "encrypted": encrypted, "password": password}


def main():
    out, files = sys.argv[1], sys.argv[2:]
    expected = {os.path.basename(f): expectation(f) for f in files}
    with open(out, "w", encoding="utf-8") as f:
        json.dump(expected, f, indent=2, sort_keys=True, ensure_ascii=False)
        f.write("\n")


if __name__ == "__main__":
    main()
