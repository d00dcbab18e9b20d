#include <algorithm>

#include "lib/general/log.h"
#include "lib/general/path.h"
#include "lib/general/result_file.h"
#include "prj/LiDAR/POio/SBET.h"

namespace veld {
namespace {
constexpr uint64_t BLOCK = 65536;  // records
}

bool copy_SBET(const std::string& path, const POread& par, const std::string& out, const SBETpatch& patch) {
  LOG_ENTER("copy_SBET (Applanix) '" << path << "' -> '" << out << "'");
  PORecords file;
  if (!open_SBET(path, false, file)) return false;
  const uint64_t fsize = static_cast<uint64_t>(file_size(path));
  if (fsize != file.nrec * file.rsize) {
    ERROR_MSG("file size mismatch, SBET file=" << path << " fsize=" << fsize << " rsize=" << file.rsize
                                               << " nrec=" << file.nrec);
    return false;
  }
  if (same_file(path, out)) {
    ERROR_MSG("the corrected trajectory would overwrite its source, PO file " << path);
    return false;
  }
  RecordClock clock;
  BufBinFileIn in(BULK_BUFFER);
  BinResultFile to;
  if (!open_record_clock(file, par, clock) || !in.open(path) || !to.open(out)) return false;
  std::vector<SBETrec> records;
  std::vector<double> t;
  for (uint64_t i = 0; i < file.nrec; i += BLOCK) {
    records.resize(std::min(BLOCK, file.nrec - i));
    t.resize(records.size());
    const uint64_t nbytes = records.size() * sizeof(SBETrec);
    if (!in.read(records.data(), nbytes)) {
      ERROR_MSG("read error, SBET file " << path << ", records from " << i);
      return false;
    }
    for (size_t k = 0; k < records.size(); k++) t[k] = clock(records[k].time, i + k);
    if (!patch(records, t) || !to.write(records.data(), nbytes)) return false;
  }
  return to.commit();
}
}  // namespace veld
