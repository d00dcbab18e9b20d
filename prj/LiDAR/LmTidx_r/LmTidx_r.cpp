#include "prj/LiDAR/LmTidx_r/LmTidx_r.h"

#include <algorithm>
#include <cmath>
#include <sstream>

#include "lib/general/path.h"
#include "prj/LiDAR/LmTidx_r/LmTidx_internal.h"

namespace veld {
namespace {
constexpr uint64_t MAX_LIST = uint64_t{1} << 28;  // bytes of a list of swaths

bool header_fits(const LTidxHdr& hdr) {
  return hdr.magic == TileMagic && hdr.version == TileVersion && hdr.msublevel == mT_SUB_LEVEL &&
         (hdr.xlevel & 0x7F) <= 2;
}

// What every user of the record relies on: a table that can exist, extents that an array can have, and
// numbers that are numbers.
bool info_fits(const LTidxInfo& info, int level, uint64_t table_bytes) {
  const uint64_t end = static_cast<uint64_t>(GROUND_END) >> (level + 9);
  if (info.nt == 0 || info.nt > MAX_TILES || table_bytes != info.nt * sizeof(TIsxy)) return false;
  if (info.XImin > info.XImax || info.YImin > info.YImax || info.XImax > end || info.YImax > end)
    return false;
  if (info.XImax - info.XImin >= MAX_TILE_SPAN || info.YImax - info.YImin >= MAX_TILE_SPAN) return false;
  bool finite = std::isfinite(info.t0) && std::isfinite(info.tmin) && std::isfinite(info.tmax);
  for (int i = 0; i < 3; i++) finite = finite && std::isfinite(info.bbmin[i]) && std::isfinite(info.bbmax[i]);
  for (int i = 0; i < 4; i++)
    finite = finite && std::isfinite(info.mbr[i][0]) && std::isfinite(info.mbr[i][1]);
  return finite;
}

// Reads the two fixed records.
bool read_head(PosFileIn& in, const CacheName& swath, LTidxHdr& hdr, LTidxInfo& info) {
  if (!open_cache(swath, EXT_TIDX, in) || !in.read(0, &hdr, sizeof hdr)) return false;
  const uint64_t head = sizeof hdr + hdr.nxcls + sizeof info;
  return header_fits(hdr) && in.size() >= head && in.read(sizeof hdr + hdr.nxcls, &info, sizeof info) &&
         info_fits(info, header_level(hdr), in.size() - head);
}

// Tiles inside the extent of the header, each once, in order; their counts add up to the swath's.
bool table_fits(const LTidxInfo& info, const Vector<TIsxy>& TI) {
  uint64_t np = 0;
  int64_t last = -1;
  for (const TIsxy& t : TI) {
    if (t.x < info.XImin || t.x > info.XImax || t.y < info.YImin || t.y > info.YImax) return false;
    const int64_t place = static_cast<int64_t>(t.y) << 32 | t.x;
    if (place <= last) return false;
    last = place;
    np += t.n;
  }
  return np == info.np;
}

bool read_table(const PosFileIn& in, const LTidxInfo& info, Vector<TIsxy>& TI) {
  const uint64_t bytes = info.nt * sizeof(TIsxy);  // it stands at the end
  TI.resize(info.nt);
  return in.read(in.size() - bytes, TI.val, bytes) && table_fits(info, TI);
}
}  // namespace

int header_level(const LTidxHdr& hdr) { return tile_level((hdr.flags & HDR_LARGE) != 0, hdr.xlevel & 0x7F); }

bool read_LTidxHdr(const CacheName& swath, LTidxHdr& hdr) {
  PosFileIn in(false);
  return open_cache(swath, EXT_TIDX, in) && in.read(0, &hdr, sizeof hdr) && header_fits(hdr);
}

bool read_LTidxInfo(const CacheName& swath, LTidxInfo& info) {
  PosFileIn in(false);
  LTidxHdr hdr;
  return read_head(in, swath, hdr, info);
}

bool read_LTidx_TI(const CacheName& swath, Vector<TIsxy>& TI) {
  PosFileIn in(false);
  LTidxHdr hdr;
  LTidxInfo info;
  return read_head(in, swath, hdr, info) && read_table(in, info, TI);
}

void build_tile_map(const LTidxInfo& info, const Vector<TIsxy>& TI, Image<uint16_t>& timg) {
  TileInfo frame;
  frame.XI = info.XImin;
  frame.YI = info.YImin;
  frame.nx = static_cast<int>(info.XImax - info.XImin) + 1;
  frame.ny = static_cast<int>(info.YImax - info.YImin) + 1;
  build_tile_map(frame, TI, timg);
}

TileInfo extent_of(const Vector<TIsxy>& TI) {
  uint32_t xmin = UINT32_MAX, ymin = UINT32_MAX, xmax = 0, ymax = 0;
  for (const TIsxy& t : TI) {
    xmin = std::min(xmin, t.x), xmax = std::max(xmax, t.x);
    ymin = std::min(ymin, t.y), ymax = std::max(ymax, t.y);
  }
  return {xmin, ymin, static_cast<int>(xmax - xmin) + 1, static_cast<int>(ymax - ymin) + 1};
}

void build_tile_map(const TileInfo& frame, const Vector<TIsxy>& TI, Image<uint16_t>& timg) {
  timg.resize(frame.nx, frame.ny, NO_TILE);
  for (uint64_t k = 0; k < TI.size(); k++) {
    const int64_t x = static_cast<int64_t>(TI[k].x) - frame.XI, y = static_cast<int64_t>(TI[k].y) - frame.YI;
    if (x >= 0 && y >= 0 && x < frame.nx && y < frame.ny)
      timg.row(static_cast<int>(y))[x] = static_cast<uint16_t>(k);
  }
}

namespace {
bool read_members(const CacheName& swath, std::vector<SwTiles>& members) {
  std::vector<std::string> paths;
  if (!read_LTidx_uswaths(swath, paths)) return false;
  members.resize(paths.size());
  for (size_t i = 0; i < paths.size(); i++)
    if (const CacheName member(paths[i]); member.is_union() || !read_SwTiles(member, members[i]))
      return false;
  return true;
}
}  // namespace

bool read_SwTiles(const CacheName& swath, SwTiles& sw) {
  PosFileIn in(false);
  LTidxHdr hdr;
  if (!read_head(in, swath, hdr, sw.info) || !read_table(in, sw.info, sw.TI)) return false;
  sw.cache = swath;
  sw.geom = make_tile_geom(header_level(hdr));
  sw.Pidx.resize(sw.TI.size());
  uint64_t first = 0;
  for (uint64_t k = 0; k < sw.TI.size(); k++) {
    sw.Pidx[k] = first;
    first += sw.TI[k].n;
  }
  build_tile_map(sw.info, sw.TI, sw.timg);
  sw.files.reset();
  sw.members.clear();
  return !swath.is_union() || read_members(swath, sw.members);
}

bool read_LTidx_uswaths(const CacheName& swath, std::vector<std::string>& members) {
  members.clear();
  PosFileIn in(false);
  if (!open_cache(swath, EXT_ULIDX, in) || in.size() > MAX_LIST) return false;
  std::string text(in.size(), '\0'), line;
  if (!in.read(0, text.data(), text.size())) return false;
  std::istringstream lines(text);
  while (std::getline(lines, line)) {
    const std::string number = std::to_string(members.size()) + " ";
    if (line.size() <= number.size() || line.rfind(number, 0) != 0) return false;
    members.push_back(line.substr(number.size()));
  }
  return !members.empty();
}
}  // namespace veld
