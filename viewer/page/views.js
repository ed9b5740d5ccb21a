// The two views of the stage, as tabs.

const $ = (id) => document.getElementById(id);
const names = ['live', 'stack'];

export class Views {
  /** `onChange(name)`: another view is shown. */
  constructor(onChange) {
    this.onChange = onChange;
    names.forEach((name, i) => {
      $(`${name}-tab`).addEventListener('click', () => this.show(name));
      $(`${name}-tab`).addEventListener('keydown', ({ key }) => {
        if (key === 'ArrowLeft' || key === 'ArrowRight') {
          this.show(names[1 - i]);
          $(`${names[1 - i]}-tab`).focus();
        }
      });
    });
    this.current = 'live';
  }

  show(name) {
    this.current = name;
    names.forEach((each) => {
      const isShown = each === name;
      $(`${each}-tab`).setAttribute('aria-selected', String(isShown));
      $(`${each}-tab`).tabIndex = isShown ? 0 : -1;
      $(`${each}-view`).hidden = !isShown;
    });
    this.onChange(name);
  }

  toggle() {
    this.show(this.current === 'live' ? 'stack' : 'live');
  }
}
