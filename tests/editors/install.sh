#!/bin/sh
# install.sh SOURCE_DIR DEST_DIR: installs the npm packages pinned by SOURCE_DIR's package.json
# and package-lock.json into DEST_DIR with "npm ci", unless the same lock is installed there
# already (then nothing is fetched). Used for the grammar check's packages (tests/editors) and
# for the VS Code extension's (editors/vscode: its client library, and vsce to package it).
set -eu
src=$1
dest=$2
if [ -d "$dest/node_modules" ] && cmp -s "$src/package-lock.json" "$dest/installed.lock"; then
  echo "editor checks: packages of $src already installed in $dest"
  exit 0
fi
command -v npm >/dev/null 2>&1 || { echo "editor checks: npm is not installed" >&2; exit 1; }
mkdir -p "$dest"
rm -f "$dest/installed.lock"
cp "$src/package.json" "$src/package-lock.json" "$dest/"
(cd "$dest" && npm ci --ignore-scripts --no-audit --no-fund)
cp "$src/package-lock.json" "$dest/installed.lock"
