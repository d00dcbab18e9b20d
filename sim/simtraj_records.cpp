// Trajectories in the formats of navigation suites, written byte by byte from their descriptions.
#include <cmath>
#include <cstring>

#include "las/las_access.h"
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

std::string trj_record(const SimSpec& spec, const TrajSample& s, double unit) {
  std::string r(64, '\0');
  const double v[7] = {spec.sow0 + s.t,      s.pose.p.x / unit, s.pose.p.y / unit, s.pose.p.z / spec.unit_z,
                       s.pose.heading / DEG, s.pose.roll / DEG, s.pose.pitch / DEG};
  std::memcpy(r.data(), v, sizeof v);
  return r;
}

std::string sol_record(const SimSpec& spec, const TrajSample& s, double) {
  std::string r(184, '\0');
  put<uint16_t>(r, 0, 21947), put<uint16_t>(r, 2, 184), put<uint16_t>(r, 12, 2501);
  put<uint8_t>(r, 14, 1), put<uint16_t>(r, 16, static_cast<uint16_t>(spec.week));
  put(r, 18, spec.sow0 + s.t);
  put<uint16_t>(r, 37, 2), put<uint16_t>(r, 39, 9), put<uint8_t>(r, 41, 7);
  put(r, 42, s.lat), put(r, 50, s.lon), put(r, 58, s.h);
  put(r, 78, s.pose.roll), put(r, 86, s.pose.pitch), put(r, 94, true_heading(s));
  return r;
}

std::string bin_record(const SimSpec& spec, const TrajSample& s, double) {
  std::string r(168, '\0');
  const double v[7] = {spec.sow0 + s.t, s.lat, s.lon, -s.h, s.pose.roll, s.pose.pitch, true_heading(s)};
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

std::string pof_record(const SimSpec& spec, const TrajSample& s, double) {
  std::string r(64, '\0');
  const double v[7] = {spec.sow0 + s.t,   s.lon / DEG,        s.lat / DEG,          s.h,
                       s.pose.roll / DEG, s.pose.pitch / DEG, true_heading(s) / DEG};
  std::memcpy(r.data(), v, sizeof v);
  return r;
}
// Points with their times, place in the project's system, and angles in attributes.
bool write_las(const SimSpec& spec, const std::vector<TrajSample>& samples, double unit,
               const std::string& path) {
  LASheader header;
  header.point_format = 1;
  header.point_reclen = static_cast<uint16_t>(las_base_length(1) + 3 * sizeof(double));
  header.global_encoding = 1;  // adjusted standard GPS time
  header.x_scale_factor = header.y_scale_factor = header.z_scale_factor = 0.0001;
  header.x_offset = std::floor(spec.east / unit / 1000) * 1000;
  header.y_offset = std::floor(spec.north / unit / 1000) * 1000;
  std::string attributes(3 * 192, '\0');
  const char* const names[] = {"Roll", "Pitch", "Heading"};
  for (size_t k = 0; k < 3; k++) {
    attributes[192 * k + 2] = 10;  // double
    attributes.replace(192 * k + 4, std::strlen(names[k]), names[k]);
  }
  if (!header.add_vlr("LASF_Spec", 4, attributes.data(), attributes.size())) return false;
  std::unique_ptr<LASwriter> writer = las_write_open(path, header, "xyzt");
  if (!writer) return false;
  LASpoint p = header.point();
  std::vector<uint8_t> record(header.point_reclen, 0);
  p.rec = record.data();
  p.set_returns(1, 1);
  bool ok = true;
  for (size_t i = 0; i < samples.size() && ok; i++) {
    const TrajSample& s = samples[i];
    p.set_X(static_cast<int32_t>(std::lround((s.pose.p.x / unit - header.x_offset) / header.x_scale_factor)));
    p.set_Y(static_cast<int32_t>(std::lround((s.pose.p.y / unit - header.y_offset) / header.y_scale_factor)));
    p.set_Z(static_cast<int32_t>(std::lround(s.pose.p.z / spec.unit_z / header.z_scale_factor)));
    p.set_gps_time(spec.week * 604800.0 + spec.sow0 - 1e9 + s.t);
    const double angle[3] = {s.pose.roll / DEG, s.pose.pitch / DEG, s.pose.heading / DEG};
    std::memcpy(p.extra(), angle, sizeof angle);
    ok = writer->write_point(p);
  }
  return las_write_close(writer) && ok;
}
}  // namespace

bool write_records(const SimSpec& spec, const std::vector<TrajSample>& samples, double unit,
                   const std::string& path) {
  if (spec.traj_format == "las") return write_las(spec, samples, unit, path);
  const struct {
    const char* format;
    std::string header;
    std::string (*record)(const SimSpec& spec, const TrajSample& s, double unit);
  } formats[] = {{"trj", trj_header(samples.size()), trj_record},
                 {"sol", "", sol_record},
                 {"bin", "", bin_record},
                 {"pof", pof_header(samples.size()), pof_record}};
  BufBinFileOut file(BULK_BUFFER);
  for (const auto& f : formats) {
    if (spec.traj_format != f.format) continue;
    if (!file.open(path, 0) || !file.write(f.header.data(), f.header.size())) return false;
    for (const TrajSample& s : samples) {
      const std::string r = f.record(spec, s, unit);
      if (!file.write(r.data(), r.size())) return false;
    }
    return file.close();
  }
  return false;
}
}  // namespace veld
