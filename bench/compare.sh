#!/usr/bin/env bash
# Side-by-side timings of the kppdf command and its peers on large real PDF files, in one run.
#   bench/compare.sh [open|rewrite|decrypt|text|all] [KPPDF] [FILE...]
# KPPDF defaults to build/release/kppdf; the files default to the large manuals of Debian's
# r-doc-pdf, texlive-pictures-doc and texlive-latex-base-doc packages (tools/setup-debian.sh
# --bench installs them).
# Each command runs REPEAT times (default 3); the best wall time, its user CPU time and the peak
# memory (RSS) are shown, then each peer's time and memory divided by kppdf's (ratio > 1: kppdf
# is faster or smaller).
set -uo pipefail
task=${1:-all}
kppdf=${2:-build/release/kppdf}
shift $(( $# >= 2 ? 2 : $# ))
files=("$@")
if [ ${#files[@]} -eq 0 ]; then
    for f in /usr/share/R/doc/manual/fullrefman.pdf \
             /usr/share/doc/texlive-doc/generic/pgf/pgfmanual.pdf \
             /usr/share/doc/texlive-doc/latex/base/source2e.pdf \
             /usr/share/doc/texlive-doc/latex/l3kernel/source3.pdf; do
        [ -f "$f" ] && files+=("$f")
    done
fi
repeat=${REPEAT:-3}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# best "wall user rss" of repeat runs of a command line (wall to the millisecond: time's own
# %e has 10 ms steps, too coarse for the short runs of open)
measure() {
    local best=""
    for _ in $(seq "$repeat"); do
        local line start end
        start=$(date +%s%N)
        /usr/bin/time -o "$work/time" -f "%U %M" bash -c "$1" >/dev/null 2>&1
        end=$(date +%s%N)
        line="$(awk -v a="$start" -v b="$end" 'BEGIN{printf "%.3f", (b-a)/1e9}') $(tail -n 1 "$work/time")"
        if [ -z "$best" ] || awk -v a="$line" -v b="$best" 'BEGIN{split(a,x," ");split(b,y," ");exit !(x[1]<y[1])}'; then
            best=$line
        fi
    done
    echo "$best"
}

report() { # name, file, then pairs of label and command; the first pair is kppdf
    local name=$1 file=$2
    shift 2
    local base_time="" base_rss=""
    printf '%-8s %-22s' "$name" "$(basename "$file")"
    while [ $# -ge 2 ]; do
        local label=$1 command=$2
        shift 2
        read -r wall user rss <<<"$(measure "$command")"
        if [ -z "$base_time" ]; then
            base_time=$wall base_rss=$rss
            printf ' | %s %6.3fs %7.1fMB' "$label" "$wall" "$(awk -v r="$rss" 'BEGIN{print r/1024}')"
        else
            printf ' | %s %6.3fs (x%4.2f) %7.1fMB (x%4.2f)' "$label" "$wall" \
                "$(awk -v a="$wall" -v b="$base_time" 'BEGIN{print (b>0)?a/b:0}')" \
                "$(awk -v r="$rss" 'BEGIN{print r/1024}')" \
                "$(awk -v a="$rss" -v b="$base_rss" 'BEGIN{print (b>0)?a/b:0}')"
        fi
    done
    echo
}

for file in "${files[@]}"; do
    q=$(printf '%q' "$file")
    case $task in open|all)
        report open "$file" kppdf "$kppdf info $q" \
            qpdf "qpdf --show-npages $q" pdfinfo "pdfinfo -box -f 1 -l 100000 $q" \
            mutool "mutool pages $q" ;;
    esac
    case $task in rewrite|all)
        report rewrite "$file" kppdf "$kppdf save $q $work/k.pdf" \
            qpdf "qpdf $q $work/q.pdf" mutool "mutool clean $q $work/m.pdf" ;;
    esac
    case $task in decrypt|all)
        qpdf --allow-weak-crypto --encrypt "" owner 128 --use-aes=n -- "$file" "$work/enc.pdf" 2>/dev/null || { echo "decrypt: qpdf could not encrypt $file" >&2; continue; }
        report decrypt "$file" kppdf "$kppdf decrypt $work/enc.pdf $work/k.pdf" \
            qpdf "qpdf --decrypt $work/enc.pdf $work/q.pdf" \
            mutool "mutool clean -D $work/enc.pdf $work/m.pdf" ;;
    esac
    case $task in text|all)
        report text "$file" kppdf "$kppdf text $q" pdftotext "pdftotext $q -" \
            mutool "mutool draw -F txt -o - $q" ;;
    esac
done
