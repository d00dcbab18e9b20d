// Trajectory caches of swaths, and interpolation at times of vectors.
#include <algorithm>
#include <cmath>
#include <cstring>

#include "lib/general/family_out.h"
#include "lib/general/log.h"
#include "lib/general/logfiles.h"
#include "lib/general/path.h"
#include "prj/LiDAR/LmTidx_r/LmTidx_files.h"
#include "prj/LiDAR/VR2POsync/VR2POsync_internal.h"
#include "prj/LiDAR/VR2geom/VR2geom.h"

namespace veld {
namespace {
constexpr uint64_t POC_HEAD = 12;   // bytes: u32 n, f64 dt
constexpr char EXT_SUM[] = ".sum";  // behind the name of a cache
constexpr double MAX_GAP = 1.0;     // s, beyond it two records are reported

// Records [i0, i1] that hold the window [ta, tb] and one more at each end. False when the list ends before
// it.
bool window(const Vector<PO>& po, double ta, double tb, uint64_t& i0, uint64_t& i1) {
  const uint64_t n = po.size();
  if (n == 0 || ta > po[n - 1].t) return false;
  const auto before = [](double t, const PO& rec) { return t < rec.t; };
  const uint64_t first = static_cast<uint64_t>(std::upper_bound(po.val, po.val + n, ta, before) - po.val);
  i0 = first > 0 ? first - 1 : 0;
  const uint64_t behind = static_cast<uint64_t>(std::upper_bound(po.val, po.val + n, tb, before) - po.val);
  i1 = std::min(behind, n - 1);
  return i1 > i0;
}

// Attitude from the track: level flight along the line from the first to the last position.
void recompute_attitude(Vector<PO>& po) {
  const PO& a = po[0];
  const PO& b = po[po.size() - 1];
  const float dx = static_cast<float>(b.x - a.x), dy = static_cast<float>(b.y - a.y);
  const float heading = dx == 0 && dy == 0 ? 0.0f : 90.0f - std::atan2(dy, dx) * RAD2DEG;
  LOG_LINE("AREC heading=" << (heading < 0 ? heading + 360 : heading));
  for (PO& rec : po) {
    rec.roll = rec.pitch = 0;
    rec.yaw = heading;
  }
}

// Makes the angles of a window continuous, with yaw within half a turn in its middle: in a whole flight turns add
// up, and a float of many turns is coarse; in grids where north jumps from half a turn to minus half a turn,
// headings do so too.
void settle_angles(Vector<PO>& po) {
  unroll_PO(po);
  const float turns = 360.0f * std::round(po[po.size() / 2].yaw / 360.0f);
  if (turns != 0)
    for (PO& rec : po) rec.yaw -= turns;
}

}  // namespace

const Mount* mount_of_swath(const Project& prj, const Swath& swath) {
  const std::vector<Mount>& mounts = prj.mounts;
  if (mounts.empty()) return nullptr;
  const size_t g = mounts.size() == 1 ? 0 : static_cast<size_t>(swath.group - 1);
  return g < mounts.size() ? &mounts[g] : nullptr;
}

POC_TMP::~POC_TMP() { clear(); }
POC_TMP::POC_TMP(POC_TMP&& other) noexcept : files_(std::move(other.files_)) { other.files_.clear(); }
POC_TMP& POC_TMP::operator=(POC_TMP&& other) noexcept {
  if (this != &other) {
    clear();
    files_.swap(other.files_);
  }
  return *this;
}
void POC_TMP::clear() {
  if (files_.empty()) return;
  uint64_t nfiles = 0, nbytes = 0;
  for (const std::string& path : files_) {
    remove_file(path + EXT_SUM);
    const int64_t size = file_size(path);
    if (size < 0 || !remove_file(path)) continue;
    nfiles++;
    nbytes += static_cast<uint64_t>(size);
  }
  show_delete_file_list("POC_TMP::destructor", nfiles, nbytes);
  files_.clear();
}

std::string POC_name(const CacheName& swath, SwathId sw) {
  return swath.file("." + own_tag() + ".poc", sw.number);
}

bool save_POC_TMP(const CacheName& swath, SwathId sw, double dt, const Vector<PO>& po) {
  const std::string name = POC_name(swath, sw);
  FamilyOut family(name, "", EXT_SUM);
  LOG_ENTER("save_POC_TMP idx=" << sw);
  const uint32_t n = static_cast<uint32_t>(po.size());
  char head[POC_HEAD];
  std::memcpy(head, &n, sizeof(n));
  std::memcpy(head + sizeof(n), &dt, sizeof(dt));
  SummedFileOut* const out = family.create("", BULK_BUFFER);
  const bool ok = po.size() <= UINT32_MAX && out && out->write(head, sizeof(head)) &&
                  out->write(po.val, po.size() * sizeof(PO)) && family.publish();
  if (!ok) {
    ERROR_MSG("failed to write trajectory cache " << name);
    return false;
  }
  LOG_LINE("written " << n << " records, " << static_cast<double>(POC_HEAD + po.size() * sizeof(PO)) * 1e-6
                      << " Mb, dt=" << dt);
  if (n > 0) LOG_LINE("t:[" << po[0].t << "," << po[n - 1].t << "] ");
  return true;
}

bool load_POC_TMP(const CacheName& swath, SwathId sw, Vector<PO>& po, double& dt) {
  const std::string name = POC_name(swath, sw);
  po.clear();
  char head[POC_HEAD];
  PosFileIn in;
  if (file_size(name) < 0 || !open_member(name, "", EXT_SUM, in)) return false;
  uint32_t n = 0;
  const bool read = in.size() >= POC_HEAD && in.read(0, head, sizeof(head));
  if (read) {
    std::memcpy(&n, head, sizeof(n));
    std::memcpy(&dt, head + sizeof(n), sizeof(dt));
  }
  if (!read || in.size() != POC_HEAD + uint64_t{n} * sizeof(PO)) {
    LOG_LINE("<!> fsize=" << in.size() << " n=" << n << " " << name);
    return false;
  }
  if (n == 0 || !std::isfinite(dt)) return false;
  po.resize(n);
  if (in.read(POC_HEAD, po.val, uint64_t{n} * sizeof(PO))) return true;
  po.clear();
  return false;
}

bool cache_PO_sw(SyncJob& job, Swath& swath, int f, const Vector<PO>& po, bool& cached) {
  cached = false;
  const double ta = swath.clock.begin - job.par.buf, tb = swath.clock.end + job.par.buf;
  LOG_ENTER("cache_PO_sw sw=" << swath.id << " f=" << f << " t:[" << ta << " " << tb << "]");
  uint64_t i0 = 0, i1 = 0;
  if (!window(po, ta, tb, i0, i1)) {
    LOG_LINE("<!> empty cache");
    return true;
  }
  const double dti0 = po[i0 + 1].t - po[i0].t, dti1 = po[i1].t - po[i1 - 1].t;
  if (po.size() > 2 && dti0 > MAX_GAP) LOG_LINE("<!> i0=" << i0 << " dti0=" << dti0);
  if (po.size() > 2 && dti1 > MAX_GAP) LOG_LINE("<!> i1=" << i1 << " dti1=" << dti1);
  for (uint64_t i = i0 + 1; i <= i1; i++) {
    const double gap = po[i].t - po[i - 1].t;
    if (gap > MAX_GAP)
      WARNING_MSG("abnormal timestamp difference of " << gap << " s at rec " << i << ", time " << po[i].t
                                                      << ", swath " << swath.id << ", PO file "
                                                      << job.file_path(f));
  }
  Vector<PO> part(i1 - i0 + 1);
  std::copy(po.val + i0, po.val + i1 + 1, part.val);
  if (swath.track.AREC) recompute_attitude(part);
  const Mount* mount = mount_of_swath(job.prj, swath);
  if (job.par.AROT && mount && !(mount->IMU == xyz{0, 0, 0})) rotate_IMU(part, mount->IMU);
  settle_angles(part);
  dxyz lo = {99999999, 99999999, 9999}, hi = {-99999999, -99999999, -9999};
  for (const PO& rec : part) grow_box(lo, hi, position(rec));
  swath.track.min = lo;
  swath.track.max = hi;
  job.res.poc.add(POC_name(swath.cache, swath.id));
  if (!save_POC_TMP(swath.cache, swath.id, job.file(f).TimeCorr, part)) return false;
  cached = true;
  return true;
}

uint64_t interp_O_Att(const Vector<PO>& po, const Vector<double>& t, bool AREC, Vector<dxyz>& O,
                      Vector<xyz>& Att) {
  const uint64_t np = t.size();
  ASSERT(Att.size() == np && O.size() == np);
  ASSERT(po.size());
  const double dt = mean_dt_PO(po);
  const PO& middle = po[po.size() / 2];
  uint64_t nerr = 0;
  for (uint64_t i = 0; i < np; i++) {
    PO at;
    const bool ok = AREC ? SafeInterpPO(po, t[i], dt, at) : InterpPO(po, t[i], dt, at);
    if (!ok) {
      nerr++;
      O[i] = NO_PO;
      Att[i] = {1000, 1000, 1000};
      continue;
    }
    O[i] = {at.x, at.y, at.z};
    Att[i] = AREC ? xyz{middle.roll, middle.pitch, middle.yaw} : xyz{at.roll, at.pitch, at.yaw};
  }
  if (nerr > 0) LOG_LINE("<!> interp_O_Att AREC=" << AREC << " np=" << np << " nerr=" << nerr);
  return nerr;
}

double time_at_displacement(const Vector<PO>& po, double dt, bool AREC, double t, const xyz& d) {
  constexpr double STEP = 0.1, SLOWEST = 0.5;  // s, m/s
  const auto at = [&](double time, PO& rec) {
    return AREC ? SafeInterpPO(po, time, dt, rec) : InterpPO(po, time, dt, rec);
  };
  PO a, b, there;
  if (!at(t - STEP, a) || !at(t + STEP, b)) return t;
  const double vx = (b.x - a.x) / (2 * STEP), vy = (b.y - a.y) / (2 * STEP), v2 = vx * vx + vy * vy;
  if (v2 < SLOWEST * SLOWEST) return t;
  const double shift = (vx * double{d.x} + vy * double{d.y}) / v2;
  return at(t + shift, there) ? t + shift : t;
}
}  // namespace veld
