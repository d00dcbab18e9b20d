// Directories, swaths, channels, class filter.
#include <algorithm>

#include "lib/general/log.h"
#include "lib/general/path.h"
#include "prj/LiDAR/inputs/inputs.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
bool add_group(FileList& list, const FileList& excl, const GroupArg& group, int number,
               const PathRules& rules) {
  bool ok = true;
  for (const std::string& arg : group.args)
    ok = (group.list ? add_swathgrouplist_lof(list, excl, arg, number, rules)
                     : add_swathgrouplist(list, excl, arg, number, rules)) &&
         ok;
  return ok;
}

// Files that are to be left out; a pattern that matches nothing is an error, as for inputs.
bool get_exclusions(const Options& o, const PathRules& rules, FileList& excl) {
  bool ok = true;
  for (const std::string& pattern : o.exclude)
    ok = update_file_list(excl, {}, pattern, 0, false, rules) && ok;
  for (const std::string& list : o.exclude_list)
    ok = update_file_list_lof(excl, {}, list, 0, false, rules, true) && ok;
  if (!ok) ERROR_MSG("missing or duplicate excluded files, cannot proceed");
  for (const std::string& file : excl.name) LOG_LINE("EXCL " << file);
  return ok;
}

// The directory with its "/"; tests that it can be used.
bool usable_dir(std::string& dir, bool writable, const char* kind) {
  dir = with_slash(dir.empty() ? "." : dir);
  if (writable ? dir_writable(dir) : dir_readable(dir)) return true;
  ERROR_MSG("not a valid " << kind << " directory, " << (writable ? "write" : "read")
                           << " permission required: " << dir);
  return false;
}
}  // namespace

bool add_swathgrouplist(FileList& list, const FileList& excl, const std::string& pattern, int group,
                        const PathRules& rules) {
  const bool ok = update_file_list(list, excl, pattern, group, true, rules);
  ASSERT(list.name.size() == list.idx.size());
  return ok;
}

bool add_swathgrouplist_lof(FileList& list, const FileList& excl, const std::string& file, int group,
                            const PathRules& rules) {
  return update_file_list_lof(list, excl, file, group, true, rules);
}

bool dir_check(std::string& odir_1, bool align2) {
  LOG_ENTER("dir_check odir='" << OUTDIR << "' align2=" << align2);
  bool ok = usable_dir(INDIR, false, "input");
  ok = usable_dir(OUTDIR, true, "output") && ok;
  ok = usable_dir(TMPDIR, true, "temporary") && ok;
  ok = usable_dir(GEODIR, false, "geoid") && ok;
  if (!align2) return ok;
  if (odir_1.empty()) {
    ERROR_MSG("not a valid output directory, write permission required: option -align2 needs -odir_1");
    return false;
  }
  if (!usable_dir(odir_1, true, "output") || !ok) return false;
  if (!dum_chk_dir_eq(OUTDIR, odir_1)) return true;
  ERROR_MSG("-odir and -odir_1 are the same directory: " << OUTDIR);
  return false;
}

bool get_swath_files(const InputArgs& in, const Options& o, Project& prj) {
  const auto nlists = [](const std::vector<GroupArg>& groups) {
    return std::count_if(groups.begin(), groups.end(), [](const GroupArg& g) { return g.list; });
  };
  const auto nmob_l = nlists(in.mobile), nref_l = nlists(in.fixed);
  LOG_ENTER("get_swath_files arge.size()="
            << o.exclude.size() << " arge_l.size()=" << o.exclude_list.size() << " largg.size()="
            << static_cast<int64_t>(in.mobile.size()) - nmob_l << " largg_l.size()=" << nmob_l
            << " largr.size()=" << static_cast<int64_t>(in.fixed.size()) - nref_l
            << " largr_l.size()=" << nref_l << " chgrp.size()=" << o.chgrp.size());
  FileList excl, list;
  const bool excl_ok = get_exclusions(o, in.rules, excl);
  bool ok = true;
  int group = 0;
  for (const GroupArg& g : in.mobile) ok = add_group(list, excl, g, ++group, in.rules) && ok;
  const size_t nmobile = list.size();
  for (const GroupArg& g : in.fixed) ok = add_group(list, excl, g, 0, in.rules) && ok;
  if (!ok) {
    ERROR_MSG("missing or duplicate input files, cannot proceed");
    return false;
  }
  if (!excl_ok) return false;
  if (list.size() == 0) {
    ERROR_MSG("input LiDAR files required");
    return false;
  }
  prj.nmgrp = static_cast<int>(in.mobile.size());
  prj.ngrp = prj.nmgrp + static_cast<int>(in.fixed.size());
  prj.swaths.clear();
  for (size_t i = 0; i < list.size(); i++) {
    Swath s;
    s.cache = CacheName(list.name[i]);
    s.group = list.idx[i];
    s.fixed = i >= nmobile;
    prj.swaths.add(s);
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
  for (Swath& s : prj.swaths) {
    s.channel = s.fixed ? 0 : prj.chgrp[static_cast<size_t>(s.group) - 1];
    LOG_LINE(">> S " << s.id << " g " << s.group << " ch " << s.channel << ' ' << (s.fixed ? "F " : "M ")
                     << s.path());
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
}  // namespace veld
