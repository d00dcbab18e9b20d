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

struct SwathMatch {       // of an index and a project
  std::vector<int> at;    // by line: the project's swath, -1 for none
  std::vector<int> rest;  // the project's swaths that no line is of
  int nmissing = 0;       // lines without a swath
};

SwathMatch match_swaths(const DUTidx& idx, const Project& prj) {
  SwathMatch m;
  m.at.assign(idx.swaths.size(), -1);
  for (size_t s = 0; s < prj.swaths.size(); s++) {
    const int i = find_in_index(idx, prj.swaths[s]);
    if (i >= 0 && m.at[static_cast<size_t>(i)] < 0)
      m.at[static_cast<size_t>(i)] = static_cast<int>(s);
    else
      m.rest.push_back(static_cast<int>(s));
  }
  for (size_t i = 0; i < m.at.size(); i++) m.nmissing += m.at[i] < 0 && !is_union_line(idx.swaths[i]);
  return m;
}

// The swath of a line that the project lacks. False after an ERROR line.
bool missing_swath(const std::string& dut, const DUTswath& line, Swath& s) {
  s.corr = false;
  s.cache = CacheName(line.path);
  s.fixed = line.fixed;
  if (is_regular_file(s.path())) return true;
  ERROR_MSG("missing swath " << s.path() << " of displacement file " << dut << ".dut");
  return false;
}

// The groups are those of the displacement file, whatever the project has of them.
void take_groups(const DUTidx& idx, const std::vector<size_t>& line_of, Project& prj) {
  for (size_t i = 0; i < line_of.size(); i++) {
    const DUTswath& line = idx.swaths[line_of[i]];
    prj.swaths[i].group = line.fixed ? 0 : line.group;
    prj.swaths[i].channel = line.ch;
    prj.nmgrp = std::max(prj.nmgrp, prj.swaths[i].group);
  }
  prj.ngrp += prj.nmgrp - static_cast<int>(prj.chgrp.size());
  prj.chgrp.assign(static_cast<size_t>(prj.nmgrp), 0);
  for (const Swath& s : prj.swaths)
    if (!s.fixed) prj.chgrp[static_cast<size_t>(s.group) - 1] = s.channel;
}
}  // namespace

bool is_union_line(const DUTswath& line) { return line.path.ends_with(" input reference swaths)"); }

bool complete_DUT_swaths(const std::string& dut, Project& prj) {
  LOG_ENTER("complete_DUT_swaths nsw=" << prj.swaths.size() << " dut='" << dut << "'");
  DUTidx idx;
  if (!read_DUT_IDX(dut, idx)) return false;
  const SwathMatch m = match_swaths(idx, prj);
  std::vector<Swath> swaths;
  std::vector<size_t> line_of;
  for (size_t i = 0; i < m.at.size(); i++) {
    if (m.at[i] < 0 && is_union_line(idx.swaths[i])) continue;
    Swath s;
    if (m.at[i] >= 0)
      s = prj.swaths[static_cast<size_t>(m.at[i])];
    else if (!missing_swath(dut, idx.swaths[i], s))
      return false;
    line_of.push_back(i);
    swaths.push_back(s);
  }
  // References of a union, and what the tiling will reject as it did before; anything else is found to be another
  // project when the swaths are compared with the index.
  for (const int s : m.rest) {
    const Swath& rest = prj.swaths[static_cast<size_t>(s)];
    if (m.nmissing > 0 && !rest.fixed) {
      ERROR_MSG("swath " << rest.path() << " is not in displacement file " << dut << ".dut");
      return false;
    }
    const auto end = std::find_if(swaths.begin(), swaths.end(), [](const Swath& w) { return w.fixed; });
    swaths.insert(rest.fixed ? swaths.end() : end, rest);
  }
  if (m.nmissing > 0)
    LOG_MSG("Correcting " << std::count_if(prj.swaths.begin(), prj.swaths.end(),
                                           [](const Swath& s) { return !s.fixed; })
                          << " swaths with the displacements of all " << idx.swaths.size());
  prj.swaths.swap(swaths);
  for (size_t i = 0; i < prj.swaths.size(); i++) prj.swaths[i].mainch = static_cast<int>(i);
  if (m.nmissing > 0) take_groups(idx, line_of, prj);
  return true;
}
}  // namespace veld
