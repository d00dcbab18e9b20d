// From the records of the tree to the lists that options give, and their log.
#include "lib/general/assert_fail.h"
#include "lib/general/log.h"
#include "prj/LiDAR/inputs/tag_tree_internal.h"

namespace veld {
namespace {
void append(std::vector<double>& list, const std::vector<double>& values) {
  for (size_t i = 0; i < 3; i++) list.push_back(values.empty() ? 0 : values[i]);
}

void clear_options(InputArgs& in, Options& o) {
  in.mobile.clear();
  in.fixed.clear();
  in.po.clear();
  in.split.clear();
  for (auto* const list : {&o.input, &o.input_list, &o.ref, &o.ref_list, &o.po, &o.po_list, &o.po_parse,
                           &o.gps_date, &o.mount, &o.split, &o.split_mount})
    list->clear();
  for (auto* const list : {&o.chgrp, &o.splitgrp, &o.po_geo, &o.po_time, &o.po_rad, &o.po_att}) list->clear();
}

// Angles of the tree take the place of those of the command line; a tree without any leaves these.
void replace_angles(std::vector<double>& option, const std::vector<double>& tree, bool any,
                    const char* name) {
  if (!any) return;
  if (!option.empty())
    WARNING_MSG("tagged option file overrides option -" << name << " (attributes " << name << ")");
  option = tree;
}

// One trajectory group for each group of swaths.
void fill_po_options(const TagTree& tree, InputArgs& in, Options& o, bool& any_date) {
  std::vector<double> imu;
  bool any_imu = false;
  for (const TreeFlight& f : tree.flights)
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
      append(imu, po.imu);
      any_imu = any_imu || !po.imu.empty();
      any_date = any_date || !po.date.empty();
    }
  replace_angles(o.imu, imu, any_imu, "imu");
}

SplitGroup split_group(const TreeInput& input) {
  SplitGroup group{input.number, input.split, input.bores, input.map};
  for (size_t k = 0; group.bore.empty() && input.bore.size() > 3 && k + 2 < input.bore.size(); k += 3)
    group.bore.push_back({static_cast<float>(input.bore[k]), static_cast<float>(input.bore[k + 1]),
                          static_cast<float>(input.bore[k + 2])});
  if (!group.bore.empty() || input.bore.size() != 3) return group;
  const std::vector<double>& b = input.bore;
  group.bore.assign(static_cast<size_t>(input.split.ns),
                    {static_cast<float>(b[0]), static_cast<float>(b[1]), static_cast<float>(b[2])});
  return group;
}
}  // namespace

bool fill_tag_tree(const TagTree& tree, InputArgs& in, Options& o) {
  clear_options(in, o);
  std::vector<double> bore;
  bool any_bore = false, any_date = false;
  for (const TreeFlight& f : tree.flights)
    for (const TreeInput& input : f.inputs) {
      in.mobile.push_back({input.patterns, false});
      o.input.insert(o.input.end(), input.patterns.begin(), input.patterns.end());
      o.chgrp.push_back(input.channel);
      append(bore, input.bore);
      any_bore = any_bore || !input.bore.empty();
      if (input.is_split) in.split.push_back(split_group(input));
    }
  replace_angles(o.bore, bore, any_bore, "bore");
  fill_po_options(tree, in, o, any_date);
  if (!tree.refs.empty()) in.fixed.push_back({tree.refs, false});
  o.ref = tree.refs;
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

void log_tag_tree(const TagTree& tree, const InputArgs& in) {
  size_t npot = 0, ntraj = 0;
  for (const TreeFlight& f : tree.flights) {
    npot += f.po.size();
    for (const TreePO& po : f.po) ntraj += po.files.size();
  }
  const size_t nsw = tree.mobile.size() + tree.fixed.size();
  LOG_LINE("nmgrp=" << in.mobile.size() << " ngrpf=" << in.fixed.size() << " ngrpPO=" << in.po.size()
                    << " nfl=" << tree.flights.size() << " npot=" << npot << " nmob=" << tree.mobile.size()
                    << " nref=" << tree.fixed.size() << " nsw=" << nsw << " ntraj=" << ntraj);
  for (size_t i = 0; i < tree.mobile.size(); i++)
    LOG_LINE("SW " << i << " g " << tree.mobile.idx[i] << " M " << tree.mobile.name[i]);
  for (size_t i = 0; i < tree.fixed.size(); i++)
    LOG_LINE("SW " << tree.mobile.size() + i << " g 0 F " << tree.fixed.name[i]);
  for (size_t k = 0; k < tree.flights.size(); k++)
    for (const TreePO& po : tree.flights[k].po)
      for (const std::string& file : po.files.name) LOG_LINE("PO flight " << k + 1 << ' ' << file);
  for (const TreeFlight& f : tree.flights)
    for (const TreeInput& input : f.inputs)
      LOG_LINE("GRP " << input.number << " flight " << input.flight << " ch " << input.channel
                      << (input.is_split ? " split" : ""));
  for (const SplitGroup& s : in.split) {
    LOG_LINE("SPLIT GRP " << s.group << " type " << split_word(s.split.type) << " n " << s.split.ns);
    for (const xyz& b : s.bore) LOG_LINE("  bore " << b.x << ' ' << b.y << ' ' << b.z);
    for (size_t v = 0; v < s.map.size(); v++)
      if (s.map[v] > 0) LOG_LINE("   map " << v << " -> " << s.map[v]);
  }
  ASSERT(nsw == tree.mobile.name.size() + tree.fixed.name.size());
  ASSERT(in.po.empty() || in.mobile.size() == in.po.size());
}
}  // namespace veld
