#!/usr/bin/env bash
# Compile benchmark: tavcmp against GNU cpp and `wc -w` over the same files, in the same run.
#
#   bench/run.sh <build-dir> [sizes...]
#
# Configures <build-dir> as an optimised build with -DTAV_BENCH=ON, builds the product and the
# generator (-j2), and prints one Markdown table. Each figure is the median wall time of
# $TAV_BENCH_REPS runs (default 5), taken with the shell's microsecond clock. Rows:
#   - one generated program per size (default: 50000 lines, the largest round size that fits
#     the op space);
#   - 200 small generated programs compiled in one tavcmp run (cpp runs once per file);
#   - the programs of examples/, with their dictionary when examples/ holds a schema (*.sch);
#   - 20 programs naming 200 objects of a generated dictionary (500 objects, 5000 fields), and
#     the same 20 programs defining those objects themselves;
#   - the 20 programs registered with -p in that dictionary, and in the same dictionary on a
#     PostgreSQL server the script starts (and stops).
# "tavpp" is the preprocessor alone over the same files, one run per file as the compiler starts
# it; "compile" is the tavcmp run less that time: tokenizing, parsing and writing the tables.
# A run that fails shows "failed" and its first message instead of figures.
# Add "gbench" as the only size to run the Google Benchmark targets instead.
set -euo pipefail
export LC_ALL=C

[ $# -ge 1 ] || { echo "usage: $0 <build-dir> [sizes...|gbench]" >&2; exit 2; }
build=$1
shift
src=$(cd "$(dirname "$0")/.." && pwd)
reps=${TAV_BENCH_REPS:-5}

cmake -S "$src" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DTAV_BENCH=ON >/dev/null
ninja -C "$build" -j2 tavcmp tavpp tavdict tavls tav-gen-program bench_compile tavls_edits >/dev/null

product=$build/tavrin
tavcmp=$product/bin/tavcmp
tavpp=$product/bin/tavpp
gen=$build/bench/tav-gen-program

if [ "${1:-}" = gbench ]; then
  exec "$build/bench/bench_compile"
fi
sizes=${*:-50000}

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT INT TERM

# median_us <command...>: runs the command $reps times and prints the median wall time in
# microseconds; fails when any run fails.
median_us() {
  local times=() i start end
  for ((i = 0; i < reps; i++)); do
    start=${EPOCHREALTIME/./}
    "$@" >/dev/null 2>&1 || return 1
    end=${EPOCHREALTIME/./}
    times+=($((end - start)))
  done
  printf '%s\n' "${times[@]}" | sort -n | awk '{ t[NR] = $1 } END { print t[int((NR + 1) / 2)] }'
}

# The references and the preprocessor alone, one run per file.
cpp_each() { local f; for f in "$@"; do cpp "$f" "$work/cpp.out" || return 1; done; }
tavpp_each() { local f; for f in "$@"; do "$tavpp" "-o$work/pp.err" "$f" "$work/pp.out" || return 1; done; }
wc_all() { wc -w "$@"; }
# tavcmp with the options in $opts; the tables go to $work/out.
opts=-n
tavcmp_run() {
  # shellcheck disable=SC2086
  TAVRIN=$product ERQ="$work/out" "$tavcmp" -l $opts -o "$work/out" "$@"
}

printf '| run | lines | files | tavcmp ms | ÷ cpp | ÷ wc -w | compile ms | ÷ cpp | ÷ wc -w | compile lines/s | tavpp ms | cpp ms | wc -w ms | peak kB |\n'
printf '|---|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|\n'

# row <label> <lines> <source...>: one table row.
row() {
  local label=$1 lines=$2
  shift 2
  local files=$#
  rm -rf "$work/out" && mkdir "$work/out"
  local status=0
  tavcmp_run "$@" >"$work/log" 2>&1 || status=$?
  # The exit status is the first error's number, which a status byte may not show: the
  # summary's error count decides too.
  if [ "$status" -ne 0 ] || grep -q 'Errors found = [1-9]' "$work/log"; then
    local why
    why=$(grep -m 1 -i 'error\|exceeded\|cannot\|can.t' "$work/log" | tr -s ' |' ' /' | cut -c 1-100 || true)
    printf '| %s | %d | %d | failed (status %d): %s |\n' "$label" "$lines" "$files" "$status" "$why"
    return
  fi
  local t p c w peak
  t=$(median_us tavcmp_run "$@")
  p=$(median_us tavpp_each "$@")
  c=$(median_us cpp_each "$@")
  w=$(median_us wc_all "$@")
  # shellcheck disable=SC2086
  TAVRIN=$product ERQ="$work/out" /usr/bin/time -f '%M' -o "$work/peak" "$tavcmp" -l $opts -o "$work/out" "$@" >/dev/null 2>&1
  peak=$(tail -n 1 "$work/peak")
  awk -v l="$label" -v n="$lines" -v f="$files" -v t="$t" -v p="$p" -v c="$c" -v w="$w" -v m="$peak" 'BEGIN {
    k = t - p; if (k < 1) k = 1
    printf "| %s | %d | %d | %.3f | %.2f | %.1f | %.3f | %.2f | %.1f | %.0f | %.3f | %.3f | %.3f | %d |\n",
      l, n, f, t / 1000, t / c, t / w, k / 1000, k / c, k / w, n / (k / 1e6), p / 1000, c / 1000, w / 1000, m }'
}

