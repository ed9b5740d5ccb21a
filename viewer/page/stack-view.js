// Taking a focus stack, and comparing its pictures with the fused one.

import { showFile } from './controls.js';

const $ = (id) => document.getElementById(id);
const seconds = (ms) => `${(ms / 1000).toFixed(1)} s`;
const explanation = 'Takes pictures from one focus position to the other and fuses them.';

function describe({ sources, measuringMs, fusingMs }) {
  return `${sources.length} pictures, measured in ${seconds(measuringMs)} and fused in ${seconds(fusingMs)}.`;
}

export class StackView {
  /** `onResult`: called when a new fused picture is there. */
  constructor(link, onResult) {
    Object.assign(this, { onResult, result: null });
    const value = (id) => Number($(id).value);
    $('take-stack').addEventListener('click', () => {
      const command = this.isBusy ? ['cancelStack']
        : ['stack', { from: value('stack-from'), to: value('stack-to'), steps: value('stack-steps') }];
      link.run(...command).catch(() => {});  // the log tells
    });
    $('swipe').addEventListener('input', () => this.divide());
    new ResizeObserver(() => this.fit()).observe($('compare'));
  }

  show({ stack, microscope, health }) {
    if (!stack) {
      return;
    }
    this.isBusy = stack.isBusy;
    $('take-stack').disabled = !stack.isBusy && (!microscope?.canFocus || health !== 'live');
    $('take-stack-text').textContent = stack.isBusy ? 'Cancel' : 'Take';
    $('stack-progress').value = stack.done;
    const text = stack.text || (stack.result ? describe(stack.result) : explanation);
    if ($('stack-text').textContent !== text) {
      $('stack-text').textContent = text;
    }
    if (stack.result && stack.result.fused !== this.result?.fused) {
      const isFresh = this.result !== null || this.wasBusy;
      this.result = stack.result;
      this.showResult();
      if (isFresh) {
        this.onResult();
      }
    }
    this.wasBusy = stack.isBusy;
  }

  showResult() {
    const { fused, sources, reference } = this.result;
    $('no-stack').hidden = true;
    $('compare').hidden = false;
    $('fused-picture').src = `/files/${fused}`;
    showFile($('stack-link'), fused);
    $('sources').replaceChildren(...sources.map((source, i) => this.makeChoice(source, i === reference)));
    this.choose(sources[reference]);
    this.fit();
    this.divide();
  }

  makeChoice(source, isChosen) {
    const label = document.createElement('label');
    const input = Object.assign(document.createElement('input'), { type: 'radio', name: 'source', checked: isChosen });
    const picture = Object.assign(document.createElement('img'), { src: `/files/${source.name}`, alt: '' });
    input.addEventListener('change', () => this.choose(source));
    label.append(input, picture, `${source.position}  ·  ${Math.round(100 * source.share)} %`);
    label.title = `Focus at ${source.position}; the sharpest in ${(100 * source.share).toFixed(1)} % of the picture`;
    return label;
  }

  choose({ name, position }) {
    $('source-picture').src = `/files/${name}`;
    $('source-caption').textContent = `Focus at ${position}`;
  }

  /** As large as there is room. */
  fit() {
    if (!this.result || $('compare').clientWidth === 0) {
      return;
    }
    const { width, height } = this.result;
    const room = { width: $('compare').clientWidth, height: $('compare').clientHeight - $('sources').offsetHeight };
    const scale = Math.min(room.width / width, room.height / height);
    Object.assign($('pair').style, { width: `${width * scale}px`, height: `${height * scale}px` });
  }

  divide() {
    $('pair').style.setProperty('--at', `${$('swipe').value}%`);
    $('swipe').setAttribute('aria-valuetext', `${$('swipe').value} % source`);
  }
}
