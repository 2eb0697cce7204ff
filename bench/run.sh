#!/bin/sh
# Compile benchmark: throughput in source lines per second on generated programs of growing
# size, time per file over a run of many small files, and the compiler's peak memory.
#
#   bench/run.sh <build-dir> [sizes...]
#
# Configures <build-dir> as an optimised build with -DTAV_BENCH=ON, builds the compiler and the
# generator (-j2), and prints one table. Default sizes: 1000 10000 50000 100000 lines. Add
# "gbench" as the only size to run the Google Benchmark targets instead. The last two rows compare
# a program that names 200 objects of a generated dictionary (500 objects, 5000 fields) with the
# same program defining those objects itself.
set -eu

[ $# -ge 1 ] || { echo "usage: $0 <build-dir> [sizes...|gbench]" >&2; exit 2; }
build=$1
shift
src=$(cd "$(dirname "$0")/.." && pwd)

cmake -S "$src" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DTAV_BENCH=ON >/dev/null
ninja -C "$build" -j2 tavcmp tavpp tavdict tav-gen-program bench_compile >/dev/null

product=$build/tavrin
tavcmp=$product/bin/tavcmp
gen=$build/bench/tav-gen-program

if [ "${1:-}" = gbench ]; then
  exec "$build/bench/bench_compile"
fi
sizes=${*:-1000 10000 50000 100000}

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT INT TERM

# run_timed <label> <lines> <files> <source...>: one compiler run under /usr/bin/time, with the
# options in $opts (no dictionaries unless they say otherwise).
opts=-n
run_timed() {
  label=$1 lines=$2 files=$3
  shift 3
  # shellcheck disable=SC2086
  TAVRIN=$product /usr/bin/time -f '%e %M' -o "$work/time" "$tavcmp" -l $opts "$@" >"$work/out" 2>&1 || true
  read -r secs peak_kb <<EOF
$(tail -n 1 "$work/time")
EOF
  awk -v l="$label" -v n="$lines" -v f="$files" -v s="$secs" -v m="$peak_kb" 'BEGIN {
    s += 0; if (s <= 0) s = 0.001
    printf "%-18s %9d %6d %9.3f %12.0f %10.2f %9d\n", l, n, f, s, n / s, 1000 * s / f, m }'
}

printf "%-18s %9s %6s %9s %12s %10s %9s\n" run lines files seconds lines/s ms/file peak-kB
for n in $sizes; do
  lines=$("$gen" --lines "$n" "$work/p$n.spl")
  run_timed "one file" "$lines" 1 "$work/p$n.spl"
  if grep -q "Exceeded maximum operations table limit" "$work/out"; then
    echo "  ($n lines: the op space is full; larger sizes stop here)"
    break
  fi
done

mkdir "$work/small"
lines=$("$gen" --lines 200 --files 200 "$work/small")
run_timed "200 small files" "$lines" 200 "$work"/small/*.spl

# Dictionary loading: the same 20 programs against the dictionary, and defining the objects.
"$gen" --schema 500 5000 "$work/shop.sch" >/dev/null
"$product/bin/tavdict" load "$work/dict/" "$work/shop.sch" >/dev/null
mkdir "$work/named" "$work/defined"
named=0 defined=0
for i in $(seq 1 20); do
  named=$((named + $("$gen" --object-program 500 5000 200 "$work/named/p$i.spl")))
  defined=$((defined + $("$gen" --object-program 500 5000 200 --defining "$work/defined/p$i.spl")))
done
opts="-g $work/dict/"
run_timed "dict: 200 objects" "$named" 20 "$work"/named/*.spl
opts=-n
run_timed "defined in program" "$defined" 20 "$work"/defined/*.spl
