// A package user's program over the kit: the frames of a preview.
//
//   node kit.mjs CAMERA-LIBRARY

import native from 'ostrel-native';
import { frames } from 'ostrel-native/kit';

if (!native.loadCameraBackend(process.argv[2])) {
  throw new Error(native.getLastError());
}
native.cameraInitialize();

const sequences = [];
for await (const { sequence, width, height } of frames({ capture: { format: 0 }, preview: { width: 320, height: 240 } })) {
  sequences.push(sequence);
  if (sequences.length === 3) {
    console.log(JSON.stringify({ width, height, isRising: sequences.every((one, i) => i === 0 || one > sequences[i - 1]) }));
    break;
  }
}
