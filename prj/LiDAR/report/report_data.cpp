#include "prj/LiDAR/report/report_data.h"

#include <algorithm>
#include <cstdlib>
#include <map>
#include <sstream>

#include "lib/general/path.h"
#include "lib/general/txtfile.h"

namespace veld {
namespace {
std::vector<std::string> words_of(const std::string& line) {
  std::istringstream in(line);
  std::vector<std::string> words;
  for (std::string w; in >> w;) words.push_back(w);
  return words;
}

double number(const std::string& word) { return std::strtod(word.c_str(), nullptr); }
}  // namespace

LogTable read_log_table(const std::string& path) {
  LogTable t;
  if (!is_regular_file(path)) return t;
  TxtFileIn in(path, false);
  std::string line;
  if (!in.is_open() || !in.getline(line)) return t;
  t.head = words_of(line.substr(0, line.find('[')));  // behind it stand the units
  while (in.getline(line)) {
    std::vector<std::string> words = words_of(line);
    if (words.empty()) break;
    if (words.size() >= t.head.size()) t.rows.push_back(std::move(words));
  }
  return t;
}

std::vector<PairRms> read_pair_rms(const std::string& name) {
  std::map<std::pair<int, int>, PairRms> pairs;
  for (const bool after : {false, true})
    for (const std::vector<std::string>& row :
         read_log_table(name + (after ? "_DZcorr_stat.log" : "_DZ_stat.log")).rows) {
      if (row.size() < 6) continue;
      const int a = std::atoi(row[1].c_str()), b = std::atoi(row[2].c_str());
      PairRms& p = pairs[{a, b}];
      p.sw1 = a, p.sw2 = b;
      (after ? p.after : p.before) = number(row[5]);
    }
  std::vector<PairRms> list;
  for (const auto& entry : pairs) list.push_back(entry.second);
  std::stable_sort(list.begin(), list.end(),
                   [](const PairRms& a, const PairRms& b) { return a.after > b.after; });
  return list;
}

std::vector<DriftLine> read_drift(const std::string& name, int axis) {
  std::map<int, DriftLine> lines;  // by swath
  for (const std::vector<std::string>& row : read_log_table(name + "_TA.log").rows) {
    if (row.size() < 9) continue;
    DriftLine& l = lines[std::atoi(row[8].c_str())];
    l.t.push_back(number(row[0]));
    l.v.push_back(number(row[1 + static_cast<size_t>(axis)]));
  }
  std::vector<DriftLine> list;
  for (auto& [sw, line] : lines) {
    line.name = std::to_string(sw);
    list.push_back(std::move(line));
  }
  return list;
}
}  // namespace veld
