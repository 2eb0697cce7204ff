#!/bin/sh
# Writes the SARIF log of each program of the corpus, and one of a run over all of them, into
# OUTDIR (from a copy of the corpus, so that the sources stay clean).
# Usage: corpus_sarif.sh PRODUCT_DIR CORPUS_DIR OUTDIR
set -eu
product=$1 corpus=$2 out=$3
rm -rf "$out" && mkdir -p "$out/work"
cp -R "$corpus"/. "$out/work/"
cd "$out/work"
for program in *.spl; do
  TAVRIN=$product "$product/bin/tavcmp" -n --diagnostics-format=sarif \
    --diagnostics-output="$out/${program%.spl}.sarif" "$program" || true
  test -s "$out/${program%.spl}.sarif" || { echo "no log for $program"; exit 1; }
done
TAVRIN=$product "$product/bin/tavcmp" -n --diagnostics-format=sarif --diagnostics-output="$out/all.sarif" ./*.spl || true
test -s "$out/all.sarif"
