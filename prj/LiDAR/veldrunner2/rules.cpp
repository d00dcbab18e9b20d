#include "prj/LiDAR/veldrunner2/rules.h"

#include <algorithm>

#include "lib/general/log.h"

namespace {
struct Rule {
  bool (*broken)(const Options& o, const GivenSet& given);
  const char* message;
  bool wants_all = false;  // says nothing of a command line some of whose values were refused
};

int ncommands(const Options& o, const GivenSet& g) {
  return (o.reg ? 1 : 0) + (g.count("corr") ? 1 : 0) + (o.align || o.align2 ? 1 : 0) +
         (g.count("calib") ? 1 : 0) + (o.scan ? 1 : 0) + (o.fastqc && !o.scan ? 1 : 0);
}

bool has_man(const Options& o, const GivenSet& g) {
  return !o.shift_corr.empty() || !o.calib_corr.empty() || g.count("shift") || !o.beam_calib_corr.empty();
}

const Rule EXCLUSIONS[] = {
    {[](const Options& o, const GivenSet&) {
       return (o.metre ? 1 : 0) + (o.feet_us ? 1 : 0) + (o.feet ? 1 : 0) > 1;
     },
     "only one unit option can be used"},
    {[](const Options& o, const GivenSet&) { return o.opls && o.oplz; },
     "-opls and -oplz are mutually exclusive"},
    {[](const Options& o, const GivenSet& g) {
       return g.count("corr") && o.corr.empty() && !g.count("calib") && !has_man(o, g) && o.t_corr == 0 &&
              !o.oa && !o.oi && o.gcp.empty();
     },
     "option -corr requires DUT files, manual corrections (-shift_corr, -calib_corr, -shift, -gcp) or "
     "time/angle update",
     true},
    {[](const Options& o, const GivenSet& g) { return ncommands(o, g) > 1; },
     "commands {-reg -corr -align -calib -scan -fastqc} are mutually exclusive"},
    {[](const Options& o, const GivenSet&) { return o.smap && o.zmap; },
     "options {-smap -zmap} are mutually exclusive"},
    {[](const Options& o, const GivenSet&) { return o.oa && o.oi; },
     "options {-oa -oi} are mutually exclusive"},
    {[](const Options& o, const GivenSet&) { return o.dz_range > o.dz16_range; },
     "DZ_range>DZ16_range not allowed"},
    {[](const Options& o, const GivenSet&) { return o.align2 && o.dz_range_1 > o.dz16_range_1; },
     "DZ_range_1>DZ16_range_1 not allowed"},
};

struct Missing {  // an option whose branch does not exist yet
  const char* option;
  bool (*asked)(const Options& o, const GivenSet& given);
};
#define GIVEN(name) [](const Options&, const GivenSet& g) { return g.count(name) > 0; }
#define ON(field) [](const Options& o, const GivenSet& g) { return g.count(#field) && o.field; }
#define TEXT(field) [](const Options& o, const GivenSet&) { return !o.field.empty(); }

const Missing MISSING[] = {
    {"exp", ON(exp)},
    {"exp_reg", ON(exp_reg)},
    {"exp_grid", ON(exp_grid)},
    {"keystone", ON(keystone)},
    {"undo", ON(undo)},
    {"cut", ON(cut)},
    {"plot_po", ON(plot_po)},
    {"fastqc", [](const Options& o, const GivenSet& g) { return g.count("fastqc") && o.fastqc; }},
    {"drop_map", TEXT(drop_map)},
    {"bbox_x", TEXT(bbox_x)},
    {"bbox_y", TEXT(bbox_y)},
    {"splitgrp", TEXT(splitgrp)},
    {"osplit", ON(osplit)},
    {"split_mount", TEXT(split_mount)},
    {"beam_param", TEXT(beam_param)},
    {"beam_calib_corr", TEXT(beam_calib_corr)},
    {"shift_corr", TEXT(shift_corr)},
    {"calib_corr", TEXT(calib_corr)},
    {"shift", GIVEN("shift")},
    {"t_corr", ON(t_corr)},
    {"calib_param", TEXT(calib_param)},
    {"geoid", TEXT(geoid)},
    {"gcp", TEXT(gcp)},
    {"xyz_gcp", TEXT(xyz_gcp)},
    {"gcp_grp", ON(gcp_grp)},
    {"warp", ON(warp)},
    {"blend", ON(blend)},
    {"oundo", ON(oundo)},
    {"opo", ON(opo)},
    {"oposeg", ON(oposeg)},
    {"ocorr", ON(ocorr)},
    {"ot", ON(ot)},
    {"oa", ON(oa)},
    {"oi", ON(oi)},
    {"op", ON(op)},
    {"opls", ON(opls)},
    {"oplz", ON(oplz)},
    {"ogcp_pc", ON(ogcp_pc)},
    {"ogcp_tin", ON(ogcp_tin)},
    {"ogtile", ON(ogtile)},
    {"ogtile_corr", ON(ogtile_corr)},
    {"ogtile_tiff", ON(ogtile_tiff)},
    {"otile", ON(otile)},
    {"corr_all", ON(corr_all)},
    {"xzview", ON(xzview)},
    {"yzview", ON(yzview)},
    {"trans_x", TEXT(trans_x)},
    {"trans_y", TEXT(trans_y)},
    {"trans_z", TEXT(trans_z)},
    {"fp", ON(fp)},
    {"dmap", ON(dmap)},
    {"rmap", ON(rmap)},
    {"zmap", ON(zmap)},
    {"smap", ON(smap)},
    {"tiff", ON(tiff)},
    {"map", ON(map)},
    {"jpeg", ON(jpeg)},
    {"plot", ON(plot)},
    {"json", ON(json)},
    {"ascii", ON(ascii)},
};
#undef GIVEN
#undef ON
#undef TEXT
}  // namespace

