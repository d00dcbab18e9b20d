#include "prj/LiDAR/LmTidx_w/LmT_union.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <unordered_set>

#include "lib/general/family_out.h"
#include "lib/general/file_lock.h"
#include "lib/general/hash.h"
#include "lib/general/log.h"
#include "lib/general/path.h"
#include "lib/general/timing.h"
#include "prj/LiDAR/LmTidx_r/LmTidx_r.h"
#include "prj/LiDAR/LmTidx_r/pin_cache.h"
#include "prj/LiDAR/LmTidx_w/LmTidx_w_internal.h"

namespace veld {
namespace {
struct UnionTile {  // a tile of one member
  uint64_t place;   // y, then x: the order of tile tables
  uint32_t member;
  uint32_t k;  // in the member's table
};

struct UnionPlan {
  std::vector<CacheName> members;
  std::vector<LTidxInfo> infos;
  std::vector<UnionTile> tiles;  // by place, then member
  LTidxHdr hdr{};
};

std::string resolved(const CacheName& member) { return member.dir() + member.name(); }

bool read_plan(const std::vector<CacheName>& names, const std::vector<bool>& used, const TilingParam& par,
               UnionPlan& plan) {
  uint64_t stamp = FNV1A_START;
  for (size_t i = 0; i < names.size(); i++) {
    if (!used[i]) continue;
    LTidxHdr hdr;
    LTidxInfo info;
    Vector<TIsxy> TI;
    if (!read_LTidxHdr(names[i], hdr) || !read_LTidxInfo(names[i], info) || !read_LTidx_TI(names[i], TI)) {
      ERROR_MSG("missing/incompatible temp. tile files, swath " << names[i].source());
      return false;
    }
    const uint32_t member = static_cast<uint32_t>(plan.members.size());
    for (uint64_t k = 0; k < TI.size(); k++)
      plan.tiles.push_back(
          {static_cast<uint64_t>(TI[k].y) << 32 | TI[k].x, member, static_cast<uint32_t>(k)});
    plan.members.push_back(names[i]);
    plan.infos.push_back(info);
    const std::string file = resolved(names[i]);
    stamp = fnv1a(file.c_str(), file.size() + 1, stamp);
    stamp = fnv1a(&hdr, sizeof hdr, stamp);
    stamp = fnv1a(&info, sizeof info, stamp);
  }
  std::sort(plan.tiles.begin(), plan.tiles.end(), [](const UnionTile& a, const UnionTile& b) {
    return a.place != b.place ? a.place < b.place : a.member < b.member;
  });
  plan.hdr = make_LTidxHdr(par);
  plan.hdr.tstamp = static_cast<int64_t>(stamp >> 1);
  return true;
}

// Whether the caches of the union were made of these members as they are now.
bool check_union(const CacheName& swath, const UnionPlan& plan) {
  LTidxHdr hdr;
  LTidxInfo info;
  std::vector<std::string> listed;
  if (file_size(swath.file(EXT_TIDX)) < 0) return false;
  if (const std::string fault = tiles_fault(swath); !fault.empty()) {
    WARNING_MSG("damaged cache of a union is made anew: " << fault);
    return false;
  }
  if (!read_LTidxHdr(swath, hdr) || std::memcmp(&hdr, &plan.hdr, sizeof hdr) != 0) return false;
  if (!read_LTidxInfo(swath, info) || !read_LTidx_uswaths(swath, listed) ||
      !std::equal(listed.begin(), listed.end(), plan.members.begin(), plan.members.end(),
                  [](const std::string& file, const CacheName& member) { return file == resolved(member); }))
    return false;
  for (const char* const suffix : {EXT_MTIDX, EXT_MTZM})
    if (file_size(swath.file(suffix)) != static_cast<int64_t>(info.nt * MT_IMG_BYTES)) return false;
  LOG_LINE("union kept, nt=" << uint32_t(info.nt));
  return true;
}

// Extents, boxes and ranges of all members.
LTidxInfo merge_infos(const std::vector<LTidxInfo>& infos) {
  LTidxInfo u = infos[0];
  for (const LTidxInfo& m : infos) {
    u.XImin = std::min(uint32_t{u.XImin}, uint32_t{m.XImin});
    u.YImin = std::min(uint32_t{u.YImin}, uint32_t{m.YImin});
    u.XImax = std::max(uint32_t{u.XImax}, uint32_t{m.XImax});
    u.YImax = std::max(uint32_t{u.YImax}, uint32_t{m.YImax});
    u.tmin = std::min(double{u.tmin}, double{m.tmin});
    u.tmax = std::max(double{u.tmax}, double{m.tmax});
    u.amin = std::min(float{u.amin}, float{m.amin});
    u.amax = std::max(float{u.amax}, float{m.amax});
    for (int i = 0; i < 3; i++) {
      u.bbmin[i] = std::min(double{u.bbmin[i]}, double{m.bbmin[i]});
      u.bbmax[i] = std::max(double{u.bbmax[i]}, double{m.bbmax[i]});
      u.bbmin0[i] = std::min(double{u.bbmin0[i]}, double{m.bbmin0[i]});
      u.bbmax0[i] = std::max(double{u.bbmax0[i]}, double{m.bbmax0[i]});
    }
  }
  u.np = 0;
  u.nt = u.nmt = u.Nmax = 0;
  u.Nmin = UINT32_MAX;
  LOG_LINE("XI:[" << uint32_t(u.XImin) << " " << uint32_t(u.XImax) << "] YI:[" << uint32_t(u.YImin) << " "
                  << uint32_t(u.YImax) << "] x:[" << double(u.bbmin[0]) << " " << double(u.bbmax[0])
                  << "] y:[" << double(u.bbmin[1]) << " " << double(u.bbmax[1]) << "] t:[" << double(u.tmin)
                  << " " << double(u.tmax) << "] sa:[" << float(u.amin) << " " << float(u.amax) << "]");
  return u;
}

// Tables of the members that are being merged. Few are open at a time: tiles come in order, and so do members.
class MemberTables {
 public:
  explicit MemberTables(const UnionPlan& plan) : plan_(plan) {}
  const TileTables* open(uint32_t member) {
    if (open_.size() > MAX_OPEN) open_.clear();
    TileTables& t = open_[member];
    if (t.is_open() || t.open(plan_.members[member], plan_.infos[member].nt, false)) return &t;
    return nullptr;
  }

