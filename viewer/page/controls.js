// The controls of camera, microscope, stills and recordings.

import { clock, megabytes } from './text.js';

const $ = (id) => document.getElementById(id);

/** Fills a list of choices, if it differs from what stands there. */
function fill(select, choices, chosen) {
  const key = JSON.stringify(choices);
  if (select.dataset.key !== key) {
    select.dataset.key = key;
    select.replaceChildren(...choices.map(({ value, text }) => new Option(text, value)));
  }
  // An open list is not changed under the hand.
  if (document.activeElement !== select || select.value === '') {
    select.value = String(chosen);
    select.title = select.selectedOptions[0]?.text ?? '';
  }
}

const setSwitch = (button, value) => button.setAttribute('aria-checked', value === null ? 'mixed' : String(value));

/** A link to a file, where there is one. */
export function showFile(link, name, text = name) {
  if (name && link.dataset.name !== name) {
    Object.assign(link, { href: `/files/${name}`, download: name, className: '' });
    link.dataset.name = name;
  }
  if (name && link.textContent !== text) {
    link.textContent = text;
    link.title = text;
  }
}

/** Sends what a slider says while it is dragged: one wish at a time, and then the newest. */
export class DraggedValue {
  constructor(input, send) {
    Object.assign(this, { input, send, wish: null, busy: false });
    input.addEventListener('input', () => {
      this.wish = Number(input.value);
      this.run();
    });
  }

  get isBusy() {
    return this.busy || this.input.matches(':active');
  }

  async run() {
    if (this.busy) {
      return;
    }
    this.busy = true;
    while (this.wish !== null) {
      const value = this.wish;
      this.wish = null;
      await this.send(value).catch(() => {});  // the log tells
    }
    this.busy = false;
  }

  show(value) {
    if (!this.isBusy) {
      this.input.value = value;
    }
  }
}

function formatText({ width, height, frameRate }) {
  return `${width} × ${height}, ${frameRate} fps`;
}

export class Controls {
  constructor(link) {
    this.link = link;
    // What fails stands in the log and in the status line.
    const run = (...command) => link.run(...command).catch(() => {});
    $('camera').addEventListener('change', ({ target }) => run('camera', { uniqueId: target.value }));
    $('format').addEventListener('change', ({ target }) => run('format', { index: Number(target.value) }));
    $('preview').addEventListener('change', ({ target }) => run('preview', { index: Number(target.value) }));
    this.focus = new DraggedValue($('focus'), (position) => link.run('focus', { position }));
    $('near').addEventListener('click', () => run('step', { direction: -1 }));
    $('far').addEventListener('click', () => run('step', { direction: 1 }));
    $('auto-focus').addEventListener('click', () => run('autoFocus'));
    $('light').addEventListener('click', () => run('light', { on: $('light').getAttribute('aria-checked') !== 'true' }));
    $('still').addEventListener('click', () => run('still'));
    $('record').addEventListener('click', () => run(this.isRecording ? 'stopRecording' : 'record'));
    $('clear-error').addEventListener('click', () => run('clearError'));
  }

  show(state) {
    this.showCamera(state);
    if (state.microscope) {
      this.showMicroscope(state);
    }
    this.showTaking(state);
  }

  showCamera({ cameras, choice, previewSizes, recording, stack }) {
    if (!cameras) {
      return;
    }
    const camera = cameras.find(({ uniqueId }) => uniqueId === choice.camera);
    fill($('camera'), cameras.map(({ uniqueId, name }) => ({ value: uniqueId, text: name })), choice.camera);
    fill($('format'), (camera?.formats ?? []).map((format, value) => ({ value, text: formatText(format) })), choice.format);
    fill($('preview'), previewSizes.map(({ width, height }, value) => ({ value, text: `up to ${width} × ${height}` })),
      choice.preview);
    const isHeld = recording.phase !== 'idle' || stack.isBusy;
    ['camera', 'format', 'preview'].forEach((id) => ($(id).disabled = isHeld));
  }

  showMicroscope({ microscope, stack }) {
    const { canFocus, canLight, status, focus, wantedFocus, led } = microscope;
    ['focus', 'near', 'far', 'auto-focus'].forEach((id) => ($(id).disabled = !canFocus || stack.isBusy));
    $('scope-status').textContent = status ?? 'no microscope';
    if (focus !== null) {
      this.focus.show(wantedFocus ?? focus);
    }
    $('focus-now').textContent = focus ?? '–';
    $('light').disabled = !canLight;
    setSwitch($('light'), led < 0 ? null : led === 1);
  }

  showTaking({ recording, health, still }) {
    this.isRecording = recording.phase === 'recording';
    const isLive = health === 'live';
    $('still').disabled = !isLive;
    $('record').disabled = !(this.isRecording || (isLive && recording.phase === 'idle'));
    $('record').setAttribute('aria-pressed', String(this.isRecording));
    $('record-text').textContent = { starting: 'Starting', recording: 'Stop', finishing: 'Finishing' }[recording.phase] ?? 'Record';
    // The last recording's numbers stay until the next one begins.
    const shown = recording.phase === 'idle' && recording.last
      ? { ...recording.last, elapsedMs: recording.last.durationMs } : recording;
    $('recording-time').textContent = clock(shown.elapsedMs);
    $('recording-size').textContent = megabytes(shown.bytes);
    $('recording-drops').textContent = shown.framesDropped;
    $('recording-flag').hidden = recording.phase === 'idle';
    $('flag-time').textContent = clock(recording.elapsedMs, false);
    showFile($('recording-link'), recording.last?.name);
    showFile($('still-link'), still?.name);
  }
}
