// How live the viewer's page is: frames a second that the canvas shows, the way of a frame from the camera to the
// canvas, and for how long the thread that serves the page was busy at most. The camera paints the number of each
// frame into the picture; the page's canvas is read back after each painting.

import { fork } from 'node:child_process';
import { once } from 'node:events';
import { mkdtemp, readFile, rm } from 'node:fs/promises';
import os from 'node:os';
import path from 'node:path';
import { fileURLToPath } from 'node:url';

import { chromium } from 'playwright-core';

import { MicroscopeControl } from '../examples/lib/virtual-microscope.js';

const seconds = 10;
const settleMs = 3000;
const periodMs = 1000 / 30;
const clockSamples = 2000;
const viewerFile = fileURLToPath(new URL('lib/watched-viewer.js', import.meta.url));
const frameCode = new URL('../test/script/support/frame-code.js', import.meta.url);
const browserOptions = ['--headless', '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
  '--disable-background-networking', '--disable-component-update', '--disable-sync'];

const now = () => performance.timeOrigin + performance.now();
const sleep = (ms) => new Promise((resolve) => setTimeout(resolve, ms));

function quantile(values, share) {
  return [...values].sort((a, b) => a - b)[Math.min(values.length - 1, Math.floor(share * values.length))];
}

/** When the camera made frame 0 of the capture that runs, on the wall clock: no frame is seen before it is made. */
async function findStart(control) {
  let start = Infinity;
  for (let i = 0; i < clockSamples; ++i) {
    const status = await control.run('status');
    start = Math.min(start, now() - Number(/frame (\d+)/.exec(status)[1]) * periodMs);
  }
  return start;
}

/** Reads back each frame that is painted for a while: [{ number, at }]. Runs in the page. */
function watchCanvas(ms) {
  return new Promise((resolve) => {
    const { prototype } = CanvasRenderingContext2D;
    const paint = prototype.putImageData;
    const seen = [];
    prototype.putImageData = function (...args) {
      paint.apply(this, args);
      const { width, height } = this.canvas;
      const region = [Math.ceil((height * 17) / 45), Math.ceil((height * 9) / 45)];
      const { data } = this.getImageData(0, 0, ...region);
      seen.push({ number: window.readFrameCode(data, region[0], height, region[0] * 4, 4), at: performance.timeOrigin + performance.now() });
    };
    setTimeout(() => {
      prototype.putImageData = paint;
      resolve(seen);
    }, ms);
  });
}

async function measure(page, control, preview) {
  await page.selectOption('#preview', { label: preview });
  await sleep(settleMs);
  const start = await findStart(control);
  viewer.send('watch');
  const seen = await page.evaluate(watchCanvas, seconds * 1000);
  viewer.send('tell');
  const [{ longestMs }] = await once(viewer, 'message');
  const numbers = seen.map(({ number }) => number);
  const latencies = seen.filter(({ number }) => number !== null).map(({ number, at }) => at - start - number * periodMs);
  const span = seen.at(-1).at - seen[0].at;
  return {
    rate: (1000 * (seen.length - 1)) / span,
    distinct: new Set(numbers).size,
    made: numbers.at(-1) - numbers[0] + 1,
    unread: numbers.filter((number) => number === null).length,
    latencies,
    longestMs,
  };
}

const directory = await mkdtemp(path.join(os.tmpdir(), 'ostrel-bench-'));
const controlPath = path.join(directory, 'control');
const viewer = fork(viewerFile, ['--port', '0', '--output', directory], {
  env: { ...process.env, OSTREL_SIMULATOR_CONTROL: controlPath, OSTREL_SIMULATOR_NUMBERS: '1' },
});
const [{ url }] = await once(viewer, 'message');
const control = await MicroscopeControl.connect(controlPath);
const browser = await chromium.launch({ executablePath: '/usr/bin/chromium', args: browserOptions });
const page = await browser.newPage({ viewport: { width: 1440, height: 900 } });
await page.addInitScript({ content: `${(await readFile(frameCode, 'utf8')).replaceAll('export ', '')}; window.readFrameCode = readFrameCode;` });
await page.goto(url);

console.log(`The viewer's page in Chromium without a graphics card; camera 1920 x 1080 at 30 frames a second, ${seconds} s`);
console.log(`${'preview'.padEnd(12)} ${'shown a second'.padStart(15)} ${'frames seen'.padStart(12)} ${'latency median'.padStart(15)} ` +
  `${'95 %'.padStart(8)} ${'longest'.padStart(8)} ${'busy at most'.padStart(13)}`);
for (const preview of ['960 × 540', '1920 × 1080']) {
  const { rate, distinct, made, unread, latencies, longestMs } = await measure(page, control, `up to ${preview}`);
  const [median, most, longest] = [0.5, 0.95, 1].map((share) => quantile(latencies, share));
  console.log(`${preview.padEnd(12)} ${rate.toFixed(1).padStart(15)} ${`${distinct} of ${made}`.padStart(12)} ` +
    `${`${median.toFixed(1)} ms`.padStart(15)} ${`${most.toFixed(1)} ms`.padStart(8)} ${`${longest.toFixed(1)} ms`.padStart(8)} ` +
    `${`${longestMs.toFixed(1)} ms`.padStart(13)}${unread > 0 ? `  (${unread} frames without a readable number)` : ''}`);
}

await browser.close();
control.close();
viewer.disconnect();
await once(viewer, 'exit');
await rm(directory, { recursive: true });
