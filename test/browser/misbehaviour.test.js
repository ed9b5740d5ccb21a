// A microscope that misbehaves, pages that come and go: what the viewer's page tells, and that it goes on.

import assert from 'node:assert/strict';
import path from 'node:path';
import { after, before, test } from 'node:test';

import { decodingComplaints, probe } from '../script/support/media.js';
import {
  awaitFrames, awaitHealth, awaitPicture, awaitText, closeViewer, keepScreenshot, measurePicture, openPage, openViewer, slide, text,
} from './support/browser.js';
import { startViewer } from './support/viewer.js';

let viewer;
let browser;
let page;

before(async () => ({ viewer, browser, page } = await openViewer()));
after(() => closeViewer({ viewer, browser, page }));

const flip = (name) => page.click(`[data-hand="${name}"]`);
const awaitLog = (words) => page.waitForFunction((wanted) =>
  [...document.querySelectorAll('#log li')].some((line) => line.textContent.includes(wanted)), words);
const clearError = async () => {
  await page.click('#clear-error');
  await awaitText(page, 'error-text', /^none$/);
};

test('unplugged: the camera is lost, told in words, and found again when it is back', async () => {
  await flip('plugged');
  await awaitHealth(page, 'lost');
  await awaitLog('The camera is not listed any more');
  await awaitText(page, 'scope-status', /^unplugged$/);
  assert.equal(await text(page, 'veil'), 'The camera is not there');
  assert.ok(await page.isDisabled('#still'));
  await keepScreenshot(page, 'unplugged-light-1440');
  await flip('plugged');
  await awaitHealth(page, 'live');
  await awaitLog('The camera is listed again');
  await awaitText(page, 'scope-status', /^ready$/);
  await awaitFrames(page, 3);
  await clearError();
});

test('frozen: the silence is told, and its end', async () => {
  await flip('frozen');
  await awaitHealth(page, 'stalled');
  await awaitText(page, 'error-text', /The camera has delivered no frame for [\d.]+ s/);
  await awaitText(page, 'camera-rate', /^0\.0$/);
  await flip('frozen');
  await awaitHealth(page, 'live');
  await clearError();
});

test('slow: fewer frames come, and all else works', async () => {
  await page.selectOption('#slow', '200');
  await page.waitForFunction(() => {
    const rate = Number(document.getElementById('camera-rate').textContent);
    return rate > 1 && rate < 6;
  });
  await page.selectOption('#slow', '0');
  await page.waitForFunction(() => Number(document.getElementById('camera-rate').textContent) > 10);
});

test('a camera that hangs stalls; the page goes on', async () => {
  await page.selectOption('#hang', 'camera');
  await awaitHealth(page, 'stalled');
  await slide(page, 'focus', 60);
  await awaitText(page, 'focus-now', /^60$/);
  await page.selectOption('#hang', 'nothing');
  await awaitHealth(page, 'live');
  await clearError();
});

test('a microscope that hangs: commands time out in words, and the picture goes on', async () => {
  await page.selectOption('#hang', 'microscope');
  await slide(page, 'focus', 90);
  await awaitFrames(page, 10);
  await awaitText(page, 'error-text', /ostrelSetFocusPositionAsync\(90\) failed: .*timed out/);
  await awaitText(page, 'scope-status', /^no answer$/);
  await page.selectOption('#hang', 'nothing');
  await awaitText(page, 'scope-status', /^ready$/);
  await slide(page, 'focus', 128);
  await awaitText(page, 'focus-now', /^128$/);
  await clearError();
});

test('refusing: commands fail in the library\'s words, and a capture does not start', async () => {
  await flip('refusing');
  await page.click('#light');
  await awaitText(page, 'error-text', /ostrelSetLedStateAsync\(false\) failed: The microscope refuses commands/);
  await page.selectOption('#format', '1');
  await awaitText(page, 'error-text', /cameraStartCapture\(0\) gave -20: the camera library does not start this camera, with a code of its own\.$/);
  await awaitHealth(page, 'stopped');
  await flip('refusing');
  await page.selectOption('#format', '2');
  await awaitHealth(page, 'live');
  await awaitText(page, 'size', /of 1920 × 1080$/);
  await clearError();
});

test('two pages show the same and control the same', async () => {
  const other = await openPage(browser, viewer.url, { colorScheme: 'dark' });
  await slide(other, 'focus', 200);
  await awaitText(page, 'focus-now', /^200$/);
  await page.waitForFunction(() => document.getElementById('focus').value === '200');
  await page.click('#light');
  await other.waitForSelector('#light[aria-checked="false"]');
  const [here, there] = [await awaitPicture(page, ({ brightness }) => brightness < 60),
    await awaitPicture(other, ({ brightness }) => brightness < 60)];
  assert.ok(Math.abs(here.brightness - there.brightness) < 3);
  await Promise.all([awaitFrames(page, 10), awaitFrames(other, 10)]);
  await other.click('#light');
  await slide(page, 'focus', 128);
  await awaitText(other, 'focus-now', /^128$/);
  await other.click('#record');
  await page.waitForSelector('#record[aria-pressed="true"]');
  await page.click('#record');
  await other.waitForSelector('#record[aria-pressed="false"]');
  const name = await awaitText(other, 'recording-link', /\.mp4$/);
  await awaitText(page, 'recording-link', new RegExp(name));
  assert.deepEqual(other.problems, []);
  await other.context().close();
});

test('a page that is reloaded finds its recording again, and the file is whole', async () => {
  const before = await text(page, 'recording-link');
  await page.click('#record');
  await awaitText(page, 'recording-time', /^0:(0[1-9]|[1-5]\d)/);
  await page.reload();
  await page.waitForSelector('#record[aria-pressed="true"]');
  await awaitText(page, 'recording-time', /^0:(0[2-9]|[1-5]\d)/);
  await measurePicture(page);
  await page.click('#record');
  await page.waitForFunction((name) => /mp4$/.test(document.getElementById('recording-link').textContent) &&
    document.getElementById('recording-link').textContent !== name, before);
  const file = path.join(viewer.output, await text(page, 'recording-link'));
  const { duration, complaints } = probe(file);
  // Of two seconds at least; the camera may have been held up at either end.
  assert.ok(duration >= 1, `${duration} s`);
  assert.deepEqual([complaints, decodingComplaints(file)], ['', '']);
});

test('a viewer that ends is told on the page', async () => {
  const own = await startViewer();
  const last = await openPage(browser, own.url);
  await own.stop();
  await awaitHealth(last, 'closed');
  assert.equal(await text(last, 'veil'), 'The viewer has ended, or cannot be reached');
  await last.context().close();
});
