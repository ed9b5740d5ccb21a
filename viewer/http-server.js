// The viewer's way out: the page, its sockets and the files that were made, on the loopback address.

import { createReadStream } from 'node:fs';
import { readdir, readFile, stat } from 'node:fs/promises';
import http from 'node:http';
import path from 'node:path';
import { fileURLToPath } from 'node:url';

import { Access } from './access.js';

const pageDirectory = fileURLToPath(new URL('page', import.meta.url));
const address = '127.0.0.1';
const types = {
  '.html': 'text/html; charset=utf-8',
  '.css': 'text/css; charset=utf-8',
  '.js': 'text/javascript; charset=utf-8',
  '.svg': 'image/svg+xml',
  '.png': 'image/png',
  '.mp4': 'video/mp4',
};

const closedToOthers = (port) => ({
  'Cache-Control': 'no-store',
  'Content-Security-Policy': "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' blob:; " +
    `connect-src 'self' ws://127.0.0.1:${port} ws://localhost:${port}; ` +
    "base-uri 'none'; form-action 'none'; frame-ancestors 'none'",
  'Cross-Origin-Opener-Policy': 'same-origin',
  'Cross-Origin-Resource-Policy': 'same-origin',
  'Referrer-Policy': 'no-referrer',
  'X-Content-Type-Options': 'nosniff',
});

/** The page's files by their addresses: nothing else can be asked for, however it is spelled. */
async function readPage() {
  const names = await readdir(pageDirectory);
  const files = await Promise.all(names.filter((name) => types[path.extname(name)]).map(async (name) =>
    [`/${name}`, { body: await readFile(path.join(pageDirectory, name)), type: types[path.extname(name)] }]));
  const page = new Map(files);
  page.set('/', page.get('/index.html'));
  return page;
}

/** Listens, and says in words why it cannot. */
async function listen(server, port) {
  await new Promise((resolve, reject) => {
    server.once('listening', resolve);
    server.once('error', (error) => reject(error.code === 'EADDRINUSE'
      ? new Error(`Port ${port} is in use, perhaps by another viewer: end that one, or name another port with --port N ` +
        '(0 takes any that is free).')
      : new Error(`The viewer cannot listen on ${address}:${port}: ${error.message}.`)));
    server.listen(port, address);
  });
  return server.address().port;
}

export class ViewerServer {
  /**
   * `findFile(name)`: what /files/NAME stands for, { file } on disk or { body } in memory, or undefined.
   * `feed`: where frames come from. `acceptSocket(request, socket, head)`: a page wants a WebSocket.
   */
  static async start({ port, findFile, feed, acceptSocket }) {
    const viewer = new ViewerServer();
    viewer.page = await readPage();
    Object.assign(viewer, { findFile, feed });
    viewer.server = http.createServer((request, response) => viewer.answer(request, response));
    viewer.server.on('upgrade', (request, socket, head) => viewer.upgrade(request, socket, head, acceptSocket));
    const taken = await listen(viewer.server, port);
    viewer.access = new Access(taken);
    viewer.headers = closedToOthers(taken);
    viewer.origin = `http://${address}:${taken}`;
    return viewer;
  }

  /** The address to open, with the token. */
  get url() {
    return `${this.origin}/?token=${this.access.token}`;
  }

  /** The address that a request names, or the status by which it is turned away. */
  judge({ method, url, headers }) {
    if (!this.access.isOwnAddress(headers)) {
      return { status: 403, text: 'This viewer answers to its own address alone.' };
    }
    let address;
    try {
      address = new URL(url, this.origin);
    } catch {
      return { status: 400, text: 'This address cannot be read.' };
    }
    if (!this.access.hasToken(address, headers)) {
      return { status: 403, text: 'Open the viewer by the address that it printed: the token is missing or another one\'s.' };
    }
    if (method !== 'GET' && method !== 'HEAD') {
      return { status: 405, text: 'Only GET and HEAD are answered.' };
    }
    return { address };
  }

  answer(request, response) {
    const { address, status, text } = this.judge(request);
    if (!address) {
      this.say(response, status, text);
    } else if (address.searchParams.has('token') && address.pathname === '/') {
      // Out of the address line and of the history; a reload has the cookie.
      response.writeHead(303, { ...this.headers, 'Set-Cookie': this.access.cookie, Location: '/' }).end();
    } else if (this.page.has(address.pathname)) {
      const { body, type } = this.page.get(address.pathname);
      this.send(request, response, { 'Content-Type': type, 'Content-Length': body.length }, body);
    } else if (address.pathname === '/frame') {
      this.sendFrame(response).catch(() => response.destroy());
    } else if (address.pathname.startsWith('/files/')) {
      this.sendFile(request, response, address.pathname.slice('/files/'.length)).catch(() =>
        response.headersSent ? response.destroy() : this.say(response, 404, 'This file is gone.'));
    } else {
      this.say(response, 404, 'There is nothing here.');
    }
  }

  say(response, status, text) {
    response.writeHead(status, { ...this.headers, 'Content-Type': 'text/plain; charset=utf-8' }).end(`${text}\n`);
  }

  send(request, response, headers, body) {
    response.writeHead(200, { ...this.headers, ...headers });
    response.end(request.method === 'HEAD' ? undefined : body);
  }

  /** Answers with the next frame there is: each page is as fast as it asks, and holds up no other. */
  async sendFrame(response) {
    const gone = new AbortController();
    response.once('close', () => gone.abort());
    const frame = await this.feed.next(gone.signal);
    response.once('close', () => frame.release());
    const headers = { 'Content-Type': 'application/octet-stream', 'Content-Length': frame.message.length };
    response.writeHead(200, { ...this.headers, ...headers }).end(frame.message);
  }

  async sendFile(request, response, name) {
    const found = this.findFile(name);
    if (!found) {
      this.say(response, 404, 'There is no such file.');
      return;
    }
    const type = { 'Content-Type': types[path.extname(name)] };
    if (found.body) {
      this.send(request, response, { ...type, 'Content-Length': found.body.length }, found.body);
      return;
    }
    const { size } = await stat(found.file);
    const headers = { ...type, 'Content-Length': size, 'Content-Disposition': `attachment; filename="${name}"` };
    if (request.method === 'HEAD' || size === 0) {
      this.send(request, response, headers);
      return;
    }
    response.writeHead(200, { ...this.headers, ...headers });
    createReadStream(found.file, { end: size - 1 }).once('error', () => response.destroy()).pipe(response);
  }

  upgrade(request, socket, head, acceptSocket) {
    const { address, status } = this.judge(request);
    // A page's script always tells its origin; what doesn't is none.
    if (!address || address.pathname !== '/socket' || request.headers.origin === undefined) {
      socket.end(`HTTP/1.1 ${status ?? 403} ${http.STATUS_CODES[status ?? 403]}\r\nConnection: close\r\n\r\n`);
      return;
    }
    acceptSocket(request, socket, head);
  }

  async close() {
    const closed = new Promise((resolve) => this.server.close(resolve));
    this.server.closeAllConnections();
    await closed;
  }
}
