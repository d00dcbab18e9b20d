#include "prj/LiDAR/run/dut_swaths.h"

#include <algorithm>

#include "lib/general/log.h"
#include "lib/general/path.h"
#include "prj/LiDAR/DUTio/DUTio.h"

namespace veld {
namespace {
// The line of the index that a row is: that of the same file, else the only one of its name.
int find_in_index(const DUTidx& idx, const SwathTable& swaths, SwathId id) {
  int found = -1, nfound = 0;
  for (int i = 0; i < idx.nsw(); i++) {
    const DUTswath& line = idx.swaths[static_cast<size_t>(i)];
    if ((line.present() && line.fixed != swaths[id].fixed) || !is_row(line, swaths, id)) continue;
    if (same_file(line.path, swaths[id].path())) return i;
    found = i;
    nfound++;
  }
  return nfound == 1 ? found : -1;
}

// The row of the project at each line of the index; none for those that it lacks.
bool match_swaths(const std::string& dut, const DUTidx& idx, const SwathTable& swaths,
                  std::vector<SwathId>& at) {
  at.assign(idx.swaths.size(), SwathId());
  for (const Swath& s : swaths) {
    const int i = find_in_index(idx, swaths, s.id);
    if (i >= 0 && at[static_cast<size_t>(i)] == SwathId()) {
      at[static_cast<size_t>(i)] = s.id;
      continue;
    }
    ERROR_MSG("swath " << s.path() << " is not in displacement file " << dut << ".dut");
    return false;
  }
  return true;
}

// The row of a line that the project lacks. False after an ERROR line.
bool missing_row(const std::string& dut, const DUTswath& line, Swath& s) {
  s.corr = false;
  s.cache = CacheName(line.path);
  s.group = line.fixed ? 0 : line.group;
  s.channel = line.ch;
  s.fixed = line.fixed;
  if (!line.present()) {
    s.state = SwathState::absent;
    s.reason = "not used by the registration";
    return true;
  }
  if (is_regular_file(s.path())) return true;
  ERROR_MSG("missing swath " << s.path() << " of displacement file " << dut << ".dut");
  return false;
}

// The groups are those of the displacement file, whatever the project has of them. lines: by row.
void take_groups(const std::vector<const DUTswath*>& lines, Project& prj) {
  for (Swath& s : prj.swaths) {
    const DUTswath& line = *lines[static_cast<size_t>(s.id.number)];
    if (!line.present() || line.fixed) continue;
    s.group = line.group;
    s.channel = line.ch;
    prj.nmgrp = std::max(prj.nmgrp, s.group);
  }
  prj.ngrp += prj.nmgrp - static_cast<int>(prj.chgrp.size());
  prj.chgrp.assign(static_cast<size_t>(prj.nmgrp), 0);
  for (const Swath& s : prj.swaths)
    if (s.mobile()) prj.chgrp[static_cast<size_t>(s.group) - 1] = s.channel;
}
}  // namespace

bool is_union_line(const DUTswath& line) { return line.path.ends_with(" input reference swaths)"); }

bool complete_DUT_swaths(const std::string& dut, Project& prj) {
  LOG_ENTER("complete_DUT_swaths nsw=" << prj.swaths.size() << " dut='" << dut << "'");
  DUTidx idx;
  std::vector<SwathId> at;
  if (!read_DUT_IDX(dut, idx) || !match_swaths(dut, idx, prj.swaths, at)) return false;
  SwathTable swaths;
  std::vector<const DUTswath*> lines;  // by row
  int nmissing = 0;
  for (size_t i = 0; i < at.size(); i++) {
    const DUTswath& line = idx.swaths[i];
    if (is_union_line(line)) continue;
    Swath s;
    if (at[i] != SwathId())
      s = prj.swaths[at[i]];
    else if (!missing_row(dut, line, s))
      return false;
    nmissing += at[i] == SwathId() && s.present();
    s.mainch = SwathId();
    lines.push_back(&line);
    swaths.add(s);
  }
  if (nmissing > 0)
    LOG_MSG("Correcting " << std::ranges::count_if(prj.swaths, &Swath::mobile)
                          << " swaths with the displacements of all "
                          << std::ranges::count_if(idx.swaths, &DUTswath::present));
  prj.swaths = swaths;
  if (nmissing > 0) take_groups(lines, prj);
  return true;
}
}  // namespace veld
