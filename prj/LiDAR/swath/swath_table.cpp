#include "prj/LiDAR/swath/swath_table.h"

#include <algorithm>

#include "lib/general/path.h"

namespace veld {
std::string name_word(const std::string& path) {
  std::string word = base_name(path);
  std::replace(word.begin(), word.end(), ' ', '_');
  return word;
}

std::string pair_names(const SwathTable& swaths, SwathId a, SwathId b) {
  return " " + name_word(swaths[a].path()) + " " + name_word(swaths[b].path());
}

SwathId SwathTable::add(Swath row) {
  row.id = SwathId(size());
  if (row.mainch == SwathId()) row.mainch = row.id;
  rows_.push_back(std::move(row));
  return rows_.back().id;
}

void SwathTable::reject(SwathId id, SwathState by, const std::string& why) {
  (*this)[id].state = by;
  (*this)[id].reason = why;
}

std::vector<SwathId> SwathTable::ids() const {
  std::vector<SwathId> list;
  for (const Swath& s : present()) list.push_back(s.id);
  return list;
}

std::string SwathTable::name(SwathId id) const {
  const Swath& s = (*this)[id];
  if (s.members.empty()) return s.path();
  return (*this)[s.members[0]].path() + " (union of " + std::to_string(s.members.size()) +
         " input reference swaths)";
}
}  // namespace veld
