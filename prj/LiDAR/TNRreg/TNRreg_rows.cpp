// Hot loops of the data term and of the residuals: one row of pixels at a time, eight pixels at once.
//
// The columns of a row of cells get the displacement on both vertex rows once (u0 and du), so that a pixel
// row needs u0 + f du only. Neighbouring pixels mostly land in neighbouring cells of the moved image: then
// the 16 coefficients of eight pixels are 16 contiguous loads. Where the displacement jumps over an integer
// they are gathered one by one. The data term is summed by columns over the rows of the cell, times the rows'
// weights, and brought to the vertices once per row of cells.
#include <cstring>

#include "lib/ImgProc/bspline3.h"
#include "prj/LiDAR/TNRreg/TNRreg_internal.h"

#pragma GCC diagnostic ignored "-Wpsabi"  // vectors are passed to inlined functions only

// The same source for machines with and without AVX2 (asked for by name: "arch=" would match one model only);
// without contraction to fused operations both give the same bits.
#if defined(VELD_SANITIZED) || !defined(__x86_64__)
#define HOT_CLONES
#else
#define HOT_CLONES __attribute__((target_clones("avx2", "default")))
#endif

namespace {
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
void gather8(const Image<float>& C, const int32_t* ix, const int32_t* iy, int32_t* use,
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
}  // namespace

HOT_CLONES void grad_row(const dUParamTile& T, int j, float k, RowScratch& s) {
  const int n = T.imax - T.imin + 1;
  const uint8_t* const b_row = T.B.row(j - T.jmin);
  const float* const z_row = T.Z->row(j) + T.imin;
  const float f1 = T.bx1.val[j], f0 = T.bx0.val[j];
  const float y_row = static_cast<float>(j + T.buf);
  const v8f iota = {0, 1, 2, 3, 4, 5, 6, 7};
  for (int c = 0; c < n; c += LANES) {
    const Pixels8 p = load_pixels(b_row + c, z_row + c, n - c);
    const uint64_t weights = p.b & 0x7f7f7f7f7f7f7f7fu;
    if (weights == 0) continue;
    const v8f ux = load8(&s.u0x[c]) + f1 * load8(&s.dux[c]);
    const v8f uy = load8(&s.u0y[c]) + f1 * load8(&s.duy[c]);
    const v8f uz = load8(&s.u0z[c]) + f1 * load8(&s.duz[c]);
    const v8i wi = bytes_to_int(weights);
    const v8f w8 = __builtin_convertvector(wi, v8f);
    v8i use = wi != 0;
    Spline8 o;
    spline8<true>(*T.C, iota + static_cast<float>(T.imin + c + T.buf) + ux, y_row + uy, use, o);
    const v8f zero = {};
    const v8f e = use ? (p.z + uz - o.v) * w8 * k : zero;
    const v8f ex = o.gx * e, ey = o.gy * e;
    add8(&s.lox[c], f0 * ex);
    add8(&s.hix[c], f1 * ex);
    add8(&s.loy[c], f0 * ey);
    add8(&s.hiy[c], f1 * ey);
    add8(&s.loz[c], -f0 * e);
    add8(&s.hiz[c], -f1 * e);
  }
}

HOT_CLONES void resid_row(const dUParamTile& T, int j, RowScratch& s) {
  const int n = T.imax - T.imin + 1;
  const uint8_t* const b_row = T.B.row(j - T.jmin);
  const float* const z_row = T.Z->row(j) + T.imin;
  const float f1 = T.bx1.val[j];
  const float y_row = static_cast<float>(j + T.buf);
  const v8f iota = {0, 1, 2, 3, 4, 5, 6, 7};
  for (int c = 0; c < n; c += LANES) {
    const Pixels8 p = load_pixels(b_row + c, z_row + c, n - c);
    if (p.b == 0) continue;
    const v8f ux = load8(&s.u0x[c]) + f1 * load8(&s.dux[c]);
    const v8f uy = load8(&s.u0y[c]) + f1 * load8(&s.duy[c]);
    const v8f uz = load8(&s.u0z[c]) + f1 * load8(&s.duz[c]);
    v8i use = bytes_to_int(p.b) != 0;
    Spline8 o;
    spline8<false>(*T.C, iota + static_cast<float>(T.imin + c + T.buf) + ux, y_row + uy, use, o);
    store8(&s.res[c], p.z + uz - o.v);
  }
}

void RowScratch::resize(int n) {
  for (std::vector<float>* v : {&u0x, &u0y, &u0z, &dux, &duy, &duz, &lox, &loy, &loz, &hix, &hiy, &hiz, &res})
    v->assign(static_cast<size_t>(n + LANES), 0.0f);
}

void expand_cell_row(const dUParamTile& T, int row, RowScratch& s) {
  const int n = T.imax - T.imin + 1;
  const xyz* const lower = T.Def->row(row);
  const xyz* const upper = T.Def->row(row + 1);
  for (int c = 0; c < n; c++) {
    const int i = T.imin + c;
    const float b0 = T.bx0.val[i], b1 = T.bx1.val[i];
    const uint32_t v = T.ix.val[i];
    const xyz lo = b0 * lower[v] + b1 * lower[v + 1], hi = b0 * upper[v] + b1 * upper[v + 1];
    s.u0x[c] = lo.x, s.u0y[c] = lo.y, s.u0z[c] = lo.z;
    s.dux[c] = hi.x - lo.x, s.duy[c] = hi.y - lo.y, s.duz[c] = hi.z - lo.z;
  }
  for (std::vector<float>* v :
       {&s.u0x, &s.u0y, &s.u0z, &s.dux, &s.duy, &s.duz})  // the last group stays regular
    for (int c = std::max(n, 1); c < n + LANES; c++) (*v)[c] = (*v)[c - 1];
}

void zero_cell_row(const dUParamTile& T, RowScratch& s) {
  const size_t n = static_cast<size_t>(T.imax - T.imin + 1 + LANES);
  for (std::vector<float>* v : {&s.lox, &s.loy, &s.loz, &s.hix, &s.hiy, &s.hiz})
    std::fill_n(v->data(), n, 0.0f);
}

void reduce_cell_row(const dUParamTile& T, const RowScratch& s, dxyz* slot) {
  const int nv = T.nv();
  std::fill_n(slot, 2 * nv, dxyz{0, 0, 0});
  for (int i = T.imin; i <= T.imax;) {
    const int v = static_cast<int>(T.ix.val[i]);
    const int end = std::min(T.imax + 1, (v + 1) * T.dim);
    xyz lo0 = {0, 0, 0}, lo1 = lo0, hi0 = lo0, hi1 = lo0;
    for (; i < end; i++) {
      const int c = i - T.imin;
      const float b0 = T.bx0.val[i], b1 = T.bx1.val[i];
      const xyz lo = {s.lox[c], s.loy[c], s.loz[c]}, hi = {s.hix[c], s.hiy[c], s.hiz[c]};
      lo0 += b0 * lo, lo1 += b1 * lo, hi0 += b0 * hi, hi1 += b1 * hi;
    }
    slot[v] += to_dxyz(lo0), slot[v + 1] += to_dxyz(lo1);
    slot[nv + v] += to_dxyz(hi0), slot[nv + v + 1] += to_dxyz(hi1);
  }
}
