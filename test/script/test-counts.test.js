// The counts in the closing line of the test commands.

import assert from 'node:assert/strict';
import { describe, it } from 'node:test';

import { LiveLine } from '../../scripts/lib/live-line.js';
import { sanitizerOptions } from '../../scripts/lib/sanitizers.js';
import {
  countJUnit, countTap, skipReasonsInJUnit, skipReasonsInTap, summary, withExitCode,
} from '../../scripts/lib/test-runs.js';

describe('the counts of the unit tests', () => {
  it('come from the first line of the report', () => {
    const report = '<?xml version="1.0" encoding="UTF-8"?>\n<testsuite name="Linux-c++"\n\ttests="12"\n\tfailures="2"\n' +
      '\tdisabled="1"\n\tskipped="3"\n>\n<testcase name="x" failures="9"/></testsuite>';
    assert.deepEqual(countJUnit(report), { passed: 6, failed: 2, skipped: 4 });
  });

  it('are zero without a report', () => {
    assert.deepEqual(countJUnit(''), { passed: 0, failed: 0, skipped: 0 });
  });
});

describe('the counts of the script tests', () => {
  it('come from the closing lines, cancelled tests being failures', () => {
    const text = 'not ok 1 - # pass 99\n# tests 9\n# suites 1\n# pass 4\n# fail 2\n# cancelled 1\n# skipped 1\n# todo 1\n';
    assert.deepEqual(countTap(text), { passed: 4, failed: 3, skipped: 2 });
  });
});

describe('the reasons of skipped tests', () => {
  it('are the words that a unit test gave', () => {
    const report = '<testcase name="A.Runs"><system-out>x</system-out></testcase>\n<testcase name="B.Waits" status="notrun">' +
      '<skipped message="y"/><system-out>[ RUN ]\n/a/b.cpp:7: Skipped\nno such processor\n[ SKIPPED ]</system-out></testcase>';
    assert.deepEqual(skipReasonsInJUnit(report), ['skipped: B.Waits: no such processor']);
  });

  it('are the words that a script test gave', () => {
    const text = 'ok 1 - runs\n    ok 2 - waits # SKIP no camera\n';
    assert.deepEqual(skipReasonsInTap(text), ['skipped: waits: no camera']);
  });
});

describe('the closing line', () => {
  it('is the sum over all runs', () => {
    const results = [{ passed: 4, failed: 0, skipped: 2 }, { passed: 10, failed: 1, skipped: 0 }];
    assert.equal(summary(results), '14 passed, 1 failed');
  });

  it('tells a failure where a run ended badly without naming one', () => {
    assert.deepEqual(withExitCode({ passed: 3, failed: 0, skipped: 0 }, 1), { passed: 3, failed: 1, skipped: 0 });
    assert.deepEqual(withExitCode({ passed: 3, failed: 2, skipped: 0 }, 1), { passed: 3, failed: 2, skipped: 0 });
    assert.deepEqual(withExitCode({ passed: 3, failed: 0, skipped: 0 }, 0), { passed: 3, failed: 0, skipped: 0 });
  });
});

describe('the options of a sanitizer', () => {
  it('name a suppression file only where there is one', () => {
    assert.equal(sanitizerOptions('tsan', '/nowhere').TSAN_OPTIONS,
      'ignore_noninstrumented_modules=1:second_deadlock_stack=1');
  });
});

describe('a line of progress', () => {
  function streamOf(isTTY) {
    return { isTTY, columns: 12, text: '', write(text) { this.text += text; } };
  }

  it('is rewritten in place on a terminal and never wraps', () => {
    const stream = streamOf(true);
    const line = new LiveLine({ stream });
    line.update('one');
    line.update('a long progress text');
    line.finish('done');
    assert.equal(stream.text, '\r\x1b[2Kone\r\x1b[2Ka long prog\r\x1b[2Kdone\n');
  });

  it('is printed once and then only after a pause where there is no terminal', () => {
    const stream = streamOf(false);
    const line = new LiveLine({ stream, quietSeconds: 3600 });
    line.update('one');
    line.update('two');
    line.finish('done');
    assert.equal(stream.text, 'one\ndone\n');
  });
});
