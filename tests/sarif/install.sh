#!/bin/sh
# install.sh SOURCE_DIR TOOLS_DIR: installs the packages of the SARIF schema check (package.json
# and its lock in SOURCE_DIR) into TOOLS_DIR with "npm ci", unless the same lock is installed
# there already.
set -eu
src=$1
dest=$2
if [ -d "$dest/node_modules" ] && cmp -s "$src/package-lock.json" "$dest/installed.lock"; then
  echo "SARIF schema check: packages already installed in $dest"
  exit 0
fi
command -v npm >/dev/null 2>&1 || { echo "SARIF schema check: npm is not installed" >&2; exit 1; }
mkdir -p "$dest"
rm -f "$dest/installed.lock"
cp "$src/package.json" "$src/package-lock.json" "$dest/"
(cd "$dest" && npm ci --ignore-scripts --no-audit --no-fund)
cp "$src/package-lock.json" "$dest/installed.lock"
