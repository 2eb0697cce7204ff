// The TAVRIN-4GL sources the editor checks read: every ```spl example of docs/language.md and
// every program of examples/, as { name, text }.
'use strict';

const fs = require('fs');
const path = require('path');

function examplesOf(sourceDir) {
  const sources = [];
  const doc = fs.readFileSync(path.join(sourceDir, 'docs', 'language.md'), 'utf8');
  const block = /^```spl\n([\s\S]*?)^```$/gm;
  for (let m, n = 1; (m = block.exec(doc)) !== null; ++n) sources.push({ name: `docs/language.md example ${n}`, text: m[1] });
  if (sources.length === 0) throw new Error('docs/language.md: no ```spl example found');
  const dir = path.join(sourceDir, 'examples');
  for (const file of fs.readdirSync(dir).filter((f) => f.endsWith('.spl')).sort())
    sources.push({ name: `examples/${file}`, text: fs.readFileSync(path.join(dir, file), 'utf8') });
  return sources;
}

module.exports = { examplesOf };
