// The child's side of child.js.

import fs from 'node:fs';
import v8 from 'node:v8';

import * as camera from './fake-camera.js';
import * as directBackend from './direct-backend.js';
import * as dinoLite from './fake-dino-lite.js';
import * as environment from './environment.js';
import * as everyFunction from './every-function.js';
import * as fakeLibrary from './fake-library.js';
import * as hang from './hang.js';
import * as kit from '../../../kit/index.js';
import * as oddValues from './odd-values.js';
import * as ostrel from './fake-ostrel.js';
import * as waiting from './waiting.js';

const argumentsFd = 3;
const resultFd = 4;

/** What `body` gets as its first argument. The addon is loaded when it is first asked for. */
const context = {
  ...camera,
  ...directBackend,
  ...dinoLite,
  ...environment,
  ...everyFunction,
  ...fakeLibrary,
  ...hang,
  ...oddValues,
  ...ostrel,
  ...waiting,
  kit,
  get addon() {
    return environment.loadAddon();
  },
};

export async function run(body) {
  const args = v8.deserialize(fs.readFileSync(argumentsFd));
  const value = await body(context, ...args);
  fs.writeSync(resultFd, v8.serialize(value));
  fs.closeSync(resultFd);
}
