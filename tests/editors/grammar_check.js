// Checks the TextMate grammar with the tokenizer VS Code colours with (vscode-textmate over
// vscode-oniguruma) against the compiler's own tokenizer (token_dump): in every example of
// docs/language.md, every program of examples/, and lines made from every row of the keyword
// table, each token the compiler reads gets the scope of its kind, whole:
//   - a keyword the scope of its first class bit (section, statement, clause, function, other
//     word), an operator keyword.operator, a bracket punctuation;
//   - a name no scope at all, so that CUST-PRINT is never coloured as PRINT;
//   - a literal a string scope, a number constant.numeric;
// and "//" where the compiler begins a comment is a comment to the end of the line, a line
// beginning with "#" a preprocessor line. Every row of the table, written alone on a line as
// the table writes it, gets the scope of its class bits.
//
//   node grammar_check.js GRAMMAR TOKEN_DUMP SOURCE_DIR SCRATCH_DIR
'use strict';

const fs = require('fs');
const path = require('path');
const { execFileSync } = require('child_process');
const vsctm = require('vscode-textmate');
const oniguruma = require('vscode-oniguruma');
const { examplesOf } = require('./sources');

const [grammarFile, tokenDump, sourceDir, scratch] = process.argv.slice(2);
const failures = [];
let checked = 0;

function fail(where, what) {
  failures.push(`${where}: ${what}`);
}

async function loadGrammar() {
  const wasm = fs.readFileSync(require.resolve('vscode-oniguruma/release/onig.wasm')).buffer;
  await oniguruma.loadWASM(wasm);
  const registry = new vsctm.Registry({
    onigLib: Promise.resolve({
      createOnigScanner: (patterns) => new oniguruma.OnigScanner(patterns),
      createOnigString: (s) => new oniguruma.OnigString(s),
    }),
    loadGrammar: async (scope) =>
      scope === 'source.tavrin' ? vsctm.parseRawGrammar(fs.readFileSync(grammarFile, 'utf8'), grammarFile) : null,
  });
  return registry.loadGrammar('source.tavrin');
}

// What a keyword of the table is coloured as, from its row.
function keywordScope(name, code) {
  if (!/[a-z]/i.test(name)) {
    if ('()[]{}'.includes(name)) return 'punctuation.section.brackets.tavrin';
    if (name === ',') return 'punctuation.separator.tavrin';
    return 'keyword.operator.tavrin';
  }
  if (code & 0x40000000) return 'keyword.control.section.tavrin';
  if (code & 0x20000000) return 'keyword.control.tavrin';
  if (code & 0x10000000) return 'keyword.other.clause.tavrin';
  if (code & 0x08000000) return 'support.function.tavrin';
  return 'keyword.other.tavrin';
}

function tokenizeLines(grammar, lines) {
  let state = vsctm.INITIAL;
  return lines.map((line) => {
    const r = grammar.tokenizeLine(line, state);
    state = r.ruleStack;
    return r.tokens;
  });
}

function compilerTokens(name, text) {
  const file = path.join(scratch, name.replace(/[^A-Za-z0-9.]+/g, '_') + '.spl');
  fs.writeFileSync(file, text);
  return execFileSync(tokenDump, [file], { encoding: 'utf8', maxBuffer: 64 << 20 })
    .split('\n')
    .filter((l) => l !== '')
    .map((l) => {
      const [line, column, end, cls, ...rest] = l.split('\t');
      const [kind, code] = cls.split(' ');
      return { line: +line, column: +column, end: +end, kind, code: parseInt(code || '0', 16), text: rest.join('\t') };
    });
}

// UTF-16 index of each character column (from 1) of a line.
function columnIndex(line) {
  const index = [0];
  let i = 0;
  for (const ch of line) index.push((i += ch.length));
  return (column) => index[Math.min(column - 1, index.length - 1)];
}

function scopesOver(tokens, start, end) {
  return tokens.filter((t) => t.startIndex < end && t.endIndex > start);
}

function expectScope(where, over, start, end, test, what) {
  ++checked;
  if (over.length === 0 || over[0].startIndex !== start || over[over.length - 1].endIndex !== end) {
    fail(where, `${what}: not one whole token (${over.map((t) => `${t.startIndex}-${t.endIndex}`).join(' ')})`);
    return;
  }
  const bad = over.find((t) => !test(t.scopes.slice(1)));
  if (bad) fail(where, `${what}: scoped ${JSON.stringify(bad.scopes.slice(1))}`);
}

