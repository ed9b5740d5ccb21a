// The bar below the picture: how large what it shows is.

import { cameraMicrons, fieldText, lengthText, niceLength, previewMicrons } from './optics.js';
import { write } from './text.js';

const longestBar = 180;
const unknown = '–';
const pixelText = (microns) => (microns === null ? unknown : `${microns.toFixed(3)} µm`);
const keys = ['width', 'height', 'sourceWidth', 'sourceHeight'];

export class OpticsBar {
  /** `element`: in which the picture is shown as large as it fits. */
  constructor(element) {
    this.element = element;
    this.frame = null;
    this.microscope = null;
    this.resized = new ResizeObserver(() => this.show());
    this.resized.observe(element);
  }

  /** Another picture is shown, in another element. */
  look(element) {
    if (element !== this.element) {
      this.resized.unobserve(this.element);
      this.element = element;
      this.resized.observe(element);
    }
  }

  /** What picture is shown, and what the microscope tells of it. */
  tell(frame, microscope) {
    const isSame = this.microscope === microscope && this.frame && frame && keys.every((key) => this.frame[key] === frame[key]);
    this.frame = frame;
    this.microscope = microscope;
    if (!isSame) {
      this.show();
    }
  }

  show() {
    const { frame } = this;
    const microns = frame && previewMicrons(this.microscope, frame);
    const magnification = this.microscope?.magnification;
    write('magnification', magnification > 0 ? `${magnification.toFixed(1)}×` : unknown);
    write('size', frame ? `${frame.width} × ${frame.height} of ${frame.sourceWidth} × ${frame.sourceHeight}` : unknown);
    write('pixel', pixelText(frame && cameraMicrons(this.microscope, frame.sourceWidth)));
    write('shown-pixel', pixelText(microns));
    write('field', microns === null ? unknown : fieldText(microns * frame.width, microns * frame.height));
    this.showScale(microns);
  }

  /** The bar is as long on the screen as its length is in the picture. */
  showScale(microns) {
    const { clientWidth, clientHeight } = this.element;
    const bar = document.getElementById('scale-bar');
    bar.hidden = microns === null || clientWidth === 0;
    if (bar.hidden) {
      write('scale-text', unknown);
      return;
    }
    const screenPerPixel = Math.min(clientWidth / this.frame.width, clientHeight / this.frame.height);
    const length = niceLength((longestBar / screenPerPixel) * microns);
    bar.style.width = `${(length / microns) * screenPerPixel}px`;
    write('scale-text', lengthText(length));
  }
}
