#include "prj/LiDAR/run/verdict.h"

#include <algorithm>
#include <map>
#include <set>

#include "lib/general/log.h"
#include "lib/general/path.h"
#include "prj/LiDAR/check/geometry_check.h"

namespace veld {
namespace {
constexpr double FEW = 0.25;  // share of the overlap below which figures stand for little

// Why a swath that was given has no corrected file, or was not used; empty when nothing is missing.
std::string missing_reason(const Swath& s, bool corrects, bool files) {
  if (!s.present() || (corrects && s.state != SwathState::used)) return s.reason;
  return files && s.corrected.empty() ? "its correction failed" : "";
}

// Reasons with the swaths that share them.
std::string missing_text(const SwathTable& swaths, const std::vector<SwathId>& missing, bool corrects,
                         bool files) {
  std::map<std::string, std::vector<std::string>> by_reason;
  for (const SwathId id : missing)
    by_reason[missing_reason(swaths[id], corrects, files)].push_back(swaths[id].path());
  std::string text;
  for (const auto& [reason, names] : by_reason)
    text += (text.empty() ? "" : "; ") + list_text(names) + ": " + reason;
  return text;
}

// Files of an earlier run under the names that these swaths would have had.
void warn_stale(const Project& prj, const std::vector<SwathId>& missing, const CorrParam& par) {
  int ndup = 0;
  std::vector<std::string> old;
  for (const std::string& name : comp_output_names(par.out, par.odir, prj, missing, ndup))
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
  if (qc.worst1 != SwathId())
    LOG_MSG("Worst pair: " << prj.swaths.name(qc.worst1) << " and " << prj.swaths.name(qc.worst2) << ", RMS "
                           << qc.worst_rms << " m");
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
  for (const Swath& s : prj.swaths.present())
    if (s.fixed)
      v.nref++;
    else if (s.corr)
      v.given.push_back(s.id);
  return v;
}

void show_verdict(const Project& prj, const CorrResult& corrected, bool corrects, const CorrParam& par,
                  Verdict& verdict) {
  LOG_ENTER("show_verdict ngiven=" << verdict.given.size());
  const bool files = corrects && !par.nil;
  std::vector<SwathId> missing;
  for (const SwathId id : verdict.given)
    if (!missing_reason(prj.swaths[id], corrects, files).empty()) missing.push_back(id);
  const size_t nused = verdict.given.size() - missing.size();
  const std::string written = files ? LOG_STR(", " << nused << " written to " << par.odir) : std::string();
  const std::string references =
      verdict.nref > 0 ? LOG_STR(", " << verdict.nref << " reference files") : std::string();
  LOG_MSG("SUMMARY");
  LOG_MSG("Swaths: " << verdict.given.size() << " given, " << nused << (corrects ? " corrected" : " used")
                     << written << references);
  if (!missing.empty()) {
    const bool copies = corrected.copied.size() == missing.size();
    WARNING_MSG((copies  ? "corrected "
                 : files ? "written "
                         : "used ")
                << nused << " of " << verdict.given.size() << " swaths, "
                << (copies ? "copied as they are " : "missing ")
                << missing_text(prj.swaths, missing, corrects, files));
    std::erase_if(missing, [&](SwathId id) { return std::ranges::count(corrected.copied, id) > 0; });
    if (files) warn_stale(prj, missing, par);
    verdict.complete = false;
  }
  if (!corrects) return;
  show_difference(prj, corrected.qc, verdict);
  for (const std::string& line : corrected.inv.summary) LOG_MSG(line);
}

void show_absolute(const Project& prj, const ControlQC& before, const ControlQC& after,
                   const std::string& report) {
  const auto heights = [](const char* kind, const GCPstat& a, const GCPstat& b) {
    if (b.n > 0)
      LOG_MSG(kind << " points, RMS of height differences: " << a.rms << " m before, " << b.rms
                   << " m after, " << b.npoint << " points");
  };
  heights("Control", before.gcp.control, after.gcp.control);
  heights("Check", before.gcp.check, after.gcp.check);
  const auto nswath = std::ranges::count_if(prj.swaths, [](const Swath& s) {
    return s.state == SwathState::untiled || s.state == SwathState::no_track || s.state == SwathState::beside;
  });
  std::set<int> points;
  for (const GCPoccur& o : after.gcp.occ)
    if (!o.in) points.insert(o.gcp);
  LOG_MSG("Rejected: " << nswath << " swaths, " << points.size() << " control or check points");
  if (!report.empty()) LOG_MSG("Report: " << report);
}
}  // namespace veld
