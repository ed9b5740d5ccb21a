// The arguments of the developer's commands, and which tests npm test picks.

import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import { describe, it } from 'node:test';
import { fileURLToPath } from 'node:url';

import { helpText, readArguments } from '../../scripts/lib/arguments.js';
import { Failure } from '../../scripts/lib/output.js';
import {
  ctestPattern, importsOf, namePattern, reaches, scriptTitles, selectChanged, selectTests, unitCases,
} from '../../scripts/lib/test-selection.js';

const root = path.resolve(path.dirname(fileURLToPath(import.meta.url)), '../..');
const projectRoot = '/project';
const at = (name) => `${projectRoot}/${name}`;

const sources = {
  unit: [
    { file: at('test/unit/camera/capture_test.cpp'), text: 'TEST(Capture, Starts) {\n}\nTEST_F(CaptureTest, StopsAll) {\n}\n' },
    { file: at('test/unit/camera/grab_test.cpp'), text: 'TEST(Grab, Copies) {\n}\n' },
    { file: at('test/unit/simulator/optics_test.cpp'), text: 'TEST(Optics, Blurs) {\n}\n' },
  ],
  script: [
    { file: at('test/script/capture.test.js'), text: "import { a } from '../../kit/cameras.js';\nit('starts by size', f);\n" },
    { file: at('test/script/stills.test.js'), text: "import '../../kit/frames.js';\ndescribe('stills', () => it(\"don't wait (1.5 s)\", f));\n" },
  ],
  browser: [{ file: at('test/browser/page.test.js'), text: "it('shows a still', f);\n" }],
};
const files = (list) => list.map(({ file }) => path.relative(projectRoot, file));

describe('the arguments of a command', () => {
  const command = { synopsis: '[--port N]', summary: 'Serves.', rows: [['--port N', 'a port']], options: { port: { type: 'string' } } };

  it('are listed by --help, aligned, with -- before them where npm runs the command', () => {
    assert.equal(helpText(command, 'viewer'),
      'npm run viewer -- [--port N]\n\n  Serves.\n\n  --port N  a port\n  --help    print this');
  });

  it('that are unknown are refused with their name', () => {
    assert.throws(() => readArguments(command, ['--porr', '1']),
      (error) => error instanceof Failure && error.message.startsWith("Unknown option '--porr'. Run \""));
  });

  it('that stand without an option are refused where none can stand', () => {
    assert.throws(() => readArguments(command, ['stray']), (error) => error instanceof Failure && error.message.includes("'stray'"));
  });

  it('are parsed otherwise', () => {
    assert.equal(readArguments(command, ['--port', '7']).values.port, '7');
  });

  const { scripts } = JSON.parse(fs.readFileSync(path.join(root, 'package.json'), 'utf8'));
  for (const [name, line] of Object.entries(scripts)) {
    it(`of npm run ${name} are checked before the set-up begins`, () => {
      const [, ...words] = line.split(' ');
      const run = (argument) => spawnSync(process.execPath, [...words, argument], { cwd: root, encoding: 'utf8' });
      const help = run('--help');
      assert.equal(help.status, 0, help.stderr);
      assert.match(help.stdout, /--help +prints? this/);
      assert.doesNotMatch(help.stdout, /Setting up/);
      const refused = run('--no-such-option');
      assert.equal(refused.status, 1);
      assert.match(refused.stdout, /Unknown option '--no-such-option'/);
      assert.doesNotMatch(refused.stdout, /Setting up/);
    });
  }
});

describe('npm test with names', () => {
  it('selects a unit test file whose path contains a name, with all its cases', () => {
    const { unit } = selectTests(sources, projectRoot, ['camera/capture']);
    assert.deepEqual(unit.map(({ cases }) => cases), [[['Capture', 'Starts'], ['CaptureTest', 'StopsAll']]]);
  });

  it('selects single cases and titles, whatever the case of the letters', () => {
    const selection = selectTests(sources, projectRoot, ['STARTS']);
    assert.deepEqual(selection.unit.map(({ cases }) => cases), [[['Capture', 'Starts']]]);
    assert.deepEqual(selection.script, [{ file: at('test/script/capture.test.js'), titles: ['starts by size'] }]);
    assert.deepEqual(selection.browser, []);
  });

  it('selects a folder by its name', () => {
    assert.deepEqual(files(selectTests(sources, projectRoot, ['test/browser']).browser), ['test/browser/page.test.js']);
  });

  it('hands the cases to ctest as they are named there, with a parameter or without', () => {
    const pattern = new RegExp(ctestPattern([{ cases: [['Capture', 'Starts']] }]));
    assert.deepEqual(['Capture.Starts', 'Sizes/Capture.Starts/3', 'Capture.StartsAgain', 'ReCapture.Starts'].map((name) => pattern.test(name)),
      [true, true, false, false]);
  });

  it('hands titles to Node.js word for word, and none where a whole file is wanted', () => {
    assert.equal(namePattern([{ titles: ["don't wait (1.5 s)"] }]), "^(don't wait \\(1\\.5 s\\))$");
    assert.equal(namePattern([{ titles: ['a'] }, { titles: null }]), null);
  });

  it('reads the cases and titles that the sources hold', () => {
    assert.deepEqual(unitCases('TEST_P(Sizes, Fit) {'), [['Sizes', 'Fit']]);
    assert.deepEqual(scriptTitles(sources.script[1].text), ['stills', "don't wait (1.5 s)"]);
  });
});

describe('npm test --changed', () => {
  const kit = { [at('kit/cameras.js')]: "import './results.js';", [at('kit/frames.js')]: '', [at('kit/results.js')]: '' };
  const read = (file) => kit[file] ?? Object.values(sources).flat().find((source) => source.file === file)?.text ?? '';
  const select = (...names) => selectChanged(sources, projectRoot, names.map(at), read);

  it('selects the unit test of a changed source by its name', () => {
    assert.deepEqual(files(select('src/camera/capture.cpp').unit), ['test/unit/camera/capture_test.cpp']);
    assert.deepEqual(files(select('simulator/optics.h').unit), ['test/unit/simulator/optics_test.cpp']);
  });

  it('selects the folder of a changed source that has no test of its own', () => {
    assert.deepEqual(files(select('src/camera/types.h').unit),
      ['test/unit/camera/capture_test.cpp', 'test/unit/camera/grab_test.cpp']);
  });

  it('selects the script tests that import a changed script by way of others', () => {
    assert.deepEqual(files(select('kit/results.js').script), ['test/script/capture.test.js']);
  });

  it('selects a changed test itself', () => {
    assert.deepEqual(files(select('test/browser/page.test.js').browser), ['test/browser/page.test.js']);
  });

  it('follows imports in a circle once', () => {
    const circle = { '/a.js': "import './b.js';", '/b.js': "import './a.js';" };
    assert.deepEqual(importsOf('/a.js', circle['/a.js']), ['/b.js']);
    assert.equal(reaches('/a.js', new Set(['/c.js']), (file) => circle[file]), false);
  });
});
