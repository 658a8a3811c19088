#!/usr/bin/env bash
# Writes kppdf/kppdf.h, the umbrella header that includes every public header.
#   bash tools/gen/make_umbrella.sh
set -euo pipefail
cd "$(dirname "$0")/../.."
{
    echo '// Every public header of KPPDF, for applications that include one header.'
    echo '#pragma once'
    echo
    for dir in platform objects document page imprints pathtext; do
        for h in $(ls kppdf/$dir/*.h 2>/dev/null | sort); do
            echo "#include \"$h\""
        done
    done
} > kppdf/kppdf.h
