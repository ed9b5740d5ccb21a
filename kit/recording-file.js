// The file of a recording: claimed before FFmpeg opens it, and looked at when it is finished.

import { constants } from 'node:fs';
import { open, rm, stat } from 'node:fs/promises';

const kinds = [['isDirectory', 'a directory'], ['isFIFO', 'a pipe'], ['isSocket', 'a socket'],
  ['isCharacterDevice', 'a device'], ['isBlockDevice', 'a device']];

const isSame = (a, b) => a.dev === b.dev && a.ino === b.ino;

const statOrNull = (file) => stat(file, { bigint: true }).catch(() => null);

/**
 * Makes the file with `mode`, unless it is there: then it must be a regular one, since opening a pipe would wait for
 * its reader. What else forbids to make it is left to FFmpeg to tell. Gives whether the file was made.
 */
async function make(file, mode) {
  try {
    await (await open(file, constants.O_WRONLY | constants.O_CREAT | constants.O_EXCL, mode)).close();
    return true;
  } catch (error) {
    const present = error.code === 'EEXIST' && await statOrNull(file);
    if (present && !present.isFile()) {
      const kind = kinds.find(([test]) => present[test]())?.[1] ?? 'no regular file';
      throw new Error(`A recording goes into a regular file, and ${file} is ${kind}.`, { cause: error });
    }
    return false;
  }
}

/** Claims `file` for a recording; `abandon` removes it if it was made for nothing. */
export async function claimFile(file, mode) {
  const isMade = await make(file, mode);
  const identity = await statOrNull(file);
  return {
    async abandon() {
      const present = await statOrNull(file);
      if (isMade && present && identity && isSame(present, identity) && present.size === 0n) {
        await rm(file, { force: true });
      }
    },
  };
}

/** What tells a file from one that takes its name later; null if there is none. */
export const identityOf = statOrNull;

async function readAt(handle, position, length) {
  const { bytesRead, buffer } = await handle.read(Buffer.alloc(length), 0, length, position);
  return bytesRead === length ? buffer : null;
}

/** The boxes of an MP4 file from `begin` to `end`: { type, begin, end } of what each holds; null if one is cut off. */
async function boxesIn(handle, begin, end) {
  const boxes = [];
  for (let position = begin; position < end;) {
    const head = await readAt(handle, position, 8);
    if (!head) {
      return null;
    }
    let headBytes = 8;
    let size = head.readUInt32BE(0);
    if (size === 1) {
      const large = await readAt(handle, position + 8, 8);
      headBytes = 16;
      size = large ? Number(large.readBigUInt64BE(0)) : 0;
    } else if (size === 0) {
      size = end - position;
    }
    if (size < headBytes || position + size > end) {
      return null;
    }
    boxes.push({ type: head.toString('latin1', 4, 8), begin: position + headBytes, end: position + size });
    position += size;
  }
  return boxes;
}

/** How many pictures the index of an MP4 file lists; null if it has no whole index, or is cut off behind it. */
async function picturesIn(handle) {
  const { size } = await handle.stat();
  let boxes = await boxesIn(handle, 0, size);
  if (!boxes?.some(({ type }) => type === 'moov')) {
    return null;
  }
  for (const wanted of ['moov', 'trak', 'mdia', 'minf', 'stbl', 'stsz']) {
    const box = boxes.find(({ type }) => type === wanted);
    if (!box) {
      // A recording without a picture has an index without a track.
      return wanted === 'trak' ? 0 : null;
    }
    if (wanted === 'stsz') {
      const counts = await readAt(handle, box.begin, 12);
      return counts ? counts.readUInt32BE(8) : null;
    }
    boxes = await boxesIn(handle, box.begin, box.end);
    if (!boxes) {
      return null;
    }
  }
  return null;
}

/**
 * Why a finished file is not what was recorded, in words; null if it is. `identity`: of the file that the recorder
 * opened. `framesWritten`: how many pictures it must hold; undefined if that is not known.
 */
export async function complaintAbout(file, { identity, framesWritten }) {
  const handle = await open(file, constants.O_RDONLY | constants.O_NONBLOCK).catch(() => null);
  if (!handle) {
    return `${file} cannot be read any more`;
  }
  try {
    if (identity && !isSame(await handle.stat({ bigint: true }), identity)) {
      return `another file has taken the place of ${file}`;
    }
    const pictures = await picturesIn(handle);
    if (pictures === null) {
      return `${file} has no whole index`;
    }
    if (framesWritten !== undefined && pictures !== framesWritten) {
      return `${file} holds ${pictures} of ${framesWritten} pictures`;
    }
    return null;
  } finally {
    await handle.close();
  }
}
