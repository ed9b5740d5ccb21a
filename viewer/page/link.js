// The socket to the viewer: commands and their answers, and the state.

const retryMs = 1000;

export class Link extends EventTarget {
  constructor() {
    super();
    this.answers = new Map();
    this.lastId = 0;
    this.connect();
  }

  connect() {
    this.socket = new WebSocket(`ws://${location.host}/socket`);
    this.socket.onmessage = ({ data }) => this.receive(JSON.parse(data));
    this.socket.onclose = ({ reason }) => {
      this.answers.forEach(({ reject }) => reject(new Error('The viewer is not connected.')));
      this.answers.clear();
      this.tell('closed', reason);
      setTimeout(() => this.connect(), retryMs);
    };
  }

  tell(type, detail) {
    this.dispatchEvent(new CustomEvent(type, { detail }));
  }

  receive(message) {
    if (message.state) {
      this.tell('state', message.state);
      return;
    }
    const { resolve, reject } = this.answers.get(message.id);
    this.answers.delete(message.id);
    message.error === undefined ? resolve(message.result) : reject(new Error(message.error));
  }

  /** Runs a command and gives its result; its failure is thrown in words, which the log shows too. */
  run(command, args = {}) {
    return new Promise((resolve, reject) => {
      if (this.socket.readyState !== WebSocket.OPEN) {
        reject(new Error('The viewer is not connected.'));
        return;
      }
      const id = ++this.lastId;
      this.answers.set(id, { resolve, reject });
      this.socket.send(JSON.stringify({ id, command, args }));
    });
  }
}
