#!/usr/bin/env bash
# The layer check: every #include "dir/file" in a layer's sources names a file of the same layer
# or of a layer below it. The layers and their order are the add_subdirectory lines of the top
# CMakeLists.txt between "# Layers begin" and "# Layers end", lowest first.
#
#   check.sh [TREE]        checks TREE (default: the tree this script is in)
#   check.sh --self-test   shows that an upward include fails the check and the tree passes
set -euo pipefail

check() {
  local tree=$1
  local layers=() dir bad=0
  mapfile -t layers < <(sed -n '/^# Layers begin/,/^# Layers end/s/^add_subdirectory(\([a-z_]*\)).*/\1/p' \
    "$tree/CMakeLists.txt")
  if [ "${#layers[@]}" -lt 2 ]; then
    echo "layer check: no layer list in $tree/CMakeLists.txt" >&2
    return 2
  fi
  local -A rank
  local i
  for i in "${!layers[@]}"; do rank[${layers[$i]}]=$i; done
  for dir in "${layers[@]}"; do
    [ -d "$tree/$dir" ] || continue
    while IFS=: read -r file line target; do
      local to=${target%%/*}
      [ -n "${rank[$to]+x}" ] || continue  # not a layer: the standard library, tests, tools
      if [ "${rank[$to]}" -gt "${rank[$dir]}" ]; then
        echo "${file#"$tree"/}:$line: includes $target, a layer above $dir/"
        bad=1
      fi
    done < <(grep -n -H -o '^#include "[a-z_]*/[^"]*"' "$tree/$dir"/*.h "$tree/$dir"/*.cc 2>/dev/null |
             sed 's/#include "\(.*\)"/\1/')
  done
  return $bad
}

self_test() {
  local here tree
  here=$(cd "$(dirname "$0")/../.." && pwd)
  tree=$(mktemp -d)
  trap 'rm -rf "$tree"' RETURN
  mkdir -p "$tree/low" "$tree/high"
  printf '# Layers begin\nadd_subdirectory(low)\nadd_subdirectory(high)\n# Layers end\n' >"$tree/CMakeLists.txt"
  printf '#include "low/a.h"\n' >"$tree/high/b.cc"
  printf '#pragma once\n' >"$tree/low/a.h"
  check "$tree" >/dev/null || { echo "self-test: a downward include was refused" >&2; return 1; }
  printf '#include "high/b.h"\n' >"$tree/low/a.cc"
  if check "$tree" >/dev/null; then
    echo "self-test: an upward include passed" >&2
    return 1
  fi
  check "$here"
}

case "${1:-}" in
  --self-test) self_test ;;
  "") check "$(cd "$(dirname "$0")/../.." && pwd)" ;;
  *) check "$1" ;;
esac
