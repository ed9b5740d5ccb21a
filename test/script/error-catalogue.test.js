// docs/errors.md: every text of the sources, the loader and the kit is in it, and no other.

import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import { describe, it } from 'node:test';

import { sourceFiles } from '../../scripts/lib/source-files.js';
import { root } from './support/packed.js';
import { errorTextsOf } from './support/script-errors.js';

const catalogue = fs.readFileSync(path.join(root, 'docs', 'errors.md'), 'utf8');
const loader = fs.readFileSync(path.join(root, 'lib', 'load-native.cjs'), 'utf8');

/** The string literals of C++ text, comments, includes and #error lines aside; neighbours are one. */
function cppLiterals(text) {
  const code = text.replace(/^\s*#\s*(include|error)\b.*$/gm, '');
  const tokens = code.matchAll(/\/\/.*|\/\*[^]*?\*\/|'(?:\\.|[^'\\])'|"((?:\\.|[^"\\])*)"/g);
  const literals = [];
  let end = -1;
  for (const { 0: token, 1: literal, index } of tokens) {
    if (literal === undefined) {
      continue;
    }
    const value = literal.replace(/\\(.)/g, (_, character) => (character === 'n' ? '\n' : character));
    if (end >= 0 && code.slice(end, index).trim() === '') {
      literals.push(literals.pop() + value);
    } else {
      literals.push(value);
    }
    end = index + token.length;
  }
  return literals;
}

const files = sourceFiles(['src/*.cpp', 'src/*.h']);
const literals = [...new Set(files.flatMap((file) => cppLiterals(fs.readFileSync(file, 'utf8'))))].filter(Boolean);
// What is said to people has words; names of symbols, files and keys are one, as is one token.
const isWords = (literal) => /[A-Za-z]{2}.* |^ .*[A-Za-z]{2}/.test(literal) || literal === 'LOCK_FILE_EXISTS';

const [nativeHalf, kitHalf] = catalogue.split(/^## The kit$/m);

/** The texts in the tables of a part of the catalogue, codes of the loader aside. */
const textsIn = (part) => [...part.matchAll(/^\| (?:`(?!OSTREL_)([^`]+)`|`` (.+?) ``) \|/gm)].map(([, plain, quoted]) => plain ?? quoted);
const rows = textsIn(nativeHalf).map((text) => ({ text, pieces: text.split(/<[^>]+>/).filter((piece) => piece !== '') }));
const loaderRows = [...catalogue.matchAll(/^\| `(OSTREL_[A-Z_]+)` \| `([^`]+)` \|/gm)]
  .map(([, code, text]) => ({ code, text }));
const said = ['error <number>'];

/** Whether `text` is a row of the sources' literals, one behind the other. */
function isTiled(text) {
  const reachable = [true, ...Array(text.length).fill(false)];
  for (let at = 0; at < text.length; at += 1) {
    for (const literal of reachable[at] ? literals : []) {
      if (text.startsWith(literal, at)) {
        reachable[at + literal.length] = true;
      }
    }
  }
  return reachable.at(-1);
}

describe('the catalogue of errors', () => {
  it('has every text of the sources', () => {
    const everything = [...rows.map(({ text }) => text), ...said].join('\n');
    const missing = literals.filter((literal) => isWords(literal) && !everything.includes(literal));
    assert.deepEqual(missing, []);
    assert.ok(literals.filter(isWords).length > 90);
  });

  it('has no text but those of the sources', () => {
    const foreign = rows.filter(({ pieces }) => !pieces.every(isTiled)).map(({ text }) => text);
    assert.deepEqual(foreign, []);
    assert.ok(rows.length > 90);
  });

  it('has each text once', () => {
    const texts = textsIn(catalogue);
    assert.deepEqual(texts.filter((text, index) => texts.indexOf(text) !== index), []);
  });

  it('has a cause and a cure for each text', () => {
    const lines = catalogue.split('\n').filter((line) => line.startsWith('| `'));
    const cells = (line) => line.slice(1, -1).split(' | ').map((cell) => cell.trim());
    assert.deepEqual(lines.filter((line) => cells(line).some((cell) => cell.length < 5)), []);
    assert.deepEqual(lines.filter((line) => cells(line).length !== (line.startsWith('| `OSTREL_') ? 4 : 3)), []);
  });

  it('has every text of the kit, and no other', () => {
    const made = new Set(sourceFiles(['kit/*.js']).flatMap(errorTextsOf));
    // A size that is refused begins in one place and goes on in two.
    const told = textsIn(kitHalf).map((text) => text.replace(/^The preview is .*?, and /, '<>, and ').replace(/<[^>]+>/g, '<>'));
    assert.deepEqual(told.sort(), [...made].sort());
  });

  it("has every code of the package's loader with its words, and no other", () => {
    const faults = [...loader.matchAll(/code: '(OSTREL_[A-Z_]+)',\s*what: (.*),\n/g)].map(([, code, words]) => ({
      code,
      // The expression's own pieces, without what is put in between.
      pieces: [...words.matchAll(/"([^"]*)"|'([^']*)'/g)].map(([, double, single]) => double ?? single),
    }));
    assert.deepEqual(loaderRows.map(({ code }) => code).sort(), faults.map(({ code }) => code).sort());
    for (const { code, text } of loaderRows) {
      const { pieces } = faults.find((fault) => fault.code === code);
      const rest = pieces.reduce((left, piece) => {
        assert.ok(left.includes(piece), `${code}: ${piece}`);
        return left.slice(left.indexOf(piece) + piece.length);
      }, text);
      assert.match(rest, /^(<\w+>)?\.$|^8.*\.$|^\.$/, code);
      assert.ok(text.startsWith('ostrel-native could not be loaded: '), code);
    }
  });
});
