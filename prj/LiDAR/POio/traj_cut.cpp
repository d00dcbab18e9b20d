#include "prj/LiDAR/POio/traj_cut.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "lib/general/assert_fail.h"
#include "lib/general/log.h"
#include "lib/general/result_file.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
constexpr int NCOLORS = 12;  // colours of lines, which repeat; 0 is none

// One sample an interval: a platform's vibrations would otherwise alias into the headings. A gap ends an interval.
std::vector<CutSample> analysed_samples(const Vector<PO>& po, size_t sub) {
  std::vector<CutSample> samples;
  samples.reserve(po.size() / sub + 1);
  for (size_t i = 0, n = 0; i < po.size(); i += n) {
    CutSample s = {};
    const PO& first = po[i];
    double t = 0, yaw = 0;
    dxyz sum = {0, 0, 0};
    for (n = 0; n < sub && i + n < po.size(); n++) {
      const PO& rec = po[i + n];
      if (n > 0 && rec.t - po[i + n - 1].t > MAX_TRAJ_DT) break;
      t += rec.t - first.t;
      sum = sum + (position(rec) - position(first));
      yaw += rec.yaw;
    }
    const double w = 1.0 / static_cast<double>(n);
    s.t = first.t + t * w;
    s.pos = position(first) + w * sum;
    s.Y = static_cast<float>(yaw * w);
    samples.push_back(s);
  }
  double D = 0;
  for (size_t i = 1; i < samples.size(); i++) {
    const dxyz step = samples[i].pos - samples[i - 1].pos;
    const double d = std::hypot(step.x, step.y);
    D += d;
    samples[i].D = static_cast<float>(D);
    samples[i].speed = static_cast<float>(d / (samples[i].t - samples[i - 1].t));
  }
  if (samples.size() > 1) samples[0].speed = samples[1].speed;
  return samples;
}

struct LineScan {
  const std::vector<CutSample>& s;
  const TrajCutParam& par;

  bool gap(size_t i) const { return s[i].t - s[i - 1].t > MAX_TRAJ_DT + par.DT; }
  // Whether the heading changes so fast from sample i to the next that no line of Dmin can begin there. So a line
  // begins where its turn ends, whatever sample the turn was left at.
  bool turns(size_t i) const {
    return i + 1 < s.size() &&
           std::fabs(double{s[i + 1].Y} - s[i].Y) * par.Dmin > par.dymax * (double{s[i + 1].D} - s[i].D);
  }
  // The sample at which a line from sample `first` on ends; its last sample is that or the one before.
  size_t end_of_line(size_t first, size_t& last) const {
    float ymin = s[first].Y, ymax = ymin;
    for (size_t i = first + 1; i < s.size(); i++) {
      last = i - 1;
      if (gap(i)) return i;
      ymin = std::min(ymin, s[i].Y), ymax = std::max(ymax, s[i].Y);
      if (double{ymax} - ymin > par.dymax) return i;
      if (double{s[i].D} - s[first].D >= par.Dmax) {
        last = i;
        return i;
      }
    }
    last = s.size() - 1;
    return s.size();
  }
};

// Adds a segment of samples [first, last]. False when there are too many.
bool add_segment(TrajCut& cut, const TrajCutParam& par, size_t first, size_t last, bool turn) {
  if (cut.segments.size() == MAX_TRAJ_SEGMENTS) {
    WARNING_MSG("too many segments, trajectory processing incomplete");
    return false;
  }
  const CutSample &a = cut.samples[first], &b = cut.samples[last];
  const double wider = 0.5 * par.DT + par.buf;
  CutSegment seg = {
      first, last, a.t - wider, b.t + wider, b.D - a.D, static_cast<int>(cut.segments.size()) + 1, turn};
  LOG_LINE("seg " << seg.number << " t:[" << seg.tmin << ' ' << seg.tmax << "] length=" << seg.length
                  << (turn ? " turn" : ""));
  cut.segments.push_back(seg);
  return true;
}

