// SBET: 17 doubles a record, the first eleven of them used.
#include "lib/Geometry/angle.h"
#include "lib/general/log.h"
#include "lib/general/path.h"
#include "prj/LiDAR/POio/PO_records.h"
#include "prj/LiDAR/POio/POio_internal.h"
#include "prj/LiDAR/POio/SBET.h"

namespace veld {
namespace {
PO sample(const char* record, const POread& par) {
  const SBETrec r = PO_field<SBETrec>(record, 0);
  PO rec;
  rec.x = r.lon * DEG_PER_RAD;
  rec.y = r.lat * DEG_PER_RAD;
  rec.z = r.height;
  rec.roll = static_cast<float>(r.roll * DEG_PER_RAD);
  rec.pitch = static_cast<float>(r.pitch * DEG_PER_RAD);
  rec.yaw = file_yaw((par.sbetw0 ? r.heading : r.heading - r.wander) * DEG_PER_RAD, par);
  return rec;
}

}  // namespace

bool open_SBET(const std::string& path, bool warn, PORecords& file) {
  const int64_t fsize = file_size(path);
  if (fsize < 0) {
    ERROR_MSG("failed to open PO file " << path);
    return false;
  }
  file.path = path, file.what = "SBET", file.reader = "read_SBET (Applanix)";
  file.rsize = sizeof(SBETrec);
  file.nrec = static_cast<uint64_t>(fsize) / sizeof(SBETrec);
  if (static_cast<uint64_t>(fsize) % sizeof(SBETrec) != 0 && warn)
    WARNING_MSG("invalid file size, SBET file=" << path);
  file.time_of = [](const char* record) { return PO_field<double>(record, 0); };
  file.sample = sample;
  return true;
}

bool scan_SBET(const std::string& path, const POread& par, POscan& scan) {
  PORecords file;
  return open_SBET(path, true, file) && scan_records(file, par, scan);
}

bool read_SBET(const std::string& path, const POread& par, Vector<PO>& po, bool& tadj) {
  PORecords file;
  return open_SBET(path, false, file) && read_records(file, par, po, tadj);
}
}  // namespace veld
