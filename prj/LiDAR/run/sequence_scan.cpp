// The scan sequence: swaths to tiles, statistics, overlap, grids, registration.
#include <algorithm>
#include <cmath>
#include <mutex>

#include "lib/general/log.h"
#include "lib/general/path.h"
#include "lib/general/result_file.h"
#include "lib/threads/pool.h"
#include "prj/LiDAR/DUTio/DUTio.h"
#include "prj/LiDAR/LmTQCGCP/control.h"
#include "prj/LiDAR/LmTQCimg/swath_maps.h"
#include "prj/LiDAR/LmTgrid_w/LmTgrid_w.h"
#include "prj/LiDAR/LmTidx_w/LmTidx_w.h"
#include "prj/LiDAR/LmTidx_w/dropmap.h"
#include "prj/LiDAR/LmTplot/LmTplot_txt.h"
#include "prj/LiDAR/LmTplot/swath_inter.h"
#include "prj/LiDAR/TNRreg/TNRreg.h"
#include "prj/LiDAR/run/sequence_internal.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
constexpr uint64_t MIN_REG_MT = 16;  // microtiles of overlap that a registration needs at least
constexpr double KM2_FROM = 1e7;     // m2: larger areas are reported in km2

struct Work {           // what the run does with the overlaps
  bool DOGRID = false;  // grids are needed: to register, to measure, or for the check after a correction
  bool DOREG = false;   // pairs are registered
  bool DOQC = false;    // pairs are only measured
  bool DOFQC = false;   // maps straight from the grids
  bool DOSEP = false;   // swath separation
};

bool grid_is_valid(const CacheName& swath, SwathId sw) { return check_gZDSidx(swath, sw, 0, false, false); }

std::string area_text(double m2) {
  return m2 >= KM2_FROM ? LOG_STR(m2 * 1e-6 << " km") : LOG_STR(m2 << " m");  // the "2" stands behind
}

std::string size_text(const mTbbox& b, double mTsize) {
  return LOG_STR(static_cast<double>(b.xmax - b.xmin + 1) * mTsize
                 << " x " << static_cast<double>(b.ymax - b.ymin + 1) * mTsize << " m");
}

void log_bbox(const char* label, const mTbbox& b) {
  LOG_LINE(label << " mTI X:[" << b.xmin << " " << b.xmax << "] Y:[" << b.ymin << " " << b.ymax
                 << "] n=" << b.n);
}

void log_param(const Project& prj, const ScanParam& par) {
  LOG_LINE("mGSD=" << prj.scale.mTsize << " median=" << !par.mean << " large=" << prj.scale.large
                   << " xlevel=" << prj.scale.xlevel << " DTS=" << par.tiling.DTS << " GCPfile="
                   << par.control.gcp.file << " XYZGCPfile=" << par.control.xyz.file << " REG=" << par.REG
                   << " QC=" << par.QC << " FULL=" << par.FULL << " ALLDZ=" << par.regpairs.ALLDZ
                   << " GRPREG=" << par.regpairs.GRP << " REFREG=" << par.regpairs.REF
                   << " CHREG=" << par.regpairs.CH << " chgrp.size()=" << prj.chgrp.size()
                   << " RDIM=" << par.regpairs.RDIM << " LAREA=" << par.tiling.large);
  LOG_LINE("level=" << prj.scale.level << " Tsize=" << prj.scale.Tsize << " mTsize=" << prj.scale.mTsize);
}

// --- tiling and rejection ---

bool write_rejected(const SwathTable& swaths, const std::string& file) {
  ResultFile out;
  if (!out.open(file)) return false;
  out.fs << "FileName\n";
  for (const Swath& s : swaths)
    if (s.state == SwathState::untiled)
      out.fs << "** S " << s.id << " g " << s.group << ' ' << s.path() << "\n              + " << s.reason
             << '\n';
  return out.commit();
}

int count_empty_groups(const Project& prj) {
  int n = 0;
  for (int g = 1; g <= prj.nmgrp; g++)
    n += std::ranges::none_of(prj.swaths, [g](const Swath& s) { return s.mobile() && s.group == g; });
  return n;
}

