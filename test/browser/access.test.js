// Who may talk to the viewer, what it serves, and how it ends; without a browser.

import assert from 'node:assert/strict';
import { readFile, readdir } from 'node:fs/promises';
import http from 'node:http';
import net from 'node:net';
import path from 'node:path';
import { after, before, test } from 'node:test';

import WebSocket from 'ws';

import { probe } from '../script/support/media.js';
import { root, startViewer } from './support/viewer.js';

// Far above what anything takes: it ends a test that hangs.
const longestMs = 120_000;

let viewer;
let address;
let token;

before(async () => {
  viewer = await startViewer({ args: ['--linger', '0'] });
  address = new URL(viewer.url);
  token = address.searchParams.get('token');
});

after(async () => {
  const { code, stderr } = await viewer.stop();
  assert.deepEqual({ code, stderr }, { code: 0, stderr: '' });
});

/** Asks for exactly this path. */
function ask(target, { headers = {}, method = 'GET' } = {}) {
  return new Promise((resolve, reject) => {
    const request = http.request({ host: '127.0.0.1', port: address.port, path: target, method, headers, agent: false },
      (response) => {
        let body = '';
        response.setEncoding('latin1').on('data', (text) => (body += text));
        response.on('end', () => resolve({ status: response.statusCode, headers: response.headers, body }));
      });
    request.on('error', reject).end();
  });
}

const cookie = () => ({ cookie: `ostrel-viewer-${address.port}=${token}` });

/** Opens a socket; gives it, or the status by which it was refused. */
function connect({ target = '/socket', headers = cookie(), origin = address.origin } = {}) {
  return new Promise((resolve) => {
    const socket = new WebSocket(`ws://127.0.0.1:${address.port}${target}`, { headers, ...(origin && { origin }) });
    socket.once('open', () => resolve(socket));
    socket.once('unexpected-response', (request, response) => resolve(response.statusCode));
    socket.once('error', () => {});
  });
}

/** Runs commands over a socket, and waits for states. */
class Client {
  static async open() {
    const client = new Client();
    client.socket = await connect();
    client.state = {};
    client.answers = new Map();
    client.watchers = new Set();
    client.socket.on('message', (data) => {
      const message = JSON.parse(data);
      if (message.state) {
        client.state = message.state;
        client.watchers.forEach((look) => look());
      } else {
        client.answers.get(message.id)(message);
      }
    });
    return client;
  }

  run(command, args) {
    const id = this.answers.size + 1;
    this.socket.send(JSON.stringify({ id, command, args }));
    return new Promise((resolve) => this.answers.set(id, resolve));
  }

  leave() {
    this.socket.terminate();
    return new Promise((resolve) => this.socket.once('close', resolve));
  }

  until(isFulfilled) {
    return new Promise((resolve, reject) => {
      const timer = setTimeout(() => reject(new Error(`The state stays ${JSON.stringify(this.state)}`)), longestMs);
      const look = () => {
        if (isFulfilled(this.state)) {
          clearTimeout(timer);
          this.watchers.delete(look);
          resolve(this.state);
        }
      };
      this.watchers.add(look);
      look();
    });
  }
}

/** Looks in again and again, with no page open in between, until the state is as wanted; gives it. */
async function lookIn(isFulfilled) {
  for (const end = performance.now() + longestMs; ;) {
    const client = await Client.open();
    const state = await client.until(({ log }) => log);
    await client.leave();
    if (isFulfilled(state)) {
      return state;
    }
    assert.ok(performance.now() < end, JSON.stringify(state));
  }
}

/** The frames of a video, decoded. */
const countFrames = (file) => Number(probe(file).stream.nb_read_frames);

test('listens on the loopback address alone', async () => {
  const listening = await readFile('/proc/net/tcp', 'utf8');
  const port = Number(address.port).toString(16).toUpperCase().padStart(4, '0');
  const own = listening.split('\n').map((line) => line.trim().split(/\s+/)).filter(([, local, , state]) =>
    local?.endsWith(`:${port}`) && state === '0A').map(([, local]) => local);
  assert.deepEqual(own, [`0100007F:${port}`]);
});

