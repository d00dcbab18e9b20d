// TRJ: a header and records of 64 bytes, projected positions in the units of the swaths.
#include "lib/general/binfile.h"
#include "lib/general/log.h"
#include "lib/general/path.h"
#include "prj/LiDAR/POio/PO_records.h"
#include "prj/LiDAR/POio/POio_internal.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
constexpr uint64_t HEADER = 1376, RECORD = 64;  // bytes

PO sample(const char* r, const POread& par) {
  PO rec;
  rec.x = PO_field<double>(r, 8) * DATAUNIT;
  rec.y = PO_field<double>(r, 16) * DATAUNIT;
  rec.z = PO_field<double>(r, 24) * DATAUNIT_Z;
  rec.yaw = file_yaw(PO_field<double>(r, 32), par);
  rec.roll = static_cast<float>(PO_field<double>(r, 40));
  rec.pitch = static_cast<float>(PO_field<double>(r, 48));
  return rec;
}

bool open_TRJ(const std::string& path, PORecords& file) {
  char h[HEADER] = {};
  BufBinFileIn in(0, false);
  const int64_t fsize = file_size(path);
  if (fsize < 0 || !in.open(path)) {
    ERROR_MSG("failed to open PO file " << path);
    return false;
  }
  const bool read = fsize >= static_cast<int64_t>(HEADER) && in.read(h, HEADER);
  const int32_t start = PO_field<int32_t>(h, 12), nrec = PO_field<int32_t>(h, 16),
                size = PO_field<int32_t>(h, 20);
  if (!read || std::memcmp(h, "TSCANTRJ", 8) != 0 || size != static_cast<int32_t>(RECORD) ||
      start < static_cast<int32_t>(HEADER)) {
    ERROR_MSG("invalid header, TRJ file=" << path);
    return false;
  }
  LOG_LINE("hdr.version=" << PO_field<int32_t>(h, 8) << " hdr.hdrsize=" << start << " hdr.nrec=" << nrec
                          << " hdr.recsize=" << size << " hdr.fln0=" << PO_field<int32_t>(h, 120)
                          << " hdr.fln=" << PO_field<int32_t>(h, 124));
  const int64_t fdsize = fsize - start;
  if (fdsize <= 0 || fdsize % static_cast<int64_t>(RECORD) != 0 ||
      fdsize / static_cast<int64_t>(RECORD) != nrec) {
    ERROR_MSG("invalid file size, TRJ file=" << path << " fdsize=" << fdsize);
    return false;
  }
  file.path = path, file.what = "TRJ", file.reader = "read_TRJ (TerraScan)", file.coord = PO_PROJ;
  file.header = static_cast<uint64_t>(start), file.rsize = RECORD, file.nrec = static_cast<uint64_t>(nrec);
  file.time_of = [](const char* r) { return PO_field<double>(r, 0); };
  file.sample = sample;
  return true;
}
}  // namespace

bool scan_TRJ(const std::string& path, const POread& par, POscan& scan) {
  PORecords file;
  return open_TRJ(path, file) && scan_records(file, par, scan);
}

bool read_TRJ(const std::string& path, const POread& par, Vector<PO>& po, bool& tadj) {
  PORecords file;
  return open_TRJ(path, file) && read_records(file, par, po, tadj);
}
}  // namespace veld
