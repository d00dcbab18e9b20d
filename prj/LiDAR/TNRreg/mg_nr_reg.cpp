// The registration of a pair from coarse to fine: pyramids, coefficients, levels, cache.
#include <algorithm>

#include "lib/general/log.h"
#include "lib/general/timing.h"
#include "prj/LiDAR/TNRreg/ND_Pyramid.h"
#include "prj/LiDAR/TNRreg/Reg_Coef.h"
#include "prj/LiDAR/TNRreg/TNRreg_internal.h"
#include "prj/LiDAR/TNRreg/reg_cache.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
constexpr int J_END_MAX = 3;
// What fills a hole reaches so far through the spline, but not to whole pixels: with these pixels displacements are drawn to
// whole pixels, by a third of their distance among houses.
constexpr int HOLE_REACH = 2;
constexpr int MIN_CELL = 6;  // pixels along a vertex cell of the final level
}  // namespace

int comp_Jend(int coarse, int dim) {
  int J = std::clamp(coarse, 0, J_END_MAX);
  while (J < J_END_MAX && dim << J < MIN_CELL) J++;
  return J;
}

// The capture range is a few pixels of the first level's images, which are those of the grid halved Jstart -
// 2 times. Each step of -init starts one level coarser. The margin lets displacements of that range and the
// spline's support lie inside the moved images; multiples of 8 keep it whole at each pyramid level.
RegLevels comp_reg_levels(int init, int coarse) {
  RegLevels levels;
  levels.Jend = std::clamp(coarse, 0, J_END_MAX);
  levels.Jstart = std::clamp(init + 1, std::max(levels.Jend, 1), NR_JMAX);
  levels.buf = 16 << std::max(levels.Jstart - MG_SKIP - 1, 0);
  return levels;
}

uint64_t comp_reg_bytes(uint64_t nt, int dim, const RegLevels& levels) {
  const uint64_t n = 32ull * static_cast<uint64_t>(dim), m = n + 2ull * static_cast<uint64_t>(levels.buf);
  uint64_t a_tile = 0;
  const int depth = std::max(levels.Jstart - MG_SKIP, 0);
  for (int p = 0; p <= depth; p++) a_tile += ((m * m) >> (2 * p)) * 5 + ((n * n) >> (2 * p)) * 4;
  if (depth > 0) a_tile += m * m * sizeof(float);  // heights without what is left out
  a_tile += n * n * (1 + 1 + 1 + sizeof(float));   // B, next, rough, res
  a_tile += m * m + n * n;                         // roughness codes
  const uint64_t dxp = static_cast<uint64_t>(comp_dxp(levels.Jend)), padded = (dxp + 4) * (dxp + 4);
  a_tile += dxp * dxp * (5 * sizeof(xyz) + 3 * sizeof(float));  // vertices
  a_tile += padded * 900;                                       // normal equations, samples of the noise
  return nt * a_tile + 4 * (m * m) * sizeof(float);
}

namespace {
// Marks the holes of an image and what lies within HOLE_REACH pixels of one along both axes.
void find_near_holes(const Image<float>& img, Image<uint8_t>& near_hole) {
  const int w = img.xsize(), h = img.ysize();
  Image<uint8_t> along(w, h, 0);
  near_hole.resize(w, h, 0);
  for (int y = 0; y < h; y++)
    for (int x = 0; x < w; x++) {
      if (img.row(y)[x] != NR_NODATA) continue;
      const int last = std::min(x + HOLE_REACH, w - 1);
      for (int i = std::max(x - HOLE_REACH, 0); i <= last; i++) along.row(y)[i] = 1;
    }
  for (int y = 0; y < h; y++)
    for (int j = std::max(y - HOLE_REACH, 0); j <= std::min(y + HOLE_REACH, h - 1); j++)
      for (int x = 0; x < w; x++) near_hole.row(y)[x] |= along.row(j)[x];
}
}  // namespace