for n in $sizes; do
  lines=$("$gen" --lines "$n" "$work/p$n.spl")
  row "one file" "$lines" "$work/p$n.spl"
done

mkdir "$work/small"
lines=$("$gen" --lines 200 --files 200 "$work/small")
row "200 small files, one run" "$lines" "$work"/small/*.spl

# The bundled example, with its dictionary when it has one.
examples=("$src"/examples/*.spl)
lines=$(cat "${examples[@]}" | wc -l)
schemas=("$src"/examples/*.sch)
if [ -e "${schemas[0]}" ]; then
  "$product/bin/tavdict" load "$work/example-dict/" "${schemas[@]}" >/dev/null
  opts="-g $work/example-dict/"
  row "examples/ with its dictionary" "$lines" "${examples[@]}"
  opts=-n
else
  row "examples/" "$lines" "${examples[@]}"
fi

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
row "dictionary: 20 programs naming 200 objects" "$named" "$work"/named/*.spl
opts=-n
row "the same 20 programs defining them" "$defined" "$work"/defined/*.spl

# The same 20 programs registered with -p: in the SQLite dictionary, and in the same dictionary
# loaded into a PostgreSQL server of the script's own (initdb in $work, a Unix socket there, as
# user postgres when run as root), stopped at the end.
opts="-g $work/dict/ -p bench"
row "dictionary, -p: SQLite" "$named" "$work"/named/*.spl
pg_bin=$(ls -d /usr/lib/postgresql/*/bin 2>/dev/null | sort -V | tail -n 1 || true)
as_pg() { if [ "$(id -u)" = 0 ]; then runuser -u postgres -- "$@"; else "$@"; fi; }
if [ -n "$pg_bin" ] && [ -x "$pg_bin/initdb" ]; then
  chmod 755 "$work"
  mkdir "$work/pg"
  [ "$(id -u)" = 0 ] && chown postgres "$work/pg"
  as_pg "$pg_bin/initdb" -D "$work/pg/data" -U tav -A trust -E SQL_ASCII --locale=C --no-sync >/dev/null
  as_pg "$pg_bin/pg_ctl" -D "$work/pg/data" -l "$work/pg/log" -w \
    -o "-c listen_addresses='' -k $work/pg -p 5499 -c fsync=off" start >/dev/null
  trap 'as_pg "$pg_bin/pg_ctl" -D "$work/pg/data" -m immediate stop >/dev/null 2>&1; rm -rf "$work"' EXIT INT TERM
  echo "bench host=$work/pg port=5499 dbname=postgres user=tav" >"$work/servers"
  export TAVSERVERS=$work/servers
  "$product/bin/tavdict" load bench:dict "$work/shop.sch" >/dev/null
  opts="-g bench:dict -p bench"
  row "dictionary, -p: PostgreSQL (local socket)" "$named" "$work"/named/*.spl
  unset TAVSERVERS
else
  printf '| dictionary, -p: PostgreSQL | %d | 20 | no server programs (the postgresql package) |\n' "$named"
fi
opts=-n
echo
echo "Medians of $reps runs; ÷ is tavcmp's time over the reference's on the same files."

# The language server: one-character edits of a 10,000-line program, each timed from the change
# sent to the diagnostics published for it; beside it, tavcmp -t with the json format on the
# same file (what one compile of the text costs without the server), median of $reps runs.
"$gen" --lines 10000 "$work/ls.spl" >/dev/null
json_run() { TAVRIN=$product "$tavcmp" -n -t --diagnostics-format=json "$work/ls.spl"; }
ref=$(median_us json_run)
echo
printf '| tavls | edits | median ms | 95th percentile ms | slowest ms | RSS after the first edit kB | after the last kB | ratio |\n'
printf '|---|---:|---:|---:|---:|---:|---:|---:|\n'
(cd "$work" && TAVRIN=$product "$build/bench/tavls_edits" "$product/bin/tavls" "$product" ls.spl "${TAV_BENCH_EDITS:-1000}")
awk -v r="$ref" 'BEGIN { printf "\nReference: tavcmp -t --diagnostics-format=json on the same program, %.1f ms.\n", r / 1000 }'