// Reports the swaths that tiling could not use.
bool rej_swaths(const Project& prj, ScanResult& res) {
  res.nrejected = static_cast<int>(
      std::ranges::count_if(prj.swaths, [](const Swath& s) { return s.state == SwathState::untiled; }));
  const auto nok = std::ranges::count_if(prj.swaths, &Swath::present);
  LOG_ENTER("rej_swaths nisw=" << prj.swaths.size() << " nok=" << nok);
  const std::string file = prj.name + "_rej.log";
  if (res.nrejected == 0) {
    remove_file(file);  // of an earlier run
    return true;
  }
  if (!write_rejected(prj.swaths, file)) return false;
  LOG_MSG(res.nrejected << " input swaths rejected (unreadable, inconsistent, or filtered out), see file "
                        << file);
  if (nok == 0) {
    ERROR_MSG("no valid data to work with");
    return false;
  }
  if (const int nempty = count_empty_groups(prj); nempty > 0)
    LOG_MSG(nempty << " groups left empty after swath rejection");
  return true;
}

std::vector<SwathId> list_swaths(const SwathTable& swaths, bool fixed) {
  std::vector<SwathId> list;
  for (const Swath& s : swaths.present())
    if (s.fixed == fixed) list.push_back(s.id);
  return list;
}

// Rejects references without overlap before anything is read of them, tiles the others. Their times do not matter,
// so files without time stamps will do.
bool tile_references(Project& prj, const ScanParam& par, TilingParam tiling, ScanResult& res) {
  const bool any = std::ranges::any_of(prj.swaths, &Swath::mobile);
  if (any && par.rej_ref && !select_references(prj.swaths, static_cast<double>(prj.scale.mTsize)))
    return false;
  LOG_LINE("<!> TILE REF");
  const std::vector<SwathId> todo = list_swaths(prj.swaths, true);
  tiling.tproc = false;
  LmTtileResult tiled;
  if (!LmT_tile(prj.swaths, todo, tiling, par.cache_tile, NTHREADS, tiled)) return false;
  res.ncached += tiled.ncached;
  const auto nlost = std::ranges::count_if(todo, [&](SwathId id) { return !prj.swaths[id].present(); });
  // The datum rests on the references: without one of them the result would be another.
  if (nlost > 0) ERROR_MSG(nlost << " reference files cannot be used, cannot proceed");
  return nlost == 0;
}

bool tile_swaths(Project& prj, const ScanParam& par, ScanResult& res) {
  const bool references = !list_swaths(prj.swaths, true).empty();
  LOG_LINE("<!> TILE " << (references ? "MOB" : "ALL"));
  TilingParam tiling = par.tiling;
  tiling.grid_ok = grid_is_valid;
  LmTtileResult tiled;
  const std::vector<SwathId> todo = list_swaths(prj.swaths, false);
  if (!LmT_tile(prj.swaths, todo, tiling, par.cache_tile, NTHREADS, tiled)) return false;
  res.ncached = tiled.ncached;
  res.nmemory = tiled.nmemory;
  return (!references || tile_references(prj, par, tiling, res)) && rej_swaths(prj, res);
}

// --- coverage and overlap ---

// Calls visit with each swath with that flag and its occupancy. They are read on threads and visited one at a
// time, in any order.
template <typename Visit>
bool visit_Tocc(const Project& prj, bool fixed, Visit visit) {
  std::mutex mutex;
  const std::vector<SwathId> list = list_swaths(prj.swaths, fixed);
  const int64_t bad = run_units(static_cast<int64_t>(list.size()), NTHREADSIO, [&](int64_t i, int) {
    const Swath& s = prj.swaths[list[static_cast<size_t>(i)]];
    Tocc occ;
    if (!read_Tocc(s.cache, occ)) {
      ERROR_MSG("missing/incompatible temp. tile files, " << s.path());
      return false;
    }
    const std::lock_guard<std::mutex> lock(mutex);
    visit(s, occ);
    return true;
  });
  return bad < 0;
}

void extend_box(mTbbox& b, const mTbbox& other) {
  if (other.empty()) return;
  const uint64_t n = b.n + other.n;
  if (b.empty()) b = other;
  b.xmin = std::min(b.xmin, other.xmin);
  b.ymin = std::min(b.ymin, other.ymin);
  b.xmax = std::max(b.xmax, other.xmax);
  b.ymax = std::max(b.ymax, other.ymax);
  b.n = n;
}

