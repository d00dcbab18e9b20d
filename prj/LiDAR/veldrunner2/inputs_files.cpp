// Directories, swaths, channels, class filter.
#include <algorithm>
#include <climits>

#include "lib/general/log.h"
#include "lib/general/path.h"
#include "lib/general/txtfile.h"
#include "prj/LiDAR/tuning.h"
#include "prj/LiDAR/veldrunner2/inputs.h"

namespace {
bool add_group(std::vector<std::string>& listS, std::vector<int>& listG, const std::vector<std::string>& excl,
               const GroupArg& group, int number, const InputDirs& dirs) {
  bool ok = true;
  for (const std::string& arg : group.args)
    ok = (group.list ? add_swathgrouplist_lof(listS, listG, arg, number, dirs)
                     : add_swathgrouplist(listS, listG, excl, arg, number, dirs)) &&
         ok;
  return ok;
}

// Files that are to be left out; a pattern that matches nothing is an error, as for inputs.
bool get_exclusions(const Options& o, const InputDirs& dirs, std::vector<std::string>& excl) {
  std::vector<int> groups;
  bool ok = true;
  for (const std::string& pattern : o.exclude)
    ok = update_file_list(excl, groups, {}, pattern, 0, false, false, dirs) && ok;
  for (const std::string& list : o.exclude_list)
    ok = add_swathgrouplist_lof(excl, groups, list, 0, dirs) && ok;
  if (!ok) ERROR_MSG("missing or duplicate excluded files, cannot proceed");
  for (const std::string& file : excl) LOG_LINE("EXCL " << file);
  return ok;
}

bool usable_dir(std::string& dir, bool writable, const char* kind) {
  dir = with_slash(dir.empty() ? "." : dir);
  if (is_directory(dir) && (!writable || directory_writable(dir))) return true;
  ERROR_MSG("not a valid " << kind << " directory, " << (writable ? "write" : "read")
                           << " permission required: " << dir);
  return false;
}
}  // namespace

bool add_swathgrouplist(std::vector<std::string>& listS, std::vector<int>& listG,
                        const std::vector<std::string>& excl, const std::string& pattern, int group,
                        const InputDirs& dirs) {
  const bool ok = update_file_list(listS, listG, excl, pattern, group, false, true, dirs);
  ASSERT(listS.size() == listG.size());
  return ok;
}

bool add_swathgrouplist_lof(std::vector<std::string>& listS, std::vector<int>& listG, const std::string& file,
                            int group, const InputDirs& dirs) {
  const std::string path = resolve_input(file, dirs);
  if (!is_regular_file(path)) {
    ERROR_MSG("could not find list of files " << path);
    return false;
  }
  TxtFileIn in(path, true);
  if (!in.is_open()) return false;
  std::string line;
  int n = 0;
  while (in.getline(line)) {
    const size_t first = line.find_first_not_of(" \t"), last = line.find_last_not_of(" \t");
    if (first == std::string::npos) continue;
    const std::string name = resolve_input(line.substr(first, last - first + 1), dirs);
    if (!is_regular_file(name)) {
      ERROR_MSG("could not find file " << name);
      return false;
    }
    if (in_list(listS, name)) {
      ERROR_MSG("duplicate file " << name);
      return false;
    }
    listS.push_back(name);
    listG.push_back(group);
    n++;
  }
  if (n == 0) ERROR_MSG("no file found in list of files " << path);
  return n > 0;
}

bool dir_check(std::string& odir_1, bool align2) {
  LOG_ENTER("dir_check odir='" << OUTDIR << "' align2=" << align2);
  bool ok = usable_dir(INDIR, false, "input");
  ok = usable_dir(OUTDIR, true, "output") && ok;
  ok = usable_dir(TMPDIR, true, "temporary") && ok;
  ok = usable_dir(GEODIR, false, "geoid") && ok;
  if (align2) ok = usable_dir(odir_1, true, "output") && ok;
  return ok;
}

