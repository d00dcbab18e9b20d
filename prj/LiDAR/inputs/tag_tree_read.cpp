// From tags and values to the records of the tree.
#include <cerrno>
#include <cstdlib>

#include "lib/general/log.h"
#include "lib/optparser/opttags.h"
#include "prj/LiDAR/inputs/tag_tree_internal.h"

namespace veld {
namespace {
enum class Open { none, input, po, ref, map, bore };  // the tag whose value is being read

bool parse_int(const std::string& text, int min, int max, int& value) {
  char* end = nullptr;
  errno = 0;
  const long v = std::strtol(text.c_str(), &end, 10);
  if (text.empty() || *end != '\0' || errno || v < min || v > max) return false;
  value = static_cast<int>(v);
  return true;
}

// Angles in triplets, one at least.
bool parse_triplets(const std::string& text, std::vector<double>& values) {
  values.clear();
  for (const char* at = text.c_str(); *at != '\0';) {
    char* end = nullptr;
    const double v = std::strtod(at, &end);
    if (end == at || !(v >= -2e307 && v <= 2e307)) return false;
    values.push_back(v);
    at = end;
    while (*at == ' ' || *at == ',' || *at == '\t') at++;
  }
  return !values.empty() && values.size() % 3 == 0;
}

struct TreeReader {
  TagTree& tree;
  int ninputs = 0;
  int nref = 0;
  bool in_flight = false;
  bool files_ok = true;
  Open open = Open::none;
  std::string list_file;  // attribute "file" of the open <map> or <bore>

  bool fail(const std::string& text) const {
    ERROR_MSG(text);
    return false;
  }
  TreeFlight& flight() { return tree.flights.back(); }
  TreeInput& input() { return flight().inputs.back(); }
  std::string input_number() const { return std::to_string(ninputs); }
  std::string flight_number() const { return std::to_string(tree.flights.size()); }