test('nothing is answered without the token, or with another one', async () => {
  for (const target of ['/', '/main.js', '/frame', '/files/a.png', '/?token=', `/?token=${token}x`, `/?token=${token.slice(1)}`]) {
    const { status, body } = await ask(target);
    assert.deepEqual([status, body.includes(token)], [403, false], target);
  }
  const other = { cookie: `ostrel-viewer-${address.port}=${'A'.repeat(token.length)}` };
  assert.equal((await ask('/', { headers: other })).status, 403);
});

test('the token in the address is exchanged for a cookie that scripts cannot read', async () => {
  const { status, headers } = await ask(`/?token=${token}`);
  assert.equal(status, 303);
  assert.equal(headers.location, '/');
  assert.deepEqual(headers['set-cookie'],
    [`ostrel-viewer-${address.port}=${token}; HttpOnly; SameSite=Strict; Path=/`]);
  const page = await ask('/', { headers: cookie() });
  assert.equal(page.status, 200);
  assert.equal(page.body, await readFile(path.join(root, 'viewer/page/index.html'), 'latin1'));
  assert.match(page.headers['content-security-policy'], /^default-src 'none'; script-src 'self';/);
  assert.equal(page.headers['cache-control'], 'no-store');
});

test('another name for this address, and a script of another site, are refused', async () => {
  for (const headers of [{ host: `evil.example:${address.port}` }, { host: '127.0.0.1:1' }, { host: '127.0.0.1' },
    { origin: 'http://evil.example' }, { origin: `https://127.0.0.1:${address.port}` }, { origin: 'null' }]) {
    assert.equal((await ask('/', { headers: { ...cookie(), ...headers } })).status, 403, JSON.stringify(headers));
  }
  const own = { ...cookie(), host: `localhost:${address.port}`, origin: `http://localhost:${address.port}` };
  assert.equal((await ask('/', { headers: own })).status, 200);
});

test('nothing outside of the page\'s folder is served', async () => {
  for (const target of ['/../main.js', '/..%2fmain.js', '/%2e%2e/main.js', '/files/../../package.json', '/files/..%2f..%2fpackage.json',
    '/files//etc/passwd', '/files/%2fetc%2fpasswd', '/page/index.html', '/access.js', '//etc/passwd', '/main.js/', '/main.js%00',
    '/constructor', '/files/constructor', '/files/', '/files/nothing.mp4']) {
    const { status, body } = await ask(target, { headers: cookie() });
    const isPage = body === await readFile(path.join(root, 'viewer/page/main.js'), 'latin1');
    // A client that resolves the dots itself may come to the page's own main.js.
    assert.ok(status === 404 || (status === 200 && isPage), `${target}: ${status}`);
    assert.doesNotMatch(body, /root:|ostrel-native/);
  }
});

test('only what reads is allowed', async () => {
  for (const method of ['POST', 'PUT', 'DELETE', 'OPTIONS']) {
    assert.equal((await ask('/', { method, headers: cookie() })).status, 405, method);
  }
});

test('a socket needs the token and this page\'s origin', async () => {
  assert.equal(await connect({ headers: {} }), 403);
  assert.equal(await connect({ origin: 'http://evil.example' }), 403);
  assert.equal(await connect({ origin: null }), 403);
  assert.equal(await connect({ target: '/other' }), 403);
  const socket = await connect();
  assert.equal(socket.readyState, WebSocket.OPEN);
  for (const nonsense of ['{', '[]', '{"command":1,"id":1}', Buffer.from([1, 2])]) {
    const each = await connect();
    each.send(nonsense);
    const code = await new Promise((resolve) => each.once('close', resolve));
    assert.equal(code, 1008);
  }
  socket.terminate();
});

test('arguments that are not understood are refused in words', async () => {
  const client = await Client.open();
  const refusals = [
    ['nothing', {}, 'The viewer has no such command.'],
    ['constructor', {}, 'The viewer has no such command.'],
    ['focus', [], 'The viewer has no such command.'],
    ['focus', { position: 256 }, '"position" has to be a whole number from 0 to 255.'],
    ['focus', { position: '3' }, '"position" has to be a whole number from 0 to 255.'],
    ['light', { on: 1 }, '"on" has to be true or false.'],
    ['camera', { uniqueId: 'x' }, 'There is no such camera.'],
    ['preview', { index: 2 }, '"index" has to be a whole number from 0 to 1.'],
    ['stack', { from: 1, to: 9, steps: 2 }, '"steps" has to be a whole number from 3 to 11.'],
    ['hand', { name: 'frozen', value: 'yes' }, 'The virtual microscope cannot be set like this.'],
    ['hand', { name: 'toString', value: true }, 'The virtual microscope cannot be set like this.'],
  ];
  for (const [command, args, words] of refusals) {
    assert.equal((await client.run(command, args)).error, words, command);
  }
  client.socket.terminate();
});

