// A project of swaths, trajectory files and registration vectors in a temporary directory, synchronised at
// once.
#pragma once
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "prj/LiDAR/VR2POsync/VR2POsync.h"
#include "prj/LiDAR/tuning.h"
#include "tests/prj/LiDAR/POio/sbet_file.h"
#include "tests/support/temp_dir.h"

namespace veld {
struct SyncProject {
  TempDir dir;
  Project prj;
  DUTidx idx;
  std::vector<DUTinter> pairs;
  POsyncParam par;
  POsync res;
  std::string said;  // console and error texts of the run

  SyncProject() {
    TMPDIR = dir.path + "/";
    NTHREADS = NTHREADSIO = 2;
    prj.name = dir.path + "/run";
    prj.pogroups.resize(1);
    idx.gsize = 8, idx.level = 7, idx.dim = 4, idx.time_res = 0.1;
    set_area(499000, 5320000, 505000, 5322000);
  }
  void set_area(double x0, double y0, double x1, double y1) {
    const double mT = 4;
    const auto index = [&](double v) { return static_cast<int64_t>((v + 10240000) / mT); };
    idx.area = idx.ovr = {index(x0), index(y0), index(x1), index(y1)};
  }
  int add_swath(double tmin, double tmax, bool adj, int group = 1, int ch = 0) {
    DUTswath s;
    s.group = group, s.ch = ch, s.mainch = ch == 0, s.fixed = group == 0, s.adj = adj, s.tmin = tmin,
    s.tmax = tmax;
    s.path = dir.path + "/S" + std::to_string(idx.swaths.size()) + ".las";
    idx.swaths.push_back(s);
    Swath p{.cache = CacheName(s.path), .group = group, .channel = ch, .fixed = s.fixed};
    for (const Swath& m : prj.swaths) {  // channels of a line overlap
      const DUTswath& line = idx.swaths[m.id];
      if (ch > 0 && m.channel == 0 && m.group == group - ch && line.tmin < tmax && tmin < line.tmax)
        p.mainch = m.id;
    }
    prj.swaths.add(p);
    return static_cast<int>(idx.swaths.size()) - 1;
  }
  void add_file(const std::string& name, int group = 1) {
    prj.pofiles.push_back({dir.path + "/" + name, group});
  }
  // A text track at x = 500000 + 60 (t - t0), y = 5321000 + 8 (t - t0), one sample every dt.
  std::string track(double t0, double t1, double dt = 0.1) const {
    std::string text;
    char line[120];
    for (int i = 0; t0 + i * dt < t1 + dt / 2; i++) {
      const double s = i * dt;
      std::snprintf(line, sizeof(line), "%.4f %.4f %.4f 700 1 2 82.4\n", t0 + s, 500000 + 60 * s,
                    5321000 + 8 * s);
      text += line;
    }
    return text;
  }
  void add_track(const std::string& name, double t0, double t1, int group = 1) {
    write_text(dir.path + "/" + name, track(t0, t1));
    add_file(name, group);
  }
  // Writes the registration result, runs, keeps what was said.
  int run() {
    DUTwriter w;
    EXPECT_TRUE(open_DUT_IDX(w, dir.path + "/r", idx, true, false));
    for (const DUTinter& p : pairs) {
      std::vector<DUTstr> rec(p.ndisp);
      const DUTswath& a = idx.swaths[p.sw1];
      const DUTswath& b = idx.swaths[p.sw2];
      for (size_t i = 0; i < rec.size(); i++) {
        const double f = (static_cast<double>(i) + 0.37) / static_cast<double>(rec.size());
        rec[i].X = 500000, rec[i].Y = 5321000, rec[i].Unc = {0.1f, 0.1f, 0.1f};
        rec[i].Time1 = a.tmin + f * (a.tmax - a.tmin);
        rec[i].Time2 = b.tmin + f * (b.tmax - b.tmin);
      }
      EXPECT_TRUE(write_DUT_pair(w, p.sw1, p.sw2, rec));
    }
    EXPECT_TRUE(close_DUT_IDX(w));
    testing::internal::CaptureStderr();
    testing::internal::CaptureStdout();
    const int n = DUT_PO_sync(dir.path + "/r", prj, par, res);
    said = testing::internal::GetCapturedStdout() + testing::internal::GetCapturedStderr();
    return n;
  }
  const Swath& swath(int n) const { return prj.swaths[SwathId(n)]; }
  int file_of(int n) const { return swath(n).track.file; }
  void add_pair(int sw1, int sw2, uint64_t n) { pairs.push_back({SwathId(sw1), SwathId(sw2), n}); }
  bool has(const std::string& text) const { return said.find(text) != std::string::npos; }
  std::string log(const char* suffix) const { return read_text(prj.name + suffix); }
};
}  // namespace veld
