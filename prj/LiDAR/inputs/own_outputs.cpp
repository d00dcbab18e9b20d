#include "prj/LiDAR/inputs/own_outputs.h"

#include <vector>

#include "las/las_access.h"
#include "las/las_identity.h"
#include "lib/general/log.h"
#include "lib/general/path.h"
#include "prj/LiDAR/VR2proc/undo_file.h"

namespace veld {
namespace {
std::string stem_of(const Swath& s) { return change_extension(base_name(s.path()), ""); }

bool extends(const std::string& name, const std::string& of) {
  return name.size() > of.size() && name.find(of) != std::string::npos;
}

// The header of `made` says that this program wrote it, from as many points as `source` has.
bool made_from(const Swath& made, const Swath& source) {
  const std::unique_ptr<LASreader> a = las_read_open(made.path(), "xyzt", false);
  if (!a || !las_is_processed(a->header)) return false;
  const std::unique_ptr<LASreader> b = las_read_open(source.path(), "xyzt", false);
  return b && !las_is_processed(b->header) && a->header.npoints == b->header.npoints;
}

bool is_own_output(const OutputName& out, const std::string& odir, const Project& prj, const Swath& made) {
  for (const Swath& source : prj.swaths) {
    if (source.id == made.id || source.fixed || !extends(stem_of(made), stem_of(source))) continue;
    int ndup = 0;
    const std::string name = comp_output_names(out, odir, prj, {source.id}, ndup)[0];
    if (same_file(name, made.path()) || made_from(made, source)) return true;
  }
  return false;
}
}  // namespace

bool leave_out_undo_data(Project& prj) {
  SwathTable kept;
  for (Swath s : prj.swaths) {
    if (is_undo_name(s.path())) continue;
    s.mainch = SwathId();
    kept.add(s);
  }
  if (kept.size() < prj.swaths.size())
    LOG_LINE("left out undo data, " << prj.swaths.size() - kept.size() << " files");
  prj.swaths = kept;
  if (!kept.empty()) return true;
  ERROR_MSG("input LiDAR files required, the input files are undo data");
  return false;
}

void leave_out_uncorrected(Project& prj) {
  SwathTable kept;
  std::string names;
  for (Swath s : prj.swaths) {
    const bool undoable = s.fixed || is_regular_file(undo_name(s.path()));
    const std::unique_ptr<LASreader> file = undoable ? nullptr : las_read_open(s.path(), "xyzt", false);
    if (file && !las_is_processed(file->header)) {
      names += " " + s.path();
      continue;
    }
    s.mainch = SwathId();
    kept.add(s);
  }
  if (kept.empty() || names.empty()) return;
  LOG_MSG(prj.swaths.size() - kept.size() << " files were not corrected, left out:" << names);
  prj.swaths = kept;
}

void leave_out_own_outputs(const OutputName& out, const std::string& odir, Project& prj) {
  SwathTable kept;
  std::string names;
  for (Swath s : prj.swaths) {
    if (!s.fixed && is_own_output(out, odir, prj, s)) {
      names += " " + s.path();
      continue;
    }
    s.mainch = SwathId();
    kept.add(s);
  }
  const int n = prj.swaths.size() - kept.size();
  if (n == 0) return;
  prj.swaths = kept;
  LOG_MSG(n << " corrected files of an earlier run are no input, left out:" << names);
}
}  // namespace veld
