// Every control of the viewer's page, by what the page then shows.

import assert from 'node:assert/strict';
import { readFile } from 'node:fs/promises';
import { after, before, test } from 'node:test';

import sharp from 'sharp';

import { decodingComplaints, probe } from '../script/support/media.js';
import { pixelMicrons } from '../script/support/png-chunks.js';
import {
  awaitFrames, awaitHealth, awaitPicture, awaitText, closeViewer, download, keepScreenshot, keepTexts, measurePicture, openViewer, slide, text,
} from './support/browser.js';

let viewer;
let browser;
let page;

before(async () => ({ viewer, browser, page } = await openViewer()));
after(() => closeViewer({ viewer, browser, page }));

test('the token leaves the address line, and a reload does not need it', async () => {
  assert.equal(new URL(page.url()).search, '');
  assert.match(await text(page, 'instrument'), /^Simulated microscope camera\s+·\s+Simulated microscope 1$/);
  await keepScreenshot(page, 'live-light-1440');
});

test('the focus slider drives the focus: the picture blurs, and the position is told', async () => {
  const sharpest = await measurePicture(page);
  await slide(page, 'focus', 250);
  await awaitText(page, 'focus-now', /^250$/);
  const blurred = await awaitPicture(page, ({ sharpness }) => sharpness < sharpest.sharpness / 3);
  assert.ok(Math.abs(blurred.brightness - sharpest.brightness) < 10, 'as bright as before');
});

test('auto-focus finds the sharpest plane again', async () => {
  const blurred = await measurePicture(page);
  const awaitKept = await keepTexts(page, 'scope-status');
  await page.click('#auto-focus');
  await awaitKept(/^auto-focus$/);
  await awaitText(page, 'scope-status', /^ready$/);
  await awaitPicture(page, ({ sharpness }) => sharpness > 3 * blurred.sharpness);
});

test('near and far step the focus by 4, also by their keys', async () => {
  await slide(page, 'focus', 100);
  await awaitText(page, 'focus-now', /^100$/);
  await page.click('#far');
  await awaitText(page, 'focus-now', /^104$/);
  await page.keyboard.press(',');
  await awaitText(page, 'focus-now', /^100$/);
  await page.focus('#focus');
  await page.keyboard.press('ArrowRight');
  await awaitText(page, 'focus-now', /^101$/);
});

test('the light switch turns the lamp off and on, by hand and by key', async () => {
  const lit = await measurePicture(page);
  await page.click('#light');
  await page.waitForSelector('#light[aria-checked="false"]');
  await awaitPicture(page, ({ brightness }) => brightness < lit.brightness / 3);
  await page.keyboard.press('l');
  await page.waitForSelector('#light[aria-checked="true"]');
  await awaitPicture(page, ({ brightness }) => brightness > 0.95 * lit.brightness);
});

test('magnification, field of view and scale bar follow the ring, and are right', async () => {
  const micronsPerPixel = { 50: 0.7, 100: 0.35 };
  for (const magnification of [100, 50]) {
    await slide(page, 'ring', magnification);
    await awaitText(page, 'magnification', new RegExp(`^(${magnification}\\.[01]|${magnification - 1}\\.9)×$`));
    // Each pixel of the preview stands for two of the camera.
    const microns = 2 * micronsPerPixel[magnification];
    const exactly = (length) => new RegExp(`^${length.toFixed(3)} µm$`.replace('.', '\\.'));
    await awaitText(page, 'shown-pixel', exactly(microns));
    assert.match(await text(page, 'pixel'), exactly(micronsPerPixel[magnification]));
    const field = await text(page, 'field');
    assert.equal(field, magnification === 50 ? '1.344 × 0.756 mm' : '672.0 × 378.0 µm');
    const { bar, shown, label } = await page.evaluate(() => {
      const canvas = document.getElementById('picture');
      const scale = Math.min(canvas.clientWidth / canvas.width, canvas.clientHeight / canvas.height);
      return { bar: document.getElementById('scale-bar').getBoundingClientRect().width, shown: scale,
        label: document.getElementById('scale-text').textContent };
    });
    assert.match(label, /^[125]0* µm$/);
    assert.ok(Math.abs(bar - (parseFloat(label) / microns) * shown) < 0.1, `${bar} pixels for ${label}`);
  }
});

test('format and preview size change what the camera delivers and the canvas shows', async () => {
  await page.selectOption('#format', { label: '640 × 480, 30 fps' });
  await awaitPicture(page, ({ width, height }) => width === 640 && height === 480);
  await awaitText(page, 'size', /^640 × 480 of 640 × 480$/);
  await awaitText(page, 'field', /^448\.0 × 336\.0 µm$/);
  await page.selectOption('#format', { label: '1920 × 1080, 30 fps' });
  await page.selectOption('#preview', { label: 'up to 1920 × 1080' });
  await awaitPicture(page, ({ width, height }) => width === 1920 && height === 1080);
  await awaitText(page, 'shown-pixel', /^0\.700 µm$/);
  assert.equal(await text(page, 'pixel'), '0.700 µm');
  await page.selectOption('#preview', { label: 'up to 960 × 540' });
  await awaitPicture(page, ({ width, height }) => width === 960 && height === 540);
  await awaitHealth(page, 'live');
});

