// Similarities of the plane: scale, rotation and shift, { a, b, tx, ty }, about the centre of the
// pictures: (u, v) goes to (a u - b v + tx, b u + a v + ty), all in pixels from the centre.

export const identity = Object.freeze({ a: 1, b: 0, tx: 0, ty: 0 });

/** First `inner`, then `outer`. */
export function compose(outer, inner) {
  return {
    a: outer.a * inner.a - outer.b * inner.b,
    b: outer.b * inner.a + outer.a * inner.b,
    tx: outer.a * inner.tx - outer.b * inner.ty + outer.tx,
    ty: outer.b * inner.tx + outer.a * inner.ty + outer.ty,
  };
}

export function invert({ a, b, tx, ty }) {
  const square = a * a + b * b;
  const inverse = { a: a / square, b: -b / square };
  return {
    ...inverse,
    tx: -(inverse.a * tx - inverse.b * ty),
    ty: -(inverse.b * tx + inverse.a * ty),
  };
}

export const scaleOf = ({ a, b }) => Math.hypot(a, b);

/** In radians. */
export const rotationOf = ({ a, b }) => Math.atan2(b, a);
