// Recording the preview to an MP4 file.

import { record } from '../kit/index.js';

const nothing = { elapsedMs: 0, bytes: 0, framesWritten: 0, framesDropped: 0 };

export class RecordingDesk {
  constructor({ native, board, archive, camera }) {
    Object.assign(this, { native, board, archive, camera });
    this.last = null;
    this.setPhase('idle');
  }

  setPhase(phase, progress = nothing) {
    this.phase = phase;
    this.board.set({ recording: { phase, ...progress, name: this.name ?? null, last: this.last } });
  }

  async start() {
    if (this.phase !== 'idle') {
      throw new Error('A recording runs already.');
    }
    this.setPhase('starting');
    try {
      const { name, file } = await this.archive.newFile('recording', '.mp4');
      this.recording = await record({ native: this.native, device: this.camera.device, file });
      this.name = name;
    } catch (error) {
      this.setPhase('idle');
      throw error;
    }
    this.recording.on('progress', (progress) => this.phase === 'recording' && this.setPhase('recording', progress));
    this.recording.warnings.forEach(({ message }) => this.board.log('seen', message));
    this.setPhase('recording');
    this.finished = this.recording.finished.then((result) => this.finish(result));
  }

  /** Finishes the file; nothing without a recording. */
  async stop() {
    if (this.phase === 'recording') {
      this.setPhase('finishing', this.recording.progress);
      await this.recording.stop();
      await this.finished;
    }
  }

  finish({ error, reason, framesWritten, framesDropped, durationMs, bytes }) {
    this.last = { name: this.name, framesWritten, framesDropped, durationMs, bytes };
    if (error) {
      this.board.log('refused', `The recording failed: ${error.message}`);
    } else {
      this.board.log('done', `Recorded ${this.name}${reason === 'stopped' ? '' : `, ended by itself (${reason})`}`);
    }
    this.name = null;
    this.setPhase('idle');
  }
}
