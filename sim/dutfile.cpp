#include "sim/dutfile.h"

#include <cstring>
#include <fstream>
#include <sstream>

#include "lib/DataStructure/nodata.h"
#include "lib/general/binfile.h"
#include "lib/general/log.h"

namespace veld {
namespace {
constexpr uint32_t MAGIC = 0x471EFF39, VERSION = 0x0003378A;
constexpr size_t HEADER = 20, RECORD = 64;  // bytes
constexpr double NO_TIME = -1e300;          // times below are none

template <typename T>
double field(const uint8_t* record, size_t offset) {
  T value;
  std::memcpy(&value, record + offset, sizeof value);
  return static_cast<double>(value);
}

dxyz float_triple(const uint8_t* record, size_t offset) {
  return {field<float>(record, offset), field<float>(record, offset + 4), field<float>(record, offset + 8)};
}

std::string stem_of(const std::string& name) {
  const size_t slash = name.rfind('/');
  const std::string base = slash == std::string::npos ? name : name.substr(slash + 1);
  return base.substr(0, base.rfind('.'));
}

bool read_index(const std::string& path, DutFile& dut) {
  std::ifstream file(path);
  std::string line;
  bool metres = false;
  for (int number = 1; std::getline(file, line); number++) {
    std::istringstream words(line);
    std::string tag, name;
    if (number == 3) {  // NSwaths GridSize Level Dim Unit
      int nsw = 0, gsize = 0, level = 0, dim = 0, unit = -1;
      words >> nsw >> gsize >> level >> dim >> unit;
      metres = unit == 0;
      dut.spacing = gsize;
      continue;
    }
    words >> tag;
    if (tag == "#S") {
      int number_of, group, channel, flags;
      words >> number_of >> group >> channel;
      for (int i = 0; i < 5; i++) words >> flags;
      words >> name >> name;  // two times
      std::getline(words >> std::ws, name);
      dut.swaths.push_back(stem_of(name));
    } else if (tag == "#P") {
      DutPair pair{};
      int64_t number_of;
      if (words >> number_of >> pair.sw1 >> pair.sw2 >> pair.nrecords) dut.pairs.push_back(pair);
    }
  }
  const int nsw = static_cast<int>(dut.swaths.size());
  bool ok = metres && nsw > 1;
  for (const DutPair& pair : dut.pairs)
    ok = ok && pair.sw1 >= 0 && pair.sw2 >= 0 && pair.sw1 < nsw && pair.sw2 < nsw;
  if (!ok) ERROR_MSG("no index of displacements in metres, file '" << path << "'");
  return ok;
}
}  // namespace

bool read_dut(const std::string& path, DutFile& dut) {
  dut = DutFile();
  const std::string name = path.substr(0, path.rfind(".dut"));
  if (!read_index(name + "_idx.log", dut)) return false;
  BufBinFileIn file(BULK_BUFFER);
  if (!file.open(path)) return false;
  const int64_t size = file.get_size();
  uint8_t record[RECORD];
  if (size < static_cast<int64_t>(HEADER) || !file.read(record, HEADER) ||
      field<uint32_t>(record, 0) != MAGIC || field<uint32_t>(record, 4) != VERSION) {
    ERROR_MSG("no displacement file '" << path << "'");
    return false;
  }
  const int64_t nrecords = (size - static_cast<int64_t>(HEADER)) / static_cast<int64_t>(RECORD);
  for (int64_t i = 0; i < nrecords; i++) {
    if (!file.read(record, RECORD)) return false;
    DutVector v;
    v.p = {field<int32_t>(record, 0), field<int32_t>(record, 4), field<float>(record, 8)};
    v.d = float_triple(record, 12);
    v.unc = float_triple(record, 24);
    v.timed = field<double>(record, 40) > NO_TIME && field<double>(record, 48) > NO_TIME;
    v.pair = static_cast<int>(field<uint16_t>(record, 56));
    if (v.pair >= static_cast<int>(dut.pairs.size())) {
      ERROR_MSG("record " << i << " of a pair that the index does not list, file '" << path << "'");
      return false;
    }
    if (v.p.z != static_cast<double>(NODATA)) dut.vectors.push_back(v);
  }
  return true;
}
}  // namespace veld
