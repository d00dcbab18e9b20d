#include "prj/LiDAR/options/option_text.h"

#include <cstdio>
#include <sstream>

#include "prj/LiDAR/options/availability.h"
#include "prj/LiDAR/options/option_rows.h"

namespace veld {
namespace {
const Example EXAMPLES[] = {
    {"-scan -i *.las", "scan, write overlap, density and height images and statistics"},
    {"-scan -i file.las -po sbet.out", "scan and synchronise, write geometry statistics"},
    {"-fastqc -i file1.laz file2.laz -full -smap", "DZ and hillshade maps for the full set"},
    {"-reg -i *.laz -gcp points.txt -name result",
     "register, DZ maps, statistics, displacement file named with base result"},
    {"-corr result -po *.trj -A -D 10",
     "use the displacement file and trajectories for a calibration and corrections of a 10 s period"},
    {"-uav -align -feet_us -i *.las -po *.out -C 0",
     "correct UAV data with constant adjustments per swath, no calibration"},
    {"-calib -i *.laz -po *.pof -C yB", "calibrate y lever arm and boresight"},
    {"-undo -i *.laz", "undo all corrections applied to the files"},
    {"-clear_log -c", "full cleanup"},
};

std::string number_text(double x) {
  char text[32];
  std::snprintf(text, sizeof text, "%.10g", x);
  return text;
}

bool is_list(OptKind kind) {
  return kind == OptKind::textlist || kind == OptKind::intlist || kind == OptKind::reallist;
}
}  // namespace

std::span<const Example> examples() { return EXAMPLES; }

std::string example_meaning(const Example& example) {
  std::string missing;
  std::istringstream words(example.line);
  for (std::string word; words >> word;)
    if (word[0] == '-' && !is_available(word.substr(1))) missing += " " + word;
  return example.meaning + (missing.empty() ? std::string() : " (not available yet:" + missing + ")");
}

std::vector<OptRow> documented_rows(Options& o) {
  std::vector<OptRow> rows = {
      text("opt", "", nullptr, available, Theme::run,
           "tagged option file, for instance the _opt.xml of an earlier run; its options come before the "
           "others",
           "*.xml *.txt", ""),
      directory("$", "", nullptr, available, Theme::run,
                "reference directory: what a \"$\" at the start of a path stands for"),
      flag("mul", "", nullptr, available, Theme::run,
           "several runs at once: no lock, the logs may get mixed up"),
  };
  const std::vector<OptRow> table = option_rows(o);
  rows.insert(rows.end(), table.begin(), table.end());
  return rows;
}

std::vector<OptRow> rows_of_theme(const std::vector<OptRow>& rows, Theme theme) {
  std::vector<OptRow> found;
  for (const OptRow& row : rows)
    if (row.theme == theme) found.push_back(row);
  return found;
}

std::string names_text(const OptRow& row) {
  std::string text = std::string("-") + row.name;
  if (row.abbr[0] != '\0') text += std::string(" -") + row.abbr;
  return text;
}

std::string argument_text(const OptRow& row) {
  std::string text = kind_word(row.kind);
  const bool numbers = row.kind == OptKind::integer || row.kind == OptKind::real ||
                       row.kind == OptKind::intlist || row.kind == OptKind::reallist;
  if (numbers && row.hi < 2e307) text += " " + number_text(row.lo) + " to " + number_text(row.hi);
  if (is_list(row.kind)) {
    text += ", " + std::to_string(row.nmin);
    if (row.nmax > row.nmin) text += " to " + std::to_string(row.nmax);
    text += " of them";
  }
  return text;
}
}  // namespace veld