void scan_lines(TrajCut& cut, const TrajCutParam& par) {
  const LineScan scan{cut.samples, par};
  const size_t n = cut.samples.size();
  size_t between = 0;  // first sample behind the last line
  for (size_t first = 0; first + 1 < n;) {
    if (scan.turns(first)) {
      first++;
      continue;
    }
    size_t last = first;
    const size_t end = scan.end_of_line(first, last);
    const bool line = double{cut.samples[last].D} - cut.samples[first].D >= par.Dmin;
    if (line) {
      if (par.keep && first > between && !add_segment(cut, par, between, first - 1, true)) return;
      if (!add_segment(cut, par, first, last, false)) return;
      between = last + 1;
    }
    first = std::max(end, first + 1);
  }
  if (par.keep && between < n && between > 0) add_segment(cut, par, between, n - 1, true);
}

// Number of the segment of each sample, 0 for none. A sample that ends a line of the largest length begins the next.
std::vector<int> segment_numbers(const TrajCut& cut) {
  std::vector<int> number(cut.samples.size(), 0);
  for (const CutSegment& seg : cut.segments)
    std::fill(number.begin() + static_cast<int64_t>(seg.first),
              number.begin() + static_cast<int64_t>(seg.last) + 1, seg.number);
  return number;
}

bool save_testyaw(const TrajCut& cut, const std::string& dir) {
  LOG_MSG("writing testyaw.txt");
  ResultFile out;
  if (!out.open(dir + "testyaw.txt")) return false;
  for (const CutSample& s : cut.samples) out.fs << s.t << ' ' << s.D << ' ' << s.Y << '\n';
  return out.commit();
}
}  // namespace

TrajCut cut_traj_yawdist(const Vector<PO>& po, double dt, const TrajCutParam& par) {
  LOG_ENTER("cut_traj_yawdist dt=" << dt << " PO.size()=" << po.size() << " DT=" << par.DT
                                   << " Dmin=" << par.Dmin << " Dmax=" << par.Dmax << " dymax=" << par.dymax);
  ASSERT(dt != 0.0);
  TrajCut cut;
  if (po.empty()) return cut;
  const size_t sub = static_cast<size_t>(std::max(std::lround(par.DT / dt), 1L));
  const PO& P0 = po[0];
  LOG_LINE("sub=" << sub << " T0=" << P0.t << " P0=" << P0.x << ' ' << P0.y << ' ' << P0.z);
  cut.samples = analysed_samples(po, sub);
  scan_lines(cut, par);
  return cut;
}

bool save_pos_cut(const TrajCut& cut, const TrajCutParam& par, const std::string& dir) {
  if (DEBUG_LEVEL > 0 && !save_testyaw(cut, dir)) return false;
  ResultFile out;
  if (!out.open(dir + "pos_cut.txt")) return false;
  out.fs << "Position{X Y Z} Time Distance Heading Speed Segment# Color\n";
  const std::vector<int> number = segment_numbers(cut);
  char line[256];
  for (size_t i = 0; i < cut.samples.size(); i++) {
    const CutSample& s = cut.samples[i];
    const int color = number[i] == 0 ? 0 : 1 + (number[i] - 1) % NCOLORS;
    std::snprintf(line, sizeof line, "%.2f %.2f %.2f  %.3f %.3f %.2f %.2f %d %d\n", s.pos.x, s.pos.y, s.pos.z,
                  s.t, double{s.D}, double{s.Y}, double{s.speed}, number[i], color);
    out.fs << line;
  }
  if (!out.commit()) return false;
  double total = 0;
  for (const CutSegment& seg : cut.segments) total += double{seg.length};
  LOG_MSG("Found " << cut.segments.size()
                   << " segments, written pos_cut.txt (position time heading segment) with tol=" << par.dymax
                   << " dist=[" << par.Dmin << ' ' << par.Dmax << "] nseg=" << cut.segments.size()
                   << " total_dist=" << total);
  return true;
}
}  // namespace veld
