#include "prj/LiDAR/veldrunner2/tag_tree.h"

#include <cerrno>
#include <cstdlib>

#include "lib/general/assert_fail.h"
#include "lib/general/log.h"
#include "lib/optparser/opttags.h"

namespace {
struct TreePO {  // one <po>
  std::vector<std::string> patterns;
  int geo = 0, time = 0, rad = 0, att = 0;
  std::string parse, date;
  double imu[3] = {0, 0, 0};
  bool has_imu = false;
};
struct TreeInput {  // one <input>
  std::vector<std::string> patterns;
  int channel = 0;
  double bore[3] = {0, 0, 0};
  bool has_bore = false;
};
struct Flight {
  std::vector<TreeInput> inputs;
  std::vector<TreePO> po;
};

enum class Open { none, input, po, ref };  // the tag whose value is being read

bool parse_int(const std::string& text, int min, int max, int& value) {
  char* end = nullptr;
  errno = 0;
  const long v = std::strtol(text.c_str(), &end, 10);
  if (text.empty() || *end != '\0' || errno || v < min || v > max) return false;
  value = static_cast<int>(v);
  return true;
}

bool parse_triplet(const std::string& text, double values[3]) {
  const char* at = text.c_str();
  for (int i = 0; i < 3; i++) {
    char* end = nullptr;
    values[i] = std::strtod(at, &end);
    if (end == at || !(values[i] >= -2e307 && values[i] <= 2e307)) return false;
    at = end;
    while (*at == ' ' || *at == ',' || *at == '\t') at++;
  }
  return *at == '\0';
}

struct Tree {
  const PathRules& rules;
  std::vector<Flight> flights;
  std::vector<std::string> refs;
  FileList mobile, fixed;
  size_t ninputs = 0;
  int nref = 0;
  bool in_flight = false;
  Open open = Open::none;

  bool fail(const std::string& text) const {
    ERROR_MSG(text);
    return false;
  }
  std::string input_number() const { return std::to_string(ninputs); }
  std::string flight_number() const { return std::to_string(flights.size()); }

