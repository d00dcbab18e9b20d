// fuzz/fuzz_trajectories.cpp
// Trajectories of all formats and geoid grids. The first byte says which (or FUZZ_KIND, for one of them alone), the second
// how text is to be read; samples that a reader gives must be finite and in order of time.
#include <unistd.h>

#include <cmath>
#include <cstdlib>

#include "fuzz/fuzz_file.h"
#include "geo/geoid.h"
#include "lib/general/logfiles.h"
#include "lib/general/path.h"
#include "prj/LiDAR/POio/POio.h"
#include "prj/LiDAR/POio/POtime.h"

namespace veld {
namespace {
void try_trajectory(const std::string& name, uint8_t how) {
  POread par;
  par.proj = how % 3;
  par.rad = (how & 4) != 0;
  par.unroll = (how & 8) != 0;
  par.raw_time = (how & 16) != 0;
  par.time = how >> 5 == 7 ? DAY_GPS_HMS : 0;
  par.col = how >> 5 == 6 ? "tnxyzwpk" : how >> 5 == 5 ? "xyzt" : "";
  par.gweek = 2300;
  POscan scan;
  Vector<PO> po;
  bool adj = false;
  (void)scan_PO(name, par, scan);
  if (!read_PO(name, par, po, adj)) return;
  if (po.size() < 2) std::abort();
  for (uint64_t i = 0; i < po.size(); i++) {
    const PO& p = po[i];
    const double sum = p.t + p.x + p.y + p.z + p.roll + p.pitch + p.yaw;
    if (!std::isfinite(sum) || (i > 0 && !(p.t > po[i - 1].t))) std::abort();
  }
}

void try_geoid(const std::string& name) {
  GeoidGrid grid;
  double height = 0;
  if (!read_geoid(base_name(name), name.substr(0, name.find_last_of('/') + 1), grid)) return;
  for (const double lon : {-180.0, -60.0, 0.0, 15.02, 180.0})
    for (const double lat : {-90.0, 0.0, 48.03, 90.0})
      if (geoid_height(grid, lon, lat, height) && !std::isfinite(height)) std::abort();
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t nbytes) {
  if (nbytes < 2) return 0;
  set_console(false);
  const char* const suffixes[] = {".out", ".trj", ".sol", ".bin",       ".pof",
                                  ".txt", ".las", ".laz", "_geoid.bin", "_geoid.gtx"};
  constexpr size_t NTRAJECTORIES = 8;
  static const char* const only = std::getenv("FUZZ_KIND");
  const size_t kind = (only ? static_cast<size_t>(std::atoi(only)) : bytes[0]) % std::size(suffixes);
  const std::string name = fuzz_file(bytes + 2, nbytes - 2, suffixes[kind]);
  if (kind < NTRAJECTORIES)
    try_trajectory(name, bytes[1]);
  else
    try_geoid(name.substr(0, name.size() - 4));
  unlink(name.c_str());
  return 0;
}
}  // namespace veld
