// prj/LiDAR/TNRreg/TNRreg_spline8.h
// Eight pixels at once: vectors of eight floats and the cubic spline evaluated at eight neighbouring positions.
// Private to the hot loops of this folder.
//
// Neighbouring pixels mostly land in neighbouring cells of the moved image: then the 16 coefficients of eight
// pixels are 16 contiguous loads. Where the displacement jumps over an integer they are gathered one by one.
#pragma once
#include <cstdint>
#include <cstring>

#include "lib/DataStructure/image.h"
#include "lib/ImgProc/bspline3.h"

namespace veld {
#pragma GCC diagnostic ignored "-Wpsabi"  // vectors are passed to inlined functions only

// The same source for machines with and without AVX2 (asked for by name: "arch=" would match one model only);
// without contraction to fused operations both give the same bits.
#if defined(VELD_SANITIZED) || !defined(__x86_64__)
#define HOT_CLONES
#else
#define HOT_CLONES __attribute__((target_clones("avx2", "default")))
#endif

constexpr int LANES = 8;
typedef float v8f __attribute__((vector_size(32)));
typedef int32_t v8i __attribute__((vector_size(32)));
typedef uint8_t v8b __attribute__((vector_size(8)));
typedef int64_t v4l __attribute__((vector_size(32)));

[[gnu::always_inline]] inline v8f load8(const float* p) {
  v8f v;
  std::memcpy(&v, p, sizeof v);
  return v;
}
[[gnu::always_inline]] inline void store8(float* p, const v8f& v) { std::memcpy(p, &v, sizeof v); }
[[gnu::always_inline]] inline bool all_zero(const v8i& v) {
  const v4l q = reinterpret_cast<const v4l&>(v);
  return (q[0] | q[1] | q[2] | q[3]) == 0;
}
[[gnu::always_inline]] inline v8i floor8(const v8f& x) {
  const v8i i = __builtin_convertvector(x, v8i);
  return i + (__builtin_convertvector(i, v8f) > x);  // a true lane is -1
}

// The coefficients of eight pixels one by one, mirrored at the edges: c[row][column][lane]. Lanes that are
// not wanted or need more than one reflection become 0 in use, and their coefficients too.
inline void gather8(const Image<float>& C, const int32_t* ix, const int32_t* iy, int32_t* use,
                    float (*c)[4][LANES]) {
  const int w = C.xsize(), h = C.ysize();
  for (int l = 0; l < LANES; l++) {
    const int x = ix[l], y = iy[l];
    if (use[l] && x >= 1 && y >= 1 && x < w - 2 && y < h - 2) {
      const float* p = C.row(y - 1) + x - 1;
      for (int a = 0; a < 4; a++, p += w)
        for (int b = 0; b < 4; b++) c[a][b][l] = p[b];
      continue;
    }
    // The outermost positions that one reflection reaches; this also keeps the sums below from overflow.
    bool ok = use[l] && x > -w && y > -h && x < 2 * w && y < 2 * h;
    int xs[4], ys[4];
    for (int k = 0; k < 4 && ok; k++) {
      xs[k] = bspline3_mirror(x - 1 + k, w);
      ys[k] = bspline3_mirror(y - 1 + k, h);
      ok = xs[k] >= 0 && xs[k] < w && ys[k] >= 0 && ys[k] < h;
    }
    use[l] = ok ? -1 : 0;
    for (int a = 0; a < 4; a++)
      for (int b = 0; b < 4; b++) c[a][b][l] = ok ? C.row(ys[a])[xs[b]] : 0.0f;
  }
}

struct Spline8 {
  v8f v, gx, gy;
};

// Value and, with GRAD, derivatives of C at eight positions. Lanes outside get use = 0 and zero values.
template <bool GRAD>
[[gnu::always_inline]] inline void spline8(const Image<float>& C, const v8f& x, const v8f& y, v8i& use,
                                           Spline8& o) {
  const v8i ix = floor8(x), iy = floor8(y);
  v8f tx = x - __builtin_convertvector(ix, v8f), ty = y - __builtin_convertvector(iy, v8f);
  const v8i iota = {0, 1, 2, 3, 4, 5, 6, 7};
  const int w = C.xsize(), x0 = ix[0], y0 = iy[0];
  alignas(32) float gathered[4][4][LANES];
  const float* from = &gathered[0][0][0];
  int64_t row_step = 4 * LANES, col_step = LANES;
  if (all_zero((ix - iota - x0) | (iy - y0)) && x0 >= 1 && y0 >= 1 && x0 < w - LANES - 1 &&
      y0 < C.ysize() - 2) {
    from = C.val + static_cast<int64_t>(y0 - 1) * w + x0 - 1;
    row_step = w;
    col_step = 1;
  } else {
    gather8(C, reinterpret_cast<const int32_t*>(&ix), reinterpret_cast<const int32_t*>(&iy),
            reinterpret_cast<int32_t*>(&use), gathered);
    const v8f zero = {};
    tx = use ? tx : zero;
    ty = use ? ty : zero;
  }
  v8f wx[4], wy[4], dx[4], dy[4];
  bspline3_weights(tx, wx);
  bspline3_weights(ty, wy);
  if constexpr (GRAD) {
    bspline3_weights_d1(tx, dx);
    bspline3_weights_d1(ty, dy);
  }
  for (int a = 0; a < 4; a++, from += row_step) {
    const v8f c0 = load8(from), c1 = load8(from + col_step), c2 = load8(from + 2 * col_step),
              c3 = load8(from + 3 * col_step);
    const v8f line = (wx[0] * c0 + wx[1] * c1) + (wx[2] * c2 + wx[3] * c3);
    o.v = a ? o.v + wy[a] * line : wy[a] * line;
    if constexpr (GRAD) {
      const v8f slope = (dx[0] * c0 + dx[1] * c1) + (dx[2] * c2 + dx[3] * c3);
      o.gx = a ? o.gx + wy[a] * slope : wy[a] * slope;
      o.gy = a ? o.gy + dy[a] * line : dy[a] * line;
    }
  }
}

// Eight pixels of a row from column offset c on, or as many as the row still has: bytes of B and heights.
struct Pixels8 {
  uint64_t b;
  v8f z;
};
[[gnu::always_inline]] inline Pixels8 load_pixels(const uint8_t* b, const float* z, int left) {
  Pixels8 p;
  if (left >= LANES) [[likely]] {
    std::memcpy(&p.b, b, LANES);
    p.z = load8(z);
    return p;
  }
  alignas(32) float zs[LANES] = {};
  p.b = 0;
  std::memcpy(&p.b, b, static_cast<size_t>(left));
  std::memcpy(zs, z, static_cast<size_t>(left) * sizeof(float));
  p.z = load8(zs);
  return p;
}
[[gnu::always_inline]] inline v8i bytes_to_int(uint64_t b) {
  v8b bytes;
  std::memcpy(&bytes, &b, sizeof bytes);
  return __builtin_convertvector(bytes, v8i);
}

[[gnu::always_inline]] inline void add8(float* p, const v8f& v) { store8(p, load8(p) + v); }
}  // namespace veld
