// BIN: records of 168 bytes, geographic positions and depth.
#include <cmath>

#include "lib/Geometry/angle.h"
#include "lib/general/binfile.h"
#include "lib/general/log.h"
#include "lib/general/path.h"
#include "prj/LiDAR/POio/PO_records.h"
#include "prj/LiDAR/POio/POio_internal.h"

namespace veld {
namespace {
constexpr uint64_t RECORD = 168;  // bytes

// Whether a record's place and attitude lie within the range of radians: then the file's angles are.
bool in_radians(const char* r) {
  bool small = std::fabs(PO_field<double>(r, 8)) <= 1.5708;
  for (const size_t at : {16, 32, 40, 48}) small = small && std::fabs(PO_field<double>(r, at)) <= 6.2832;
  return small;
}

PO sample(const char* r, double unit, const POread& par) {
  PO rec;
  rec.x = PO_field<double>(r, 16) * unit;
  rec.y = PO_field<double>(r, 8) * unit;
  rec.z = -PO_field<double>(r, 24);
  rec.roll = static_cast<float>(PO_field<double>(r, 32) * unit);
  rec.pitch = static_cast<float>(PO_field<double>(r, 40) * unit);
  rec.yaw = file_yaw(PO_field<double>(r, 48) * unit, par);
  return rec;
}

bool open_BIN(const std::string& path, bool log, PORecords& file) {
  const int64_t fsize = file_size(path);
  BufBinFileIn in(0, false);
  if (fsize < 0 || !in.open(path)) {
    ERROR_MSG("failed to open PO file " << path);
    return false;
  }
  if (fsize % static_cast<int64_t>(RECORD) != 0) {
    ERROR_MSG("invalid file size, BIN file=" << path);
    return false;
  }
  file.path = path, file.what = "BIN", file.reader = "read_BIN (NavLab)";
  file.rsize = RECORD, file.nrec = static_cast<uint64_t>(fsize) / RECORD;
  char r[RECORD] = {};
  bool radians = true;
  for (const uint64_t i : {uint64_t{0}, file.nrec / 2, file.nrec - (file.nrec > 0)})
    if (file.nrec > 0 && in.seek(i * RECORD) && in.read(r, RECORD)) radians = radians && in_radians(r);
  if (log)
    LOG_LINE("rec.lon=" << PO_field<double>(r, 16) << " rec.lat=" << PO_field<double>(r, 8)
                        << " rec.depth=" << PO_field<double>(r, 24) << " rec.roll=" << PO_field<double>(r, 32)
                        << " rec.pitch=" << PO_field<double>(r, 40) << " rec.yaw=" << PO_field<double>(r, 48)
                        << " radians=" << radians);
  const double unit = radians ? DEG_PER_RAD : 1.0;
  file.time_of = [](const char* record) { return PO_field<double>(record, 0); };
  file.sample = [unit](const char* record, const POread& par) { return sample(record, unit, par); };
  return true;
}
}  // namespace

bool scan_BIN(const std::string& path, const POread& par, POscan& scan) {
  PORecords file;
  return open_BIN(path, true, file) && scan_records(file, par, scan);
}

bool read_BIN(const std::string& path, const POread& par, Vector<PO>& po, bool& tadj) {
  PORecords file;
  return open_BIN(path, false, file) && read_records(file, par, po, tadj);
}
}  // namespace veld
