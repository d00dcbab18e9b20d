// Exports of the laser points around control points, and their update by the corrections.
#include <charconv>
#include <cstdio>
#include <map>
#include <memory>
#include <sstream>

#include "lib/general/log.h"
#include "lib/general/path.h"
#include "lib/general/result_file.h"
#include "prj/LiDAR/LmTQCGCP/LmTQCGCP.h"
#include "prj/LiDAR/LmTQCGCP/corr_lookup.h"
#include "prj/LiDAR/LmTQCGCP/gcp_text.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
constexpr char PC_HEADER[] = "X Y Z Swath# Group# In";
constexpr char SW_HEADER[] = "Label_sw_Swath# X Y Z_LiDAR Swath# Group#";

void put_point(std::ostream& os, const dxyz& p, SwathId sw, int group, int in) {
  char line[120];
  std::snprintf(line, sizeof line, "%.2f %.2f %.3f %d %d %d\n", p.x / DATAUNIT, p.y / DATAUNIT,
                p.z / DATAUNIT_Z, sw.number, group, in);
  os << line;
}

void put_height(std::ostream& os, const std::string& label, const dxyz& p, SwathId sw, int group) {
  char line[120];
  std::snprintf(line, sizeof line, "_sw_%d %.2f %.2f %.3f %d %d\n", sw.number, p.x / DATAUNIT, p.y / DATAUNIT,
                p.z / DATAUNIT_Z, sw.number, group);
  os << label << line;
}

// Corrections at places of any swath; the tiles of a swath are read when it is asked for.
class Corrections {
 public:
  Corrections(const Project& prj, const SwathVector<SCorrTbl>& corr) : prj_(prj), corr_(corr) {}
  // Moves p. False where the swath has no correction.
  bool move(SwathId sw, dxyz& p) {
    if (!prj_.swaths.has(sw)) return false;
    if (prj_.swaths[sw].fixed) return true;
    if (corr_[sw].C.empty()) return false;
    std::unique_ptr<SwTiles>& tiles = tiles_[sw];
    if (!tiles) {
      tiles = std::make_unique<SwTiles>();
      if (!read_SwTiles(prj_.swaths[sw].cache, *tiles)) return false;
    }
    dxyz c;
    if (!corr_at_place(*tiles, corr_[sw], p.x, p.y, c)) return false;
    p += c;
    return true;
  }

 private:
  const Project& prj_;
  const SwathVector<SCorrTbl>& corr_;
  std::map<SwathId, std::unique_ptr<SwTiles>> tiles_;
};

// A row of either export: an optional label, three coordinates in the unit of the files, whole numbers.
bool parse_row(const std::string& line, bool labelled, std::string& label, dxyz& p, SwathId& sw, int& group,
               int& in) {
  std::istringstream f(line);
  if (labelled && !(f >> label)) return false;
  in = 0;
  if (!(f >> p.x >> p.y >> p.z >> sw.number >> group)) return false;
  p = {p.x * DATAUNIT, p.y * DATAUNIT, p.z * DATAUNIT_Z};
  return labelled || static_cast<bool>(f >> in);
}

bool corr_export(Corrections& corr, const std::string& from, const std::string& to, const char* header,
                 bool labelled) {
  TxtFileIn in(true);
  if (!in.open(from)) return false;
  ResultFile out;
  if (!out.open(to)) return false;
  out.fs << header << '\n';
  std::string line, label;
  uint64_t nlost = 0;
  bool first = true;
  while (in.getline(line)) {
    const bool is_header = first && line == header;
    first = false;
    if (is_header) continue;
    dxyz p;
    SwathId sw;
    int group, used;
    if (!parse_row(line, labelled, label, p, sw, group, used)) {
      ERROR_MSG("bad line '" << line.substr(0, 80) << "', file " << from);
      return false;
    }
    if (!corr.move(sw, p)) {
      nlost++;
      continue;
    }
    const size_t cut = label.rfind("_sw_");
    if (labelled)
      put_height(out.fs, cut == std::string::npos ? label : label.substr(0, cut), p, sw, group);
    else
      put_point(out.fs, p, sw, group, used);
  }
  if (nlost > 0) LOG_LINE("<!> " << nlost << " lines without correction, file " << from);
  return out.commit();
}
}  // namespace

bool export_GCP_PC(const Project& prj, const std::vector<GCPexport>& points, const GCPresult& r) {
  const std::string pc = prj.name + "_GCP_PC.txt", sw = prj.name + "_GCP_sw.txt";
  LOG_MSG("Writing GCP point cloud export " << pc << " and swath occurrences " << sw);
  ResultFile out;
  if (!out.open(pc)) return false;
  out.fs << PC_HEADER << '\n';
  for (const GCPexport& p : points) put_point(out.fs, p.pos, p.sw, p.group, p.in);
  if (!out.commit()) return false;
  ResultFile heights;
  if (!heights.open(sw)) return false;
  heights.fs << SW_HEADER << '\n';
  for (const GCPoccur& o : r.occ) {
    const GCP& g = r.gcp[static_cast<size_t>(o.gcp)];
    put_height(heights.fs, one_word(g.name), {g.pos.x, g.pos.y, o.z_lidar}, o.sw, o.group);
  }
  return heights.commit();
}

bool corr_exp_gcp_pc(const Project& prj, const std::string& name, const SwathVector<SCorrTbl>& corr) {
  const std::string pc = "_GCP_PC", sw = "_GCP_sw";
  LOG_MSG("Updating GCP point cloud export '" << prj.name + pc << "_corr.txt' and swath occurrences '"
                                              << prj.name + sw << "_corr.txt'");
  Corrections corrections(prj, corr);
  return corr_export(corrections, name + pc + ".txt", prj.name + pc + "_corr.txt", PC_HEADER, false) &&
         corr_export(corrections, name + sw + ".txt", prj.name + sw + "_corr.txt", SW_HEADER, true);
}
}  // namespace veld
