#include <algorithm>
#include <cmath>

#include "lib/general/log.h"
#include "lib/general/result_file.h"
#include "prj/LiDAR/LmTQCsep/separation.h"

namespace veld {
namespace {
constexpr size_t NBINS = 400;  // up to 2 m
}

void SepSum::add(float v) {
  if (count.empty()) count.assign(NBINS, 0);
  n++;
  sum += static_cast<double>(v);
  sum2 += static_cast<double>(v) * static_cast<double>(v);
  largest = std::max(largest, v);
  count[std::min(NBINS - 1, static_cast<size_t>(v / SEP_BIN))]++;
}

void SepSum::add(const SepSum& o) {
  if (o.n == 0) return;
  if (count.empty()) count.assign(NBINS, 0);
  n += o.n, sum += o.sum, sum2 += o.sum2;
  largest = std::max(largest, o.largest);
  for (size_t i = 0; i < NBINS; i++) count[i] += o.count[i];
}

double SepSum::rms() const { return n > 0 ? std::sqrt(sum2 / static_cast<double>(n)) : 0; }

double SepSum::percentile(double fraction) const {
  uint64_t below = 0;
  for (size_t i = 0; i + 1 < count.size(); i++)
    if (static_cast<double>(below += count[i]) >= fraction * static_cast<double>(n))
      return static_cast<double>(SEP_BIN) * static_cast<double>(i + 1);
  return static_cast<double>(largest);
}

double SepSum::beyond(float limit) const {
  if (n == 0) return 0;
  uint64_t above = 0;
  for (auto i = static_cast<size_t>(std::lround(limit / SEP_BIN)); i < count.size(); i++) above += count[i];
  return static_cast<double>(above) / static_cast<double>(n);
}

bool write_sep_log(const std::string& name, const SeparationResult& r, int level) {
  const SeparationLimits& q = QUALITY_LEVELS[static_cast<size_t>(level)];
  const auto columns = [&](const SepSum& s) {
    return LOG_STR(s.rms() << ' ' << s.largest << ' ' << s.percentile(0.95) << ' '
                           << 100 * s.beyond(q.largest / 2) << ' ' << 100 * s.beyond(q.largest) << ' '
                           << static_cast<double>(s.n) * r.cell * r.cell << '\n');
  };
  ResultFile out;
  if (!out.open(name)) return false;
  out.fs << "Swath#1 Swath#2 RMSDz Max P95 Beyond1% Beyond2% Area:m2\n";
  for (const auto& [pair, sum] : r.pairs) out.fs << pair.first << ' ' << pair.second << ' ' << columns(sum);
  out.fs << "\nNPairs RMSDz Max P95 Beyond1% Beyond2% Area:m2\n" << r.pairs.size() << ' ' << columns(r.all);
  if (!r.precision.empty()) {
    out.fs << "\nSwath# Precision{Mean P95 Max} NCells\n";
    for (const auto& [sw, s] : r.precision)
      if (s.n > 0)
        out.fs << sw << ' ' << LOG_STR(s.mean() << ' ' << s.percentile(0.95) << ' ' << s.largest) << ' '
               << s.n << '\n';
  }
  out.fs << "\nQualityLevel PrecisionMax RMSDzMax DzMax\n";
  for (size_t i = 0; i < QUALITY_LEVELS.size(); i++)
    out.fs << i << ' '
           << LOG_STR(QUALITY_LEVELS[i].precision << ' ' << QUALITY_LEVELS[i].rms << ' '
                                                  << QUALITY_LEVELS[i].largest)
           << '\n';
  return out.commit();
}
}  // namespace veld
