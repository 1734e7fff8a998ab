#!/bin/sh
# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

# Makes what is installed from the readable sources: one script, one style sheet, the page, and a
# compressed copy of each beside it, which httpd sends to browsers that take it.
#
# Usage: build.sh OUTPUT_FOLDER
set -eu

sources=$(dirname "$0")
output=$1
mkdir -p "$output"

# In an order in which each module follows those that it imports. Names are unique across modules.
modules="format address api device expression reading lines boots download main"

# Without imports, exports, comments and indentation. No string or template holds such a line.
strip='/^import /d; s/^export //; s/^ *//; /^\/\//d; /^$/d'

{
    echo '(() => {"use strict";'
    for module in $modules; do
        case "$module" in
            # Imported as a whole, under the module's name.
            api | address)
                printf 'const %s = (() => {\n' "$module"
                sed -e "$strip" "$sources/$module.js"
                names=$(sed -n 's/^export \(async \)\{0,1\}\(function\|class\|const\) \([A-Za-z]*\).*/\3/p' \
                    "$sources/$module.js" | paste -s -d ,)
                printf 'return {%s};})();\n' "$names"
                sed -n -e 's/^import {\(.*\)} from ".\/'"$module"'.js";/\1/p' "$sources"/*.js |
                    tr -d ' ' | tr , '\n' | sort -u | paste -s -d , |
                    sed -e "s/.*/const {&} = $module;/" ;;
            *)
                sed -e "$strip" "$sources/$module.js" ;;
        esac
    done
    echo '})();'
} >"$output/page.js"

sed -e 's/^ *//' "$sources/style.css" |
    awk '/^\/\*/ { comment = 1 } !comment && NF { printf "%s%s", $0, (/[{},;]$/ ? "" : "\n") } /\*\/$/ { comment = 0 }' \
    >"$output/page.css"
sed -e 's/^ *//' "$sources/index.html" >"$output/index.html"

for file in page.js page.css index.html; do
    gzip -9 -n -c "$output/$file" >"$output/$file.gz"
done
