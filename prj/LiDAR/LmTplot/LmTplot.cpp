#include "prj/LiDAR/LmTplot/LmTplot.h"

#include <algorithm>

#include "lib/general/log.h"

namespace veld {
namespace {
// Position of a tile in a frame; false outside it.
bool place_in_frame(const TileInfo& frame, uint32_t XI, uint32_t YI, int& x, int& y) {
  const int64_t dx = static_cast<int64_t>(XI) - frame.XI, dy = static_cast<int64_t>(YI) - frame.YI;
  if (dx < 0 || dy < 0 || dx >= frame.nx || dy >= frame.ny) return false;
  x = static_cast<int>(dx);
  y = static_cast<int>(dy);
  return true;
}

uint64_t tile_order(const ToccTile& t) { return static_cast<uint64_t>(t.y) << 32 | t.x; }

bool is_empty(const Image<uint8_t>& occ) {
  return std::none_of(occ.val, occ.val + occ.size(), [](uint8_t v) { return (v & 1) != 0; });
}

void extend_bbox(mTbbox& b, int64_t x, int64_t y) {
  if (b.n == 0) {
    b.xmin = b.xmax = x;
    b.ymin = b.ymax = y;
  }
  b.xmin = std::min(b.xmin, x);
  b.xmax = std::max(b.xmax, x);
  b.ymin = std::min(b.ymin, y);
  b.ymax = std::max(b.ymax, y);
  b.n++;
}

template <typename T>
uint64_t render(const Tocc& occ, const TileInfo& frame, Image<T>& img) {
  img.resize(frame.nx * mTsub, frame.ny * mTsub, T{0});
  uint64_t nout = 0;
  for (const ToccTile& t : occ) {
    int x, y;
    if (!place_in_frame(frame, t.x, t.y, x, y)) {
      nout++;
      continue;
    }
    for (int j = 0; j < mTsub; j++)
      for (int i = 0; i < mTsub; i++) img.row(y * mTsub + j)[x * mTsub + i] = t.occ.row(j)[i] & 1;
  }
  return nout;
}
}  // namespace

TileInfo comp_frame(const std::vector<const LTidxInfo*>& infos) {
  TileInfo frame;
  if (infos.empty()) return frame;
  uint32_t x0 = UINT32_MAX, y0 = UINT32_MAX, x1 = 0, y1 = 0;
  for (const LTidxInfo* info : infos) {
    x0 = std::min(x0, uint32_t{info->XImin});
    y0 = std::min(y0, uint32_t{info->YImin});
    x1 = std::max(x1, uint32_t{info->XImax});
    y1 = std::max(y1, uint32_t{info->YImax});
  }
  frame.XI = x0;
  frame.YI = y0;
  frame.nx = static_cast<int>(x1 - x0) + 1;
  frame.ny = static_cast<int>(y1 - y0) + 1;
  return frame;
}

Tovr make_Tovr(const TileInfo& frame) {
  Tovr ovr;
  ovr.frame = frame;
  ovr.n.resize(frame.nx, frame.ny);
  return ovr;
}

bool read_Tocc(const CacheName& swath, Tocc& occ) {
  Vector<TIsxy> TI;
  Vector<Image<uint8_t>> mocc;
  if (!read_LTidx_TI(swath, TI) || !read_LmTidx_tiles_mocc(swath, static_cast<uint32_t>(TI.size()), mocc))
    return false;
  occ.clear();
  occ.reserve(TI.size());
  for (uint64_t k = 0; k < TI.size(); k++)
    occ.push_back({TI[k].x, TI[k].y, static_cast<uint32_t>(k), 0, std::move(mocc[k])});
  return true;
}

uint64_t add_Tovr_Tocc(Tovr& ovr, const Tocc& occ) {
  uint64_t ntnew = 0, ntovr = 0, ntout = 0;
  for (const ToccTile& t : occ) {
    int x, y;
    if (!place_in_frame(ovr.frame, t.x, t.y, x, y)) {
      ntout++;
      continue;
    }
    Image<uint8_t>& n = ovr.n.row(y)[x];
    if (n.empty()) {
      n.resize(mTsub, mTsub, 0);
      ntnew++;
    } else {
      ntovr++;
    }
    for (int i = 0; i < mTn; i++) n[i] = static_cast<uint8_t>(n[i] + ((t.occ[i] & 1) && n[i] < 255));
  }
  LOG_LINE("add_Tovr_Tocc Nsize=" << ovr.n.size() << " nt=" << occ.size() << " dimx=" << ovr.frame.nx
                                  << " dimy=" << ovr.frame.ny << " ntnew=" << ntnew << " ntovr=" << ntovr
                                  << " ntout=" << ntout);
  return ntout;
}

uint64_t add_Tovr_ref(Tovr& ovr, const Tocc& occ) {
  uint64_t nmt = 0;
  for (const ToccTile& t : occ) {
    int x, y;
    if (!place_in_frame(ovr.frame, t.x, t.y, x, y)) continue;
    Image<uint8_t>& n = ovr.n.row(y)[x];
    for (uint64_t i = 0; i < n.size(); i++) {
      const bool both = n[i] > 0 && (t.occ[i] & 1);
      nmt += both;
      n[i] = static_cast<uint8_t>(n[i] + (both && n[i] < 255));
    }
  }
  LOG_LINE("add_Tovr_ref nt=" << occ.size() << " nmt=" << nmt);
  return nmt;
}

Tocc make_Tocc(const Tovr& ovr, uint8_t vmin) {
  Tocc occ;
  for (int y = 0; y < ovr.frame.ny; y++)
    for (int x = 0; x < ovr.frame.nx; x++) {
      const Image<uint8_t>& n = ovr.n(x, y);
      if (std::none_of(n.val, n.val + n.size(), [vmin](uint8_t v) { return v >= vmin; })) continue;
      ToccTile tile{ovr.frame.XI + static_cast<uint32_t>(x), ovr.frame.YI + static_cast<uint32_t>(y), 0, 0,
                    n};
      for (uint64_t i = 0; i < n.size(); i++) tile.occ[i] = n[i] >= vmin;
      occ.push_back(std::move(tile));
    }
  return occ;
}

Tovr count_Tovr(const std::vector<Tovr>& maps) {
  Tovr sum = make_Tovr(maps.at(0).frame);
  for (const Tovr& map : maps)
    for (uint64_t k = 0; k < map.n.size(); k++) {
      if (map.n[k].empty()) continue;
      Image<uint8_t>& to = sum.n[k];
      if (to.empty()) to.resize(mTsub, mTsub, 0);
      for (int i = 0; i < mTn; i++) to[i] = static_cast<uint8_t>(to[i] + (map.n[k][i] > 0 && to[i] < 255));
    }
  return sum;
}

Tovr comp_Tovr2(const Tovr& ovr) {
  Tovr two = make_Tovr(ovr.frame);
  for (uint64_t k = 0; k < ovr.n.size(); k++) {
    const Image<uint8_t>& n = ovr.n[k];
    if (std::none_of(n.val, n.val + n.size(), [](uint8_t v) { return v >= 2; })) continue;
    Image<uint8_t>& m = two.n[k];
    m = n;
    for (int i = 0; i < mTn; i++)
      if (m[i] < 2) m[i] = 0;
  }
  return two;
}

Tocc inter_TLocc_Tovr(const Tocc& occ, const Tovr& ovr, uint8_t vmin) {
  Tocc result;
  uint64_t ntout = 0;
  for (const ToccTile& t : occ) {
    int x, y;
    if (!place_in_frame(ovr.frame, t.x, t.y, x, y)) {
      ntout++;
      continue;
    }
    const Image<uint8_t>& n = ovr.n.row(y)[x];
    if (n.empty()) continue;
    ToccTile cut = t;
    for (int i = 0; i < mTn; i++) cut.occ[i] = (t.occ[i] & 1) && n[i] >= vmin ? 1 : 0;
    if (!is_empty(cut.occ)) result.push_back(std::move(cut));
  }
  LOG_LINE("inter_TLocc_Tovr nt=" << occ.size() << " nltint=" << result.size() << " ntout=" << ntout);
  return result;
}

Tocc inter_Tocc(const Tocc& occ1, const Tocc& occ2) {
  Tocc result;
  uint64_t ntcomp = 0;
  size_t j = 0;
  for (const ToccTile& a : occ1) {
    while (j < occ2.size() && tile_order(occ2[j]) < tile_order(a)) j++;
    if (j == occ2.size()) break;
    const ToccTile& b = occ2[j];
    if (tile_order(b) != tile_order(a)) continue;
    ntcomp++;
    ToccTile both = a;
    both.k2 = b.k;
    for (int i = 0; i < mTn; i++) both.occ[i] = a.occ[i] & b.occ[i] & 1;
    if (!is_empty(both.occ)) result.push_back(std::move(both));
  }
  LOG_LINE("inter_Tocc nt1=" << occ1.size() << " nt2=" << occ2.size() << " ntint=" << result.size()
                             << " ntcomp=" << ntcomp);
  return result;
}

mTbbox comp_mTbbox_Tovr(const Tovr& ovr, uint8_t vmin) {
  mTbbox b;
  for (int y = 0; y < ovr.frame.ny; y++)
    for (int x = 0; x < ovr.frame.nx; x++) {
      const Image<uint8_t>& n = ovr.n.row(y)[x];
      for (uint64_t i = 0; i < n.size(); i++)
        if (n[i] >= vmin && n[i] > 0)
          extend_bbox(b, (static_cast<int64_t>(ovr.frame.XI) + x) * mTsub + static_cast<int64_t>(i) % mTsub,
                      (static_cast<int64_t>(ovr.frame.YI) + y) * mTsub + static_cast<int64_t>(i) / mTsub);
    }
  return b;
}

mTbbox comp_mTbbox_Tocc(const Tocc& occ) {
  mTbbox b;
  for (const ToccTile& t : occ)
    for (int i = 0; i < mTn; i++)
      if (t.occ[i] & 1) extend_bbox(b, int64_t{t.x} * mTsub + i % mTsub, int64_t{t.y} * mTsub + i / mTsub);
  return b;
}

uint64_t count_Tocc(const Tocc& occ) {
  uint64_t n = 0;
  for (const ToccTile& t : occ)
    for (int i = 0; i < mTn; i++) n += t.occ[i] & 1;
  return n;
}

void count_fovr_12(const Tovr& a, const Tovr& b, double& f1, double& f2) {
  ASSERT(a.n.xsize() == b.n.xsize() && a.n.ysize() == b.n.ysize());
  uint64_t n1 = 0, n2 = 0, both = 0;
  for (uint64_t k = 0; k < a.n.size(); k++)
    for (int i = 0; i < mTn; i++) {
      const bool in1 = !a.n[k].empty() && a.n[k][i] > 0, in2 = !b.n[k].empty() && b.n[k][i] > 0;
      n1 += in1;
      n2 += in2;
      both += in1 && in2;
    }
  f1 = n1 ? static_cast<double>(both) / static_cast<double>(n1) : 0;
  f2 = n2 ? static_cast<double>(both) / static_cast<double>(n2) : 0;
  LOG_LINE("count_fovr_12 n1=" << n1 << " n2=" << n2 << " both=" << both);
}

void count_fovr_12(const Tocc& a, const Tocc& b, double& f1, double& f2) {
  const double both = static_cast<double>(count_Tocc(inter_Tocc(a, b)));
  const uint64_t n1 = count_Tocc(a), n2 = count_Tocc(b);
  f1 = n1 ? both / static_cast<double>(n1) : 0;
  f2 = n2 ? both / static_cast<double>(n2) : 0;
}

uint64_t img_Tocc(const Tocc& occ, const TileInfo& frame, Image<uint8_t>& img) {
  const uint64_t nout = render(occ, frame, img);
  LOG_LINE("img_Tocc[08] nt=" << occ.size() << " nout=" << nout);
  return nout;
}

uint64_t img_Tocc(const Tocc& occ, const TileInfo& frame, Image<uint16_t>& img) {
  const uint64_t nout = render(occ, frame, img);
  LOG_LINE("img_Tocc[16] nt=" << occ.size() << " nout=" << nout);
  return nout;
}

void img_Tovr_clip(const Tovr& ovr, uint8_t nmax, Image<uint8_t>& img) {
  img.resize(ovr.frame.nx * mTsub, ovr.frame.ny * mTsub, 0);
  for (int y = 0; y < ovr.frame.ny; y++)
    for (int x = 0; x < ovr.frame.nx; x++) {
      const Image<uint8_t>& n = ovr.n.row(y)[x];
      for (uint64_t i = 0; i < n.size(); i++)
        img.row(y * mTsub + static_cast<int>(i) / mTsub)[x * mTsub + static_cast<int>(i) % mTsub] =
            std::min(n[i], nmax);
    }
}
}  // namespace veld
