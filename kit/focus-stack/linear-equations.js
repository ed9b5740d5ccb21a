// Least squares end in symmetric equations; these are solved here.

/**
 * Solves `matrix` * x = `right` for a symmetric, positive definite matrix (n * n values, of which
 * the lower triangle is read and overwritten), by Cholesky's method. Gives x, or null where the
 * equations have no single finite solution.
 */
export function solveSymmetric(matrix, right) {
  const n = right.length;
  for (let column = 0; column < n; ++column) {
    for (let row = column; row < n; ++row) {
      let sum = matrix[row * n + column];
      for (let k = 0; k < column; ++k) {
        sum -= matrix[row * n + k] * matrix[column * n + k];
      }
      if (row === column) {
        if (!(sum > 1e-9 && sum < Infinity)) {
          return null;
        }
        matrix[row * n + column] = Math.sqrt(sum);
      } else {
        matrix[row * n + column] = sum / matrix[column * n + column];
      }
    }
  }
  const x = Float64Array.from(right);
  for (let row = 0; row < n; ++row) {
    for (let k = 0; k < row; ++k) {
      x[row] -= matrix[row * n + k] * x[k];
    }
    x[row] /= matrix[row * n + row];
  }
  for (let row = n - 1; row >= 0; --row) {
    for (let k = row + 1; k < n; ++k) {
      x[row] -= matrix[k * n + row] * x[k];
    }
    x[row] /= matrix[row * n + row];
  }
  return x.every(Number.isFinite) ? x : null;
}
