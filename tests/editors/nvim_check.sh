#!/bin/sh
# nvim_check.sh NVIM NVIM_SETUP_DIR: loads the Neovim setup of editors/nvim in a clean headless
# Neovim (no user configuration) and runs nvim_check.lua in it on files laid out in a temporary
# directory: a project with tavls.json, a repository with .git, a file under neither.
set -eu
nvim=$1
setup=$2
command -v "$nvim" >/dev/null 2>&1 || { echo "nvim is needed (Debian package neovim)" >&2; exit 1; }
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/proj/src" "$work/repo/.git" "$work/repo/a" "$work/loose"
echo '{"includeDirectories": ["inc"]}' > "$work/proj/tavls.json"
for f in proj/src/prog.spl repo/a/b.spl loose/c.spl; do printf 'procedure main\n  pause\nend\n' > "$work/$f"; done
echo notes > "$work/notes.txt"
"$nvim" --version | head -1
TAV_WORK=$work TAV_RESULT=$work/result.txt "$nvim" --headless --clean --cmd "set rtp^=$setup" \
  -c "luafile $(dirname "$0")/nvim_check.lua" </dev/null >"$work/nvim.out" 2>&1 || status=$?
result=$(cat "$work/result.txt" 2>/dev/null || echo "no result written")
if [ "${status:-0}" -ne 0 ] || [ "$result" != ok ]; then
  echo "Neovim setup: $result"
  cat "$work/nvim.out"
  exit 1
fi
echo "Neovim setup: loaded, filetype and root found"
