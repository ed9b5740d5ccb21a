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

/** What the compiler finds wrong in those files of a program that are no package's, a line for each. */
export function findings(program) {
  const files = program.getSourceFiles().filter(({ fileName }) => !fileName.includes('/node_modules/'));
  const diagnostics = [
    ...program.getOptionsDiagnostics(), ...program.getGlobalDiagnostics(),
    ...files.flatMap((file) => [...program.getSyntacticDiagnostics(file), ...program.getSemanticDiagnostics(file)]),
  ];
  return diagnostics.map(({ file, start, messageText }) => {
    const place = file ? `${path.basename(file.fileName)}:${file.getLineAndCharacterOfPosition(start).line + 1}: ` : '';
    return place + ts.flattenDiagnosticMessageText(messageText, ' ');
  });
}
