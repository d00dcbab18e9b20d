#include "prj/LiDAR/run/verdict.h"

#include <algorithm>
#include <map>

#include "lib/general/log.h"
#include "lib/general/path.h"
#include "prj/LiDAR/check/geometry_check.h"

namespace veld {
namespace {
constexpr double FEW = 0.25;  // share of the overlap below which figures stand for little

// Why a swath of the command line has no corrected file; by path.
using Reasons = std::map<std::string, std::string>;

Reasons find_missing(const Project& prj, const ScanResult& scanned, const CorrResult& corrected, bool files) {
  Reasons why;
  for (const SwathReason& r : scanned.rejected) why[r.path] = r.reason;
  for (size_t i = 0; i < prj.swaths.size(); i++) {
    const Swath& s = prj.swaths[i];
    if (s.fixed || !s.corr) continue;
    const bool left = i < corrected.reason.size() && !corrected.reason[i].empty();
    if (left)
      why[s.path()] = corrected.reason[i];
    else if (files && i < corrected.files.size() && corrected.files[i].empty())
      why[s.path()] = "its correction failed";
  }
  return why;
}

// Reasons with the swaths that share them.
std::string missing_text(const std::vector<std::string>& given, const Reasons& why) {
  std::map<std::string, std::vector<std::string>> by_reason;
  for (const std::string& path : given)
    if (const auto r = why.find(path); r != why.end()) by_reason[r->second].push_back(path);
  std::string text;
  for (const auto& [reason, names] : by_reason)
    text += (text.empty() ? "" : "; ") + list_text(names) + ": " + reason;
  return text;
}

// Files of an earlier run under the names that these swaths would have had.
void warn_stale(const Project& prj, const std::vector<std::string>& given, const Reasons& why,
                const CorrParam& par) {
  Project part = prj;
  part.swaths.clear();
  for (const std::string& path : given)
    if (why.count(path)) {
      part.swaths.emplace_back();
      part.swaths.back().cache = CacheName(path);
    }
  std::vector<int> all;
  for (size_t i = 0; i < part.swaths.size(); i++) all.push_back(static_cast<int>(i));
  int ndup = 0;
  std::vector<std::string> old;
  for (const std::string& name : comp_output_names(par.out, par.odir, part, all, ndup))
    if (is_regular_file(name)) old.push_back(name);
  if (!old.empty())
    WARNING_MSG("files of an earlier run are still there, this one has not written them: " << list_text(old));
}

void show_difference(const Project& prj, const QCcorrResult& qc, Verdict& verdict) {
  if (qc.nused == 0) return;
  const double share = qc.npixel > 0 ? qc.ncompared / qc.npixel : 0;
  const int percent = static_cast<int>(100 * share + 0.5);
  const std::string where = LOG_STR("on " << percent << " % of the overlap of " << qc.nused << " pairs");
  LOG_MSG("Height differences between swaths, RMS: " << qc.rms0 << " m before, " << qc.rms << " m after, "
                                                     << where);
  const auto name = [&](int sw) { return swath_name(prj.swaths[static_cast<size_t>(sw)]); };
  if (qc.worst1 >= 0)
    LOG_MSG("Worst pair: " << name(qc.worst1) << " and " << name(qc.worst2) << ", RMS " << qc.worst_rms
                           << " m");
  if (share < FEW) {
    WARNING_MSG("before and after are known " << where << " only: water, vegetation or narrow overlaps?");
    verdict.complete = false;
  }
  if (qc.rms > qc.rms0) {
    WARNING_MSG("height differences have grown from " << qc.rms0 << " to " << qc.rms << " m");
    verdict.complete = false;
  }
}
}  // namespace

Verdict begin_verdict(const Project& prj) {
  Verdict v;
  for (const Swath& s : prj.swaths)
    if (s.fixed)
      v.nref++;
    else if (s.corr)
      v.given.push_back(s.path());
  return v;
}

void show_verdict(const Project& prj, const ScanResult& scanned, const CorrResult& corrected, bool corrects,
                  const CorrParam& par, Verdict& verdict) {
  LOG_ENTER("show_verdict ngiven=" << verdict.given.size());
  const bool files = corrects && !par.nil;
  const Reasons why = find_missing(prj, scanned, corrected, files);
  size_t nmissing = 0;
  for (const std::string& path : verdict.given) nmissing += why.count(path);
  const size_t nused = verdict.given.size() - nmissing;
  const std::string written = files ? LOG_STR(", " << nused << " written to " << par.odir) : std::string();
  const std::string references =
      verdict.nref > 0 ? LOG_STR(", " << verdict.nref << " reference files") : std::string();
  LOG_MSG("SUMMARY");
  LOG_MSG("Swaths: " << verdict.given.size() << " given, " << nused << (corrects ? " corrected" : " used")
                     << written << references);
  if (nmissing > 0) {
    WARNING_MSG((files ? "written " : "used ") << nused << " of " << verdict.given.size()
                                               << " swaths, missing " << missing_text(verdict.given, why));
    if (files) warn_stale(prj, verdict.given, why, par);
    verdict.complete = false;
  }
  if (!corrects) return;
  show_difference(prj, corrected.qc, verdict);
  for (const std::string& line : corrected.found) LOG_MSG(line);
}
}  // namespace veld
