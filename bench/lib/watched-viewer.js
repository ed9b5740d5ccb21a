// A viewer in a process of its own that tells for how long its event loop was late at most. It is forked: "watch" and
// "tell" are what it understands, { url } and { longestMs } what it says.

import { monitorEventLoopDelay } from 'node:perf_hooks';

import { Viewer, readArguments } from '../../viewer/main.js';

const viewer = await Viewer.start(readArguments(process.argv.slice(2)));
const delays = monitorEventLoopDelay({ resolution: 1 });
delays.enable();

process.on('message', (word) => {
  if (word === 'watch') {
    delays.reset();
  } else {
    process.send({ longestMs: delays.max / 1e6 });
  }
});
process.once('disconnect', async () => {
  await viewer.close();
  process.exit();
});
process.send({ url: viewer.server.url });
