#!/bin/sh
# vsix.sh EXTENSION_DIR STAGE_DIR: packages the VS Code extension with the vsce installed in
# STAGE_DIR (tests/support/npm_install.sh), offline: the extension's files are copied over the stage, "npx vsce
# package" writes the .vsix there, and the package is read back to check that it holds the
# grammar, the manifest, the client and the language configuration.
set -eu
src=$1
stage=$2
for f in package.json extension.js language-configuration.json README.md LICENSE .vscodeignore; do
  cp "$src/$f" "$stage/$f"
done
mkdir -p "$stage/syntaxes"
cp "$src/syntaxes/tavrin.tmLanguage.json" "$stage/syntaxes/"
cd "$stage"
# The client is plain JavaScript run as it is: it must parse, and what it requires must be there.
node --check extension.js
node -e 'require.resolve("vscode-languageclient/node")'
rm -f tavrin-4gl.vsix
# --no-install: only the vsce of the lock, never one fetched now. No terminal: vsce asks nothing.
npx --no-install vsce package --allow-missing-repository --out tavrin-4gl.vsix </dev/null
node -e '
const yauzl = require("yauzl");
const want = ["extension/package.json", "extension/extension.js", "extension/language-configuration.json",
  "extension/syntaxes/tavrin.tmLanguage.json", "extension/node_modules/vscode-languageclient/package.json",
  "extension.vsixmanifest"];
yauzl.open("tavrin-4gl.vsix", { lazyEntries: false }, (err, zip) => {
  if (err) { console.error("cannot read the package: " + err.message); process.exit(1); }
  const seen = new Set();
  zip.on("entry", (e) => seen.add(e.fileName));
  zip.on("end", () => {
    const missing = want.filter((f) => !seen.has(f));
    const extra = [...seen].filter((f) => f.includes("node_modules/@vscode/vsce/"));
    if (missing.length || extra.length) {
      console.error("the package lacks " + missing.join(", ") + (extra.length ? "; it holds vsce itself" : ""));
      process.exit(1);
    }
    console.log("tavrin-4gl.vsix: " + seen.size + " entries, the grammar, manifest, client and configuration among them");
  });
});'
