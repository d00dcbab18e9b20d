// Trajectories in the formats of navigation suites, written byte by byte from their descriptions.
#include <cmath>
#include <cstring>

#include "lib/general/binfile.h"
#include "sim/simtraj_internal.h"

namespace veld {
namespace {
constexpr double DEG = M_PI / 180;

template <typename T>
void put(std::string& bytes, size_t at, T value) {
  std::memcpy(bytes.data() + at, &value, sizeof value);
}

// Heading from true north, within half a turn.
double true_heading(const TrajSample& s) { return std::remainder(s.pose.heading + s.convergence, 2 * M_PI); }

std::string trj_header(size_t n) {
  std::string h(1376, '\0');
  h.replace(0, 8, "TSCANTRJ");
  put<int32_t>(h, 8, 20010715), put<int32_t>(h, 12, 1376);
  put<int32_t>(h, 16, static_cast<int32_t>(n)), put<int32_t>(h, 20, 64);
  return h;
}

std::string trj_record(const SimSpec& spec, const TrajSample& s) {
  std::string r(64, '\0');
  const double v[7] = {spec.sow0 + s.t,      s.pose.p.x,        s.pose.p.y,        s.pose.p.z,
                       s.pose.heading / DEG, s.pose.roll / DEG, s.pose.pitch / DEG};
  std::memcpy(r.data(), v, sizeof v);
  return r;
}

std::string sol_record(const SimSpec& spec, const TrajSample& s) {
  std::string r(184, '\0');
  put<uint16_t>(r, 0, 21947), put<uint16_t>(r, 2, 184), put<uint16_t>(r, 12, 2501);
  put<uint8_t>(r, 14, 1), put<uint16_t>(r, 16, static_cast<uint16_t>(spec.week));
  put(r, 18, spec.sow0 + s.t);
  put<uint16_t>(r, 37, 2), put<uint16_t>(r, 39, 9), put<uint8_t>(r, 41, 7);
  put(r, 42, s.lat), put(r, 50, s.lon), put(r, 58, s.pose.p.z);
  put(r, 78, s.pose.roll), put(r, 86, s.pose.pitch), put(r, 94, true_heading(s));
  return r;
}

std::string bin_record(const SimSpec& spec, const TrajSample& s) {
  std::string r(168, '\0');
  const double v[7] = {spec.sow0 + s.t, s.lat,        s.lon,          -s.pose.p.z,
                       s.pose.roll,     s.pose.pitch, true_heading(s)};
  std::memcpy(r.data(), v, sizeof v);
  return r;
}

// Seconds of the week; the date is left out, as this unit doesn't take it.
std::string pof_header(size_t n) {
  std::string h(27 + 264, '\0');
  h.replace(0, 26, "RIEGL POSITION&ORIENTATION");
  put<int16_t>(h, 27, 1), put<int16_t>(h, 29, 1);  // with 8 more bytes a record
  put<int64_t>(h, 27 + 14, static_cast<int64_t>(n));
  put<int8_t>(h, 27 + 94, 2), put<int8_t>(h, 27 + 95, 2);
  return h;
}

std::string pof_record(const SimSpec& spec, const TrajSample& s) {
  std::string r(64, '\0');
  const double v[7] = {spec.sow0 + s.t,   s.lon / DEG,        s.lat / DEG,          s.pose.p.z,
                       s.pose.roll / DEG, s.pose.pitch / DEG, true_heading(s) / DEG};
  std::memcpy(r.data(), v, sizeof v);
  return r;
}
}  // namespace

bool write_records(const SimSpec& spec, const std::vector<TrajSample>& samples, const std::string& path) {
  const struct {
    const char* format;
    std::string header;
    std::string (*record)(const SimSpec& spec, const TrajSample& s);
  } formats[] = {{"trj", trj_header(samples.size()), trj_record},
                 {"sol", "", sol_record},
                 {"bin", "", bin_record},
                 {"pof", pof_header(samples.size()), pof_record}};
  BufBinFileOut file(BULK_BUFFER);
  for (const auto& f : formats) {
    if (spec.traj_format != f.format) continue;
    if (!file.open(path, 0) || !file.write(f.header.data(), f.header.size())) return false;
    for (const TrajSample& s : samples) {
      const std::string r = f.record(spec, s);
      if (!file.write(r.data(), r.size())) return false;
    }
    return file.close();
  }
  return false;
}
}  // namespace veld
