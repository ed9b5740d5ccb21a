// Type checks with the compiler's own means.

import path from 'node:path';

import ts from 'typescript';

const options = {
  strict: true,
  exactOptionalPropertyTypes: true,
  noEmit: true,
  module: ts.ModuleKind.NodeNext,
  moduleResolution: ts.ModuleResolutionKind.NodeNext,
  target: ts.ScriptTarget.ES2022,
};

/** A program of these files. `types`: the packages of @types in sight, looked for from `from`. */
export function programOf(files, { types = ['node'], from = process.cwd() } = {}) {
  const typeRoots = [path.join(from, 'node_modules', '@types')];
  return ts.createProgram(files, { ...options, types, typeRoots });
}

/** What the compiler finds wrong, a line for each. Declarations of libraries are checked as well. */
export function findings(program) {
  return ts.getPreEmitDiagnostics(program).map(({ file, start, messageText }) => {
    const place = file ? `${path.basename(file.fileName)}:${file.getLineAndCharacterOfPosition(start).line + 1}: ` : '';
    return place + ts.flattenDiagnosticMessageText(messageText, ' ');
  });
}
