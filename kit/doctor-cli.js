#!/usr/bin/env node
// ostrel-doctor: what this machine has and lacks for the native object. See docs/kit.md.

import { parseArgs } from 'node:util';

import { doctor, formatReport } from './doctor.js';

const usage = `ostrel-doctor [--json] [--camera FILE] [--ostrel FILE] [--dino-lite FILE] [--turbojpeg FILE]
              [--need LIST]    camera,recording unless named; also ostrel, dino-lite, turbojpeg
Ends with 0 if all that is needed is there, with 1 if not, and with 2 if it is called in another way.`;

function readArguments() {
  const { values } = parseArgs({
    options: {
      json: { type: 'boolean' },
      help: { type: 'boolean' },
      camera: { type: 'string' },
      ostrel: { type: 'string' },
      'dino-lite': { type: 'string' },
      turbojpeg: { type: 'string' },
      need: { type: 'string' },
    },
  });
  return values;
}

async function main() {
  const { json, help, need, ...files } = readArguments();
  if (help) {
    console.log(usage);
    return 0;
  }
  const report = await doctor({
    cameraLibrary: files.camera,
    ostrelLibrary: files.ostrel,
    dinoLiteLibrary: files['dino-lite'],
    turboJpegLibrary: files.turbojpeg,
    need: need?.split(',').map((one) => one.trim()).filter(Boolean),
  });
  console.log(json ? JSON.stringify(report, null, 2) : formatReport(report));
  return report.ok ? 0 : 1;
}

try {
  process.exitCode = await main();
} catch (error) {
  console.error(`${error.message}\n\n${usage}`);
  process.exitCode = 2;
}
