#!/bin/sh
# Compiles the seed programs of the whole-compile target, the bundled example and the programs
# beside this script into operations tables, the seeds of the targets that read tables.
#
#   seed_tables.sh PRODUCT-DIR SEED-DIR SOURCE-DIR OUT-DIR
set -eu
product=$1 seeds=$2 source=$3 out=$4
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$out"
rm -f "$out"/*.op6

# compile NAME FILE [OPTIONS]: a table that compiled without errors is kept as OUT-DIR/NAME.op6.
compile() {
  name=$1 file=$2
  shift 2
  cp "$file" "$work/$name.spl"
  (cd "$work" && TAVRIN=$product "$product/bin/tavcmp" -l -n "$@" "$name.spl" >/dev/null 2>&1) || true
  if [ -f "$work/$name.op6" ]; then mv "$work/$name.op6" "$out/$name.op6"; fi
}

for seed in "$seeds"/gen-*-0 "$seeds"/deep-0; do
  base=$(basename "$seed" -0)
  tail -c +2 "$seed" > "$work/src"
  compile "$base" "$work/src"
  compile "$base-debug" "$work/src" -d
done
compile orders "$source/examples/orders.spl" -d
for program in "$source"/tests/fuzz/seed_*.spl; do
  base=$(basename "$program" .spl)
  compile "$base" "$program"
  compile "$base-debug" "$program" -d
done
count=$(ls "$out" | wc -l)
[ "$count" -gt 0 ] || { echo "seed_tables.sh: no table compiled" >&2; exit 1; }
touch "$out.stamp"