struct Coverage {  // swaths on each microtile
  Tovr ovr;        // mobile ones, and references on their ground
  // For pictures; empty when they would say the same, or no pictures are wanted.
  Tovr mob, ref;  // mobile swaths, references
  Tovr grp;       // groups of mobile swaths
};

// Ground of references only takes part in the total area and in nothing else.
bool comp_ovr_grp_fx(const Project& prj, bool pictures, Coverage& cover, ScanResult& res, ResultFile& qclog) {
  Tovr& ovr = cover.ovr;
  LOG_ENTER("comp_ovr_grp_fx nsw=" << prj.swaths.size() << " ngrp=" << prj.ngrp
                                   << " mTsize=" << prj.scale.mTsize);
  ovr = make_Tovr(res.stat.frame);
  std::vector<Tovr> govr(prj.nmgrp > 1 ? static_cast<size_t>(prj.nmgrp) : 0);
  for (Tovr& g : govr) g = make_Tovr(res.stat.frame);
  if (!visit_Tocc(prj, false, [&](const Swath& s, const Tocc& occ) {
        add_Tovr_Tocc(ovr, occ);
        if (!govr.empty()) add_Tovr_Tocc(govr[static_cast<size_t>(s.group - 1)], occ);
      }))
    return false;
  const mTbbox mob = comp_mTbbox_Tovr(ovr, 1);
  mTbbox ref;
  if (pictures && !govr.empty()) cover.grp = count_Tovr(govr);
  if (pictures && !list_swaths(prj.swaths, true).empty()) {
    cover.mob = ovr;
    cover.ref = make_Tovr(res.stat.frame);
  }
  uint64_t n12 = 0;
  if (!visit_Tocc(prj, true, [&](const Swath&, const Tocc& occ) {
        extend_box(ref, comp_mTbbox_Tocc(occ));
        n12 += add_Tovr_ref(ovr, occ);
        if (!cover.ref.n.empty()) add_Tovr_Tocc(cover.ref, occ);
      }))
    return false;
  LOG_LINE("count_fovr_12 n1=" << mob.n << " n2=" << ref.n << " both=" << n12);
  const double mTsize = static_cast<double>(prj.scale.mTsize);
  const auto area = [mTsize](uint64_t n) { return static_cast<double>(n) * mTsize * mTsize; };
  res.full = mob;
  extend_box(res.full, ref);
  res.full.n -= std::min(n12, ref.n);
  res.area = area(res.full.n);
  log_bbox("full", res.full);
  for (size_t g = 0; g < govr.size(); g++)
    qclog.fs << "Area group " << g + 1 << ' ' << area_text(area(comp_mTbbox_Tovr(govr[g], 1).n)) << "2\n";
  LOG_MSG("Total covered area=" << area_text(res.area) << "2, bounding box " << size_text(res.full, mTsize));
  if (ref.empty()) {
    qclog.fs << "Area total " << area_text(res.area) << "2\n";
    return true;
  }
  LOG_MSG("Mob data area=" << area_text(area(mob.n)) << "2, ref data area=" << area_text(area(ref.n)) << "2");
  qclog.fs << "Area " << area_text(area(mob.n)) << "2 mob, " << area_text(area(ref.n)) << "2 ref, "
           << area_text(res.area) << "2 total\n";
  return true;
}

// Box test of the pairs (near: those that pass), then the overlap itself. Without any overlap only a run over everything goes on.
bool find_overlap(const Project& prj, const ScanParam& par, const Tovr& ovr, SwPairList& near,
                  ScanResult& res, ResultFile& qclog) {
  std::vector<SwathBox> boxes_of;
  for (const Swath& s : prj.swaths.present()) boxes_of.push_back({s.id, s.fixed, res.stat.swaths[s.id].info});
  const double mTsize = static_cast<double>(prj.scale.mTsize);
  int nbb = 0;
  near = check_BBOX_MBR_fx_inter(boxes_of, mTsize, nbb);
  const bool boxes = !near.empty();
  if (boxes) {
    LOG_ENTER("comp_Tovr2 ");
    res.over = comp_mTbbox_Tovr(ovr, 2);
    LOG_LINE("ok=" << !res.over.empty());
  }
  res.overlap = static_cast<double>(res.over.n) * mTsize * mTsize;
  if (res.over.empty()) {
    const char* text = boxes ? "no swath overlap" : "no swath bounding box intersection";
    if (par.FULL && !par.REG) {
      WARNING_MSG(text);
      return true;
    }
    ERROR_MSG(text);
    return false;
  }
  qclog.fs << "Area overlap " << area_text(res.overlap) << "2\n";
  log_bbox("over", res.over);
  LOG_MSG("Overlap area=" << area_text(res.overlap) << "2, bounding box " << size_text(res.over, mTsize));
  return true;
}

