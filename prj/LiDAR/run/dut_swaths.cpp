#include "prj/LiDAR/run/dut_swaths.h"

#include <algorithm>

#include "lib/general/log.h"
#include "lib/general/path.h"
#include "prj/LiDAR/DUTio/DUTio.h"

namespace veld {
namespace {
// The line of the index that a row is: that of the same file, else the only one of its name.
SwathId find_in_index(const DUTidx& idx, const SwathTable& swaths, SwathId id) {
  SwathId found;
  int nfound = 0;
  for (const SwathId at : idx.swaths.ids()) {
    const DUTswath& line = idx.swaths[at];
    if ((line.present() && line.fixed != swaths[id].fixed) || !is_row(line, swaths, id)) continue;
    if (same_file(line.path, swaths[id].path())) return at;
    found = at;
    nfound++;
  }
  return nfound == 1 ? found : SwathId();
}

// The row of the project at each line of the index; none for those that it lacks.
bool match_swaths(const std::string& dut, const DUTidx& idx, const SwathTable& swaths,
                  SwathVector<SwathId>& at) {
  at = SwathVector<SwathId>(idx.swaths);
  for (const Swath& s : swaths) {
    const SwathId line = find_in_index(idx, swaths, s.id);
    if (line != SwathId() && at[line] == SwathId()) {
      at[line] = s.id;
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

// The groups are those of the displacement file, whatever the project has of them.
void take_groups(const DUTidx& idx, Project& prj) {
  for (Swath& s : prj.swaths) {
    const DUTswath& line = idx.swaths[s.id];
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
  SwathVector<SwathId> at;
  if (!read_DUT_IDX(dut, idx) || !match_swaths(dut, idx, prj.swaths, at)) return false;
  if (std::ranges::any_of(idx.swaths, is_union_line) && std::ranges::none_of(prj.swaths, &Swath::fixed)) {
    ERROR_MSG("displacement file " << dut << ".dut has united references: give them, too (-ref)");
    return false;
  }
  SwathTable swaths;
  int nmissing = 0;
  for (const SwathId id : idx.swaths.ids()) {
    if (is_union_line(idx.swaths[id])) break;  // unions stand behind all others
    Swath s;
    if (at[id] != SwathId())
      s = prj.swaths[at[id]];
    else if (!missing_row(dut, idx.swaths[id], s))
      return false;
    nmissing += at[id] == SwathId() && s.present();
    s.mainch = SwathId();
    swaths.add(s);
  }
  if (nmissing > 0)
    LOG_MSG("Correcting " << std::ranges::count_if(prj.swaths, &Swath::mobile)
                          << " swaths with the displacements of all "
                          << std::ranges::count_if(idx.swaths, &DUTswath::present));
  prj.swaths = swaths;
  if (nmissing > 0) take_groups(idx, prj);
  return true;
}
}  // namespace veld
