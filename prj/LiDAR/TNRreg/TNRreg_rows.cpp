// Hot loops over rows of pixels, eight pixels at once: residuals, and the sums of the normal equations.
//
// The columns of a row of cells get the displacement on both vertex rows once (u0 and du), so that a pixel
// row needs u0 + f du only. The sums of the normal equations are taken by columns over the rows of the cell,
// times the rows' weights, and brought to the vertices once per row of cells.
#include "prj/LiDAR/TNRreg/TNRreg_normal.h"
#include "prj/LiDAR/TNRreg/TNRreg_spline8.h"

namespace veld {
namespace {
// What is left of a slope whose square is not far above that of the slopes made by noise.
[[gnu::always_inline]] inline v8f slope_share(const v8f& gx, const v8f& gy, float slope_noise) {
  const v8f square = gx * gx + gy * gy + 1e-12f;
  return square / (square + slope_noise);
}
}  // namespace

void zero_sums(const dUParamTile& T, RowScratch& s) {
  const size_t groups = static_cast<size_t>((T.imax - T.imin + LANES) / LANES);
  std::fill_n(s.sums.data(), groups * NQ * LANES, 0.0f);
}

HOT_CLONES void sum_row(const dUParamTile& T, int j, float k, float slope_noise, RowScratch& s) {
  const int n = T.imax - T.imin + 1;
  const uint8_t* const b_row = T.B.row(j - T.jmin);
  const float* const z_row = T.Z->row(j) + T.imin;
  const float f1 = T.bx1[j], f0 = T.bx0[j];
  const float f00 = f0 * f0, f01 = f0 * f1, f11 = f1 * f1;
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
    spline8<true>(T.C->value, iota + static_cast<float>(T.imin + c + T.buf) + ux, y_row + uy, use, o);
    const v8f zero = {};
    const v8f e = use ? w8 * k : zero;
    const v8f r = use ? p.z + uz - o.v : zero;
    v8f gx = use ? o.gx : zero, gy = use ? o.gy : zero;
    if (slope_noise > 0.0f) {
      const v8f certain = slope_share(gx, gy, slope_noise);
      gx *= certain, gy *= certain;
    }
    const v8f ex = e * gx, ey = e * gy;
    float* const sums = s.sums.data() + c * NQ;
    const v8f entry[6] = {ex * gx, ex * gy, -ex, ey * gy, -ey, e};
    for (int q = 0; q < 6; q++) {
      add8(sums + q * LANES, f00 * entry[q]);
      add8(sums + (6 + q) * LANES, f01 * entry[q]);
      add8(sums + (12 + q) * LANES, f11 * entry[q]);
    }
    const v8f down[3] = {ex * r, ey * r, -e * r};
    for (int q = 0; q < 3; q++) {
      add8(sums + (18 + q) * LANES, f0 * down[q]);
      add8(sums + (21 + q) * LANES, f1 * down[q]);
    }
  }
}

HOT_CLONES void resid_row(const dUParamTile& T, int j, const uint8_t* want, RowScratch& s) {
  const int n = T.imax - T.imin + 1;
  const float* const z_row = T.Z->row(j) + T.imin;
  const float f1 = T.bx1[j];
  const float y_row = static_cast<float>(j + T.buf);
  const v8f iota = {0, 1, 2, 3, 4, 5, 6, 7};
  for (int c = 0; c < n; c += LANES) {
    const Pixels8 p = load_pixels(want + c, z_row + c, n - c);
    if (p.b == 0) continue;
    const v8f ux = load8(&s.u0x[c]) + f1 * load8(&s.dux[c]);
    const v8f uy = load8(&s.u0y[c]) + f1 * load8(&s.duy[c]);
    const v8f uz = load8(&s.u0z[c]) + f1 * load8(&s.duz[c]);
    v8i use = bytes_to_int(p.b) != 0;
    Spline8 o;
    spline8<false>(T.C->value, iota + static_cast<float>(T.imin + c + T.buf) + ux, y_row + uy, use, o);
    store8(&s.res[c], p.z + uz - o.v);
  }
}

HOT_CLONES void slope_row(const dUParamTile& T, int j, float slope_noise, RowScratch& s) {
  const int n = T.imax - T.imin + 1;
  const uint8_t* const b_row = T.B.row(j - T.jmin);
  const float f1 = T.bx1[j], y_row = static_cast<float>(j + T.buf);
  const v8f iota = {0, 1, 2, 3, 4, 5, 6, 7}, zero = {};
  for (int c = 0; c < n; c += LANES) {
    uint64_t b = 0;
    std::memcpy(&b, b_row + c, static_cast<size_t>(std::min(LANES, n - c)));
    if (b == 0) continue;
    const v8f ux = load8(&s.u0x[c]) + f1 * load8(&s.dux[c]);
    const v8f uy = load8(&s.u0y[c]) + f1 * load8(&s.duy[c]);
    v8i use = bytes_to_int(b) != 0;
    Spline8 o;
    spline8<true>(T.C->value, iota + static_cast<float>(T.imin + c + T.buf) + ux, y_row + uy, use, o);
    const v8f gx = use ? o.gx : zero, gy = use ? o.gy : zero, certain = slope_share(gx, gy, slope_noise);
    store8(&s.gx[c], certain * gx);
    store8(&s.gy[c], certain * gy);
  }
}

void RowScratch::resize(int n) {
  for (std::vector<float>* v : {&u0x, &u0y, &u0z, &dux, &duy, &duz, &res, &gx, &gy})
    v->assign(static_cast<size_t>(n + LANES), 0.0f);
  want.assign(static_cast<size_t>(n + LANES), 0);
  sums.assign(static_cast<size_t>((n + LANES) * NQ), 0.0f);
}

void expand_cell_row(const dUParamTile& T, int row, RowScratch& s) {
  const int n = T.imax - T.imin + 1;
  const xyz* const lower = T.Def->row(row);
  const xyz* const upper = T.Def->row(row + 1);
  for (int c = 0; c < n; c++) {
    const int i = T.imin + c;
    const float b0 = T.bx0[i], b1 = T.bx1[i];
    const uint32_t v = T.ix[i];
    const xyz lo = b0 * lower[v] + b1 * lower[v + 1], hi = b0 * upper[v] + b1 * upper[v + 1];
    s.u0x[c] = lo.x, s.u0y[c] = lo.y, s.u0z[c] = lo.z;
    s.dux[c] = hi.x - lo.x, s.duy[c] = hi.y - lo.y, s.duz[c] = hi.z - lo.z;
  }
  for (std::vector<float>* v :
       {&s.u0x, &s.u0y, &s.u0z, &s.dux, &s.duy, &s.duz})  // the last group stays regular
    for (int c = std::max(n, 1); c < n + LANES; c++) (*v)[c] = (*v)[c - 1];
}
}  // namespace veld
