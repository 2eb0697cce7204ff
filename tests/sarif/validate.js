#!/usr/bin/env node
// Checks SARIF logs against the SARIF 2.1.0 schema: validate.js FILE...
// Prints each file's verdict and, for a file that fails, where and why; the exit status is 1
// when any file fails (unreadable, not JSON, or not a valid log), 2 when no file is named.
'use strict';

const fs = require('fs');
const path = require('path');
const Ajv = require('ajv-draft-04');
const addFormats = require('ajv-formats');

const schemaPath = path.join(path.dirname(require.resolve('@microsoft/jest-sarif/package.json')),
                             'lib', 'schemas', 'sarif-2.1.0-rtm.5.json');

function compileSchema() {
  // The schema's language-tag pattern is not valid with the Unicode flag; compile its patterns
  // without it, as the draft-04 validators it was written for did.
  const ajv = new Ajv({ allErrors: true, strict: false, unicodeRegExp: false });
  addFormats(ajv);
  return ajv.compile(JSON.parse(fs.readFileSync(schemaPath, 'utf8')));
}

// The problems of one file, empty when it is a valid log.
function problemsOf(file, validate) {
  let log;
  try {
    log = JSON.parse(fs.readFileSync(file, 'utf8'));
  } catch (e) {
    return [e.message];
  }
  if (validate(log)) return [];
  return validate.errors.map((e) => `${e.instancePath || '/'}: ${e.message}` +
                                    (e.params && Object.keys(e.params).length ? ` ${JSON.stringify(e.params)}` : ''));
}

function main(files) {
  if (files.length === 0) {
    console.error('usage: validate.js FILE...');
    return 2;
  }
  const validate = compileSchema();
  let failed = 0;
  for (const file of files) {
    const problems = problemsOf(file, validate);
    if (problems.length === 0) {
      console.log(`${file}: valid`);
      continue;
    }
    ++failed;
    console.log(`${file}: INVALID`);
    for (const p of problems.slice(0, 20)) console.log(`  ${p}`);
    if (problems.length > 20) console.log(`  ... and ${problems.length - 20} more`);
  }
  if (files.length > 1) console.log(`${files.length - failed} valid, ${failed} invalid`);
  return failed ? 1 : 0;
}

process.exitCode = main(process.argv.slice(2));
