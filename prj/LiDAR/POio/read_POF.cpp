// POF: a header that tells date and time scale, and records of 56 or 64 bytes, geographic positions in degrees.
#include <cmath>

#include "lib/general/binfile.h"
#include "lib/general/log.h"
#include "lib/general/path.h"
#include "prj/LiDAR/POio/PO_records.h"
#include "prj/LiDAR/POio/POio_internal.h"
#include "prj/LiDAR/POio/POtime.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
constexpr char SIGNATURE[] = "RIEGL POSITION&ORIENTATION";
constexpr size_t SIGN = sizeof SIGNATURE;                       // its zero belongs to it
constexpr uint64_t HEADER = SIGN + 264, RECORD = 56, MORE = 8;  // bytes
constexpr int UNIT_DAY = 1, UNIT_WEEK = 2, INFO_UTC = 1, INFO_GPS = 2;

// Day of the week, 0 Sunday, and GPS week of a date.
bool week_of_date(int year, int month, int day, int& weekday, int& week) {
  if (year < 1980 || year > 2200 || month < 1 || month > 12 || day < 1 || day > 31) return false;
  const int since = static_cast<int>(gps_day_number(year, month, day));  // the first day was a Sunday
  if (since < 0) return false;
  weekday = since % 7;
  week = since / 7;
  return true;
}

// Seconds of a day that may run past midnight to those of the week.
double day_to_week(double t, int weekday) {
  const double days = std::floor(t / DAY_S);
  return t + (std::fmod(days + weekday, 7) - days) * DAY_S;
}

PO sample(const char* r, const POread& par) {
  PO rec;
  rec.x = PO_field<double>(r, 8);
  rec.y = PO_field<double>(r, 16);
  rec.z = PO_field<double>(r, 24);
  rec.roll = static_cast<float>(PO_field<double>(r, 32));
  rec.pitch = static_cast<float>(PO_field<double>(r, 40));
  rec.yaw = file_yaw(PO_field<double>(r, 48), par);
  return rec;
}

// Seconds of the GPS week by the header's unit, date and UTC flag, unless the options ignore them.
void set_times(const char* h, bool warn, PORecords& file) {
  int unit = PO_field<int8_t>(h, 94), info = PO_field<int8_t>(h, 95), weekday = 0, week = 0;
  const bool dated = week_of_date(PO_field<int16_t>(h, 8), PO_field<int16_t>(h, 10), PO_field<int16_t>(h, 12),
                                  weekday, week);
  LOG_LINE("POF.timeunit=" << unit << " POF.timeinfo=" << info << " wd=" << weekday << " pofweek=" << week);
  file.time_of = [](const char* r) { return PO_field<double>(r, 0); };
  if (POF_IGNORE_UNIT || (unit != UNIT_DAY && unit != UNIT_WEEK) || (unit == UNIT_DAY && !dated)) {
    if (warn)
      WARNING_MSG((POF_IGNORE_UNIT ? "POF time unit ignored, file " : "ignored invalid POF time unit, file ")
                  << file.path);
    return;
  }
  if (info != INFO_UTC && info != INFO_GPS && warn)
    WARNING_MSG("ignored invalid POF time info, must be GPS or UTC, file " << file.path);
  const bool ignored = info == INFO_UTC && POF_IGNORE_INFO;
  if (ignored && warn) WARNING_MSG("POF time info UTC flag ignored, file " << file.path);
  const double leaps = info == INFO_UTC && !ignored ? leaps_UTC(week * WEEK_S + weekday * DAY_S) : 0;
  LOG_LINE("leaps=" << leaps);
  file.time = WKS_GPS_DEC;
  const bool day = unit == UNIT_DAY;
  file.time_of = [day, weekday, leaps](const char* r) {
    const double t = PO_field<double>(r, 0);
    return (day ? day_to_week(t, weekday) : t) + leaps;
  };
}

bool open_POF(const std::string& path, bool warn, PORecords& file) {
  char bytes[HEADER] = {};
  const char* const h = bytes + SIGN;
  const int64_t pofsize = file_size(path);
  BufBinFileIn in(0, false);
  if (pofsize < 0 || !in.open(path)) {
    ERROR_MSG("failed to open PO file " << path);
    return false;
  }
  if (pofsize < static_cast<int64_t>(HEADER) || !in.read(bytes, HEADER) ||
      std::memcmp(bytes, SIGNATURE, SIGN) != 0) {
    ERROR_MSG("invalid POF header, file " << path);
    return false;
  }
  const int major = PO_field<int16_t>(h, 0), minor = PO_field<int16_t>(h, 2);
  const int64_t entries = PO_field<int64_t>(h, 14);
  LOG_LINE("POF version " << major << '.' << minor << " POF.entries=" << entries << " POF.avgint="
                          << PO_field<double>(h, 70) << " POF.maxint=" << PO_field<double>(h, 78)
                          << " POF.devint=" << PO_field<double>(h, 86));
  if (major != 1 || minor < 0 || minor > 1) {
    ERROR_MSG("unsupported POF version, file " << path);
    return false;
  }
  file.path = path, file.what = "POF", file.reader = "read_POF (Riegl)";
  file.header = HEADER, file.rsize = RECORD + (minor == 1 ? MORE : 0);
  file.nrec = (static_cast<uint64_t>(pofsize) - HEADER) / file.rsize;
  if (entries < 0 || static_cast<uint64_t>(entries) != file.nrec ||
      HEADER + file.nrec * file.rsize != static_cast<uint64_t>(pofsize)) {
    ERROR_MSG("wrong file size, POF file " << path << " pofsize=" << pofsize << " expsize of " << entries
                                           << " entries");
    return false;
  }
  set_times(h, warn, file);
  file.sample = sample;
  return true;
}
}  // namespace

bool scan_POF(const std::string& path, const POread& par, POscan& scan) {
  PORecords file;
  return open_POF(path, true, file) && scan_records(file, par, scan);
}

bool read_POF(const std::string& path, const POread& par, Vector<PO>& po, bool& tadj) {
  PORecords file;
  return open_POF(path, false, file) && read_records(file, par, po, tadj);
}
}  // namespace veld
