// prj/LiDAR/LmTQCGCP/gcp_text.h
// Private to LmTQCGCP: words and texts that its reports share.
#pragma once
#include <ostream>
#include <set>
#include <string>
#include <vector>

#include "lib/Geometry/xyz.h"
#include "prj/LiDAR/project.h"

namespace veld {
std::string unit_name(double unit);              // metres per unit
std::string one_word(const std::string& name);   // blanks become "_": columns are separated by blanks
std::string json_text(const std::string& text);  // with its quotes; bytes that are no UTF-8 are replaced
std::string utc_now();                           // YYYY-MM-DD hh:mm:ss UTC
bool mobile_only(const Project& prj);            // there are mobile swaths, so references take no part

struct ReportHead {         // what the reports of heights and of targets begin with
  std::string title;        // "absolute vertical", "absolute XYZ"
  std::string input;        // its row for the file, as wide as the other rows
  std::string file;         // of the points
  bool post = false;        // with the corrections
  double unit = 1;          // metres per unit of the differences
  std::string weights;      // as text
  std::string differences;  // members of the JSON report that follow its unit
};
void put_head(std::ostream& os, const Project& prj, const ReportHead& head);       // up to the row of weights
void put_json_head(std::ostream& os, const Project& prj, const ReportHead& head);  // likewise
std::string json_flag(bool b);

// Coordinates in the unit of the files; the second as a member of a JSON object, without a comma behind.
void put_xyz_unit(std::ostream& os, const dxyz& p);
void put_json_xyz(std::ostream& os, const char* key, const dxyz& p);

// The name of a point with its swath and group behind two words.
std::string occurrence_label(const std::string& point, SwathId swath, int group, const char* sw,
                             const char* grp);
template <typename Occurrence>
size_t count_swaths(const std::vector<Occurrence>& occ) {
  std::set<SwathId> swaths;
  for (const Occurrence& o : occ) swaths.insert(o.sw);
  return swaths.size();
}
}  // namespace veld
