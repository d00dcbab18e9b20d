#include "prj/LiDAR/LmTinter/pair_footprints.h"

#include <cmath>
#include <nlohmann/json.hpp>

#include "lib/general/log.h"
#include "prj/LiDAR/LmTplot/LmTplot_txt.h"

namespace veld {
namespace {
std::string properties(const Project& prj, const PairResult& pair, uint64_t nmt) {
  const auto mm = [](float metres) { return std::round(static_cast<double>(metres) * 1e4) / 1e4; };
  nlohmann::ordered_json p;
  p["pair"] = pair.number;
  p["swath1"] = pair.sw1.number;
  p["swath2"] = pair.sw2.number;
  p["file1"] = prj.swaths.name(pair.sw1);
  p["file2"] = prj.swaths.name(pair.sw2);
  p["overlap_m2"] = static_cast<double>(nmt) * static_cast<double>(prj.scale.mTsize * prj.scale.mTsize);
  p["vectors"] = pair.nvec;
  if (pair.before.n > 0) p["rms_dz_before_m"] = mm(pair.before.rms);
  if (pair.after.n > 0) p["rms_dz_registered_m"] = mm(pair.after.rms);
  if (!pair.lost.empty()) p["not_registered"] = pair.lost;
  return p.dump();
}
}  // namespace

bool PairFootprints::open(const Project& prj, bool obj) {
  const std::string name = prj.name + "_op_fp";
  if (!txt_.open(name + ".txt") || (obj && !obj_.open(name + ".obj"))) return false;
  txt_.fs << "X Y Pair#\n";
  return true;
}

void PairFootprints::add(const Project& prj, const PairResult& pair, const Tocc& tiles) {
  if (!is_open() || tiles.empty()) return;
  LOG_LINE("footprint pair=" << pair.number << " nt=" << tiles.size());
  const std::vector<BorderEdge> edges = border_edges(tiles);
  const double mTsize = static_cast<double>(prj.scale.mTsize);
  put_edges(txt_, obj_, edges, mTsize, " " + std::to_string(pair.number));
  shapes_.push_back({"pair " + std::to_string(pair.number), properties(prj, pair, count_Tocc(tiles)),
                     make_polygons(trace_outlines(edges), mTsize)});
}

bool PairFootprints::commit(const Project& prj) {
  if (!is_open()) return true;
  return txt_.commit() && (!obj_.is_open() || obj_.commit()) &&
         write_geojson(prj.name + "_op_fp", prj, shapes_);
}
}  // namespace veld
