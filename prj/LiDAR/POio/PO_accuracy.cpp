#include "prj/LiDAR/POio/PO_accuracy.h"

#include <algorithm>
#include <cmath>

#include "lib/general/binfile.h"
#include "lib/general/log.h"
#include "lib/general/path.h"
#include "prj/LiDAR/POio/PO_records.h"
#include "prj/LiDAR/POio/POio_internal.h"

namespace veld {
namespace {
constexpr uint64_t RECORD = 80;  // bytes
constexpr double SPACING = 1;    // s, between records that are kept: they change slowly
constexpr float MAX_POS = 1000;  // m, beyond which a record says nothing
constexpr float MAX_ATT = 90;    // degrees
constexpr float ARC_MINUTE = 1 / 60.0f;

std::string lower_case(std::string text) {
  for (char& c : text)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return text;
}

bool within(const xyz& v, float most) {
  return std::min({v.x, v.y, v.z}) > 0 && std::max({v.x, v.y, v.z}) <= most;
}

// False for a record that can't be.
bool accuracy_of(const char* record, POaccuracy& a) {
  const auto value = [&](int k) {
    return static_cast<float>(PO_field<double>(record, 8 * static_cast<size_t>(k)));
  };
  a.pos = {value(2), value(1), value(3)};
  a.att = {value(7) * ARC_MINUTE, value(8) * ARC_MINUTE, value(9) * ARC_MINUTE};
  return std::isfinite(a.t) && within(a.pos, MAX_POS) && within(a.att, MAX_ATT);
}

bool unusable(const std::string& path, const char* why) {
  WARNING_MSG(why << ", accuracy file " << path << " is not used");
  return false;
}
}  // namespace

bool is_accuracy_file(const std::string& path) {
  return lower_case(base_name(path)).find("smrmsg") != std::string::npos;
}

std::string accuracy_file_of(const std::string& sbet) {
  const std::string name = base_name(sbet), dir = sbet.substr(0, sbet.size() - name.size());
  const size_t at = lower_case(name).find("sbet");
  std::vector<std::string> names = {"smrmsg_" + name};
  if (at != std::string::npos)
    for (const char* const word : {"smrmsg", "SMRMSG", "Smrmsg"}) {
      std::string other = name;
      names.push_back(other.replace(at, 4, word));
    }
  for (auto candidate = names.rbegin(); candidate != names.rend(); ++candidate)
    if (is_regular_file(dir + *candidate)) return dir + *candidate;
  return {};
}

bool read_accuracy(const std::string& path, const POread& par, std::vector<POaccuracy>& list) {
  LOG_ENTER("read_accuracy t:[" << par.tinf << ' ' << par.tsup << "] " << path);
  list.clear();
  const int64_t size = file_size(path);
  PORecords file;
  file.path = path, file.what = "SMRMSG", file.reader = "read_accuracy";
  file.rsize = RECORD;
  file.nrec = size < 0 ? 0 : static_cast<uint64_t>(size) / RECORD;
  file.time_of = [](const char* record) { return PO_field<double>(record, 0); };
  if (size < 0 || static_cast<uint64_t>(size) % RECORD != 0 || file.nrec < 2)
    return unusable(path, "size is not that of whole records of 80 bytes");
  RecordClock clock;
  BufBinFileIn in(BULK_BUFFER);
  if (!open_record_clock(file, par, clock) || !in.open(path)) return unusable(path, "no usable times");
  uint64_t nbad = 0;
  for (uint64_t i = 0; i < file.nrec; i++) {
    char record[RECORD];
    if (!in.read(record, RECORD)) return unusable(path, "read error");
    POaccuracy a;
    a.t = clock(file.time_of(record), i);
    if (!accuracy_of(record, a)) {
      nbad++;
      continue;
    }
    if (!list.empty() && list.back().t > par.tsup) break;
    if (!list.empty() && a.t < list.back().t + SPACING) continue;
    if (!list.empty() && a.t <= par.tinf) list.clear();  // the one before the window is the last such
    list.push_back(a);
  }
  LOG_LINE("n=" << list.size() << " nbad=" << nbad);
  if (nbad > 0) WARNING_MSG(nbad << " invalid records skipped, accuracy file " << path);
  return !list.empty() || unusable(path, "no usable record");
}
}  // namespace veld
