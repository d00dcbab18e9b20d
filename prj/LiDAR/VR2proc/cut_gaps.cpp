// Gaps in the times of a cut file, and cutting it at them.
#include <algorithm>
#include <cmath>

#include "lib/general/log.h"
#include "lib/general/path.h"
#include "prj/LiDAR/VR2proc/cut_internal.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
constexpr double BIN = 0.25;  // s: a gap of a second spans whole bins, whose neighbours hold its exact ends
}  // namespace

void TimeBins::add(double t) {
  const int64_t bin = static_cast<int64_t>(std::floor(t / BIN));
  if (bins_.empty()) bin0_ = bin;
  if (bin < bin0_) {
    bins_.insert(bins_.begin(), static_cast<size_t>(bin0_ - bin), Bin());
    bin0_ = bin;
  }
  const size_t k = static_cast<size_t>(bin - bin0_);
  if (k >= bins_.size()) bins_.resize(k + 1);
  bins_[k].first = std::min(bins_[k].first, t);
  bins_[k].last = std::max(bins_[k].last, t);
}

std::vector<double> TimeBins::gaps(double gap) const {
  std::vector<double> middles;
  double last = 2e307;
  for (const Bin& bin : bins_) {
    if (bin.last < bin.first) continue;
    if (bin.first - last > gap) {
      LOG_LINE("gap dt=" << bin.first - last << " -> " << 0.5 * (bin.first + last));
      middles.push_back(0.5 * (bin.first + last));
    }
    last = bin.last;
  }
  return middles;
}

bool cut_swath_las_1(const CutPart& whole, const CutClock& from, const std::vector<double>& limits,
                     const CutParam& par, CutCount& count) {
  LOG_ENTER("cut_swath_las_1 ni=" << limits.size() + 1 << " '" << whole.name << "'");
  std::unique_ptr<LASreader> reader = las_read_open(whole.name, INPARSE, true);
  if (!reader) return false;
  const std::string ext = get_extension(whole.name);
  const std::string stem = whole.name.substr(0, whole.name.size() - ext.size());
  std::vector<CutPart> parts(limits.size() + 1);
  for (size_t k = 0; k < parts.size(); k++) {
    parts[k].number = static_cast<int>(k) + 1;
    parts[k].name = stem + "_x_" + std::to_string(parts[k].number) + ext;
    if (!open_part(reader->header, par, {whole.name}, parts[k])) return false;
  }
  CutClock clock = from;
  uint64_t nwritten = 0;
  bool ok = true;
  while (ok && reader->read_point()) {
    const double t = clock(reader->point.gps_time());
    const auto k = std::upper_bound(limits.begin(), limits.end(), t) - limits.begin();
    CutPart& part = parts[static_cast<size_t>(k)];
    ok = part.writer->write_point(reader->point);
    part.npt++;
    nwritten++;
  }
  const bool short_read = reader->failed() || nwritten < whole.npt;
  las_read_close(reader);
  if (!ok || short_read) {
    ERROR_MSG("missing " << whole.npt - std::min(nwritten, whole.npt) << " points after split, file "
                         << whole.name);
    return false;
  }
  for (CutPart& part : parts) ok = ok && las_write_close(part.writer, &part.nbytes);
  if (!ok) {
    for (const CutPart& part : parts)
      if (is_regular_file(part.name)) remove_file(part.name);
    ERROR_MSG("could not write file " << stem << "_x_");
    return false;
  }
  LOG_LINE("<!> delete " << whole.name);
  if (!remove_file(whole.name)) return false;
  LOG_LINE("Cut las (time gaps) " << whole.name << " nw=" << nwritten << " nc=" << parts.size());
  count.nrecut++;
  count.nextra += static_cast<int>(limits.size());
  return true;
}
}  // namespace veld
