// What the developer's commands print: one aligned line a step, and one way to fail.

import { LiveLine } from './live-line.js';

const labelWidth = 20;

/** Something that stops a command: `message` says what is wrong and what to do. */
export class Failure extends Error {
  /** `details`: lines that show the cause, printed before the message. */
  constructor(message, details = []) {
    super(message);
    this.details = details;
  }
}

/** One step of a command: progress while it runs, one line when it is done. */
export class Step {
  constructor(label) {
    this.label = `  ${label.padEnd(labelWidth)}  `;
    this.line = new LiveLine();
    this.started = performance.now();
  }

  progress(text) {
    this.line.update(`${this.label}${text}`);
  }

  /** Shows `text` and the seconds that have passed until `work` is settled, and gives its value. */
  async during(text, work) {
    const show = () => this.progress(`${text} ...${this.seconds ? ` ${this.seconds} s` : ''}`);
    show();
    const timer = setInterval(show, 1000);
    try {
      return await work;
    } finally {
      clearInterval(timer);
    }
  }

  done(text) {
    this.line.finish(`${this.label}${text}`);
  }

  /** Prints lines that belong to the step but must not be lost, such as a failed test. */
  print(lines) {
    this.line.clear();
    process.stdout.write(`${lines.join('\n')}\n`);
  }

  get seconds() {
    return Math.round((performance.now() - this.started) / 1000);
  }
}

/** The command that a developer types to run this again. */
export function commandLine(lifecycle = process.env.npm_lifecycle_event) {
  if (lifecycle === 'start' || lifecycle === 'test') {
    return `npm ${lifecycle}`;
  }
  return lifecycle ? `npm run ${lifecycle}` : `node ${process.argv[1]}`;
}

/** Runs a command's main function; a failure is printed and becomes exit code 1. */
export async function runCommand(main) {
  try {
    await main();
  } catch (error) {
    if (!(error instanceof Failure)) {
      throw error;
    }
    process.exitCode = 1;
    const details = error.details.length > 0 ? `\n${error.details.join('\n')}\n` : '';
    process.stdout.write(`${process.stdout.isTTY ? '\n' : ''}${details}\n${error.message}\n`);
  }
}
