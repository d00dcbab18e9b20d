// prj/LiDAR/TNRreg/TNRreg_internal.h
// The registration of a pair at one level: its data and the steps on it. Private to this folder and its
// tests.
//
// With p the pixels of the region of interest, u = (ux, uy, uz) interpolated bilinearly from the vertices,
//   E(u) = 1/2 sum_p w_p r_p^2 / s^2 + 1/2 sum_c omega_c sum_vertices (d2 v_c / dx2)^2 + (d2 v_c / dy2)^2,
//   r_p  = Z(p) + uz(p) - C(p + buf + (ux, uy)(p)),
// C the moved image as cubic B-spline, Z the reference, w_p Cauchy weights 1 / (1 + (r / sigma)^2), v = u or, where
// there is a model of u, what departs from it.
// Weights and s are held during a conjugate gradient run and renewed between runs.
#pragma once
#include <algorithm>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "lib/DataStructure/image.h"
#include "lib/DataStructure/vector.h"
#include "lib/Geometry/xyz.h"
#include "lib/threads/pool.h"
#include "prj/LiDAR/TNRreg/TNRreg.h"

namespace veld {
constexpr int H_SIZE = 131072;  // bins of the histogram of absolute residuals; signed ones have twice as many
constexpr float MINFRAC = 0.02f;  // least part of a tile's, or of a vertex cell's, pixels in use
constexpr float MINFRAC0 = 0.02f;
constexpr uint8_t B_USED = 0x80;  // B: the pixel takes part, the low 7 bits are its weight in percent
constexpr uint8_t B_WEIGHT = 0x7f;
constexpr uint8_t B_NEW = B_USED + 100;
enum : uint8_t { V_OFF = 0, V_ACTIVE = 1, V_SLAVE = 2 };  // states of a vertex

struct FCZptr {  // the images of a tile at one pyramid level
  const Image<uint8_t>* F = nullptr;
  const CoefImage* C = nullptr;
  const Image<float>* Z = nullptr;
  const Image<uint8_t>* S = nullptr;  // roughness codes of Z; null: none
};

struct dUParamTile {
  const CoefImage* C = nullptr;       // moved image, margin buf
  const Image<float>* Z = nullptr;    // reference heights
  const Image<uint8_t>* F = nullptr;  // where the moved image has data, 1 + its roughness code
  const Image<uint8_t>* S = nullptr;  // roughness codes of Z; null: none
  Image<uint8_t> B;      // the region of interest: 0, or B_USED and the weight; 0 x 0 while the tile is out
  Image<uint8_t> next;   // the same at a displacement that is being tried, weights 100 percent
  Image<float> res;      // residuals there, where B or next is not 0
  Image<uint8_t> rough;  // roughness of both images together there, in codes
  Image<uint8_t> Vmap;   // states of the vertices
  uint32_t Tnpar = 0;    // active vertices
  Image<xyz>* Def = nullptr;  // displacement at the vertices
  Image<float> zV, wV;        // weighted sum of reference heights about a vertex, sum of the weights
  Vector<float> bx0, bx1;     // per column or row: weights of its lower and upper vertex
  Vector<uint32_t> ix, iy;    // per column the lower vertex column; per row the lower vertex row times nv
  int imin = 0, jmin = 0, imax = -1, jmax = -1;  // region of interest, inclusive
  int buf = 0;                                   // margin of C at this level
  int dim = 0;                                   // pixels along a vertex cell at this level
  int nv() const { return Def->xsize(); }
};

struct thRowInfo {  // unit of work of the data term: a row of vertex cells of a tile; it touches two vertex
                    // rows
  uint32_t tile, row;
};

// Scratch of a thread for one row of cells: per column the displacement on the lower vertex row and its
// growth to the upper one; residuals and slopes of a pixel row, and which residuals are wanted; the column sums of the
// normal equations, eight columns at a time.
struct RowScratch {
  std::vector<float> u0x, u0y, u0z, dux, duy, duz;
  std::vector<float> res, gx, gy, sums;
  std::vector<uint8_t> want;
  void resize(int n);
};

// By roughness code of a pixel: 1 / its variance, and the level's variance in percent of it. A rough pixel, of a
// steep edge smeared over the kernel or of vegetation, depends on where the points fell.
struct RoughWeights {
  float precision[64], share[64];
};

struct dUParamTiles {
  Vector<dUParamTile> tile;
  Vector<int> right, up, diag;  // neighbours of each tile, from the tile index image; -1 none
  uint32_t Tnpar = 0;           // active vertices of all tiles
  Vector<uint32_t> hist;        // absolute residuals
  xyz omega = {0, 0, 0};        // weight of the prior
  float s = 0, out = 1,
        ff = -1;         // scale of the residuals, fraction of outliers, of spikes (negative: no data)
  float sigma0 = 0;      // noise floor
  float rough_unit = 0;  // height of a roughness code
  int nthreads = 1;
  std::vector<thRowInfo> rows;      // built once a level
  uint64_t npix = 0;                // pixels in these rows
  std::vector<double> unit_sum;     // slots of the units for sums over pixels
  std::vector<RowScratch> scratch;  // one a thread
};

// Threads worth starting for npix pixels: a few thousand pixels take less time than a thread's start.
int comp_threads(const dUParamTiles& Q, uint64_t npix);

// --- Set-up of a tile (TNRreg_setup.cpp)
void init_neighbours(dUParamTiles& Q, const Image<int16_t>& TI);
// Takes the images and finds the box of the reference's data, clamped to [2, n - 2]. False, logged, without
// data.
[[nodiscard]] bool set_FCZ_ROI(dUParamTile& T, const FCZptr& img, int buf, int dim, int ti);
void set_BI(dUParamTile& T);  // interpolation tables for the tile's Def
// Renews B at the present displacement: pixels with data whose cell of the moved image has data in all
// corners and, once Vmap is set, whose vertices are in use. True if more than minfrac of the tile's data
// pixels are in.
bool init_B_F(dUParamTile& T, float minfrac, bool log);
// Its work on a row of pixels whose row of cells is expanded: b[i - imin]. Returns the pixels used, adds those
// with reference data to nz.
// rough, unless null, gets the roughness of the pixels used.
uint64_t mask_row(const dUParamTile& T, int j, const RowScratch& s, uint8_t* b, uint8_t* rough, uint64_t& nz);
void vertex_zw_tile(dUParamTile& T);  // zV, wV over the pixels in use
// wV as the number of pixels in use, each by its robust weight. A rough pixel counts as one: that it says little is
// for the uncertainty to tell.
void vertex_w_b_tile(dUParamTile& T, const RoughWeights& weights);
// Sum of the roughness (codes) of the pixels about a vertex by their weights, and sum of these weights.
void vertex_rough_tile(const dUParamTile& T, Image<float>& rough, Image<float>& weight);
void norm_vertex_zw(dUParamTile& T);                           // zV /= wV, NR_NODATA where wV is 0
void init_Vmap_from_w(dUParamTile& T, int dxp, bool keep_ND);  // keep_ND: a vertex with z NR_NODATA stays off

// --- Seams between tiles (TNRreg_topo.cpp)
// The partner of slave vertex (nv - 1, nv - 1) of tile t.
struct SeamVertex {
  int tile = -1, i = 0, j = 0;
};
SeamVertex corner_partner(const dUParamTiles& Q, int t, int nv);
void proc_Vmap_topo(dUParamTiles& Q);
void sync_border(dUParamTiles& Q);  // copies each tile's right column, upper row and corner from the partners
void fill_ND_Def(dUParamTiles& Q);  // gives vertices with z NR_NODATA the mean of their nearest neighbours
bool apply_Vmap_ND(dUParamTiles& Q);  // z NR_NODATA where a vertex is not active; true if any is
// Calls visit(tile, i, j, partner) for each vertex of a right or upper edge that has a partner.
template <typename Visit>
void for_seams(const dUParamTiles& Q, int nv, Visit&& visit) {
  const int n = nv - 1;
  for (int t = 0; t < static_cast<int>(Q.tile.size()); t++) {
    if (Q.right(t) >= 0)
      for (int k = 0; k < n; k++) visit(t, n, k, SeamVertex{Q.right(t), 0, k});
    if (Q.up(t) >= 0)
      for (int k = 0; k < n; k++) visit(t, k, n, SeamVertex{Q.up(t), k, 0});
    const SeamVertex corner = corner_partner(Q, t, nv);
    if (corner.tile >= 0) visit(t, n, n, corner);
  }
}
// Adds each slave's value to its partner's, for one image a tile.
template <typename T, typename Get>
void add_seams(dUParamTiles& Q, Get&& get) {
  if (Q.tile.size() == 0) return;
  for_seams(Q, get(Q.tile[0]).xsize(), [&](int t, int i, int j, const SeamVertex& p) {
    get(Q.tile(p.tile))(p.i, p.j) += get(Q.tile(t))(i, j);
  });
}

// --- Hot loops over a row of pixels (TNRreg_rows.cpp)
void expand_cell_row(const dUParamTile& T, int row, RowScratch& s);  // fills u0*, du* for a row of cells
void zero_sums(const dUParamTile& T, RowScratch& s);
// Adds to sums; k scales the weights. slope_noise: see NormalEq.
void sum_row(const dUParamTile& T, int j, float k, float slope_noise, RowScratch& s);
// res[i - imin], valid where want[i - imin] is not 0.
void resid_row(const dUParamTile& T, int j, const uint8_t* want, RowScratch& s);
void slope_row(const dUParamTile& T, int j, float slope_noise,
               RowScratch& s);  // gx, gy, valid where B is not 0

// --- Units of work and passes over the pixels (TNRreg_pass.cpp)
void init_rows(dUParamTiles& Q);  // the list of units, and the images of a pass
struct CellRow {                  // a unit while a thread works on it
  size_t unit;
  dUParamTile& tile;
  thRowInfo place;
  int thread;
  RowScratch& scratch;
  int jmin, jmax;  // its rows of pixels, inclusive; none when jmax < jmin
};
// Calls work(cells) for each unit, on any thread. expand: with the displacement of its row of cells in the scratch.
template <typename Work>
void for_cell_rows(dUParamTiles& Q, bool expand, Work&& work) {
  run_units(static_cast<int64_t>(Q.rows.size()), comp_threads(Q, Q.npix), [&](int64_t unit, int thread) {
    const thRowInfo place = Q.rows[static_cast<size_t>(unit)];
    dUParamTile& T = Q.tile[place.tile];
    const int row = static_cast<int>(place.row);
    RowScratch& scratch = Q.scratch[static_cast<size_t>(thread)];
    if (expand) expand_cell_row(T, row, scratch);
    work(CellRow{static_cast<size_t>(unit), T, place, thread, scratch, std::max(T.jmin, row * T.dim),
                 std::min(T.jmax, (row + 1) * T.dim - 1)});
    return true;
  });
}
// Calls per_row(j, thread) with the residuals of each row of the region of interest in Q.scratch[thread].res;
// the rows of a unit come in order, units on any thread.
void for_resid_rows(dUParamTiles& Q, const std::function<void(dUParamTile&, int j, int thread)>& per_row);
// One pass at the present Def: next, res and hist; B and its weights stay. Returns the data term of the energy
// over the pixels of B.
double resid_pass(dUParamTiles& Q);
void take_pixels(dUParamTiles& Q);  // next becomes B
RoughWeights rough_weights(const dUParamTiles& Q);
double update_weights(dUParamTiles& Q);  // Cauchy weights into B from res; returns the data term

// --- Robust statistics (TNRreg_robust.cpp)
// Histogram of absolute residuals -> scale, outliers, spikes. h: bin width. Removes the spikes from hist.
void robust_stat(Vector<uint32_t>& hist, float h, float& s, float& out, float& ff);
// Signed residuals in 2 H_SIZE bins, bin = round(r / h) + H_SIZE -> median, scale, outliers.
void sigma_histo_med(float& m, float& s, float& out, const Vector<uint32_t>& H, float h);

// --- Uncertainty of the vertices (TNRreg_unc.cpp)
void comp_unc(dUParamTiles& Q, Vector<Image<xyz>>& Unc);  // information matrices; weak vertices go off
void comp_rough(dUParamTiles& Q, Vector<Image<float>>& Rough);
void delete_Vmap_unc_wb(dUParamTile& T, const Image<xyz>& Unc, int ti);

// --- One level (TNRreg_core.cpp)
bool core_nr_reg_tiles(dUParamTiles& Q, int J);
struct NRlevel {  // what nr_reg_tiles needs of a level
  int J = 0, Jstart = 0, Jend = 0;
  int buf = 0, dim = 0;
};
// 1 converged, 0 not (or no tile with usable data), -1 no residual at all after the set-up.
int nr_reg_tiles(const Vector<FCZptr>& img, const NRpair& pair, const NRparam& param, const NRlevel& lev,
                 NRresult& result, DZmap* dzmap);

// --- Measurement (TNRreg_qc.cpp)
// Differences before (displacement 0) and after (Def, where def is set) into the maps and statistics. QC0,
// QC: which of the two are wanted.
void update_subDZ_def(dUParamTiles& Q, const NRpair& pair, bool QC0, bool QC, bool def, DZstat& before,
                      DZstat& after, DZmap* dzmap);

// --- Levels (mg_nr_reg.cpp)
Image<xyz> refine_Def(const Image<xyz>& Def, bool scale);  // side n -> 2 (n - 1) + 1; scale doubles x and y
// F: 1 + the roughness code where img has data and no hole is near, else 0, also for codes above smax; without codes (S
// empty) just 1.
void set_flags(Vector<Image<uint8_t>>& F, const Vector<Image<float>>& img,
               const Vector<Image<uint8_t>>& S = {}, int smax = 31);
}  // namespace veld
