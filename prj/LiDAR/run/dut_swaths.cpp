#include "prj/LiDAR/run/dut_swaths.h"

#include <algorithm>

#include "lib/general/log.h"
#include "lib/general/path.h"
#include "prj/LiDAR/DUTio/DUTio.h"

namespace veld {
namespace {
// The swath of the index that a file is: the same file, else the only one of its name.
int find_in_index(const DUTidx& idx, const Swath& swath) {
  int found = -1, nfound = 0;
  for (int i = 0; i < idx.nsw(); i++) {
    const DUTswath& d = idx.swaths[static_cast<size_t>(i)];
    if (d.fixed != swath.fixed) continue;
    if (same_file(d.path, swath.path())) return i;
    if (base_name(d.path) != base_name(swath.path())) continue;
    found = i;
    nfound++;
  }
  return nfound == 1 ? found : -1;
}

// Marks in at, by swath of the index, the project's swath that it is; -1 for those that are missing.
bool match_swaths(const std::string& dut, const DUTidx& idx, const Project& prj, std::vector<int>& at) {
  at.assign(idx.swaths.size(), -1);
  for (size_t s = 0; s < prj.swaths.size(); s++) {
    const int i = find_in_index(idx, prj.swaths[s]);
    if (i >= 0 && at[static_cast<size_t>(i)] < 0) {
      at[static_cast<size_t>(i)] = static_cast<int>(s);
      continue;
    }
    ERROR_MSG("swath " << prj.swaths[s].path() << " is not in displacement file " << dut << ".dut");
    return false;
  }
  return true;
}
}  // namespace

bool complete_DUT_swaths(const std::string& dut, Project& prj) {
  LOG_ENTER("complete_DUT_swaths nsw=" << prj.swaths.size() << " dut='" << dut << "'");
  DUTidx idx;
  if (!read_DUT_IDX(dut, idx)) return false;
  if (prj.swaths.size() >= idx.swaths.size()) return true;
  std::vector<int> at;
  if (!match_swaths(dut, idx, prj, at)) return false;
  std::vector<Swath> swaths(idx.swaths.size());
  for (size_t i = 0; i < swaths.size(); i++) {
    Swath& s = swaths[i];
    const DUTswath& d = idx.swaths[i];
    s.corr = at[i] >= 0;
    s.cache = s.corr ? prj.swaths[static_cast<size_t>(at[i])].cache : CacheName(d.path);
    s.group = d.fixed ? 0 : d.group;
    s.channel = d.ch;
    s.fixed = d.fixed;
    s.mainch = static_cast<int>(i);
    prj.nmgrp = std::max(prj.nmgrp, s.group);
    if (is_regular_file(s.path())) continue;
    ERROR_MSG("missing swath " << s.path() << " of displacement file " << dut << ".dut");
    return false;
  }
  LOG_MSG("Correcting " << std::count_if(prj.swaths.begin(), prj.swaths.end(),
                                         [](const Swath& s) { return !s.fixed; })
                        << " swaths with the displacements of all " << swaths.size());
  prj.ngrp += prj.nmgrp - static_cast<int>(prj.chgrp.size());
  prj.chgrp.assign(static_cast<size_t>(prj.nmgrp), 0);
  for (const Swath& s : swaths)
    if (!s.fixed) prj.chgrp[static_cast<size_t>(s.group) - 1] = s.channel;
  prj.swaths.swap(swaths);
  return true;
}
}  // namespace veld