bool get_swath_files(const InputArgs& in, const Options& o, Project& prj) {
  LOG_ENTER("get_swath_files arge.size()=" << o.exclude.size() << " arge_l.size()=" << o.exclude_list.size()
                                           << " largg.size()=" << in.mobile.size() << " largr.size()="
                                           << in.fixed.size() << " chgrp.size()=" << o.chgrp.size());
  std::vector<std::string> excl, swaths;
  std::vector<int> grpS;
  if (!get_exclusions(o, in.dirs, excl)) return false;
  bool ok = true;
  int group = 0;
  for (const GroupArg& g : in.mobile) ok = add_group(swaths, grpS, excl, g, ++group, in.dirs) && ok;
  const size_t nmobile = swaths.size();
  for (const GroupArg& g : in.fixed) ok = add_group(swaths, grpS, excl, g, 0, in.dirs) && ok;
  if (!ok) {
    ERROR_MSG("missing or duplicate input files, cannot proceed");
    return false;
  }
  if (swaths.empty()) {
    ERROR_MSG("input LiDAR files required");
    return false;
  }
  ASSERT(swaths.size() == grpS.size());
  prj.nmgrp = static_cast<int>(in.mobile.size());
  prj.ngrp = prj.nmgrp + static_cast<int>(in.fixed.size());
  prj.swaths.assign(swaths.size(), Swath());
  for (size_t i = 0; i < swaths.size(); i++) {
    Swath& s = prj.swaths[i];
    s.path = swaths[i];
    s.group = grpS[i];
    s.fixed = i >= nmobile;
    s.mainch = static_cast<int>(i);
  }
  return true;
}

bool chk_ch_grp(const Options& o, Project& prj) {
  const std::vector<int>& ch = o.chgrp;
  LOG_ENTER("chk_ch_grp ngrp=" << prj.nmgrp << " ngrpch=" << ch.size());
  prj.chgrp.assign(static_cast<size_t>(prj.nmgrp), 0);
  if (!ch.empty()) {
    if (static_cast<int>(ch.size()) != prj.nmgrp) {
      ERROR_MSG(ch.size() << " channel numbers provided, expected " << prj.nmgrp << " (1 per mobile group)");
      return false;
    }
    if (std::find(ch.begin(), ch.end(), 0) == ch.end()) {
      ERROR_MSG("channel 0 (first channel) is missing from option -chgrp");
      return false;
    }
    if (ch[0] != 0) {
      ERROR_MSG("syntax error in option -chgrp, group 0 must be 0");
      return false;
    }
    for (size_t g = 1; g < ch.size(); g++)
      if (ch[g] != 0 && ch[g] != ch[g - 1] + 1) {
        ERROR_MSG("syntax error in option -chgrp, check groups " << g - 1 << "," << g);
        return false;
      }
    prj.chgrp = ch;
  }
  for (size_t i = 0; i < prj.swaths.size(); i++) {
    Swath& s = prj.swaths[i];
    s.channel = s.fixed ? 0 : prj.chgrp[static_cast<size_t>(s.group) - 1];
    LOG_LINE(">> S " << i << " g " << s.group << " ch " << s.channel << ' ' << (s.fixed ? "F " : "M ")
                     << s.path);
  }
  return true;
}

bool xclsf2xcls(const Options& o, std::vector<uint8_t>& xcls) {
  xcls.clear();
  if (!o.drop_class.empty() && !o.keep_class.empty()) {
    ERROR_MSG("options -keep_class and -drop_class are exclusive");
    return false;
  }
  std::vector<bool> drop(256, !o.keep_class.empty());
  for (const int c : o.drop_class) drop[static_cast<size_t>(c & 255)] = true;
  for (const int c : o.keep_class) drop[static_cast<size_t>(c & 255)] = false;
  for (size_t c = 0; c < drop.size(); c++)
    if (drop[c]) xcls.push_back(static_cast<uint8_t>(c));
  return true;
}

void set_xcls_gnd(const Options& o, std::vector<uint8_t>& xcls) {
  if (o.ground_class == 0) return;
  if (!o.drop_class.empty() || !o.keep_class.empty()) {
    WARNING_MSG("option -keep_class or -drop_class overrides option -ground_filter");
    return;
  }
  xcls = {3, 4, 5, 7, 18};
}
