// The beams that share a file, and their calibration.
#include "lib/general/log.h"
#include "prj/LiDAR/VR2geom/beam_calib.h"
#include "prj/LiDAR/inputs/inputs.h"

namespace veld {
namespace {
// Without a map file the values count the beams from 0; of scan angles one side is a beam.
bool make_split(const SplitOpt& opt, const PathRules& rules, BeamSplit& split) {
  split.type = opt.type;
  split.beam.fill(NO_BEAM);
  if (opt.map_file.empty()) {
    for (size_t v = 0; v < split.beam.size(); v++) {
      if (opt.type == SplitType::angle)
        split.beam[v] = v < 128 ? 1 : 0;  // the byte of a negative angle is 128 and more
      else if (v < static_cast<size_t>(opt.ns))
        split.beam[v] = static_cast<uint8_t>(v);
    }
    return true;
  }
  std::string file = opt.map_file;
  std::vector<std::string> lines;
  std::vector<int> map;
  if (!update_check_file(file, rules) || !read_list_file(file, lines) ||
      !read_map_file(lines, file, opt.ns, "file", " (option -beam_param)", map))
    return false;
  for (size_t v = 0; v < map.size(); v++)
    if (map[v] > 0) split.beam[v] = static_cast<uint8_t>(map[v] - 1);
  return true;
}
}  // namespace

bool read_beams(const Options& o, const PathRules& rules, BeamParam& beams) {
  beams = BeamParam();
  if (o.beam_param.empty() || o.beam_calib_corr.empty()) return true;
  LOG_ENTER("read_beams '" << o.beam_calib_corr << "'");
  SplitOpt opt;
  std::string file = o.beam_calib_corr;
  return parse_split_opt(o.beam_param, opt) && make_split(opt, rules, beams.split) &&
         update_check_file(file, rules) && read_beam_calib(file, opt.ns, beams.sets);
}
}  // namespace veld