test('a still is a PNG of the full size, of what was seen, with pixels as large as those of the camera', async () => {
  await page.click('#still');
  await awaitText(page, 'still-link', /\.png$/);
  const png = await readFile(await download(page, 'still-link'));
  assert.equal(`${pixelMicrons(png).toFixed(3)} µm`, await text(page, 'pixel'));
  assert.equal(await text(page, 'pixel'), '0.700 µm');
  const picture = sharp(png);
  const { format, width, height } = await picture.metadata();
  assert.deepEqual({ format, width, height }, { format: 'png', width: 1920, height: 1080 });
  const green = await picture.extractChannel(1).raw().toBuffer();
  // The preview has every second pixel of every second row.
  let sum = 0;
  for (let y = 270; y < 810; y += 2) {
    for (let x = 480; x < 1440; x += 2) {
      sum += green[y * width + x];
    }
  }
  assert.equal(sum / (270 * 480), (await measurePicture(page)).brightness);
});

test('the microscope\'s own button takes a still, too', async () => {
  const before = await text(page, 'still-link');
  await page.click('#press');
  await page.waitForFunction((name) => document.getElementById('still-link').textContent !== name, before);
});

test('a recording tells time, size and drops, and its file plays', async () => {
  await page.keyboard.press('r');
  await page.waitForSelector('#record[aria-pressed="true"]');
  await awaitText(page, 'recording-time', /^0:(0[2-9]|[1-5]\d)/);
  assert.ok(await page.isVisible('#recording-flag'));
  assert.ok(await page.isDisabled('#preview'), 'what is recorded cannot be changed meanwhile');
  await keepScreenshot(page, 'recording-light-1440');
  await page.click('#record');
  await awaitText(page, 'recording-link', /\.mp4$/);
  assert.match(await text(page, 'recording-size'), /^\d+\.\d MB$/);
  assert.notEqual(await text(page, 'recording-size'), '0.0 MB');
  const drops = Number(await text(page, 'recording-drops'));
  const file = await download(page, 'recording-link');
  const { stream: video, complaints } = probe(file);
  assert.deepEqual([video.codec_name, video.width, video.height], ['h264', 960, 540]);
  assert.ok(Number(video.nb_read_frames) >= 2 && drops >= 0, `${video.nb_read_frames} frames and ${drops} dropped`);
  assert.deepEqual([complaints, decodingComplaints(file)], ['', '']);
});

test('everything can be reached by the tabulator key, and shows that it is', async () => {
  const ids = new Set();
  await page.focus('#live-tab');
  for (let i = 0; i < 60; ++i) {
    await page.keyboard.press('Tab');
    const focused = await page.evaluate(() => {
      const element = document.activeElement;
      const { outlineStyle, outlineWidth } = getComputedStyle(element);
      return { id: element.id || element.dataset.hand || element.className, outline: `${outlineStyle} ${outlineWidth}`,
        isBody: element === document.body };
    });
    if (!focused.isBody) {
      assert.equal(focused.outline, 'solid 2px', focused.id);
      ids.add(focused.id);
    }
  }
  for (const id of ['camera', 'format', 'preview', 'focus', 'near', 'auto-focus', 'far', 'light', 'still', 'record',
    'still-link', 'recording-link', 'stack-from', 'stack-to', 'stack-steps', 'take-stack', 'ring', 'moving', 'numbers', 'plugged',
    'frozen', 'refusing', 'press', 'slow', 'hang', 'log']) {
    assert.ok(ids.has(id), `${id} is not among ${[...ids]}`);
  }
});

test('every control has a name', async () => {
  const nameless = await page.evaluate(() => [...document.querySelectorAll('button, input, select, a[href], [role]')]
    .filter((element) => !(element.labels?.length || element.ariaLabel || element.textContent.trim() ||
      element.getAttribute('aria-labelledby')))
    .map((element) => element.outerHTML));
  assert.deepEqual(nameless, []);
});

test('nothing moves while numbers change, and 900 pixels are wide enough', async () => {
  for (const colorScheme of ['dark', 'light']) {
    await page.emulateMedia({ colorScheme });
    await page.setViewportSize({ width: 900, height: 700 });
    await awaitFrames(page, 3);
    const { overflow, shift } = await page.evaluate(() => new Promise((resolve) => {
      let sum = 0;
      new PerformanceObserver((list) => list.getEntries().forEach((entry) => (sum += entry.value)))
        .observe({ type: 'layout-shift' });
      const { scrollWidth } = document.documentElement;
      setTimeout(() => resolve({ overflow: scrollWidth - innerWidth, shift: sum }), 700);
    }));
    assert.deepEqual({ overflow, shift }, { overflow: 0, shift: 0 });
    for (const width of [900, 1041, 1271]) {
      await page.setViewportSize({ width, height: 700 });
      assert.equal(await page.evaluate(() => {
        const bar = document.querySelector('.data');
        return bar.scrollWidth - bar.clientWidth;
      }), 0, `the scale bar is cut off at ${width} pixels`);
    }
    await page.setViewportSize({ width: 900, height: 700 });
    await keepScreenshot(page, `live-${colorScheme}-900`);
  }
  await page.setViewportSize({ width: 1440, height: 900 });
});