 private:
  static constexpr size_t MAX_OPEN = 64;
  const UnionPlan& plan_;
  std::map<uint32_t, TileTables> open_;
};

struct MergedTile {
  uint64_t N[mTn];
  int64_t Z[mTn];  // sums of heights
  uint32_t count[mTn];
  int32_t Zm[mTn];
};

void add_member(const Image<uint32_t>& N, const Image<int32_t>& Zm, MergedTile& t) {
  for (int m = 0; m < mTn; m++) {
    if (N[m] == 0) continue;
    t.N[m] += N[m];
    t.Z[m] += int64_t{N[m]} * Zm[m];
  }
}

// Counts and mean heights of the merged tile; its table entry.
TIsxy finish_tile(uint64_t place, MergedTile& t, LTidxInfo& info) {
  uint64_t n = 0;
  for (int m = 0; m < mTn; m++) {
    t.count[m] = static_cast<uint32_t>(std::min<uint64_t>(t.N[m], UINT32_MAX));
    t.Zm[m] = t.N[m] > 0 ? static_cast<int32_t>(t.Z[m] / static_cast<int64_t>(t.N[m])) : NO_I32;
    n += t.count[m];
    info.nmt += t.count[m] > 0;
  }
  const TIsxy tile{static_cast<uint32_t>(place), static_cast<uint32_t>(place >> 32),
                   static_cast<uint32_t>(std::min<uint64_t>(n, UINT32_MAX))};
  info.np += tile.n;
  info.nt++;
  info.Nmin = std::min(uint32_t{info.Nmin}, tile.n);
  info.Nmax = std::max(uint32_t{info.Nmax}, tile.n);
  return tile;
}

// The tiles with any point, one after the other, into the table and the two files.
bool write_LTidx_LmT_netiles(FamilyOut& family, const UnionPlan& plan, LTidxInfo& info,
                             std::vector<TIsxy>& TI, std::vector<OccBits>& occ) {
  SummedFileOut* const counts = family.create(EXT_MTIDX, TILE_BUFFER);
  SummedFileOut* const heights = family.create(EXT_MTZM, TILE_BUFFER);
  if (!counts || !heights) return false;
  MemberTables tables(plan);
  MergedTile tile;
  Image<uint32_t> N;
  Image<int32_t> Zm;
  for (size_t i = 0; i < plan.tiles.size();) {
    const uint64_t place = plan.tiles[i].place;
    std::fill_n(tile.N, mTn, uint64_t{0});
    std::fill_n(tile.Z, mTn, int64_t{0});
    for (; i < plan.tiles.size() && plan.tiles[i].place == place; i++) {
      const TileTables* const t = tables.open(plan.tiles[i].member);
      if (!t || !t->read_N(plan.tiles[i].k, N) || !t->read_Zm(plan.tiles[i].k, Zm)) return false;
      add_member(N, Zm, tile);
    }
    if (std::all_of(tile.N, tile.N + mTn, [](uint64_t n) { return n == 0; })) continue;
    TI.push_back(finish_tile(place, tile, info));
    occ.push_back(occupied_bits(tile.count));
    if (!counts->write(tile.count, sizeof tile.count) || !heights->write(tile.Zm, sizeof tile.Zm))
      return false;
  }
  return true;
}

bool write_LTidx_uswaths(FamilyOut& family, const std::vector<CacheName>& members) {
  SummedFileOut* const out = family.create(EXT_ULIDX, TILE_BUFFER);
  size_t swu = 0;
  for (const CacheName& member : members) {
    const std::string line = std::to_string(swu++) + " " + resolved(member) + "\n";
    if (!out || !out->write(line.data(), line.size())) return false;
  }
  ASSERT(swu == members.size());
  return out != nullptr;
}

template <typename T>
Vector<T> to_vector(const std::vector<T>& list) {
  Vector<T> v(list.size());
  std::copy(list.begin(), list.end(), v.val);
  return v;
}

bool make_union(const CacheName& swath, const UnionPlan& plan, const TilingParam& par) {
  uint64_t nfiles = 0, nbytes = 0;
  if (!delete_LmT_tile(swath, nfiles, nbytes) || !delete_LmT_grid(swath, nfiles, nbytes))
    LOG_LINE("<!> FAILED TO DELETE an older union");
  const TileGeom geom = make_tile_geom(header_level(plan.hdr));
  LTidxInfo info = merge_infos(plan.infos);
  std::vector<TIsxy> list;
  std::vector<OccBits> occ;
  FamilyOut family(swath.file(""), EXT_TIDX, EXT_MTSUM);
  if (!write_LTidx_uswaths(family, plan.members) || !write_LTidx_LmT_netiles(family, plan, info, list, occ))
    return false;
  const Vector<TIsxy> TI = to_vector(list);
  if (TI.empty() || !mtile_MBR_stat(geom, TI, to_vector(occ), info)) {
    ERROR_MSG("LAS stat and MBR computation: insufficient data, " << swath.source());
    return false;
  }
  LOG_LINE("ntw=" << TI.size() << " npt:" << uint64_t(info.np));
  return write_LTidx(family, plan.hdr, par.xcls, info, TI) && family.publish();
}
}  // namespace

bool choose_union(size_t sw0, const std::vector<CacheName>& names, const std::vector<bool>& used,
                  std::vector<size_t>& members) {
  members.clear();
  std::unordered_set<uint64_t> places;
  uint32_t x0 = UINT32_MAX, y0 = UINT32_MAX, x1 = 0, y1 = 0;
  for (size_t i = sw0; i < names.size(); i++) {
    if (!used[i]) continue;
    LTidxInfo info;
    Vector<TIsxy> TI;
    if (!read_LTidxInfo(names[i], info) || !read_LTidx_TI(names[i], TI)) return false;
    const uint32_t nx0 = std::min(x0, uint32_t{info.XImin}), nx1 = std::max(x1, uint32_t{info.XImax});
    const uint32_t ny0 = std::min(y0, uint32_t{info.YImin}), ny1 = std::max(y1, uint32_t{info.YImax});
    uint64_t fresh = 0;
    for (const TIsxy& t : TI) fresh += !places.contains(static_cast<uint64_t>(t.y) << 32 | t.x);
    const bool fits =
        nx1 - nx0 < MAX_TILE_SPAN && ny1 - ny0 < MAX_TILE_SPAN && places.size() + fresh <= MAX_TILES;
    if (!members.empty() && !fits) continue;
    for (const TIsxy& t : TI) places.insert(static_cast<uint64_t>(t.y) << 32 | t.x);
    x0 = nx0, x1 = nx1, y0 = ny0, y1 = ny1;
    members.push_back(i);
  }
  return true;
}

bool LmT_union(size_t sw0, const std::vector<CacheName>& names, const std::vector<bool>& used,
               const TilingParam& par_in, CacheName& swath) {
  ASSERT(used.size() == names.size() && sw0 < names.size() && used[sw0]);
  LOG_ENTER("LmT_union sw0=" << sw0 << " nsw=" << names.size());
  const Stopwatch watch;
  TilingParam par = par_in;
  par.tproc = false;  // the times of a union mean nothing
  swath = CacheName::of_union(names[sw0]);
  UnionPlan plan;
  if (!read_plan(names, used, par, plan)) return false;
  LOG_LINE("nswu=" << plan.members.size());
  FileLock lock;
  if (!lock.wait(swath.file(EXT_MTLOCK), "the tiles of " + swath.source())) return false;
  unpin_cache(swath, EXT_MTSUM);
  if (!check_union(swath, plan) && !make_union(swath, plan, par)) return false;
  pin_cache(swath, EXT_MTSUM);
  LOG_LINE(" /// LmT_UNION_TIME=" << watch.text());
  return true;
}
}  // namespace veld
