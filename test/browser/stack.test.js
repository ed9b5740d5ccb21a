// Focus stacks on the viewer's page: taken, fused, and compared with their sources.

import assert from 'node:assert/strict';
import { readFile } from 'node:fs/promises';
import { after, before, test } from 'node:test';

import sharp from 'sharp';

import { pixelMicrons } from '../script/support/png-chunks.js';
import { awaitFrames, awaitText, closeViewer, download, keepScreenshot, openViewer, text } from './support/browser.js';

let viewer;
let browser;
let page;

before(async () => ({ viewer, browser, page } = await openViewer()));
after(() => closeViewer({ viewer, browser, page }));

/** Mean square of the difference between each pixel and its neighbours to the right and below, in green. */
async function sharpnessOf(png) {
  const { data, info: { width, height } } = await sharp(png).extractChannel(1).raw().toBuffer({ resolveWithObject: true });
  let sum = 0;
  for (let y = 0; y < height - 1; ++y) {
    for (let x = 0; x < width - 1; ++x) {
      const i = y * width + x;
      sum += (data[i] - data[i + 1]) ** 2 + (data[i] - data[i + width]) ** 2;
    }
  }
  return { width, height, sharpness: sum / (width * height) };
}

/** What an image of the page shows, fetched with the page's own rights. */
async function fetchImage(selector) {
  const response = await page.context().request.get(await page.evaluate((name) => document.querySelector(name).src, selector));
  return response.body();
}

test('a stack that cannot be taken says why', async () => {
  await page.fill('#stack-to', '48');
  await page.click('#take-stack');
  await awaitText(page, 'error-text', /two different focus positions/);
  await keepScreenshot(page, 'error-light-1440');
  await page.click('#clear-error');
  await awaitText(page, 'error-text', /^none$/);
  await page.fill('#stack-to', '208');
});

test('a stack can be cancelled, and the focus goes back', async () => {
  const before = await text(page, 'focus-now');
  await page.click('#take-stack');
  await awaitText(page, 'stack-text', /^Picture [2-9] of 9/);
  assert.ok(await page.isDisabled('#focus'));
  await page.click('#take-stack');
  await awaitText(page, 'stack-text', /^Cancelled$/);
  assert.equal(await text(page, 'error-text'), 'none');
  await awaitText(page, 'focus-now', new RegExp(`^${before}$`));
  assert.ok(await page.isEnabled('#focus'));
});

const wantedPositions = [48, 75, 101, 128, 155, 181, 208];

test('the fused picture is sharper than every source', async () => {
  await page.fill('#stack-steps', '7');
  await page.evaluate(() => {
    const [element, progress] = ['stack-text', 'stack-progress'].map((id) => document.getElementById(id));
    window.keptProgress = [];
    new MutationObserver(() => window.keptProgress.push([element.textContent, progress.value]))
      .observe(element, { childList: true, characterData: true, subtree: true });
  });
  await page.click('#take-stack');
  await page.waitForSelector('#compare', { state: 'visible' });
  await awaitText(page, 'stack-text', /^7 pictures, measured in .* and fused in .* s\.$/);
  const taking = (await page.evaluate(() => window.keptProgress)).filter(([words]) => words.startsWith('Picture'));
  // A busy machine may pass over some of them.
  assert.ok(taking.length > 0);
  for (const [words, progress] of taking) {
    const [number, focus] = /^Picture (\d) of 7, focus at (\d+)$/.exec(words).slice(1).map(Number);
    assert.deepEqual([focus, progress.toFixed(4)], [wantedPositions[number - 1], ((number - 1) / 14).toFixed(4)]);
  }
  const png = await readFile(await download(page, 'stack-link'));
  assert.equal(pixelMicrons(png).toFixed(3), '1.400');
  const fused = await sharpnessOf(png);
  assert.deepEqual([fused.width, fused.height], [960, 540]);
  const labels = await page.locator('#sources label').all();
  assert.equal(labels.length, 7);
  const positions = [];
  for (const label of labels) {
    await label.click();
    const caption = await text(page, 'source-caption');
    positions.push(Number(/\d+/.exec(caption)[0]));
    const sourcePng = await fetchImage('#source-picture');
    assert.equal(pixelMicrons(sourcePng).toFixed(3), '1.400');
    const source = await sharpnessOf(sourcePng);
    assert.ok(fused.sharpness > 1.2 * source.sharpness, `${fused.sharpness} fused, ${source.sharpness} at ${caption}`);
  }
  assert.deepEqual(positions, wantedPositions);
  await keepScreenshot(page, 'stack-light-1440');
});

test('the divider shows more of one or of the other, by pointer and by key', async () => {
  const shownOfSource = () => page.evaluate(() => {
    const [, right] = getComputedStyle(document.getElementById('source-picture')).clipPath.match(/inset\(0px ([\d.]+)/);
    return 100 - Number(right);
  });
  assert.equal(await shownOfSource(), 50);
  const box = await page.locator('#pair').boundingBox();
  await page.mouse.click(box.x + box.width * 0.25, box.y + box.height / 2);
  assert.ok(Math.abs(await shownOfSource() - 25) < 2);
  await page.focus('#swipe');
  await page.keyboard.press('Home');
  assert.equal(await shownOfSource(), 0);
  await page.keyboard.press('ArrowRight');
  assert.equal(await shownOfSource(), 0.5);
  await page.fill('#swipe', '50');
});

test('the scale bar is that of the stack, and the views change by key', async () => {
  assert.equal(await text(page, 'shown-pixel'), '1.400 µm');
  assert.equal(await text(page, 'pixel'), '0.700 µm');
  const bar = await page.evaluate(() => document.getElementById('scale-bar').getBoundingClientRect().width /
    document.getElementById('pair').getBoundingClientRect().width);
  const microns = parseFloat(await text(page, 'scale-text'));
  assert.ok(Math.abs(bar - microns / 1344) < 0.001);
  await page.emulateMedia({ colorScheme: 'dark' });
  await keepScreenshot(page, 'stack-dark-1440');
  await page.keyboard.press('v');
  await page.waitForSelector('#live-tab[aria-selected="true"]');
  assert.ok(await page.isHidden('#stack-view'));
  await awaitFrames(page, 2);
  await keepScreenshot(page, 'live-dark-1440');
});
