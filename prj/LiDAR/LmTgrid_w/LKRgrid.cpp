#include "prj/LiDAR/LmTgrid_w/LKRgrid.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "lib/general/log.h"

namespace veld {
// The two hot routines are built for several vector widths; the products are the same in each, lane by lane.
#if defined(__x86_64__) && !defined(VELD_SANITIZED)
#define LKR_CLONES __attribute__((target_clones("default", "avx2")))
#else
#define LKR_CLONES
#endif

namespace {

// Eight floats of one vector register (of two with the portable baseline). Held by reference or in locals
// only, so that no calling convention depends on the vector unit.
typedef float f8 __attribute__((vector_size(32)));
typedef float f8u __attribute__((vector_size(32), aligned(4), may_alias));  // anywhere in an array of floats
typedef float f8a __attribute__((vector_size(32), may_alias));
constexpr int NSUM = sizeof(LKRsums) / sizeof(float);
static_assert(sizeof(f8) == sizeof(LKRsums) && NSUM == 8 && LKR_LANES == 8);

// Distances (pixel less point) and weights of the taps of one coordinate; frac is its part after the point.
__attribute__((always_inline)) inline void comp_taps(float frac, f8& d, f8& w) {
  d = f8{-2, -1, 0, 1, 2, 3, 4, 5} - frac;
  const f8 u = 0.75f * (d < 0 ? -d : d);
  const f8 r = 2 - u;
  const f8 far = u <= 2 ? r * r * r * 0.125f : f8{};
  w = u < 1 ? 0.5f + 0.125f * u * u * (3 * u - 6) : far;
}

// A microtile with the ring of pixels that its points reach: local pixel (0, 0) is pixel (-2, -2) of it.
struct Window {
  int mx, my;  // microtile in the tile, -1 to 32 (or beyond)
  int side;    // pixels along a side, lanes beyond the taps included
  int x0, x1;  // columns and rows in use: first, and last + 1
  int y0, y1;
};

int window_side(int dim) { return dim + LKR_LANES; }

// The points of one microtile, in pixels of it.
struct RunPoint {
  float x, y, z;
};

int floor_int(double v) { return static_cast<int>(std::floor(v)); }

// Takes the points from i on that lie in one microtile, at most max_n. Returns their number; the microtile
// and the columns and rows that they reach come back in win.
uint64_t take_run(const xyz* p, uint64_t i, uint64_t np, int dim, double inv_mT, double z0, RunPoint* run,
                  uint64_t max_n, Window& win) {
  const double ux0 = p[i].x * inv_mT, uy0 = p[i].y * inv_mT;
  win.mx = floor_int(ux0), win.my = floor_int(uy0);
  win.side = window_side(dim);
  int bx0 = dim, bx1 = 0, by0 = dim, by1 = 0;
  uint64_t n = 0;
  for (; i < np && n < max_n; i++) {
    const double fx = p[i].x * inv_mT - win.mx, fy = p[i].y * inv_mT - win.my;
    if (fx < 0 || fx >= 1 || fy < 0 || fy >= 1) break;
    const float x = static_cast<float>(fx * dim), y = static_cast<float>(fy * dim);
    run[n++] = {x, y, static_cast<float>(static_cast<double>(p[i].z) - z0)};
    const int bx = static_cast<int>(x), by = static_cast<int>(y);  // dim is possible, after rounding
    bx0 = std::min(bx0, bx), bx1 = std::max(bx1, bx);
    by0 = std::min(by0, by), by1 = std::max(by1, by);
  }
  win.x0 = bx0, win.x1 = bx1 + KSIZE;
  win.y0 = by0, win.y1 = by1 + KSIZE;
  return n;
}

// First pass over a run: adds all taps to the window. One tap is the product of a factor of its row, a factor
// of its column and the weight, for eight sums at once; the ninth goes row by row.
LKR_CLONES void add_run(const RunPoint* run, uint64_t n, int side, LKRsums* __restrict win,
                        float* __restrict winSyz) {
  f8 dx, dy, wx, wy, col[KSIZE] = {};
  for (uint64_t i = 0; i < n; i++) {
    const int bx = static_cast<int>(run[i].x), by = static_cast<int>(run[i].y);
    const float z = run[i].z;
    comp_taps(run[i].x - static_cast<float>(bx), dx, wx);
    comp_taps(run[i].y - static_cast<float>(by), dy, wy);
    for (int k = 0; k < KSIZE; k++) {
      const float d = dx[k];
      col[k] =
          f8{1, 0, 0, 0, 1, 1, 1, 0} + d * f8{0, 1, 0, 1, 0, 0, 0, 1} + d * d * f8{0, 0, 1, 0, 0, 0, 0, 0};
    }
    for (int j = 0; j < KSIZE; j++) {
      const float d = dy[j];
      const f8 row = f8{1, 1, 1, 0, 0, 0, 0, 0} + d * f8{0, 0, 0, 1, 1, 0, 0, 0} +
                     d * d * f8{0, 0, 0, 0, 0, 1, 0, 0} + z * f8{0, 0, 0, 0, 0, 0, 1, 1};
      const int64_t o = static_cast<int64_t>(by + j) * side + bx;
      const f8 w0 = wy[j] * wx;
      const f8 w = w0 > LKR_WMIN ? w0 : f8{};
      f8a* __restrict out = reinterpret_cast<f8a*>(win + o);
      for (int k = 0; k < KSIZE; k++) out[k] += w[k] * row * col[k];
      f8u* __restrict outSyz = reinterpret_cast<f8u*>(winSyz + o);
      *outSyz += w * (d * z);
    }
  }
}

// Second pass over a run: weighted squared residuals of the points against the planes of the pixels.
LKR_CLONES void add_run_residuals(const RunPoint* run, uint64_t n, int side, const float* __restrict Z,
                                  const float* __restrict bx, const float* __restrict by,
                                  float* __restrict R) {
  f8 dx, dy, wx, wy;
  for (uint64_t i = 0; i < n; i++) {
    const int ix = static_cast<int>(run[i].x), iy = static_cast<int>(run[i].y);
    const float z = run[i].z;
    comp_taps(run[i].x - static_cast<float>(ix), dx, wx);
    comp_taps(run[i].y - static_cast<float>(iy), dy, wy);
    for (int j = 0; j < KSIZE; j++) {
      const int64_t o = static_cast<int64_t>(iy + j) * side + ix;
      const f8 w0 = wy[j] * wx;
      const f8 w = w0 > LKR_WMIN ? w0 : f8{};
      const f8 r = *reinterpret_cast<const f8u*>(bx + o) * dx +
                   *reinterpret_cast<const f8u*>(by + o) * dy[j] - z + *reinterpret_cast<const f8u*>(Z + o);
      *reinterpret_cast<f8u*>(R + o) += r * r * w;
    }
  }
}

// Calls f(window pixel, block pixel, count) for the stretches of gridded pixels in the used part of a window.
template <typename F>
void walk_window(const LKRtile& t, const Window& win, const F& f) {
  const int dim = t.dim, n = LKR_MTSUB * dim;
  for (int y = win.y0; y < win.y1; y++) {
    const int py = win.my * dim - 2 + y;
    if (py < 0 || py >= n) continue;
    const int my = py / dim, ry = py - my * dim;
    int x = std::max(win.x0, 2 - win.mx * dim);
    const int xend = std::min(win.x1, n + 2 - win.mx * dim);
    while (x < xend) {
      const int px = win.mx * dim - 2 + x;
      const int mx = px / dim, rx = px - mx * dim;
      const int len = std::min(dim - rx, xend - x);
      const int32_t ofs = t.gmofs[my * LKR_MTSUB + mx];
      if (ofs >= 0)
        f(static_cast<int64_t>(y) * win.side + x,
          static_cast<int64_t>(ofs) + static_cast<int64_t>(ry) * dim + rx, len);
      x += len;
    }
  }
}

bool reaches_tile(const Window& win, int dim) {  // any pixel of the window inside the tile
  const int reach = (KSIZE / 2 + dim - 1) / dim;
  return win.mx >= -reach && win.my >= -reach && win.mx < LKR_MTSUB + reach && win.my < LKR_MTSUB + reach;
}

void LKRgrid_add_LmT_mtile(LKRtile& t, const Window& win, const RunPoint* run, uint64_t n) {
  const size_t width = static_cast<size_t>(win.side - win.x0);
  for (int y = win.y0; y < win.y1; y++) {
    const int64_t o = static_cast<int64_t>(y) * win.side + win.x0;
    std::memset(static_cast<void*>(t.lsums.val + o), 0, width * sizeof(LKRsums));
    std::memset(t.lSyz.val + o, 0, width * sizeof(float));
  }
  add_run(run, n, win.side, t.lsums.val, t.lSyz.val);
  walk_window(t, win, [&](int64_t from, int64_t to, int len) {
    const f8a* __restrict src = reinterpret_cast<const f8a*>(t.lsums.val + from);
    f8a* __restrict dst = reinterpret_cast<f8a*>(t.sums.val + to);
    for (int i = 0; i < len; i++) dst[i] += src[i];
    for (int i = 0; i < len; i++) t.Syz[to + i] += t.lSyz[from + i];
  });
}

void add_mtile_residuals(LKRtile& t, const Window& win, const RunPoint* run, uint64_t n) {
  for (int y = win.y0; y < win.y1;
       y++) {  // pixels that are not gridded stay 0: no harm, their sums are dropped
    const int64_t o = static_cast<int64_t>(y) * win.side + win.x0;
    const size_t bytes = static_cast<size_t>(win.side - win.x0) * sizeof(float);
    for (float* a : {t.lZ.val, t.lbx.val, t.lby.val, t.lS.val}) std::memset(a + o, 0, bytes);
  }
  walk_window(t, win, [&](int64_t to, int64_t from, int len) {
    const size_t bytes = static_cast<size_t>(len) * sizeof(float);
    std::memcpy(t.lZ.val + to, t.Z.val + from, bytes);
    std::memcpy(t.lbx.val + to, t.bx.val + from, bytes);
    std::memcpy(t.lby.val + to, t.by.val + from, bytes);
  });
  add_run_residuals(run, n, win.side, t.lZ.val, t.lbx.val, t.lby.val, t.lS.val);
  walk_window(t, win, [&](int64_t from, int64_t to, int len) {
    for (int i = 0; i < len; i++) t.S[to + i] += t.lS[from + i];
  });
}

// Solves the planes. Returns the pixels that got a height.
uint64_t LKRgrid_inv3x3(LKRtile& t) {
  LOG_ENTER("LKRgrid_inv3x3 npix=" << t.npix << " GZ_DMINF=" << GZ_DMINF << " MAXZVAR=" << MAXZVAR);
  uint64_t nok = 0, nout = 0;
  for (uint64_t i = 0; i < t.npix; i++) {
    const LKRsums& s = t.sums[i];
    t.Z[i] = NODATA;
    t.bx[i] = t.by[i] = 0;
    if (!(s.S0 > GZ_DMINF)) continue;
    const double S0 = s.S0, Sx = s.Sx, Sy = s.Sy, Sxx = s.Sxx, Syy = s.Syy, Sxy = s.Sxy;
    const double D = Sxx * Syy - Sxy * Sxy;
    const double A = Sxy * Sy - Syy * Sx, B = Sxy * Sx - Sxx * Sy, C = Sy * Sx - Sxy * S0;
    const double Syz = t.Syz[i];
    const double det = B * Sy + A * Sx + D * S0;
    if (!(D > 0) || !(det > 0) || MAXZVAR * det <= D) {
      nout++;
      continue;
    }
    t.Z[i] = static_cast<float>((B * Syz + A * s.Sxz + D * s.Sz) / det);
    t.bx[i] = static_cast<float>((C * Syz + (Syy * S0 - Sy * Sy) * s.Sxz + A * s.Sz) / det);
    t.by[i] = static_cast<float>(((Sxx * S0 - Sx * Sx) * Syz + C * s.Sxz + B * s.Sz) / det);
    nok++;
  }
  const double n = static_cast<double>(t.npix);
  LOG_LINE("frac_data=" << static_cast<double>(nok) / n << " frac_out=" << static_cast<double>(nout) / n);
  return nok;
}

// Residual sums to roughness; pixels that are too rough lose their height. Returns the pixels that keep one.
uint64_t comp_S_outf(LKRtile& t, float SmaxGSD) {
  uint64_t ng = 0, nout = 0;
  for (uint64_t i = 0; i < t.npix; i++) {
    const float S0 = t.sums[i].S0;
    if (S0 == 0) continue;
    t.S[i] = std::sqrt(t.S[i] / S0);
    if (!(t.S[i] <= SmaxGSD)) {
      nout += t.Z[i] != NODATA;
      t.Z[i] = NODATA;
    } else if (t.Z[i] != NODATA) {
      ng++;
    }
  }
  LOG_LINE("comp_S_outf -> SmaxGSD=" << SmaxGSD << " nout=" << nout
                                     << " ng/npix=" << static_cast<double>(ng) / static_cast<double>(t.npix));
  return ng;
}

template <typename F>
void for_each_run(const LKRtile& t, const xyz* p, uint64_t np, const F& f) {
  constexpr uint64_t MAXRUN = 1024;
  RunPoint run[MAXRUN];
  const double inv_mT = 1.0 / static_cast<double>(t.mTsize);
  for (uint64_t i = 0; i < np;) {
    Window win;
    const uint64_t n = take_run(p, i, np, t.dim, inv_mT, t.z0, run, MAXRUN, win);
    if (reaches_tile(win, t.dim)) f(win, run, n);
    i += n;
  }
}

LKRstate encode_tile(const LKRtile& t, float GSD, float ppp, Vector<uint32_t>& words) {
  words.resize(t.npix);
  uint64_t nd = 0, nover = 0, nf = 0;
  for (uint64_t i = 0; i < t.npix; i++) {
    bool over = false;
    const bool nodata = t.Z[i] == NODATA;
    words[i] = encode_ZDS(t.z0 + static_cast<double>(t.Z[i]), nodata, t.S[i], GSD, t.sums[i].S0, ppp, over);
    nd += !nodata;
    nover += over;
    nf += (words[i] & 0xFFFFFF) != 0;
  }
  if (nover > 0)
    LOG_LINE("<!> nover=" << nover << " nover/nd=" << static_cast<double>(nover) / static_cast<double>(nd));
  if (nf == 0) {
    LOG_LINE("<!> DROP TILE (Z empty)");
    return LKRstate::Zempty;
  }
  LOG_LINE("nf/npix=" << static_cast<double>(nf) / static_cast<double>(t.npix) << " -> written " << t.npix
                      << " pix, " << static_cast<double>(t.npix) * 4e-6 << " MB");
  return LKRstate::done;
}
}  // namespace

uint64_t init_gmofs(const Image<uint8_t>& gTocc, int dim, Vector<int32_t>& gmofs) {
  ASSERT(gTocc.xsize() == LKR_MTSUB && gTocc.ysize() == LKR_MTSUB && dim > 0);
  gmofs.resize(LKR_MTSUB * LKR_MTSUB);
  const uint64_t nmtpix = static_cast<uint64_t>(dim) * static_cast<uint64_t>(dim);
  uint64_t n = 0, nmtf = 0;
  for (uint64_t m = 0; m < gTocc.size(); m++) {
    const bool gridded = (gTocc[m] & 1) != 0;
    gmofs[m] = gridded ? static_cast<int32_t>(n) : -1;
    if (!gridded) continue;
    n += nmtpix;
    nmtf++;
    if (n > INT32_MAX) return 0;
  }
  LOG_LINE("init_gmofs -> " << n << " nmtf=" << nmtf << " mtf_frac=" << static_cast<double>(nmtf) / 1024.0);
  return n;
}

uint64_t comp_LKR_bytes(uint64_t nmt, int dim) {
  const uint64_t side = static_cast<uint64_t>(window_side(dim));
  const uint64_t pixel = sizeof(LKRsums) + 6 * sizeof(float);
  return nmt * static_cast<uint64_t>(dim) * static_cast<uint64_t>(dim) * pixel + side * side * pixel;
}

LKRstate LKRgrid_tile_nn(const xyz* p, uint64_t np, double z0, const Image<uint8_t>& gTocc, int dim,
                         float mTsize, float smaxf, float ppp, LKRtile& t, Vector<uint32_t>& words) {
  ASSERT(mTsize > 0);
  t.dim = dim;
  t.mTsize = mTsize;
  t.npix = init_gmofs(gTocc, dim, t.gmofs);
  ASSERT(t.gmofs.size() == LKR_MTSUB * LKR_MTSUB);
  if (t.npix == 0) {
    LOG_LINE("<!> DROP TILE (size=0)");
    return LKRstate::size0;
  }
  const uint64_t nwin = static_cast<uint64_t>(window_side(dim)) * static_cast<uint64_t>(window_side(dim));
  t.sums.resize(t.npix, LKRsums{});
  for (Vector<float>* v : {&t.Syz, &t.Z, &t.bx, &t.by, &t.S}) v->resize(t.npix, 0.0f);
  t.lsums.resize(nwin);
  for (Vector<float>* v : {&t.lSyz, &t.lZ, &t.lbx, &t.lby, &t.lS}) v->resize(nwin);
  t.z0 = z0;
  {
    LOG_ENTER("LKRgrid_LmT_mtile np=" << np << " mTsize=" << mTsize << " dim=" << dim << " KSIZE=" << KSIZE);
    for_each_run(t, p, np, [&t](const Window& win, const RunPoint* run, uint64_t n) {
      LKRgrid_add_LmT_mtile(t, win, run, n);
    });
  }
  if (LKRgrid_inv3x3(t) > 0)
    for_each_run(t, p, np, [&t](const Window& win, const RunPoint* run, uint64_t n) {
      add_mtile_residuals(t, win, run, n);
    });
  const float GSD = mTsize / static_cast<float>(dim);
  if (comp_S_outf(t, smaxf * GSD) == 0) {
    LOG_LINE("<!> DROP TILE (empty)");
    return LKRstate::empty;
  }
  return encode_tile(t, GSD, ppp, words);
}

uint32_t encode_ZDS(double z, bool nodata, float s, float GSD, float density, float ppp, bool& over) {
  over = false;
  uint32_t zcode = 0;
  if (!nodata) {
    const double v = std::round(z * 1024) + 0x753000;
    over = !(v >= 0 && v < 0x1000000);
    if (!over) zcode = static_cast<uint32_t>(v);
  }
  const float sv = s * 16 / GSD + 0.5f, dv = std::fabs(density) * 4 / ppp + 0.5f;
  const uint32_t scode = sv < 31 ? static_cast<uint32_t>(sv) : 31;  // not a number: 31, 7
  const uint32_t dcode = dv < 7 ? static_cast<uint32_t>(dv) : 7;
  return zcode | scode << 24 | dcode << 29;
}
}  // namespace veld