test('a port that is in use is told in words', async () => {
  const second = await startViewer({ args: ['--port', address.port] });
  const { code, stdout, stderr } = await second.stop();
  assert.deepEqual([code, stdout], [1, '']);
  assert.equal(stderr.trim(), `Port ${address.port} is in use, perhaps by another viewer: end that one, or name another port with ` +
    '--port N (0 takes any that is free).');
});

test('a library that is not there is told in words, and nothing is left running', async () => {
  const missing = await startViewer({ args: ['--camera', '/nowhere/libcnokhwa.so'] });
  const { code, stdout, stderr } = await missing.stop();
  assert.deepEqual([code, stdout], [1, '']);
  assert.match(stderr, /^\s*The camera library \/nowhere\/libcnokhwa\.so was refused: Could not load /);
});

test('a page that vanishes does not cost the recording: without any page it is finished', async () => {
  const first = await Client.open();
  await first.until(({ health }) => health === 'live');
  assert.deepEqual(await first.run('record', {}), { id: 1, result: null });
  await first.until(({ recording }) => recording.framesWritten > 5);
  const second = await Client.open();
  first.socket.terminate();
  const { recording } = await second.until((state) => state.recording?.framesWritten > 15);
  assert.equal(recording.phase, 'recording', 'it goes on while a page is open');
  await second.leave();
  const { recording: { last } } = await lookIn((state) => state.recording.last);
  assert.equal(countFrames(path.join(viewer.output, last.name)), last.framesWritten);
});

test('a page that vanishes in the middle of a focus stack leaves nothing running', async () => {
  const first = await Client.open();
  await first.until(({ health }) => health === 'live');
  await first.until(({ microscope }) => microscope?.focus >= 0);
  first.run('stack', { from: 48, to: 208, steps: 11 });
  await first.until(({ stack }) => stack.done > 0);
  await first.leave();
  const { stack } = await lookIn(({ log }) => log.some(({ text }) => text === 'The focus stack was cancelled'));
  assert.deepEqual([stack.isBusy, stack.result], [false, null]);
});

test('options that make no sense are told in words', async () => {
  for (const [args, words] of [[['--port', '70000'], '--port takes a number from 0 to 65535.'],
    [['--linger', 'long'], '--linger takes a number of seconds from 0 to 86400.']]) {
    const refused = await startViewer({ args });
    const { code, stdout, stderr } = await refused.stop();
    assert.deepEqual([code, stdout, stderr.trim()], [1, '', words]);
  }
});

test('Ctrl+C, which npm passes on once more, finishes the file and ends', async () => {
  const own = await startViewer();
  const [before, beforeToken, beforeViewer] = [address, token, viewer];
  [address, viewer] = [new URL(own.url), own];
  token = address.searchParams.get('token');
  const client = await Client.open();
  await client.until(({ health }) => health === 'live');
  await client.run('record', {});
  await client.until(({ recording }) => recording.framesWritten > 10);
  own.child.kill('SIGINT');
  await new Promise((resolve) => own.child.stdout.once('data', resolve));
  own.child.kill('SIGINT');
  const { code, signal, stderr } = await own.ended;
  assert.deepEqual({ code, signal, stderr }, { code: 0, signal: null, stderr: '' });
  const [name] = await readdir(own.output);
  assert.ok(countFrames(path.join(own.output, name)) > 10);
  const isOpen = await new Promise((resolve) => net.connect(address.port, '127.0.0.1')
    .once('connect', () => resolve(true)).once('error', () => resolve(false)));
  assert.equal(isOpen, false);
  await own.stop();
  [address, token, viewer] = [before, beforeToken, beforeViewer];
});