bool write_overlap_box(const Project& prj, const mTbbox& b) {
  LOG_MSG("Writing overlapping area bounding box '" << prj.name << "_ovr_bb.txt'");
  const double m = static_cast<double>(prj.scale.mTsize);
  const auto ground = [m](int64_t i) { return static_cast<double>(i) * m + GROUND_ORIGIN; };
  return write_BBOX(prj.name + "_ovr_bb.txt", ground(b.xmin), ground(b.ymin), ground(b.xmax + 1),
                    ground(b.ymax + 1));
}

// Outlines of the swaths, and maps of where they lie.
bool save_swath_maps(const Project& prj, const ScanParam& par, const Coverage& cover, const ScanResult& res) {
  const SwathMapParam maps{par.BB, par.FP, par.OUTOBJ, par.SWMAPS, par.map};
  return save_bb_fp_N(prj, res.stat, cover.ovr, maps) &&
         (!par.SWMAPS ||
          (save_Tovrimg(prj.name + "_ovr", "swath count", prj, par.map, cover.ovr) &&
           save_Tovrimg(prj.name + "_ovr_mob", "mobile swath count", prj, par.map, cover.mob) &&
           save_Tovrimg(prj.name + "_ovr_ref", "reference count", prj, par.map, cover.ref) &&
           save_Tovrimg(prj.name + "_ovr_grp", "group count", prj, par.map, cover.grp)));
}

// --- the log of the quality control ---

void write_QC_header(const Project& prj, ResultFile& qclog) {
  qclog.fs << "Quality control report\nVersion " << SOFTINFO << "\nProject " << base_name(prj.name)
           << "\nUnit " << DATAUNIT << " m\nInput files " << list_swaths(prj.swaths, false).size() << " mob, "
           << list_swaths(prj.swaths, true).size() << " ref\n";
}

void write_QC_results(const ScanResult& res, ResultFile& qclog) {
  const InterResult& r = res.inter;
  if (res.fast.ngrids > 0)
    qclog.fs << "Zmax-Zmin mean " << res.fast.mean << " m\nZmax-Zmin RMS " << res.fast.rms << " m\n";
  for (const GroupDZ& g : res.fast.groups) qclog.fs << group_text(g) << '\n';
  if (r.nqc > 0) qclog.fs << "Pairs measured " << r.nqc << "\nRMS DZ " << r.rms_before << " m\n";
  if (r.nreg > 0)
    qclog.fs << "Pairs registered " << r.nreg << "\nVectors " << r.nvec << "\nRMS DZ registered "
             << r.rms_after << " m\n";
}

// --- grids, registration, index ---

Work decide_work(const ScanParam& par, const ScanResult& res) {
  Work w;
  const bool ovr = !res.over.empty();
  w.DOREG = par.REG;
  w.DOQC = par.QCRUN && par.QC && !par.REG && ovr;
  w.DOFQC = (par.FASTQC || draws_grids(par.map)) && (ovr || par.FULL);
  w.DOSEP = par.map.sep && ovr;
  w.DOGRID = w.DOREG || w.DOQC || w.DOFQC || w.DOSEP || par.gtile.raw || par.gtile.corr ||
             (par.CORR && (par.QC || par.REG2) && ovr);
  LOG_LINE("ovr=" << ovr << " FULL=" << par.FULL << " OUTZ=" << par.map.OUTZ << " OUTD=" << par.map.OUTD
                  << " OUTS=" << par.map.OUTS << " OUTR=" << par.map.OUTR << " OUTI=" << par.map.OUTI
                  << " QC=" << par.QC << " -> DOFQC=" << w.DOFQC << " DOREG=" << w.DOREG
                  << " DOGRID=" << w.DOGRID);
  return w;
}

mTbox to_mTbox(const mTbbox& b) { return {b.xmin, b.ymin, b.xmax, b.ymax}; }

