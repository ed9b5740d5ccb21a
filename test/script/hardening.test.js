// What the file of the release build says of itself: bound and read-only tables, checked stacks and buffers, no
// memory to write code into, and its symbols in a file of their own.

import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import { describe, it } from 'node:test';

import { addonPath, fakePath, skipUnderSanitizer, toolEnvironment } from './support/environment.js';
import { root } from './support/packed.js';

const debugPath = `${addonPath}.debug`;

function readElf(options, file = addonPath) {
  const { status, stdout, stderr } = spawnSync('readelf', ['-W', ...options, file], { env: toolEnvironment, encoding: 'utf8' });
  assert.deepEqual([status, stderr], [0, ''], options.join());
  return stdout;
}

/** The program headers: [{ type, flags }], flags such as "RW". */
const segments = () => [...readElf(['-l']).matchAll(/^ {2}([A-Z_]+) +0x\S+ 0x\S+ 0x\S+ 0x\S+ 0x\S+ ([RWE ]{3}) 0x/gm)]
  .map(([, type, flags]) => ({ type, flags: flags.replaceAll(' ', '') }));
const dynamic = (tag) => [...readElf(['-d']).matchAll(/^ *0x\S+ +\((\w+)\) +(.*)$/gm)]
  .filter(([, name]) => name === tag).map(([, , value]) => value);
const sections = (file) => [...readElf(['-S'], file).matchAll(/^ +\[ *\d+\] (\.\S+) +(\w+)/gm)]
  .map(([, name, type]) => ({ name, type }));
const imports = () => [...readElf(['--dyn-syms']).matchAll(/ UND (\w+)/g)].map(([, name]) => name);
const buildId = (file) => /Build ID: ([0-9a-f]{40})/.exec(readElf(['-n'], file))?.[1];

describe('the release binary', { skip: skipUnderSanitizer('the sanitizer builds are not hardened') }, () => {
  it('has all its symbols bound when it is loaded, and what that filled in is read-only from then on', () => {
    assert.match(dynamic('FLAGS').join(), /\bBIND_NOW\b/);
    assert.match(dynamic('FLAGS_1').join(), /\bNOW\b/);
    assert.deepEqual(segments().filter(({ type }) => type === 'GNU_RELRO'), [{ type: 'GNU_RELRO', flags: 'R' }]);
    // A table of its own would stay writable for the binding at the first call.
    assert.ok(!sections().some(({ name }) => name === '.got.plt'));
  });

  it('has no memory that can be both written and run, the stack among it', () => {
    const found = segments();
    assert.equal(found.filter(({ type }) => type === 'LOAD').length >= 3, true, JSON.stringify(found));
    assert.deepEqual(found.filter(({ flags }) => flags.includes('W') && flags.includes('E')), []);
    assert.deepEqual(found.filter(({ type }) => type === 'GNU_STACK'), [{ type: 'GNU_STACK', flags: 'RW' }]);
    assert.deepEqual(dynamic('TEXTREL'), []);
  });

  it('checks its stack', () => {
    assert.ok(imports().includes('__stack_chk_fail'));
  });

  // Where a call cannot run over, the compiler leaves its check out, so the binary need not show any.
  it('is made of sources that were all compiled with checks of stack and buffers', () => {
    const commands = JSON.parse(fs.readFileSync(fakePath('../compile_commands.json'), 'utf8'))
      // Some are compiled for unit tests as well, by other flags.
      .filter(({ command }) => command.includes(' -o src/'));
    const wanted = ['-O3', '-fstack-protector-strong', '-D_FORTIFY_SOURCE=3'];
    const lacking = commands.filter(({ command }) => !wanted.every((flag) => command.split(' ').includes(flag)));
    assert.deepEqual(lacking.map(({ file }) => file), []);
    const sources = fs.readdirSync(path.join(root, 'src'), { recursive: true }).filter((name) => name.endsWith('.cpp'));
    assert.deepEqual(commands.map(({ file }) => path.relative(path.join(root, 'src'), file)).sort(), sources.sort());
  });

  it('has no symbols in it but those that it needs to be loaded', () => {
    const names = sections().map(({ name }) => name);
    assert.ok(names.includes('.dynsym'));
    assert.deepEqual(names.filter((name) => /^\.(symtab|strtab|debug_.*)$/.test(name)), []);
  });

  it('names the file with its symbols and line tables, which lies beside it and has its build ID', () => {
    assert.ok(readElf(['--debug-dump=links']).includes(`${path.basename(addonPath)}.debug`));
    const found = new Map(sections(debugPath).map(({ name, type }) => [name, type]));
    assert.deepEqual([found.get('.symtab'), found.get('.debug_line'), found.get('.text')], ['SYMTAB', 'PROGBITS', 'NOBITS']);
    assert.match(buildId(addonPath), /^[0-9a-f]{40}$/);
    assert.equal(buildId(debugPath), buildId(addonPath));
    assert.ok(fs.statSync(addonPath).size < 1_000_000, String(fs.statSync(addonPath).size));
  });
});
