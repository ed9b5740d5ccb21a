// The pages that are open: each has a socket for commands and the state.

import { WebSocketServer } from 'ws';

const longestMessage = 4096;
const mostPages = 8;
const fullCode = 1013;

/** One open page. */
class Page {
  constructor(socket, { board, runCommand }) {
    Object.assign(this, { socket, runCommand });
    this.tell = (state) => this.send({ state });
    board.listeners.add(this.tell);
    socket.on('message', (data, isBinary) => this.receive(data, isBinary));
    socket.on('error', () => {});  // the close that follows it tells
    socket.once('close', () => board.listeners.delete(this.tell));
    this.tell(board.state);
  }

  send(message) {
    if (this.socket.readyState === this.socket.OPEN) {
      this.socket.send(JSON.stringify(message));
    }
  }

  receive(data, isBinary) {
    let message;
    try {
      message = isBinary ? null : JSON.parse(data);
    } catch {
      message = null;
    }
    if (typeof message?.command === 'string' && Number.isInteger(message.id)) {
      this.run(message);
    } else {
      this.socket.close(1008, 'not understood');
    }
  }

  async run({ id, command, args }) {
    try {
      this.send({ id, result: await this.runCommand(command, args) ?? null });
    } catch (error) {
      this.send({ id, error: error.message });
    }
  }
}

export class Pages {
  /** `onEmpty`, `onFirst`: the last page has gone, and one has come where there was none. */
  constructor({ board, runCommand, onFirst, onEmpty }) {
    this.server = new WebSocketServer({ noServer: true, maxPayload: longestMessage, perMessageDeflate: false });
    this.context = { board, runCommand };
    this.onFirst = onFirst;
    this.onEmpty = onEmpty;
  }

  get count() {
    return this.server.clients.size;
  }

  accept(request, socket, head) {
    this.server.handleUpgrade(request, socket, head, (page) => this.welcome(page));
  }

  welcome(socket) {
    if (this.count > mostPages) {
      socket.close(fullCode, 'too many pages are open');
      return;
    }
    if (this.count === 1) {
      this.onFirst();
    }
    new Page(socket, this.context);
    socket.once('close', () => this.count === 0 && this.onEmpty());
  }

  close() {
    this.server.clients.forEach((socket) => socket.terminate());
  }
}
