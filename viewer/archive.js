// The files that the viewer has made, by the names under which pages may ask for them.

import { mkdir, writeFile } from 'node:fs/promises';
import path from 'node:path';

import { timeName } from '../examples/lib/report.js';

// Pictures kept in memory: more than a stack and its result.
const mostPictures = 64;

export class Archive {
  /** `directory`: where files go. */
  constructor(directory) {
    this.directory = directory;
    this.files = new Map();
    this.pictures = new Map();
  }

  /** Names a new file and gives { name, file }; `kind` tells two of one second apart. */
  async newFile(kind, ending) {
    await mkdir(this.directory, { recursive: true });
    const base = `${timeName()}-${kind}`;
    let name = `${base}${ending}`;
    for (let i = 2; this.files.has(name); ++i) {
      name = `${base}-${i}${ending}`;
    }
    const file = path.join(this.directory, name);
    this.files.set(name, { file });
    return { name, file };
  }

  /** Writes a new file, which its owner and group alone may read; gives its name. */
  async save(kind, ending, body) {
    const { name, file } = await this.newFile(kind, ending);
    await writeFile(file, body, { mode: 0o640 });
    return name;
  }

  /** Keeps a picture, a PNG in memory, under a name; the oldest make room. */
  keepPicture(name, body) {
    this.pictures.set(name, { body });
    while (this.pictures.size > mostPictures) {
      this.pictures.delete(this.pictures.keys().next().value);
    }
  }

  find(name) {
    return this.files.get(name) ?? this.pictures.get(name);
  }
}
