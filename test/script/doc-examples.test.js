// Every example of every page, run as it stands there, with the virtual microscope.

import assert from 'node:assert/strict';
import { spawn } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import { describe, it } from 'node:test';

import ts from 'typescript';

import { markdownFiles, readExamples } from './support/doc-examples.js';
import { simulatorPath, skipUnderSanitizer } from './support/environment.js';
import { root } from './support/packed.js';
import { findings, programOf } from './support/type-check.js';

const longestMs = 60_000;
// Inside the project, so that the package's own name leads to it.
const runDirectory = path.join(root, 'build', 'doc-examples');
const pages = markdownFiles().map((file) => ({
  page: path.relative(root, file), ...readExamples(fs.readFileSync(file, 'utf8')),
}));

/** Puts a program and what it needs into a directory of its own; gives the file to run. */
function place({ page, files }, { line, extension, text }) {
  const directory = path.join(runDirectory, `${page.replaceAll('/', '-')}-${line}`);
  fs.rmSync(directory, { recursive: true, force: true });
  fs.mkdirSync(path.join(directory, 'node_modules'), { recursive: true });
  fs.symlinkSync(path.join(root, 'test', 'doc-examples', 'electron'), path.join(directory, 'node_modules', 'electron'));
  files.forEach((file) => fs.writeFileSync(path.join(directory, file.name), file.text));
  const name = `example.${extension === 'ts' ? 'mts' : extension}`;
  fs.writeFileSync(path.join(directory, name), text);
  return path.join(directory, name);
}

/** Checks the types of a program and gives the script that it becomes. */
function compile(file) {
  assert.deepEqual(findings(programOf([file], { from: root })), []);
  const { outputText } = ts.transpileModule(fs.readFileSync(file, 'utf8'), {
    compilerOptions: { module: ts.ModuleKind.ESNext, target: ts.ScriptTarget.ES2022 },
  });
  const script = file.replace(/\.mts$/, '.mjs');
  fs.writeFileSync(script, outputText);
  return script;
}

/** Runs a program in its directory; gives { stderr, code, signal }. */
function runExample(file) {
  const child = spawn(process.execPath, [path.basename(file)], {
    cwd: path.dirname(file),
    env: { ...process.env, NODE_TEST_CONTEXT: '', OSTREL_NATIVE_DIR: path.dirname(simulatorPath) },
    stdio: ['ignore', 'ignore', 'pipe'],
    timeout: longestMs,
    killSignal: 'SIGKILL',
  });
  let stderr = '';
  child.stderr.setEncoding('utf8').on('data', (text) => (stderr += text));
  return new Promise((resolve, reject) => {
    child.on('error', reject);
    child.on('close', (code, signal) => resolve({ stderr, code, signal }));
  });
}

describe('the examples in the pages', {
  concurrency: 3, skip: skipUnderSanitizer('they use the release build'),
}, () => {
  for (const page of pages) {
    for (const program of page.programs) {
      it(`run: ${page.page}, line ${program.line}`, async () => {
        const file = place(page, program);
        const end = await runExample(program.extension === 'ts' ? compile(file) : file);
        assert.deepEqual(end, { stderr: '', code: 0, signal: null });
      });
    }
  }
});

describe('the blocks of the pages', () => {
  it('are all run or marked as what they are', () => {
    assert.deepEqual(pages.flatMap(({ page, faults }) => faults.map((fault) => `${page}, ${fault}`)), []);
  });

  it('are found in the README and in every page about the functions', () => {
    const without = pages.filter(({ page, programs }) =>
      (page === 'README.md' || page.startsWith('docs/api/')) && programs.length === 0);
    assert.deepEqual(without.map(({ page }) => page), []);
    assert.ok(pages.filter(({ page }) => page.startsWith('docs/api/')).length >= 7);
  });
});

describe('the reading of examples', () => {
  const fenced = (...blocks) => blocks.map(([info, text]) => `\`\`\`${info}\n${text}\n\`\`\`\n`).join('\ntext\n\n');

  it('lets a block that imports nothing go on with the one above', () => {
    const { programs, faults } = readExamples(
      fenced(['js', "import a from 'a';"], ['js', 'a();'], ['text', 'x'], ['js', "const b = require('b');"]));
    assert.deepEqual(faults, []);
    assert.deepEqual(programs, [
      { line: 1, extension: 'mjs', text: "import a from 'a';\n\na();\n" },
      { line: 19, extension: 'cjs', text: "const b = require('b');\n" },
    ]);
  });

  it('gives files that a program uses', () => {
    const { files, faults } = readExamples(fenced(['js file=b.js', 'b();'], ['js', "import './b.js';"]));
    assert.deepEqual({ files, faults }, { files: [{ line: 1, name: 'b.js', text: 'b();\n' }], faults: [] });
  });

  it('finds fault with whatever would not be run', () => {
    const faultsOf = (markdown) => readExamples(markdown).faults;
    assert.deepEqual(faultsOf(fenced(['js', 'a();'])), ['line 1: the first block imports nothing, so it cannot be run']);
    assert.deepEqual(faultsOf(fenced(['js file=b.js', 'b();'])), ['line 1: no program of the page uses b.js']);
    assert.deepEqual(faultsOf(fenced(['js skip', "import 'a';"])), ['line 1: "skip" behind the language means nothing']);
    assert.deepEqual(faultsOf('```js\nimport "a";\n'), ['line 1: the block has no end']);
    assert.deepEqual(faultsOf('text\n\n    native.cameraInitialize();\n'),
      ['line 3: indented code is not run: put it in a block of ```js']);
    for (const language of ['', 'javascript', 'mjs', 'JS']) {
      assert.deepEqual(faultsOf(fenced([language, 'a();'])),
        [`line 1: the language "${language}" is none of js, ts, sh, json, yaml, text, html, css, cpp, diff`]);
    }
  });
});