// The index knows metres and the two feet; anything else, heights in another unit too, is exported in metres.
int index_unit() {
  if (DATAUNIT_Z != DATAUNIT) return 0;
  return DATAUNIT == FEET_INT ? 1 : DATAUNIT == FEET_US ? 2 : 0;
}

DUTidx make_index(const Project& prj, const ScanParam& par, const ScanResult& res) {
  DUTidx idx;
  idx.gsize =
      std::max(1, static_cast<int>(std::lround(prj.scale.mTsize *
                                               static_cast<float>(1 << comp_Jend(par.Jend, prj.scale.dim)))));
  idx.level = prj.scale.level;
  idx.dim = prj.scale.dim;
  idx.unit = index_unit();
  idx.area = to_mTbox(res.full);
  idx.ovr = to_mTbox(res.over);
  idx.time_res = prj.time_res;
  fill_DUT_control(par.control, res.points, idx);
  for (const Swath& s : prj.swaths) idx.swaths.push_back(make_DUTswath(prj.swaths, s.id));
  return idx;
}

bool register_pairs(const Project& prj, const ScanParam& par, const Work& work, const SwPairList& near,
                    ScanResult& res) {
  if (work.DOREG && res.over.n < MIN_REG_MT) {
    ERROR_MSG("registration cannot be done due to insufficient overlap");
    return false;
  }
  if (!comp_sw_overlap(prj, near, NTHREADSIO, res.pairs)) return false;
  InterParam inter;
  inter.REG = work.DOREG;
  inter.QC = par.QC;
  inter.filter = work.DOREG ? par.regpairs : par.qcpairs;
  inter.Jinit = par.Jinit;
  inter.Jend = comp_Jend(par.Jend, prj.scale.dim);
  inter.map = par.map;
  inter.FP = par.FP;
  inter.OUTOBJ = par.OUTOBJ;
  inter.frame = res.stat.frame;
  inter.nthreads = NTHREADS;
  if (!reg_inter_LmT(prj, make_index(prj, par, res), res.pairs, inter, res.inter)) return false;
  if (!work.DOREG || res.inter.nreg > 0) return true;
  ERROR_MSG("no pair registered, " << res.inter.nint << " overlaps tried, see " << prj.name << "_idx.log");
  return false;
}

// The index without vectors, for runs that register nothing. That of a registration of the same name stays:
// its vectors would be lost with it.
bool QC_DUT_IDX(const Project& prj, const ScanParam& par, const ScanResult& res) {
  LOG_ENTER("QC_DUT_IDX nsw=" << prj.swaths.size() << " dim=" << prj.scale.dim << " level=" << prj.scale.level
                              << " mTsize=" << prj.scale.mTsize << " tr=" << prj.time_res
                              << " nGCP=" << res.points.gcp.size() << " nXYZGCP=" << res.points.xyz.size());
  if (file_size(prj.name + ".dut") >= 0) {
    LOG_LINE("<!> kept the index of " << prj.name << ".dut");
    return true;
  }
  LOG_MSG("Writing index " << prj.name << "_idx.log");
  DUTwriter w;
  return open_DUT_IDX(w, prj.name, make_index(prj, par, res), false, false) && close_DUT_IDX(w);
}

// Tiles swaths again whose points turned out to be damaged when they were to be gridded. The tables are the same as
// before, so that nothing else has to be done again.
bool retile_swaths(Project& prj, const ScanParam& par, const std::vector<SwathId>& damaged) {
  for (const bool fixed : {false, true}) {
    std::vector<SwathId> todo;
    for (const SwathId id : damaged) {
      const Swath& s = prj.swaths[id];
      if (s.fixed != fixed) continue;
      if (s.members.empty()) todo.push_back(id);
      todo.insert(todo.end(), s.members.begin(), s.members.end());
    }
    TilingParam tiling = par.tiling;
    tiling.tproc = tiling.tproc && !fixed;
    LmTtileResult tiled;
    if (!LmT_tile(prj.swaths, todo, tiling, true, NTHREADS, tiled) ||
        tiled.nswt < static_cast<int>(todo.size()))
      return false;
  }
  return true;
}

bool grid_swaths(Project& prj, const ScanParam& par, const Tovr& ovr, GridResult& grids) {
  if (!LmT_grid(prj, ovr, par.FULL, NTHREADS, grids)) return false;
  if (grids.damaged.empty()) return true;
  return retile_swaths(prj, par, grids.damaged) && LmT_grid(prj, ovr, par.FULL, NTHREADS, grids) &&
         grids.damaged.empty();
}

