// The declarations of the kit: the same as what it exports, documented, and strict.

import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import { describe, it } from 'node:test';

import ts from 'typescript';

import * as kit from '../../kit/index.js';
import { root } from './support/packed.js';
import { findings, programOf } from './support/type-check.js';

const sample = (name) => path.join(root, 'test', 'types', name);
const declarations = path.join(root, 'kit', 'index.d.ts');

describe('the declarations of the kit', () => {
  const program = programOf([declarations, sample('kit.mts'), sample('kit-refused.mts')], { from: root });
  const checker = program.getTypeChecker();
  const symbols = checker.getExportsOfModule(checker.getSymbolAtLocation(program.getSourceFile(declarations)));
  const isValue = ({ flags }) => (flags & ts.SymbolFlags.Value) !== 0;

  it('name what the kit exports and nothing else', () => {
    assert.deepEqual(symbols.filter(isValue).map(({ name }) => name).sort(), Object.keys(kit).sort());
  });

  it('tell what each function does', () => {
    const silent = symbols.filter(({ flags }) => (flags & ts.SymbolFlags.Function) !== 0)
      .filter((symbol) => ts.displayPartsToString(symbol.getDocumentationComment(checker)) === '').map(({ name }) => name);
    // Their type tells of both.
    assert.deepEqual(silent, ['ostrelCommands', 'dinoLiteCommands']);
  });

  it('accept what works and refuse what does not', () => {
    assert.deepEqual(findings(program), []);
    assert.equal(fs.readFileSync(sample('kit-refused.mts'), 'utf8').match(/@ts-expect-error/g).length, 17);
  });
});
