#!/usr/bin/env bash
# Installs the Debian 12 packages KPPDF needs to build, test and benchmark; only what is missing.
#   tools/setup-debian.sh [--bench]
# --bench also installs the documentation packages whose large manuals bench/compare.sh reads.
set -euo pipefail
packages=(
    g++ cmake ninja-build pkg-config git
    zlib1g-dev libssl-dev uuid-dev libjpeg-dev libstb-dev
    libgtest-dev libgmock-dev libbenchmark-dev libcli11-dev nlohmann-json3-dev
    python3 python3-reportlab python3-fonttools python3-pikepdf fonts-urw-base35 poppler-data
    qpdf poppler-utils mupdf-tools
)
if [ "${1:-}" = "--bench" ]; then
    packages+=(r-doc-pdf texlive-latex-base-doc texlive-pictures-doc time)
fi
missing=()
for p in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -eq 0 ]; then
    exit 0
fi
echo "Installing: ${missing[*]}" >&2
sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo"
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
