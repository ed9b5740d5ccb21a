// Keys that press the buttons which carry them.

const takesText = (element) => element.matches('input[type="number"], select');

/** `more`: functions by further keys. */
export function listenForShortcuts(more) {
  document.addEventListener('keydown', (event) => {
    if (event.ctrlKey || event.altKey || event.metaKey || event.repeat && !/[,.]/.test(event.key) || takesText(event.target)) {
      return;
    }
    const key = event.key.toLowerCase();
    const button = document.querySelector(`[data-key="${CSS.escape(key)}"]`);
    if (button && !button.disabled) {
      button.click();
      event.preventDefault();
    } else if (more[key]) {
      more[key]();
      event.preventDefault();
    }
  });
}
