// The texts of the errors that scripts make, read from their source.

import fs from 'node:fs';

import ts from 'typescript';

/** The pieces of a text that an expression makes; null stands between them for what is put in. */
function piecesOf(node) {
  if (ts.isStringLiteralLike(node)) {
    return [node.text];
  }
  if (ts.isTemplateExpression(node)) {
    return [node.head.text, ...node.templateSpans.flatMap(({ literal }) => [null, literal.text])];
  }
  if (ts.isBinaryExpression(node) && node.operatorToken.kind === ts.SyntaxKind.PlusToken) {
    return [...piecesOf(node.left), ...piecesOf(node.right)];
  }
  return [null];
}

/** Pieces with neighbours joined, as one text with `<>` for what is put in. */
const textOf = (pieces) => pieces.map((piece) => piece ?? '<>').join('').replace(/(<>)+/g, '<>');

/** Whether a node makes an error, or the words that another place makes one of. */
function wordsOf(node) {
  if (ts.isNewExpression(node) && /(Error|Kind)$/.test(node.expression.getText())) {
    return node.arguments?.[0];
  }
  if (ts.isCallExpression(node) && node.expression.kind === ts.SyntaxKind.SuperKeyword) {
    return node.arguments[0];
  }
  const owner = ts.isReturnStatement(node) && ts.findAncestor(node, ts.isFunctionDeclaration);
  return owner && /^refusal/.test(owner.name.text) ? node.expression : undefined;
}

/** The texts of the errors that a script makes, with `<>` for what is put in; those of no words aside. */
export function errorTextsOf(file) {
  const source = ts.createSourceFile(file, fs.readFileSync(file, 'utf8'), ts.ScriptTarget.Latest, true);
  const texts = [];
  const visit = (node) => {
    const words = wordsOf(node);
    const text = words ? textOf(piecesOf(words)) : '';
    if (/[a-z]{2}/.test(text)) {
      texts.push(text);
    }
    ts.forEachChild(node, visit);
  };
  visit(source);
  return texts;
}