function checkToken(where, tok, tokens, at) {
  const start = at(tok.column);
  const end = at(tok.end);
  const over = scopesOver(tokens, start, end);
  const what = `${tok.kind} '${tok.text}'`;
  if (tok.kind === 'keyword') {
    const scope = keywordScope(tok.text, tok.code);
    expectScope(where, over, start, end, (s) => s.length === 1 && s[0] === scope, `${what} should be ${scope}`);
  } else if (tok.kind === 'name') {
    expectScope(where, over, start, end, (s) => s.length === 0, `${what} should have no scope`);
  } else if (tok.kind === 'alpha') {
    if (tok.text === '') return;  // a parameter reference, refused by the compiler
    expectScope(where, over, start, end, (s) => s.length === 1 && s[0].startsWith('string.quoted.'), `${what} should be a string`);
  } else if (tok.kind === 'numeric') {
    expectScope(where, over, start, end, (s) => s.length === 1 && s[0] === 'constant.numeric.tavrin', `${what} should be a number`);
  }
}

// After the last token of a line, "//" (past blanks and separators) begins a comment.
function checkComment(where, line, tokens, from) {
  const rest = line.slice(from);
  const skip = rest.search(/[^ \t;,]/);
  if (skip < 0 || !rest.startsWith('//', skip)) return;
  const start = from + skip;
  expectScope(where, scopesOver(tokens, start, line.length), start, line.length,
    (s) => s.length === 1 && s[0] === 'comment.line.double-slash.tavrin', `comment '${rest.slice(skip)}'`);
}

function checkSource(grammar, name, text) {
  const lines = text.split('\n');
  const scoped = tokenizeLines(grammar, lines);
  const byLine = new Map();
  for (const tok of compilerTokens(name, text)) {
    if (!byLine.has(tok.line)) byLine.set(tok.line, []);
    byLine.get(tok.line).push(tok);
  }
  lines.forEach((line, i) => {
    const where = `${name}, line ${i + 1}`;
    if (line.startsWith('#')) {
      ++checked;
      if (!scoped[i].every((t) => t.scopes.includes('meta.preprocessor.tavrin'))) fail(where, 'not a preprocessor line');
      return;
    }
    const at = columnIndex(line);
    let last = 0;
    for (const tok of byLine.get(i + 1) || []) {
      checkToken(where, tok, scoped[i], at);
      last = Math.max(last, at(tok.end));
    }
    checkComment(where, line, scoped[i], last);
  });
}

function tableRows() {
  return execFileSync(tokenDump, ['--keywords'], { encoding: 'utf8' })
    .split('\n')
    .filter((l) => l !== '')
    .map((l) => {
      const [name, code] = l.split('\t');
      return { name, code: parseInt(code, 16), written: name.replace(/_/g, '-') };
    });
}

// Every row alone on a line, as written, in capitals and without its hyphens, and names that
// hold it: what the compiler reads of these is the truth the grammar is held to.
function keywordLines(rows) {
  const lines = [];
  for (const { written } of rows) {
    lines.push(written, written.toUpperCase(), `cust-${written}`, `${written}-x`);
    if (/[a-z]/.test(written)) lines.push(written.replace(/-/g, ''), `${written}2`);
  }
  return lines.join('\n') + '\n';
}

function checkRowsAlone(grammar, rows) {
  const scoped = tokenizeLines(grammar, rows.map((r) => r.written));
  rows.forEach((row, i) => {
    const scope = keywordScope(row.name, row.code);
    expectScope(`keyword table, row '${row.name}'`, scoped[i], 0, row.written.length,
      (s) => s.length === 1 && s[0] === scope, `'${row.written}' alone should be ${scope}`);
  });
}

// Lines where the word rules of the compiler are easy to get wrong.
const EDGE_LINES = `a//b // a comment, "not a string"
x=1 x = 1 qty*price qty * price a,b;c
'It''s' "Mixed Case"('a;b') 'x'y "it's" 'open
5'*' 3' ' x 2""" 12'ab'
END-IF End_If E-N-D-I-F endif endif- -endif end--if locked-folder-icon
cust-print print-x print2 reprint 1.50 -3 +5 .25 1.2.3 1- 007 9(5)v99 s9(7)v99 totals[m]
"abc"//after a literal
field @ 2,2 to @ 10,70 {x} $a
#include "defs.spl" // the definitions
#define LIMIT 10
#ifdef LIMIT
#endif
`;

async function main() {
  fs.mkdirSync(scratch, { recursive: true });
  const grammar = await loadGrammar();
  const sources = examplesOf(sourceDir);
  for (const { name, text } of sources) checkSource(grammar, name, text);
  const rows = tableRows();
  checkRowsAlone(grammar, rows);
  checkSource(grammar, 'keyword table words', keywordLines(rows));
  checkSource(grammar, 'edge lines', EDGE_LINES);
  for (const f of failures.slice(0, 60)) console.log(f);
  if (failures.length > 60) console.log(`... and ${failures.length - 60} more`);
  console.log(`grammar: ${checked} checks over ${sources.length} examples, ${rows.length} keyword rows and the edge lines; ${failures.length} failed`);
  process.exit(failures.length ? 1 : 0);
}

main().catch((err) => {
  console.error(err.stack || String(err));
  process.exit(1);
});
