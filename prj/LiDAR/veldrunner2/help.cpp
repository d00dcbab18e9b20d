#include "prj/LiDAR/veldrunner2/help.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>

#include "prj/LiDAR/veldrunner2/identity.h"
#include "prj/LiDAR/veldrunner2/options.h"

namespace {
struct Example {
  const char* line;
  const char* meaning;
};
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

std::string lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
  return text;
}

bool holds(const char* text, const std::string& word) { return lower(text).find(word) != std::string::npos; }

std::string number_text(double x) {
  char text[32];
  std::snprintf(text, sizeof text, "%.10g", x);
  return text;
}

// What the option takes: kind, range, count.
std::string argument_text(const OptRow& row) {
  std::string text = kind_word(row.kind);
  const bool ranged = row.kind == OptKind::integer || row.kind == OptKind::real ||
                      row.kind == OptKind::intlist || row.kind == OptKind::reallist;
  if (ranged && row.hi < 2e307) text += " " + number_text(row.lo) + " to " + number_text(row.hi);
  if (row.kind == OptKind::textlist || row.kind == OptKind::intlist || row.kind == OptKind::reallist) {
    text += ", " + std::to_string(row.nmin);
    if (row.nmax > row.nmin) text += " to " + std::to_string(row.nmax);
    text += " of them";
  }
  if (row.deflt[0] != '\0') text += std::string("; default ") + row.deflt;
  return text;
}

std::string row_text(const OptRow& row) {
  std::string names = std::string("  -") + row.name;
  if (row.abbr[0] != '\0') names += std::string(" -") + row.abbr;
  char text[512];
  std::snprintf(text, sizeof text, "%-22s %s (%s)\n", names.c_str(), row.meaning, argument_text(row).c_str());
  return text;
}
}  // namespace

std::string help_text(const std::string& word) {
  const std::string wanted = lower(word);
  std::string text;
  if (wanted.empty()) {
    text += short_identity() + "\n\nEXAMPLES\n";
    for (const Example& e : EXAMPLES)
      text += std::string("  ") + PROGRAM_NAME + " " + e.line + "\n      " + e.meaning + "\n";
    text += "\n";
  }
  text += "OPTIONS AND ARGUMENTS\n";
  Options o;
  const std::vector<OptRow> rows = option_rows(o);
  size_t nlisted = 0;
  for (int t = 0; t <= static_cast<int>(Theme::voxel); t++) {
    std::string section;
    for (const OptRow& row : rows) {
      if (static_cast<int>(row.theme) != t) continue;
      if (!wanted.empty() && !holds(row.name, wanted) && !holds(row.meaning, wanted)) continue;
      section += row_text(row);
      nlisted++;
    }
    if (!section.empty()) text += std::string("\n") + theme_title(static_cast<Theme>(t)) + "\n" + section;
  }
  if (nlisted == 0) text += "\nno option matches '" + word + "'\n";
  return text;
}