  bool open_tag(const TagLine& tag);
  bool open_input(const TagLine& tag);
  bool open_split(const TagLine& tag, TreeInput& in);
  bool open_po(const TagLine& tag);
  bool open_list(const TagLine& tag, Open kind);
  bool close_tag(const TagLine& tag);
  bool close_list();
  bool value(const std::string& text);
  bool end_flight();
  void add(FileList& list, const std::string& pattern, int group, const std::string& failure);
};

bool TreeReader::open_split(const TagLine& tag, TreeInput& in) {
  const std::string where = ", input/channel #" + input_number();
  in.is_split = true;
  if (!parse_split_type(*tag.find("split"), in.split.type))
    return fail("split argument error, argument must be in {sd,ch,sa,ud,id,cl,bi}" + where);
  if (const std::string* const n = tag.find("n"))
    if (!parse_int(*n, 2, MAX_CH_SPLIT, in.split.ns))
      return fail("attribute n '" + *n + "' out of range [2," + std::to_string(MAX_CH_SPLIT) + "]" + where);
  return settle_split_count(in.split, where);
}

bool TreeReader::open_input(const TagLine& tag) {
  ninputs++;
  if (!in_flight) return fail("<input> must be defined inside <flight>, input/channel #" + input_number());
  TreeInput in;
  in.number = ninputs;
  in.flight = static_cast<int>(tree.flights.size());
  for (const TreeInput& before : flight().inputs)
    in.channel = before.channel + (before.is_split ? before.split.ns : 1);
  int channel = in.channel;
  if (const std::string* const ch = tag.find("ch"))
    if (!parse_int(*ch, 0, 31, channel) || channel != in.channel)
      return fail("channel and 'ch' attribute mismatch, input/channel #" + input_number());
  if (tag.find("split") && !open_split(tag, in)) return false;
  if (const std::string* const bore = tag.find("bore")) {
    const size_t most = in.is_split ? 3 * static_cast<size_t>(in.split.ns) : 3;
    if (!parse_triplets(*bore, in.bore) || (in.bore.size() != 3 && in.bore.size() != most))
      return fail("attribute bore needs three angles, input/channel #" + input_number());
  }
  flight().inputs.push_back(in);
  open = Open::input;
  return true;
}

bool TreeReader::open_po(const TagLine& tag) {
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
  if (const std::string* const text = tag.find("imu"))
    if (!parse_triplets(*text, po.imu) || po.imu.size() != 3)
      return fail("attribute imu needs three angles, flight #" + flight_number());
  flight().po.push_back(po);
  open = Open::po;
  return true;
}

bool TreeReader::open_list(const TagLine& tag, Open kind) {
  const std::string name = kind == Open::map ? "<map>" : "<bore>";
  if (open != Open::input || !input().is_split)
    return fail(name + " must be defined inside split <input>, flight #" + flight_number());
  TreeInput& in = input();
  const std::string where = " for split input/channel #" + input_number();
  if ((kind == Open::map ? in.nmap : in.nbore)++ > 0)
    return fail("only one " + name + " file allowed" + where);
  if (kind == Open::bore && !in.bore.empty()) {
    WARNING_MSG("<bore> tag overrides 'bore' attribute" << where << " of flight #" << flight_number());
    in.bore.clear();
  }
  const std::string* const file = tag.find("file");
  list_file = file ? *file : "";
  tree.lines.clear();
  LOG_MSG((file ? "reading " : "parsing ") << name << (file ? " file" : " list") << where);
  open = kind;
  return true;
}

bool TreeReader::close_list() {
  const bool map = open == Open::map;
  open = Open::input;
  TreeInput& in = input();
  std::string name = map ? "<map>" : "<bore>";
  const std::string from = list_file.empty() ? "list" : "file";
  if (!list_file.empty()) {
    name = list_file;
    if (!update_check_file(name, tree.rules) || !read_list_file(name, tree.lines)) return false;
  }
  const std::string where = " for split input/channel #" + input_number();
  return map ? read_map_file(tree.lines, name, in.split.ns, from, where, in.map)
             : read_bore_file(tree.lines, name, in.split.ns, from, where, in.bores);
}

bool TreeReader::open_tag(const TagLine& tag) {
  if (equal_nocase(tag.name, "map")) return open_list(tag, Open::map);
  if (equal_nocase(tag.name, "bore")) return open_list(tag, Open::bore);
  if (equal_nocase(tag.name, "flight")) {
    tree.flights.emplace_back();
    in_flight = true;
    return true;
  }
  if (equal_nocase(tag.name, "input")) return open_input(tag);
  if (equal_nocase(tag.name, "po")) return open_po(tag);
  if (equal_nocase(tag.name, "ref")) {
    open = Open::ref;
    return ++nref == 1 || fail("multiple <ref> detected");
  }
  return fail("unknown tag <" + tag.name + ">");
}

bool TreeReader::end_flight() {
  const TreeFlight& f = flight();
  if (f.inputs.empty()) return fail("empty flight #" + flight_number());
  if (f.po.size() <= 1 || f.po.size() == f.inputs.size()) return true;
  return fail("<flight> and <po> mismatch, input/channel #" + input_number());
}

bool TreeReader::close_tag(const TagLine& tag) {
  if (open == Open::map || open == Open::bore) return close_list();
  open = Open::none;
  if (!equal_nocase(tag.name, "flight")) return true;
  in_flight = false;
  return end_flight();
}

// A missing file is reported, and the rest is read nevertheless.
void TreeReader::add(FileList& list, const std::string& pattern, int group, const std::string& failure) {
  if (update_file_list(list, {}, pattern, group, true, tree.rules)) return;
  ERROR_MSG(failure);
  files_ok = false;
}

bool TreeReader::value(const std::string& text) {
  switch (open) {
    case Open::input:
      input().patterns.push_back(text);
      add(tree.mobile, text, ninputs, "failed to add files to input/channel #" + input_number());
      return true;
    case Open::po: {
      TreePO& po = flight().po.back();  // flights may share a trajectory
      po.patterns.push_back(text);
      add(po.files, text, 0, "failed to add PO files to flight #" + flight_number());
      return true;
    }
    case Open::ref:
      tree.refs.push_back(text);
      add(tree.fixed, text, 0, "failed to add reference files");
      return true;
    case Open::map:
    case Open::bore:
      tree.lines.push_back(text);
      return true;
    case Open::none:
      break;
  }
  return fail("value '" + text + "' outside <input>, <po> and <ref>");
}
}  // namespace

bool read_tag_tree(const std::vector<std::string>& taglist, TagTree& tree) {
  TreeReader reader{tree, 0, 0, false, true, Open::none, {}};
  for (const std::string& entry : taglist) {
    if (!is_tag(entry)) {
      if (!entry.empty() && !reader.value(entry)) return false;
      continue;
    }
    TagLine tag;
    if (!ParseTagLine(entry, tag)) return false;
    if (!(tag.closing ? reader.close_tag(tag) : reader.open_tag(tag))) return false;
  }
  return reader.files_ok;
}
}  // namespace veld