bool grid_and_register(Project& prj, const ScanParam& par, const Tovr& ovr, const SwPairList& near,
                       ScanResult& res) {
  const Work work = decide_work(par, res);
  GridResult grids;
  if (work.DOGRID && !grid_swaths(prj, par, ovr, grids)) {
    ERROR_MSG("gridding failed");
    return false;
  }
  for (const SwathId id : grids.beyond)
    prj.swaths.reject(id, SwathState::no_grid, "more memory needed than -mem");
  res.nmemory += static_cast<int>(grids.beyond.size());
  if (work.DOFQC && !fast_QC(prj, par, near, res)) return false;
  if (par.gtile.raw && !export_tiles(prj, par, res)) return false;
  if (work.DOSEP && !separate_swaths(prj, par, res)) return false;
  if ((work.DOREG || work.DOQC) && !register_pairs(prj, par, work, near, res)) return false;
  return work.DOREG || QC_DUT_IDX(prj, par, res);
}

bool scan_steps(Project& prj, const ScanParam& par, ResultFile& qclog, ScanResult& res) {
  split_references(prj.swaths);
  if (!bbox_rej_lim(prj, par)) return false;
  if (!tile_swaths(prj, par, res) || !unite_references(prj.swaths, par.tiling)) return false;
  const InfoParam info{!par.mean, par.fix_ch0, par.tiling.large, par.tiling.tproc};
  if (!InfoTI_swstat(prj, info, res.stat)) {
    ERROR_MSG("consistency checking, tile info processing or swath stat computation failed");
    return false;
  }
  res.points = par.points;
  match_control(prj, res.points);
  qclog.fs << "Swaths used " << prj.swaths.ids().size() << "\nPoints " << res.stat.np << "\nMicrotile size "
           << prj.scale.mTsize << " m\nGrid GSD " << prj.scale.GSD() << " m\nMean sw density "
           << res.stat.density << " points/m2\n";
  Coverage cover;
  if (!comp_ovr_grp_fx(prj, par.SWMAPS && draws_maps(par.map), cover, res, qclog)) return false;
  if (!save_swath_maps(prj, par, cover, res)) return false;
  if (par.transect.any() && !export_points_bbox(prj, par.transect, par.map)) return false;
  const bool single = prj.swaths.ids().size() == 1;
  if (single && par.REG) {
    ERROR_MSG(
        "registration cannot be done with a single swath: give those that overlap it (-i), or -corr and a "
        "displacement file");
    return false;
  }
  SwPairList near;
  if (!single && !find_overlap(prj, par, cover.ovr, near, res, qclog)) return false;
  if (single && !par.FULL && !par.control.any() && !par.CORR) {
    LOG_MSG("single swath: nothing to do, use -full or -gcp or -xyz_gcp");
    res.finished = true;
    return true;
  }
  if (!res.over.empty() && !write_overlap_box(prj, res.over)) return false;
  if (!QC_control(prj, par.control, res.points, res.control)) {
    ERROR_MSG("pre-correction absolute QC failed, GCP not found or missing/incompatible temp. tile file");
    return false;
  }
  return grid_and_register(prj, par, cover.ovr, near, res);
}
}  // namespace

bool SCAN_REG_QC(Project& prj, const ScanParam& given, ScanResult& res) {
  LOG_ENTER("SCAN_REG_QC nsw=" << prj.swaths.size() << " name=" << prj.name);
  log_param(prj, given);
  res = ScanResult{};
  ResultFile qclog;
  if (!qclog.open(prj.name + "_QC.log")) return false;
  write_QC_header(prj, qclog);
  ScanParam par = given;
  if (!par.drop_map.empty()) {
    if (!load_dropmap(par.drop_map, par.tiling)) {
      ERROR_MSG("failed to load drop map, file " << par.drop_map);
      return false;
    }
    qclog.fs << "Drop map " << par.drop_map << (par.tiling.Tdrop ? "" : " (empty)") << '\n';
  }
  const bool ok = scan_steps(prj, par, qclog, res);
  if (ok) res.index = make_index(prj, par, res);
  if (ok) write_QC_results(res, qclog);
  return ok && qclog.commit();
}
}  // namespace veld
