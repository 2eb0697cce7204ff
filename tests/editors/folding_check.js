// Checks the folding markers of the VS Code language configuration on every example of
// docs/language.md and every program of examples/: in each, the markers pair up (no end
// before its start, none left open), and every section of the program folds.
//
//   node folding_check.js LANGUAGE_CONFIGURATION SOURCE_DIR
'use strict';

const fs = require('fs');
const { examplesOf } = require('./sources');

const [configFile, sourceDir] = process.argv.slice(2);
const config = JSON.parse(fs.readFileSync(configFile, 'utf8'));
const start = new RegExp(config.folding.markers.start);
const end = new RegExp(config.folding.markers.end);
const sectionStart = /^(procedure|proc|menu|screen|api)\b/i;

const failures = [];
let folds = 0;
for (const { name, text } of examplesOf(sourceDir)) {
  const open = [];
  text.split('\n').forEach((line, i) => {
    if (start.test(line)) open.push(i + 1);
    else if (end.test(line)) {
      if (open.length === 0) failures.push(`${name}, line ${i + 1}: an end marker without a start`);
      else open.pop();
      ++folds;
    }
    if (sectionStart.test(line) && !start.test(line)) failures.push(`${name}, line ${i + 1}: a section that does not fold`);
  });
  for (const line of open) failures.push(`${name}, line ${line}: a start marker never ended`);
}
for (const f of failures) console.log(f);
console.log(`folding: ${folds} folds over the examples; ${failures.length} failed`);
process.exit(failures.length ? 1 : 0);
