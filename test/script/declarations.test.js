// The declarations of the native object: the same as what it exports, documented, and strict.

import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import { describe, it } from 'node:test';
import { fileURLToPath } from 'node:url';

import ts from 'typescript';

import { loadAddon } from './support/environment.js';
import { findings, programOf } from './support/type-check.js';

const root = fileURLToPath(new URL('../..', import.meta.url));
const declarations = path.join(root, 'index.d.ts');
const commonDeclarations = path.join(root, 'index.d.cts');
const sample = (name) => path.join(root, 'test', 'types', name);

const program = programOf([
  declarations, commonDeclarations, ...['module.mts', 'commonjs.cts', 'refused.mts'].map(sample),
], { from: root });
const checker = program.getTypeChecker();
const exportsOf = (file) => checker.getExportsOfModule(checker.getSymbolAtLocation(program.getSourceFile(file)));

/** The members of the native object as declared: [{ name, kind, value, symbol }]. */
function declaredMembers() {
  const native = exportsOf(declarations).find(({ name }) => name === 'OstrelNative');
  return checker.getPropertiesOfType(checker.getDeclaredTypeOfSymbol(native)).map((symbol) => {
    const type = checker.getTypeOfSymbol(symbol);
    const kind = type.getCallSignatures().length > 0 ? 'function' : typeof type.value;
    return { name: symbol.name, kind, value: type.value, symbol, type };
  });
}

// What two environments at once could undo for one another; test/script/chaos.test.js calls these, too.
const oneEnvironmentAtATime = [
  'cameraRecordingStart', 'cameraRecordingStop', 'ostrelDispose', 'ostrelDisposeAsync', 'ostrelInit', 'ostrelInitAsync',
  'ostrelSelectDevice', 'ostrelSelectDeviceAsync',
];

const byName = (a, b) => (a.name < b.name ? -1 : 1);

describe('the declarations', () => {
  const members = declaredMembers();
  const functions = members.filter(({ kind }) => kind === 'function');

  it('name what the native object has, each with its kind, and nothing else', () => {
    const live = Object.entries(loadAddon()).map(([name, value]) => ({ name, kind: typeof value }));
    assert.deepEqual(members.map(({ name, kind }) => ({ name, kind })).sort(byName), live.sort(byName));
    assert.equal(functions.length, 95);
    assert.equal(members.length - functions.length, 16);
  });

  it('tell the values of the constants', () => {
    const addon = loadAddon();
    for (const { name, value } of members.filter(({ kind }) => kind === 'number')) {
      assert.equal(value, addon[name], name);
    }
  });

  it('tell of each function what it does, for how long it blocks, where it works and what becomes of the error text', () => {
    for (const { name, symbol } of functions) {
      const text = ts.displayPartsToString(symbol.getDocumentationComment(checker));
      const tags = symbol.getJsDocTags(checker).map((tag) => ts.displayPartsToString(tag.text)).join('\n');
      assert.match(text, /^\S[^]{15,}/, name);
      const lines = `${text}\n${tags}`.split('\n').filter((line) => /^- \w/.test(line)).map((line) => line.slice(2, line.indexOf(':')));
      assert.deepEqual(lines, ['Blocks', 'Thread', 'Error text'], name);
    }
  });

  it('say of each function whether any environment may call it beside others, or one at a time', () => {
    const words = (symbol) => /^- Thread: (any environment|one environment at a time)\b/m.exec(
      [ts.displayPartsToString(symbol.getDocumentationComment(checker)),
        ...symbol.getJsDocTags(checker).map((tag) => ts.displayPartsToString(tag.text))].join('\n'))?.[1];
    const named = (word) => functions.filter(({ symbol }) => words(symbol) === word).map(({ name }) => name).sort();
    assert.deepEqual(named(undefined), []);
    assert.deepEqual(named('one environment at a time'), oneEnvironmentAtATime);
    assert.equal(named('any environment').length, 95 - oneEnvironmentAtATime.length);
  });

  it('document parameters that exist, and every one that has a default', () => {
    for (const { name, symbol, type } of functions) {
      const [signature] = type.getCallSignatures();
      const parameters = signature.parameters.map((parameter) => parameter.name);
      const documented = symbol.getJsDocTags(checker)
        .filter((tag) => tag.name === 'param').map((tag) => tag.text[0].text);
      assert.deepEqual(documented.filter((one) => !parameters.includes(one)), [], name);
      const optional = signature.parameters.filter((parameter) =>
        parameter.valueDeclaration.questionToken && parameter.name !== 'deviceIndex').map((parameter) => parameter.name);
      assert.deepEqual(optional.filter((one) => !documented.includes(one)), [], name);
    }
  });

  it('tell of each constant and of each type what it is for', () => {
    const types = exportsOf(declarations).filter(({ name }) => name !== 'default');
    const constants = members.filter(({ kind }) => kind === 'number').map(({ symbol }) => symbol);
    for (const symbol of [...types, ...constants]) {
      const whole = symbol.flags & ts.SymbolFlags.Alias ? checker.getAliasedSymbol(symbol) : symbol;
      assert.notEqual(ts.displayPartsToString(whole.getDocumentationComment(checker)), '', symbol.name);
    }
  });

  it('give CommonJS the same types', () => {
    const names = (file) => exportsOf(file).map(({ name }) => name).filter((name) => name !== 'default').sort();
    assert.deepEqual(names(commonDeclarations), names(declarations));
  });
});

describe('type checks', () => {
  it('accept what works, in a module and in CommonJS, and refuse what does not', () => {
    assert.deepEqual(findings(program), []);
    const refused = fs.readFileSync(sample('refused.mts'), 'utf8').match(/@ts-expect-error/g);
    assert.equal(refused.length, 16);
  });

  it('need no types of Node.js', () => {
    assert.deepEqual(findings(programOf([sample('without-node.mts')], { from: root, types: [] })), []);
  });
});
