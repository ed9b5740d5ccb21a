// Chromium without a window, and what tests read from the viewer's page.

import assert from 'node:assert/strict';
import { mkdir } from 'node:fs/promises';
import path from 'node:path';

import { chromium } from 'playwright-core';

import { toolEnvironment } from '../../script/support/environment.js';
import { root, startViewer } from './viewer.js';

const screenshots = path.join(root, 'build', 'screenshots');
const options = ['--headless', '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
  '--disable-background-networking', '--disable-component-update', '--disable-sync'];
// Far above what anything takes: it ends a test that hangs.
const longestMs = 120_000;

export const startBrowser = () =>
  chromium.launch({ executablePath: '/usr/bin/chromium', args: options, env: toolEnvironment });

/** Opens the viewer in a page of its own profile, and waits for its first frame. */
export async function openPage(browser, url, { width = 1440, height = 900, colorScheme = 'light', awaitLive = true } = {}) {
  const context = await browser.newContext({ viewport: { width, height }, colorScheme, acceptDownloads: true });
  context.setDefaultTimeout(longestMs);
  const page = await context.newPage();
  page.problems = [];
  page.on('pageerror', (error) => page.problems.push(error.message));
  await page.goto(url);
  if (awaitLive) {
    await awaitHealth(page, 'live');
    await awaitFrames(page, 2);
  }
  return page;
}

export const awaitHealth = (page, health) => page.waitForSelector(`#health[data-health="${health}"]`);

export const text = async (page, id) => (await page.textContent(`#${id}`)).trim();

/** Waits until the text of an element fulfils a condition, and gives it. */
export async function awaitText(page, id, pattern) {
  await page.waitForFunction(([name, source]) => new RegExp(source).test(document.getElementById(name).textContent),
    [id, pattern.source]);
  return text(page, id);
}

/**
 * Keeps what an element shows from now on, each text once, as a busy machine may miss one that is soon replaced.
 * Gives a function that waits until a text matched a pattern.
 */
export async function keepTexts(page, id) {
  await page.evaluate((name) => {
    const element = document.getElementById(name);
    const texts = (window.keptTexts ??= {})[name] = new Set([element.textContent.trim()]);
    new MutationObserver(() => texts.add(element.textContent.trim()))
      .observe(element, { childList: true, characterData: true, subtree: true });
  }, id);
  return (pattern) => page.waitForFunction(([name, source]) =>
    [...window.keptTexts[name]].some((kept) => new RegExp(source).test(kept)), [id, pattern.source]);
}

/** Waits until the canvas has been painted anew so often. */
export const awaitFrames = (page, count) => page.evaluate(([wanted, longest]) => new Promise((resolve, reject) => {
  setTimeout(() => reject(new Error('The canvas is not painted any more')), longest);
  const { prototype } = CanvasRenderingContext2D;
  const paint = prototype.putImageData;
  let left = wanted;
  prototype.putImageData = function (...args) {
    paint.apply(this, args);
    if (--left === 0) {
      prototype.putImageData = paint;
      resolve();
    }
  };
}), [count, longestMs]);

/**
 * What the canvas shows: size, mean brightness, and sharpness, the mean square of the difference between each
 * pixel and its neighbours to the right and below, in the middle half of the picture.
 */
export const measurePicture = (page) => page.evaluate(() => {
  const canvas = document.getElementById('picture');
  const { width, height } = canvas;
  const { data } = canvas.getContext('2d').getImageData(0, 0, width, height);
  const grey = (x, y) => data[4 * (y * width + x) + 1];
  let brightness = 0;
  let sharpness = 0;
  let count = 0;
  for (let y = Math.round(height / 4); y < (3 * height) / 4; ++y) {
    for (let x = Math.round(width / 4); x < (3 * width) / 4; ++x) {
      brightness += grey(x, y);
      sharpness += (grey(x, y) - grey(x + 1, y)) ** 2 + (grey(x, y) - grey(x, y + 1)) ** 2;
      ++count;
    }
  }
  return { width, height, brightness: brightness / count, sharpness: sharpness / count };
});

/** Measures until a condition is fulfilled: a frame that was exposed before a change may still come. */
export async function awaitPicture(page, isFulfilled) {
  const deadline = Date.now() + longestMs;
  for (;;) {
    const measured = await measurePicture(page);
    if (isFulfilled(measured)) {
      return measured;
    }
    if (Date.now() > deadline) {
      throw new Error(`The picture stays ${JSON.stringify(measured)}`);
    }
    await awaitFrames(page, 1);
  }
}

/** Sets a slider as a hand would that lets go at a value. */
export const slide = (page, id, value) => page.fill(`#${id}`, String(value));

export async function keepScreenshot(page, name) {
  await mkdir(screenshots, { recursive: true });
  await page.screenshot({ path: path.join(screenshots, `${name}.png`) });
}

/** Downloads what a link leads to, and gives the file's path. */
export async function download(page, id) {
  const [file] = await Promise.all([page.waitForEvent('download'), page.click(`#${id}`)]);
  return file.path();
}

/** A viewer with one page of it open: { viewer, browser, page }. */
export async function openViewer() {
  const viewer = await startViewer();
  const browser = await startBrowser();
  return { viewer, browser, page: await openPage(browser, viewer.url) };
}

/** Ends both; neither may have had anything to complain about. */
export async function closeViewer({ viewer, browser, page }) {
  await browser.close();
  const { code, stderr } = await viewer.stop();
  assert.deepEqual({ code, stderr, problems: page.problems }, { code: 0, stderr: '', problems: [] });
}
