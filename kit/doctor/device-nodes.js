// Permission on the device nodes of cameras and video hardware.

import fs from 'node:fs';
import path from 'node:path';

const { R_OK, W_OK } = fs.constants;

function mayUse(node) {
  try {
    fs.accessSync(node, R_OK | W_OK);
    return true;
  } catch {
    return false;
  }
}

/** The nodes in `directory` whose names match: [{ node, usable }]. */
export function findNodes(directory, pattern) {
  let names = [];
  try {
    names = fs.readdirSync(directory).filter((name) => pattern.test(name)).sort();
  } catch {
    // No such directory: no such nodes.
  }
  return names.map((name) => path.join(directory, name)).map((node) => ({ node, usable: mayUse(node) }));
}

export const cameraNodes = () => findNodes('/dev', /^video\d+$/);
export const renderNodes = () => findNodes('/dev/dri', /^renderD\d+$/);
export const nvidiaNodes = () => findNodes('/dev', /^nvidia(0|ctl)$/);
