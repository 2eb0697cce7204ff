#!/bin/sh
# npm_install.sh SOURCE_DIR DEST_DIR: installs the npm packages pinned by SOURCE_DIR's package.json
# and package-lock.json into DEST_DIR with "npm ci", unless the same lock is installed there
# already (then nothing is fetched). Used for the SARIF schema check (tests/sarif), the grammar
# check (tests/editors) and the VS Code extension (editors/vscode: its client library, and vsce).
set -eu
src=$1
dest=$2
if [ -d "$dest/node_modules" ] && cmp -s "$src/package-lock.json" "$dest/installed.lock"; then
  echo "packages of $src already installed in $dest"
  exit 0
fi
command -v npm >/dev/null 2>&1 || { echo "npm is not installed (needed for the packages of $src)" >&2; exit 1; }
mkdir -p "$dest"
rm -f "$dest/installed.lock"
cp "$src/package.json" "$src/package-lock.json" "$dest/"
(cd "$dest" && npm ci --ignore-scripts --no-audit --no-fund)
cp "$src/package-lock.json" "$dest/installed.lock"
