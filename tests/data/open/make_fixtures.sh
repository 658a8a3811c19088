#!/bin/bash
# Remakes the PDF fixtures for opening documents, and expected.json, in the
# folder that holds this script. README.md says what each file exercises.
#
#   bash tests/data/open/make_fixtures.sh
#
# Needs /usr/bin/python3 with reportlab and pikepdf, qpdf, and poppler-utils
# (pdfinfo, pdftotext). Two runs give identical files: reportlab runs in its
# invariant mode and qpdf gets --deterministic-id, or --static-id (and
# --static-aes-iv) where it encrypts.
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
cd "$here"
py="/usr/bin/python3 -B"  # no __pycache__ beside the fixtures

$py make_handwritten.py .
$py make_base.py base.pdf

qpdf --deterministic-id --object-streams=generate base.pdf xref_stream.pdf

# RC4 with 40-bit (V 1, R 2) and 128-bit (V 2, R 3) keys, with an empty user
# password and with "user"; AES (V 4) for a handler this reader refuses.
encrypt() { # bits user-password output [options]
    local bits=$1 user=$2 out=$3
    shift 3
    qpdf --allow-weak-crypto --static-id --static-aes-iv \
        --encrypt "$user" owner "$bits" "$@" -- base.pdf "$out"
}
encrypt 40 "" rc4_40_empty.pdf
encrypt 40 user rc4_40_user.pdf
encrypt 128 "" rc4_128_empty.pdf --use-aes=n
encrypt 128 user rc4_128_user.pdf --use-aes=n
encrypt 128 "" aes_128.pdf --use-aes=y
# The same inside object streams: the catalog and the page-tree root are compressed objects
# of an encrypted stream, and their strings are not encrypted again.
qpdf --allow-weak-crypto --static-id --object-streams=generate \
    --encrypt "" owner 128 --use-aes=n -- base.pdf rc4_128_objstm.pdf
qpdf --allow-weak-crypto --static-id --object-streams=generate \
    --encrypt user owner 40 -- base.pdf rc4_40_objstm_user.pdf

# Files that are valid PDF: qpdf must find nothing wrong with them.
valid=(classic_lf.pdf classic_crlf.pdf classic_cr.pdf xref19.pdf
    multi_revision.pdf hybrid.pdf xref_stream.pdf base.pdf
    pagetree_deep.pdf pagetree_count.pdf pagetree_inherit.pdf
    dests_catalog.pdf dests_nametree.pdf dests_both.pdf outline.pdf
    rc4_40_empty.pdf rc4_40_user.pdf rc4_128_empty.pdf rc4_128_user.pdf
    rc4_128_objstm.pdf rc4_40_objstm_user.pdf aes_128.pdf long_header.pdf)
for f in "${valid[@]}"; do
    password=
    if qpdf --requires-password "$f"; then password=user; fi
    if ! qpdf --password="$password" --check "$f" > /dev/null; then
        echo "make_fixtures: qpdf finds $f damaged" >&2
        exit 1
    fi
done

# Deliberately damaged files: qpdf must notice (exit 2 error, 3 warnings).
damaged=(bad_startxref.pdf bad_xref_offsets.pdf size_small.pdf truncated.pdf
    prev_loop_self.pdf prev_loop_two.pdf pagetree_cycle.pdf not_pdf.pdf)
for f in "${damaged[@]}"; do
    rc=0
    qpdf --check "$f" > /dev/null 2>&1 || rc=$?
    if [ "$rc" -eq 0 ]; then
        echo "make_fixtures: $f was meant to be damaged, qpdf accepts it" >&2
        exit 1
    fi
done

# Spot checks of what the hand-made files were built to hold.
rotations=$(pdfinfo -f 1 -l 5 pagetree_inherit.pdf | awk '/ rot:/ {printf "%s ", $4}')
if [ "$rotations" != "0 90 180 90 270 " ]; then
    echo "make_fixtures: pagetree_inherit.pdf rotations are $rotations" >&2
    exit 1
fi
page1=$(pdftotext -f 1 -l 1 multi_revision.pdf -)
if [[ $page1 != *"First page, revised"* ]]; then
    echo "make_fixtures: multi_revision.pdf does not show its update" >&2
    exit 1
fi
if ! grep -aq '^trailer' hybrid.pdf || ! grep -aq '/XRefStm' hybrid.pdf; then
    echo "make_fixtures: hybrid.pdf lacks its classic trailer or /XRefStm" >&2
    exit 1
fi
if grep -aq 'trailer' xref_stream.pdf; then
    echo "make_fixtures: xref_stream.pdf has a classic trailer" >&2
    exit 1
fi
if [[ $(tail -c 16 truncated.pdf) == *%%EOF* ]]; then
    echo "make_fixtures: truncated.pdf still ends in %%EOF" >&2
    exit 1
fi

# What a reader should find in every file it ought to open.
openable=(classic_lf.pdf classic_crlf.pdf classic_cr.pdf xref19.pdf
    bad_startxref.pdf bad_xref_offsets.pdf size_small.pdf multi_revision.pdf
    prev_loop_self.pdf prev_loop_two.pdf hybrid.pdf xref_stream.pdf base.pdf
    pagetree_deep.pdf pagetree_count.pdf pagetree_cycle.pdf
    pagetree_inherit.pdf dests_catalog.pdf dests_nametree.pdf dests_both.pdf
    outline.pdf rc4_40_empty.pdf rc4_40_user.pdf rc4_128_empty.pdf
    rc4_128_user.pdf rc4_128_objstm.pdf rc4_40_objstm_user.pdf)
$py make_expected.py expected.json "${openable[@]}"
echo "make_fixtures: done"
