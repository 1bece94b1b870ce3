#!/usr/bin/env bash
# Runs fatool on a real job: a generated XML file of records is scanned, split into parts,
# joined again and compared with the original, then its records are rewritten in place.
#   tools/demo.sh [BUILD_DIR]      (default build/release; the program is BUILD_DIR/tools/fatool)
set -euo pipefail
build=${1:-build/release}
fatool="$build/tools/fatool"
[ -x "$fatool" ] || { echo "no $fatool: build with FA_BUILD_TOOLS=ON first" >&2; exit 2; }

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
records=${RECORDS:-100000}

echo "== generating $records records"
awk -v n="$records" 'BEGIN {
    print "<catalog>"
    for (i = 1; i <= n; i++)
        printf "  <rec id=\"%d\"><name>item %d</name><price>%d.%02d</price></rec>\n", i, i, i % 500, i % 100
    print "</catalog>"
}' >"$work/catalog.xml"
"$fatool" info "$work/catalog.xml"

echo "== scanning: first two records, then the count"
"$fatool" scan --limit 2 "$work/catalog.xml" '<rec>' '</rec>'
"$fatool" scan --count "$work/catalog.xml" '<rec>' '</rec>'

echo "== splitting into 1M parts, joining, comparing"
mkdir "$work/parts"
"$fatool" split --dir "$work/parts" "$work/catalog.xml" 1M | tail -n 2
"$fatool" join --dir "$work/parts" catalog.xml "$work/joined.xml"
"$fatool" compare "$work/catalog.xml" "$work/joined.xml"

echo "== replacing a tag everywhere, then blocks and an encoded block"
"$fatool" replace "$work/joined.xml" '<price>' '<cost>'
"$fatool" blocks "$work/joined.xml" 64K
"$fatool" block --encoding hex "$work/joined.xml" 16 0
"$fatool" compare "$work/catalog.xml" "$work/joined.xml" || echo "(expected: the rewritten copy differs)"
"$fatool" rmtree "$work/parts"
