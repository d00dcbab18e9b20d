#include "tests/prj/LiDAR/LmTgrid_w/synth_swaths.h"

#include <cmath>
#include <cstdlib>
#include <random>

#include "prj/LiDAR/LmTidx_w/LmTidx_w.h"
#include "prj/LiDAR/tuning.h"
#include "tests/support/swath_writer.h"

namespace veld {
double synth_height(double x, double y) {
  const double u = x - 500000, v = y - 5000000;
  const double hills = 4 * std::sin(u / 17 + 0.4) * std::cos(v / 23) + 2 * std::sin((u + 2 * v) / 31);
  const double mounds =
      0.6 * std::sin(u / 2.3 + std::sin(v / 9)) * std::sin(v / 2.7 + 1.5 * std::sin(u / 11));
  const bool house = std::fmod(u + 1000, 45) < 14 && std::fmod(v + 1000, 40) < 12;
  return 100 + hills + mounds + (house ? 5 : 0);
}

Project make_synth_project(const TempDir& dir, const std::vector<SynthStrip>& strips) {
  Project prj;
  TMPDIR = dir.path + "/";
  prj.name = dir.path + "/out";
  prj.scale = make_tile_scale(false, 0);
  prj.scale.dim = 4;
  TilingParam par;
  for (size_t i = 0; i < strips.size(); i++) {
    const SynthStrip& s = strips[i];
    TestLine line;
    line.x0 = 500100 + s.east;
    line.y0 = 5000010;
    line.length = s.length;
    line.width = s.width;
    line.density = s.density;
    line.tstart = s.tstart;
    line.height = synth_height;
    std::vector<TestPoint> points = fly_line(line);
    std::mt19937 gen(static_cast<uint32_t>(i) + 1);
    std::normal_distribution<double> noise(0, s.noise);
    for (TestPoint& p : points) {
      const double e[3] = {static_cast<double>(s.error.x), static_cast<double>(s.error.y),
                           static_cast<double>(s.error.z)};
      p.x += e[0], p.y += e[1], p.z += e[2] + noise(gen);
    }
    Swath sw;
    sw.cache = CacheName(dir.path + "/s" + std::to_string(i) + ".las");
    sw.fixed = s.fixed;
    write_test_las(sw.path(), points);
    LmTswathResult res;
    TilingMemory memory(1 << 26, 1);
    if (!LmT_swath(sw.cache, SwathId(static_cast<int>(i)), par, false, memory, res)) std::abort();
    LTidxInfo info;
    if (!read_LTidxInfo(sw.cache, info)) std::abort();
    sw.clock = clock_of(info);
    sw.stamp = source_tstamp(sw.cache);
    prj.swaths.add(sw);
  }
  return prj;
}

Tovr make_synth_Tovr(const Project& prj) {
  SwathVector<LTidxInfo> info(prj.swaths);
  std::vector<const LTidxInfo*> all;
  for (const Swath& s : prj.swaths) {
    if (!read_LTidxInfo(s.cache, info[s.id])) std::abort();
    all.push_back(&info[s.id]);
  }
  Tovr ovr = make_Tovr(comp_frame(all));
  for (const Swath& s : prj.swaths) {
    Tocc occ;
    if (!read_Tocc(s.cache, occ)) std::abort();
    add_Tovr_Tocc(ovr, occ);
  }
  return ovr;
}
}  // namespace veld
