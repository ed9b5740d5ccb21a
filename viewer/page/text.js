// Numbers as people read them, and where they are written.

/** 0:07.3, or 0:07 without tenths. */
export function clock(ms, tenths = true) {
  const all = Math.floor(ms / 100);
  const minutes = Math.floor(all / 600);
  const seconds = String(Math.floor(all / 10) % 60).padStart(2, '0');
  return `${minutes}:${seconds}${tenths ? `.${all % 10}` : ''}`;
}

export const megabytes = (bytes) => `${(bytes / 1e6).toFixed(1)} MB`;

export const timeOfDay = (ms) => new Date(ms).toLocaleTimeString('sv-SE');

/** Writes a text where it differs: what stays alone costs nothing and is not read out again. */
export function write(id, text) {
  const element = document.getElementById(id);
  if (element.textContent !== text) {
    element.textContent = text;
  }
}