  bool open_tag(const TagLine& tag);
  bool open_input(const TagLine& tag);
  bool open_po(const TagLine& tag);
  bool close_tag(const TagLine& tag);
  bool value(const std::string& text);
  bool end_flight() const;
};

bool Tree::open_input(const TagLine& tag) {
  ninputs++;
  if (!in_flight) return fail("<input> must be defined inside <flight>, input/channel #" + input_number());
  TreeInput input;
  input.channel = static_cast<int>(flights.back().inputs.size());
  int channel = input.channel;
  if (const std::string* const ch = tag.find("ch"))
    if (!parse_int(*ch, 0, 31, channel) || channel != input.channel)
      return fail("channel and 'ch' attribute mismatch, input/channel #" + input_number());
  if (tag.find("split")) return fail("split <input> is not available yet, input/channel #" + input_number());
  if (const std::string* const bore = tag.find("bore")) {
    input.has_bore = parse_triplet(*bore, input.bore);
    if (!input.has_bore) return fail("attribute bore needs three angles, input/channel #" + input_number());
  }
  flights.back().inputs.push_back(input);
  open = Open::input;
  return true;
}

bool Tree::open_po(const TagLine& tag) {
  if (!in_flight) return fail("<po> must be defined inside <flight>");
  TreePO po;
  const struct {
    const char* name;
    int max;
    int* value;
  } numbers[] = {{"time", 10, &po.time}, {"geo", 2, &po.geo}, {"rad", 1, &po.rad}, {"att", 2, &po.att}};
  for (const auto& n : numbers)
    if (const std::string* const text = tag.find(n.name))
      if (!parse_int(*text, 0, n.max, *n.value))
        return fail("attribute " + std::string(n.name) + " '" + *text + "' out of range [0," +
                    std::to_string(n.max) + "], flight #" + flight_number());
  if (const std::string* const text = tag.find("parse")) po.parse = *text;
  if (const std::string* const text = tag.find("gps_date")) po.date = *text;
  if (const std::string* const text = tag.find("imu")) {
    po.has_imu = parse_triplet(*text, po.imu);
    if (!po.has_imu) return fail("attribute imu needs three angles, flight #" + flight_number());
  }
  flights.back().po.push_back(po);
  open = Open::po;
  return true;
}

bool Tree::open_tag(const TagLine& tag) {
  if (equal_nocase(tag.name, "flight")) {
    flights.emplace_back();
    in_flight = true;
    return true;
  }
  if (equal_nocase(tag.name, "input")) return open_input(tag);
  if (equal_nocase(tag.name, "po")) return open_po(tag);
  if (equal_nocase(tag.name, "ref")) {
    open = Open::ref;
    return ++nref == 1 || fail("multiple <ref> detected");
  }
  for (const char* const name : {"map", "bore"})
    if (equal_nocase(tag.name, name))
      return fail("<" + std::string(name) + "> must be defined inside split <input>, flight #" +
                  flight_number());
  return fail("unknown tag <" + tag.name + ">");
}

bool Tree::end_flight() const {
  const Flight& f = flights.back();
  if (f.inputs.empty()) return fail("empty flight #" + flight_number());
  if (f.po.size() <= 1 || f.po.size() == f.inputs.size()) return true;
  return fail("<flight> and <po> mismatch, input/channel #" + input_number());
}

bool Tree::close_tag(const TagLine& tag) {
  open = Open::none;
  if (!equal_nocase(tag.name, "flight")) return true;
  in_flight = false;
  return end_flight();
}

bool Tree::value(const std::string& text) {
  switch (open) {
    case Open::input:
      flights.back().inputs.back().patterns.push_back(text);
      return update_file_list(mobile, {}, text, static_cast<int>(ninputs), true, rules) ||
             fail("failed to add files to input/channel #" + input_number());
    case Open::po: {
      flights.back().po.back().patterns.push_back(text);
      FileList found;  // flights may share a trajectory
      return update_file_list(found, {}, text, 0, false, rules) ||
             fail("failed to add PO files to flight #" + flight_number());
    }
    case Open::ref:
      refs.push_back(text);
      return update_file_list(fixed, {}, text, 0, true, rules) || fail("failed to add reference files");
    case Open::none:
      break;
  }
  return fail("value '" + text + "' outside <input>, <po> and <ref>");
}

// Trajectory of input i of a flight: its own, or the one that all inputs share.
const TreePO& po_of(const Flight& f, size_t i) { return f.po[f.po.size() == 1 ? 0 : i]; }

void append(std::vector<double>& list, const double values[3]) {
  list.insert(list.end(), values, values + 3);
}

void fill_po_options(const Tree& tree, InputArgs& in, Options& o, bool& any_imu, bool& any_date) {
  for (const Flight& f : tree.flights)
    for (size_t i = 0; i < f.inputs.size() && !f.po.empty(); i++) {
      const TreePO& po = po_of(f, i);
      in.po.push_back({po.patterns, false});
      o.po.insert(o.po.end(), po.patterns.begin(), po.patterns.end());
      o.po_geo.push_back(po.geo);
      o.po_time.push_back(po.time);
      o.po_rad.push_back(po.rad);
      o.po_att.push_back(po.att);
      o.po_parse.push_back(po.parse);
      o.gps_date.push_back(po.date);
      append(o.imu, po.imu);
      any_imu = any_imu || po.has_imu;
      any_date = any_date || !po.date.empty();
    }
}

// The same records that options would have filled. False when only some groups have what all need.
bool fill_options(const Tree& tree, InputArgs& in, Options& o) {
  in.mobile.clear();
  in.fixed.clear();
  in.po.clear();
  in.shared_po = true;
  for (auto* const list : {&o.input, &o.input_list, &o.ref, &o.ref_list, &o.po, &o.po_list, &o.po_parse,
                           &o.gps_date, &o.mount, &o.split, &o.split_mount})
    list->clear();
  for (auto* const list : {&o.chgrp, &o.splitgrp, &o.po_geo, &o.po_time, &o.po_rad, &o.po_att}) list->clear();
  o.imu.clear();
  o.bore.clear();

  bool any_bore = false, any_imu = false, any_date = false;
  for (const Flight& f : tree.flights)
    for (const TreeInput& input : f.inputs) {
      in.mobile.push_back({input.patterns, false});
      o.input.insert(o.input.end(), input.patterns.begin(), input.patterns.end());
      o.chgrp.push_back(input.channel);
      append(o.bore, input.bore);
      any_bore = any_bore || input.has_bore;
    }
  fill_po_options(tree, in, o, any_imu, any_date);
  if (!tree.refs.empty()) in.fixed.push_back({tree.refs, false});
  o.ref = tree.refs;
  if (!any_bore) o.bore.clear();
  if (!any_imu) o.imu.clear();
  if (!any_date) o.gps_date.clear();
  for (const std::string& date : o.gps_date)
    if (date.empty()) {
      ERROR_MSG("attribute gps_date missing, it is required in all <po> or none");
      return false;
    }
  if (in.po.empty() || in.po.size() == in.mobile.size()) return true;
  ERROR_MSG("<flight> and <po> mismatch, input/channel #" << in.po.size() + 1);
  return false;
}

void log_tree(const Tree& tree, const InputArgs& in) {
  LOG_LINE("nmgrp=" << in.mobile.size() << " ngrpf=" << in.fixed.size() << " ngrpPO=" << in.po.size()
                    << " nfl=" << tree.flights.size() << " nmob=" << tree.mobile.size()
                    << " nref=" << tree.fixed.size() << " nsw=" << tree.mobile.size() + tree.fixed.size());
  for (size_t i = 0; i < tree.mobile.size(); i++)
    LOG_LINE("SW " << i << " GRP " << tree.mobile.idx[i] << " " << tree.mobile.name[i]);
  for (const std::string& file : tree.fixed.name) LOG_LINE("SW REF " << file);
  for (size_t g = 0; g < in.po.size(); g++)
    for (const std::string& pattern : in.po[g].args) LOG_LINE("PO GRP " << g + 1 << " " << pattern);
}
}  // namespace

bool get_tag_tree_input(const std::vector<std::string>& taglist, InputArgs& in, Options& o) {
  LOG_ENTER("get_tag_tree_input tagopt.size()=" << taglist.size());
  LOG_MSG("Parsing tagged input parameter file, " << taglist.size() << " option lines");
  Tree tree{in.rules, {}, {}, {}, {}};
  for (const std::string& entry : taglist) {
    if (!is_tag(entry)) {
      if (!entry.empty() && !tree.value(entry)) return false;
      continue;
    }
    TagLine tag;
    if (!ParseTagLine(entry, tag)) return false;
    if (!(tag.closing ? tree.close_tag(tag) : tree.open_tag(tag))) return false;
  }
  for (const std::string& file : tree.fixed.name)
    if (tree.mobile.contains(file)) {
      ERROR_MSG("duplicate files, some references are also inputs");
      return false;
    }
  if (!fill_options(tree, in, o)) return false;
  ASSERT(in.po.empty() || in.po.size() == in.mobile.size());
  log_tree(tree, in);
  return true;
}