void set_flags(Vector<Image<uint8_t>>& F, const Vector<Image<float>>& img, const Vector<Image<uint8_t>>& S,
               int smax) {
  F.resize(img.size());
  Image<uint8_t> near_hole;
  for (uint64_t t = 0; t < img.size(); t++) {
    F[t].resize(img[t].xsize(), img[t].ysize());
    const uint8_t* const code = S.size() > 0 ? S[t].val : nullptr;
    find_near_holes(img[t], near_hole);
    for (uint64_t k = 0; k < img[t].size(); k++) {
      const int c = code ? code[k] : 0;
      F[t][k] = near_hole[k] || c > smax ? 0 : static_cast<uint8_t>(1 + c);
    }
  }
}

namespace {
const xyz INVALID = {0.0f, 0.0f, NR_NODATA};

// The mean of two vertices, the valid one when only one is, else none.
xyz mean_valid(const xyz& a, const xyz& b) {
  const bool va = a.z != NR_NODATA, vb = b.z != NR_NODATA;
  if (va && vb) return 0.5f * (a + b);
  return va ? a : vb ? b : INVALID;
}
}  // namespace

Image<xyz> refine_Def(const Image<xyz>& Def, bool scale) {
  const int n = Def.xsize();
  Image<xyz> fine(2 * (n - 1) + 1, 2 * (n - 1) + 1, INVALID);
  for (int j = 0; j < n; j++)
    for (int i = 0; i < n; i++) {
      const int i1 = std::min(i + 1, n - 1), j1 = std::min(j + 1, n - 1);
      const xyz a = mean_valid(Def(i, j), Def(i, j));  // itself, or the vector of none
      const xyz row = mean_valid(Def(i, j), Def(i1, j)), row_up = mean_valid(Def(i, j1), Def(i1, j1));
      fine(2 * i, 2 * j) = a;
      if (i < n - 1) fine(2 * i + 1, 2 * j) = row;
      if (j < n - 1) fine(2 * i, 2 * j + 1) = mean_valid(a, Def(i, j1));
      if (i < n - 1 && j < n - 1) fine(2 * i + 1, 2 * j + 1) = mean_valid(row, row_up);
    }
  if (scale)
    for (uint64_t k = 0; k < fine.size(); k++) fine[k].x *= 2.0f, fine[k].y *= 2.0f;
  return fine;
}

namespace {
void resize_Def(Vector<Image<xyz>>& Def, uint64_t nt, int J) {
  Def.resize(nt);
  for (Image<xyz>& D : Def) D.resize(comp_dxp(J), comp_dxp(J), xyz{0, 0, 0});
}

Vector<FCZptr> images_at(const NRpair& pair, int p) {
  Vector<FCZptr> img(pair.img2.size());
  const NRpyramid& mg = pair.pyramid;
  for (uint64_t t = 0; t < img.size(); t++)
    img[t] = p == 0
                 ? FCZptr{&pair.F[t], &pair.C[t], &pair.img2[t], pair.S2.size() > 0 ? &pair.S2[t] : nullptr}
                 : FCZptr{&mg.F[p - 1][t], &mg.C[p - 1][t], &mg.Z[p - 1][t], nullptr};
  return img;
}

// The levels from Jfirst down to Jend. Returns whether the last one converged; conv and levels are counted.
bool level_loop(const NRpair& pair, const NRparam& param, int Jfirst, NRresult& result, DZmap* dzmap,
                int& conv, int& levels) {
  bool FOK = false;
  for (int J = Jfirst; J >= param.Jend; J--) {
    if (J < Jfirst)
      for (Image<xyz>& D : result.Def) D = refine_Def(D, J > 1);
    const int p = std::max(J - MG_SKIP, 0);
    const NRlevel lev = {J, param.Jstart, param.Jend, pair.buf >> p, pair.dim << (J - p)};
    const int converged = nr_reg_tiles(images_at(pair, p), pair, param, lev, result, dzmap);
    if (converged < 0 || (converged == 0 && p == 0)) return false;
    conv += converged != 0;
    levels++;
    if (J == param.Jend) FOK = converged != 0;
  }
  return FOK;
}
}  // namespace

