// A utility process's side: process.parentPort, with the message in the event's data.

import { EventEmitter } from 'node:events';

process.parentPort = Object.assign(new EventEmitter(), {
  postMessage: (message) => process.send(message),
});
// Messages wait until somebody listens.
process.parentPort.once('newListener', () =>
  process.on('message', (data) => process.parentPort.emit('message', { data })));
