#include "prj/LiDAR/VR2proc/residual_maps.h"

#include <cmath>

#include "lib/general/log.h"
#include "lib/general/result_file.h"
#include "prj/LiDAR/LmTQCimg/pair_maps.h"

namespace veld {
namespace {
bool write_res(const Project& prj, const InvInput& in, const InvResult& res) {
  const std::string name = prj.name + "_res.txt";
  LOG_MSG("Writing residual vectors " << name);
  ResultFile out;
  if (!out.open(name)) return false;
  out.fs << "X Y Res{X Y Z} Pair#\n";
  for (size_t k = 0; k < in.pairs.size(); k++) {
    const InvPair& p = in.pairs[k];
    for (uint64_t i = 0; i < res.residuals[k].size(); i++) {
      const xyz& r = res.residuals[k][i];
      out.fs << std::lround(p.P[i].x) << ' ' << std::lround(p.P[i].y) << "  " << r.x << ' ' << r.y << ' '
             << r.z << "  " << (p.pair < 0 ? static_cast<int>(k) : p.pair) << '\n';
    }
  }
  return out.commit();
}
}  // namespace

TileInfo frame_of(const mTbox& area) {
  TileInfo f;
  f.XI = static_cast<uint32_t>(area.xmin / mTsub);
  f.YI = static_cast<uint32_t>(area.ymin / mTsub);
  f.nx = static_cast<int>(area.xmax / mTsub - area.xmin / mTsub) + 1;
  f.ny = static_cast<int>(area.ymax / mTsub - area.ymin / mTsub) + 1;
  return f;
}

bool save_residual_maps(const Project& prj, const DUTidx& idx, const MapParam& map, const InvInput& in,
                        const InvResult& res) {
  VecPicture picture;
  if (!picture.open(prj, frame_of(idx.area), map, idx.gsize)) return false;
  for (size_t k = 0; k < in.pairs.size(); k++) {
    std::vector<VecPicture::Sample> samples;
    for (uint64_t i = 0; i < res.residuals[k].size(); i++)
      samples.push_back({in.pairs[k].P[i].x, in.pairs[k].P[i].y, res.residuals[k][i]});
    if (!picture.add(samples)) return false;
  }
  return picture.save_max_abs(prj.name + "_max_abs_res", "max abs residual", map.vectors) &&
         picture.save(prj.name + "_mix_res", "mix signed residual", map.vectors) &&
         picture.save_scatter(prj.name + "_res") && (!map.ascii || write_res(prj, in, res));
}
}  // namespace veld
