// SOL: messages of 184 bytes, a header of 35 and a body of 149, geographic positions in radians.
#include <cmath>

#include "lib/Geometry/angle.h"
#include "lib/general/binfile.h"
#include "lib/general/log.h"
#include "lib/general/path.h"
#include "prj/LiDAR/POio/PO_records.h"
#include "prj/LiDAR/POio/POio_internal.h"
#include "prj/LiDAR/POio/POtime.h"

namespace veld {
namespace {
constexpr uint64_t MESSAGE = 184;  // bytes
constexpr size_t BODY = 35;

bool is_header(const char* m) {
  return PO_field<uint16_t>(m, 0) == 21947 && PO_field<uint16_t>(m, 2) == MESSAGE &&
         PO_field<uint16_t>(m, 12) == 2501;
}

// The status has one byte: the second of its two is the first of the latitude.
bool is_body(const char* m) {
  return PO_field<uint16_t>(m, BODY + 2) == 2 && PO_field<uint16_t>(m, BODY + 4) == 9 &&
         PO_field<uint8_t>(m, BODY + 6) == 7 && PO_field<uint8_t>(m, BODY + 143) == 0;
}

// Adjusted time when the message has a week. Not a number when it has no time.
double time_of(const char* m) {
  const double t = PO_field<uint8_t>(m, 14) == 1   ? PO_field<double>(m, 18)
                   : PO_field<uint8_t>(m, 15) == 1 ? PO_field<double>(m, 26)
                                                   : std::nan("");
  const uint16_t week = PO_field<uint16_t>(m, 16);
  if (!is_header(m) || !(t >= 0)) return std::nan("");
  return week > 0 ? t + (week * WEEK_S - ADJ_S) : t;  // in this order to 0.06, not 0.24 microseconds
}

PO sample(const char* m, const POread& par) {
  PO rec;
  const auto degrees = [m](size_t at) { return PO_field<double>(m, BODY + at) * DEG_PER_RAD; };
  rec.x = is_body(m) ? degrees(15) : std::nan("");
  rec.y = degrees(7);
  rec.z = PO_field<double>(m, BODY + 23);
  rec.roll = static_cast<float>(degrees(43));
  rec.pitch = static_cast<float>(degrees(51));
  rec.yaw = file_yaw(degrees(59), par);
  return rec;
}

bool open_SOL(const std::string& path, PORecords& file) {
  char m[MESSAGE] = {};
  BufBinFileIn in(0, false);
  const int64_t fsize = file_size(path);
  if (fsize < 0 || !in.open(path)) {
    ERROR_MSG("failed to open PO file " << path);
    return false;
  }
  if (fsize % static_cast<int64_t>(MESSAGE) != 0) {
    ERROR_MSG("invalid file size, SOL file=" << path);
    return false;
  }
  if (!in.read(m, MESSAGE)) LOG_LINE("<!> read error");
  if (!is_header(m)) {
    ERROR_MSG("invalid SOL file format, file=" << path);
    return false;
  }
  if (!is_body(m)) {
    LOG_LINE("<!> geoid=" << int{PO_field<uint8_t>(m, BODY + 143)} << " orig="
                          << PO_field<uint16_t>(m, BODY + 2) << " level=" << PO_field<uint16_t>(m, BODY + 4)
                          << " status=" << int{PO_field<uint8_t>(m, BODY + 6)});
    ERROR_MSG("unsupported SOL file format, file=" << path);
    return false;
  }
  if (PO_field<uint8_t>(m, 14) != 1 && PO_field<uint8_t>(m, 15) != 1) {
    ERROR_MSG("unsupported SOL file timestamp format, file=" << path);
    return false;
  }
  file.path = path, file.what = "SOL", file.reader = "read_SOL (Leica)";
  file.rsize = MESSAGE, file.nrec = static_cast<uint64_t>(fsize) / MESSAGE;
  file.time = PO_field<uint16_t>(m, 16) > 0 ? ADJ_GPS_DEC : WKS_GPS_DEC;
  file.time_of = time_of;
  file.sample = sample;
  return true;
}
}  // namespace

bool scan_SOL(const std::string& path, const POread& par, POscan& scan) {
  PORecords file;
  return open_SOL(path, file) && scan_records(file, par, scan);
}

bool read_SOL(const std::string& path, const POread& par, Vector<PO>& po, bool& tadj) {
  PORecords file;
  return open_SOL(path, file) && read_records(file, par, po, tadj);
}
}  // namespace veld