NRstart start_reg(uint64_t nt, const NRparam& param) {
  NRstart start;
  if (param.cached && !param.cache.empty()) {
    start.J = param.Jend;
    resize_Def(start.Def, nt, start.J);
    start.from_cache = read_reg_cache(param.cache, start.Def);
    if (start.from_cache) return start;
  }
  start.J = param.Jstart;
  resize_Def(start.Def, nt, start.J);
  return start;
}

void make_pyramid(NRpair& pair, const Vector<Image<float>>& moved, int depth, int nthreads) {
  if (depth <= 0) return;
  const Stopwatch watch;
  Vector<Image<float>> masked = moved;
  for (uint64_t t = 0; t < masked.size(); t++)
    for (uint64_t k = 0; k < masked[t].size(); k++)
      if (pair.F[t][k] == 0) masked[t][k] = NR_NODATA;
  Vector<Vector<Image<float>>> heights;
  NRpyramid& mg = pair.pyramid;
  ND_Pyramid(heights, masked, nthreads, depth);
  ND_Pyramid(mg.Z, pair.img2, nthreads, depth);
  mg.F.resize(static_cast<uint64_t>(depth));
  for (int l = 0; l < depth; l++) set_flags(mg.F[l], heights[l]);
  Reg_Coef_mg(heights, nthreads, mg.C);
  LOG_LINE("/// INTER_PYR_TIME=" << watch.text());
}

void prepare_pair(NRpair& pair, int depth, int nthreads) {
  LOG_ENTER("prepare_pair nt=" << pair.img2.size() << " depth=" << depth);
  set_flags(pair.F, pair.img1, pair.S1, pair.smax);
  make_pyramid(pair, pair.img1, depth, nthreads);
  const Stopwatch watch;
  Reg_Coef(pair.img1, nthreads, pair.C);
  LOG_LINE("/// INTER_REGCOEF_TIME=" << watch.text());
}

bool mg_nr_reg_tiles(const NRpair& pair, const NRparam& param, NRstart&& start, NRresult& result,
                     DZmap* dzmap) {
  const uint64_t nt = pair.img2.size();
  LOG_ENTER("mg_nr_reg_tiles nt=" << nt << " buf=" << pair.buf << " mTsize=" << pair.mTsize
                                  << " dim=" << pair.dim << " timg: " << pair.TI.xsize() << " "
                                  << pair.TI.ysize() << " cached=" << param.cached);
  ASSERT(pair.C.size() == nt && param.Jstart <= NR_JMAX && param.Jend >= 0);
  ASSERT(nt == 0 || pair.C[0].value.xsize() == 32 * pair.dim + 2 * pair.buf);
  ASSERT(pair.pyramid.C.size() >= static_cast<uint64_t>(start.depth()));
  const Stopwatch watch;
  result = {};
  result.from_cache = start.from_cache;
  result.Def = std::move(start.Def);
  LOG_LINE("Jstart=" << param.Jstart << " Jend=" << param.Jend << " MG_SKIP=" << MG_SKIP << " Jpyr="
                     << start.depth() << " dxp=" << comp_dxp(start.J) << " cached=" << result.from_cache);
  LOG_LINE("NR_BOOST=" << NR_BOOST << " MINFRAC=" << MINFRAC << " MINFRAC0=" << MINFRAC0
                       << " MAXREGUNC=" << MAXREGUNC.x << " " << MAXREGUNC.y << " " << MAXREGUNC.z
                       << " NR_SMAX=" << NR_SMAX << " J0_REG=" << J0_REG << " SIGMA0_REG=" << SIGMA0_REG);
  result.Zv.resize(nt);
  int conv = 0, levels = 0;
  result.ok = level_loop(pair, param, start.J, result, dzmap, conv, levels);
  LOG_LINE("conv/levels=" << conv << "/" << levels << " FOK=" << result.ok << " out=" << result.after.out);
  LOG_LINE("/// INTER_REG_TIME=" << watch.text());
  if (!result.ok) LOG_LINE("<!> MG_NR_REG FAIL");
  return result.ok;
}
}  // namespace veld
