#include "prj/LiDAR/options/rules.h"

#include <algorithm>

#include "lib/general/log.h"

namespace veld {
namespace {
struct Rule {
  bool (*broken)(const Options& o, const GivenSet& given);
  const char* message;
  bool wants_all = false;  // says nothing of a command line some of whose values were refused
};

int ncommands(const Options& o, const GivenSet& g) {
  return (o.reg ? 1 : 0) + (g.count("corr") ? 1 : 0) + (o.align || o.align2 ? 1 : 0) +
         (g.count("calib") ? 1 : 0) + (o.scan ? 1 : 0) + (g.count("fastqc") ? 1 : 0);
}

bool has_man(const Options& o, const GivenSet& g) {
  return !o.shift_corr.empty() || !o.calib_corr.empty() || g.count("shift") || o.correction.manual.tcorr != 0;
}
bool has_beams(const Options& o) { return !o.beam_calib_corr.empty(); }

// Attributes of points are rewritten, which is a correction too.
bool rewrites(const Options& o) {
  const PointRewrite& r = o.correction.rewrite;
  return r.time || r.las_angle || r.int_angle || r.pitch;
}

const Rule EXCLUSIONS[] = {
    {[](const Options& o, const GivenSet&) {
       return (o.metre ? 1 : 0) + (o.feet_us ? 1 : 0) + (o.feet ? 1 : 0) > 1;
     },
     "only one unit option can be used"},
    {[](const Options& o, const GivenSet&) { return o.opls && o.oplz; },
     "-opls and -oplz are mutually exclusive"},
    {[](const Options& o, const GivenSet& g) {
       return g.count("corr") && o.corr.empty() && !g.count("calib") && !has_man(o, g) && !has_beams(o) &&
              !rewrites(o) && o.scanning.control.gcp.file.empty();
     },
     "option -corr requires DUT files, manual corrections (-shift_corr, -calib_corr, -shift, -gcp) or "
     "time/angle update",
     true},
    {[](const Options& o, const GivenSet& g) {
       return has_man(o, g) && !(g.count("corr") && o.corr.empty());
     },
     "manual corrections (-shift_corr -calib_corr -shift -t_corr) need command -corr without a displacement "
     "file",
     true},
    {[](const Options& o, const GivenSet&) { return o.beam_param.empty() != o.beam_calib_corr.empty(); },
     "-beam_param and -beam_calib_corr need each other"},
    {[](const Options& o, const GivenSet&) { return o.correction.undo && o.correction.tile.size > 0; },
     "-oundo and -otile are mutually exclusive, undo data are those of swaths"},
    {[](const Options& o, const GivenSet& g) { return ncommands(o, g) > 1; },
     "commands {-reg -corr -align -calib -scan -fastqc} are mutually exclusive"},
    {[](const Options& o, const GivenSet& g) { return o.undo && ncommands(o, g) > 0; },
     "command -undo takes no other command"},
    {[](const Options& o, const GivenSet&) { return o.scanning.map.OUTS && o.scanning.map.OUTZ; },
     "options {-smap -zmap} are mutually exclusive"},
    {[](const Options& o, const GivenSet&) {
       return o.correction.rewrite.las_angle && o.correction.rewrite.int_angle;
     },
     "options {-oa -oi} are mutually exclusive"},
    {[](const Options& o, const GivenSet& g) {
       return o.scanning.gtile.corr && !o.align && !o.align2 && !g.count("corr") && !g.count("calib");
     },
     "-ogtile_corr needs a correction (-align, -calib, -corr)"},
    {[](const Options& o, const GivenSet&) {
       const GtileParam& t = o.scanning.gtile;
       return (t.tiff || t.ref) && !t.raw && !t.corr;
     },
     "-ogtile_tiff and -ogtile_ref need -ogtile or -ogtile_corr"},
    {[](const Options& o, const GivenSet&) { return o.scanning.map.dz_range > o.scanning.map.dz16_range; },
     "DZ_range>DZ16_range not allowed"},
    {[](const Options& o, const GivenSet&) { return o.align2 && o.dz_range_1 > o.dz16_range_1; },
     "DZ_range_1>DZ16_range_1 not allowed"},
};

// Values that several stages take.
void share_values(Options& o) {
  ScanParam& scanning = o.scanning;
  CorrParam& correction = o.correction;
  scanning.qcpairs.ALLDZ = scanning.regpairs.ALLDZ;
  scanning.map.vectors.color = COLOR_VECTOR + o.v_color;
  correction.map = scanning.map;
  correction.gtile = scanning.gtile;
  correction.QC = scanning.QC;
  correction.qc = scanning.qcpairs;
  correction.geometry.AROT = correction.sync.AROT;
  ControlParam& control = scanning.control;
  control.gcp.obj = scanning.OUTOBJ;
  correction.sync.FP = scanning.FP;
  correction.sync.OUTOBJ = scanning.OUTOBJ;
  correction.sync.records = o.porec ? correction.po_sub : 0;
  control.xyz.json = control.gcp.json;
  correction.inv.CALINTGEN = o.tuning.CALINTGEN;
  correction.inv.CALINTNOB = o.tuning.CALINTNOB;
}
}  // namespace

void derive_defaults(Options& o, const GivenSet& given) {
  const auto absent = [&](const char* name) { return given.count(name) == 0; };
  if (o.scan) {
    if (absent("map")) o.scanning.map.maps = false;
    o.fastqc = true;
    if (absent("full")) o.scanning.FULL = true;
    o.correction.geometry.ICS_r = true;
  }
  if (o.scan || o.all) {
    if (absent("log")) o.log = 1;
    if (absent("fp")) o.scanning.FP = true;
    if (absent("bb")) o.scanning.BB = true;
  }
  if (given.count("calib")) {
    o.corr = o.calib;
    o.dpoc = "0";
    o.correction.nil = true;
    o.correction.ocorr = o.correction.opo = false;
    o.correction.CR = o.correction.CD = false;
    o.correction.CZ = false;
    if (absent("unc_adj")) o.correction.inv.UADJ = 1;
    if (absent("reg_reduce")) o.scanning.regpairs.RDIM = 1;
    if (absent("boost")) o.tuning.NR_BOOST = 1;
  }
  // Tiles of other returns cannot be measured by last returns alone.
  if (absent("gcp_last") && (o.scanning.tiling.all || !o.scanning.tiling.last))
    o.scanning.control.gcp.F0 = false;
  if (o.uav) {
    if (absent("dt_range")) o.tuning.DT_RANGE = 10;
    if (absent("dev_range")) o.tuning.DEV_RANGE = 0.5f;
    if (absent("dev_max")) o.scanning.tiling.DTS = 0.5f;
    if (absent("coarse")) o.scanning.Jend = 0;  // attitudes change within 8 m of flight
  }
  o.tuning.NTHREADSIO = std::min(o.tuning.NTHREADSIO, o.tuning.NTHREADS);
  MapParam& map = o.scanning.map;
  if (absent("dz_color")) map.dz_color = map.DZ_mix ? 2 : 7;
  // Of each pair of ranges the one that is not given follows the other; the first step's start from the plain
  // ones.
  if (absent("dz_range") && !absent("dz16_range")) map.dz_range = map.dz16_range;
  if (absent("dz16_range") && !absent("dz_range")) map.dz16_range = map.dz_range;
  const bool absent_1 = absent("dz_range_1"), absent16_1 = absent("dz16_range_1");
  if (absent_1) o.dz_range_1 = absent16_1 ? map.dz_range : o.dz16_range_1;
  if (absent16_1) o.dz16_range_1 = absent_1 ? map.dz16_range : o.dz_range_1;
  if (absent("v_range_1")) o.v_range_1 = map.vectors.range;
  share_values(o);
}

bool check_exclusions(const Options& o, const GivenSet& given, bool all_read) {
  bool ok = true;
  for (const Rule& rule : EXCLUSIONS)
    if ((all_read || !rule.wants_all) && rule.broken(o, given)) {
      ERROR_MSG(rule.message);
      ok = false;
    }
  return ok;
}
}  // namespace veld
