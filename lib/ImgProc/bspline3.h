// lib/ImgProc/bspline3.h
// Cubic B-spline interpolation: coefficients of lines and images, and the basis functions.
// The boundary is mirrored about the end samples: index -i is i, and n - 1 + i is n - 1 - i.
// Source: Unser, Aldroubi, Eden, B-spline signal processing, IEEE Trans. Signal Processing 41 (1993),
// recursive filtering with the pole sqrt(3) - 2.
#pragma once
#include "lib/DataStructure/image.h"
#include "lib/DataStructure/vector.h"

namespace veld {
// Replaces samples by coefficients, in place; a line of one sample is its own coefficient.
void bspline3_coef(Vector<float>& line);
void bspline3_coef(Image<float>& image);  // along columns, then along rows

// Index after reflection at the ends of a line of n samples, one reflection only: -i and 2n - 2 - i.
inline int bspline3_mirror(int i, int n) { return i < 0 ? -i : i >= n ? 2 * n - 2 - i : i; }

// Weights of the four coefficients floor(x) - 1 .. floor(x) + 2 for the fraction t of x, and their
// derivatives. T: float, double, or a vector type of them.
template <typename T>
[[gnu::always_inline]] inline void bspline3_weights(const T& t, T w[4]) {
  const T t3 = t * t * t * (1.0f / 6.0f);
  const T q = (t - 1.0f) * t * 0.5f;
  w[3] = t3;
  w[0] = q + (1.0f / 6.0f) - t3;
  w[2] = w[0] + t - 2.0f * t3;
  w[1] = (5.0f / 6.0f) - q - w[2];
}
template <typename T>
[[gnu::always_inline]] inline void bspline3_weights_d1(const T& t, T d[4]) {
  d[3] = t * t * 0.5f;
  d[0] = t - 0.5f - d[3];
  d[1] = 3.0f * d[3] - 2.0f * t;
  d[2] = t + 0.5f - 3.0f * d[3];
}
template <typename T>
[[gnu::always_inline]] inline void bspline3_weights_d2(const T& t, T d[4]) {
  d[3] = t;
  d[0] = 1.0f - t;
  d[1] = 3.0f * t - 2.0f;
  d[2] = 1.0f - 3.0f * t;
}

// Value of a line given by its coefficients, anywhere in [0, n - 1]; 0 where more than one reflection is
// needed.
float bspline3_value(const Vector<float>& coef, double x);
}  // namespace veld