bool is_available(const std::string& option) {
  return std::none_of(std::begin(MISSING), std::end(MISSING),
                      [&](const Missing& m) { return option == m.option; });
}

void derive_defaults(Options& o, const GivenSet& given) {
  const auto absent = [&](const char* name) { return given.count(name) == 0; };
  if (o.scan) {
    if (absent("map")) o.map = 0;
    o.fastqc = true;
    if (absent("full")) o.full = 1;
    o.ics = true;
  }
  if (o.scan || o.all) {
    if (absent("log")) o.log = 1;
    if (absent("fp")) o.fp = 1;
    if (absent("bb")) o.bb = 1;
  }
  if (given.count("calib")) {
    o.corr = o.calib;
    o.dpoc = "0";
    o.nil = true;
    o.ocorr = o.opo = 0;
    o.r_dz = o.d_dz = o.gcp_dz = 0;
    if (absent("unc_adj")) o.unc_adj = 1;
    if (absent("reg_reduce")) o.reg_reduce = 1;
    if (absent("boost")) o.boost = 1;
  }
  if (o.uav) {
    if (absent("dt_range")) o.dt_range = 10;
    if (absent("dev_range")) o.dev_range = 0.5f;
    if (absent("dev_max")) o.dev_max = 0.5f;
  }
  o.nthreads_io = std::min(o.nthreads_io, o.nthreads);
  if (absent("dz_color")) o.dz_color = o.dz_mix ? 2 : 7;
  // Of each pair of ranges the one that is not given follows the other; the first step's start from the plain
  // ones.
  if (absent("dz_range") && !absent("dz16_range")) o.dz_range = o.dz16_range;
  if (absent("dz16_range") && !absent("dz_range")) o.dz16_range = o.dz_range;
  const bool absent_1 = absent("dz_range_1"), absent16_1 = absent("dz16_range_1");
  if (absent_1) o.dz_range_1 = absent16_1 ? o.dz_range : o.dz16_range_1;
  if (absent16_1) o.dz16_range_1 = absent_1 ? o.dz16_range : o.dz_range_1;
  if (absent("v_range_1")) o.v_range_1 = o.v_range;
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

bool check_available(const Options& o, const GivenSet& given) {
  bool ok = true;
  for (const Missing& m : MISSING)
    if (m.asked(o, given)) {
      ERROR_MSG("option -" << m.option << " is not available yet");
      ok = false;
    }
  return ok;
}
