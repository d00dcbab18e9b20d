// Reading of the text index of the DUT files.
#include <cmath>
#include <set>
#include <sstream>

#include "lib/general/log.h"
#include "lib/general/path.h"
#include "prj/LiDAR/DUTio/DUTio.h"
#include "prj/LiDAR/DUTio/DUTio_internal.h"

namespace veld {
namespace {
bool fail(const std::string& what, const std::string& file) {
  ERROR_MSG(what << file);
  return false;
}

// A blank-separated line, read field by field; ok() is true while all fields were there and valid.
class Fields {
 public:
  explicit Fields(const std::string& line) : text_(line) {}
  Fields& operator>>(bool& v) {
    int i = -1;
    text_ >> i;
    ok_ = ok_ && (i == 0 || i == 1);
    v = i == 1;
    return *this;
  }
  Fields& operator>>(double& v) {
    text_ >> v;
    ok_ = ok_ && std::isfinite(v);
    return *this;
  }
  Fields& operator>>(std::string& v) {
    text_ >> v;
    if (v == "-") v.clear();
    return *this;
  }
  template <typename T>
  Fields& operator>>(T& v) {
    text_ >> v;
    return *this;
  }
  Fields& operator>>(mTbox& b) { return *this >> b.xmin >> b.ymin >> b.xmax >> b.ymax; }
  std::string rest() {  // the end of the line without the blank before it
    std::string s;
    if (text_.peek() == ' ') text_.get();
    std::getline(text_, s);
    text_.clear();
    return s;
  }
  bool ok() const { return ok_ && !text_.fail(); }

 private:
  std::istringstream text_;
  bool ok_ = true;
};

// The next line that begins with a tag; the label and blank lines between are skipped. False at the end.
bool next_tag_line(TxtFileIn& in, std::string& tag, std::string& line) {
  while (in.getline(line)) {
    if (line.empty() || line[0] != '#') continue;
    const size_t n = std::min<size_t>(line.size(), 2);
    tag = line.substr(0, n);
    line.erase(0, n);
    return true;
  }
  return false;
}

bool read_header(TxtFileIn& in, const std::string& file, int64_t fsize, DUTidx& idx, uint32_t& nsw) {
  std::string line;
  if (!in.getline(line)) return fail("invalid DUT.IDX format or unsupported version, file ", file);
  std::string tag = line.substr(0, line.find(' '));
  LOG_LINE("vs_latest=" << (tag == IDX_TAG) << " vs_old=" << (tag == IDX_TAG_OLD)
                        << " vs_old2=" << (tag == IDX_TAG_OLD2));
  if (tag != IDX_TAG) return fail("invalid DUT.IDX format or unsupported version, file ", file);
  if (!in.getline(line) || !in.getline(line)) return fail("invalid DUT.IDX header, file ", file);
  Fields f(line);
  int64_t n = 0;
  f >> n >> idx.gsize >> idx.level >> idx.dim >> idx.unit >> idx.nGCP >> idx.nXYZGCP >> idx.area >> idx.ovr >>
      idx.time_res;
  if (!f.ok()) return fail("invalid DUT.IDX header, file ", file);
  const int64_t shortest = 20;  // characters of a "#S " line, at the very least
  const bool ok = n > 0 && n <= fsize / shortest && idx.gsize >= 1 && idx.gsize <= 1024 && idx.dim > 0 &&
                  idx.level >= 5 && idx.level <= 10 && idx.area.xmin <= idx.area.xmax && idx.unit >= 0 &&
                  idx.unit < 3 && idx.area.ymin <= idx.area.ymax && idx.nGCP >= 0 && idx.nXYZGCP >= 0;
  if (!ok) return fail("invalid DUT.IDX header values, file ", file);
  nsw = static_cast<uint32_t>(n);
  return true;
}

// Section 6, then back to the start of the tagged lines.
bool read_counts(TxtFileIn& in, const std::string& file, int64_t fsize, int64_t& nint, int& nreg) {
  std::string tag, line;
  bool found = false;
  const std::streampos start = in.fs.tellg();
  while (!found && next_tag_line(in, tag, line)) found = tag == "#N";
  if (!found) return fail("#N0 reading ", file);
  Fields f(line);
  f >> nint >> nreg;
  const int64_t shortest = 10;  // characters of a "#P " line
  if (!f.ok() || nint < 0 || nint > DUT_MAXPAIRS || nint > fsize / shortest || nreg < 0 || nreg > nint)
    return fail("#N1 reading ", file);
  in.fs.clear();
  in.fs.seekg(start);
  return true;
}

bool read_GCP(TxtFileIn& in, const std::string& file, GCPctrl& g) {
  std::string tag, line;
  if (!next_tag_line(in, tag, line)) return fail("#G0 reading ", file);
  if (tag != "#G") return fail("#G1 reading ", file);
  Fields f(line);
  f >> g.col >> g.C0 >> g.S0 >> g.EQ >> g.exp;
  if (!f.ok() || g.EQ < 0 || g.EQ > 2) return fail("#G2 reading ", file);
  g.file = f.rest();
  LOG_LINE("GCPfile=" << g.file << " GCPcol=" << g.col << " C0=" << g.C0 << " S0=" << g.S0 << " EQ=" << g.EQ
                      << " exp=" << g.exp);
  return true;
}

bool read_XYZGCP(TxtFileIn& in, const std::string& file, XYZGCPctrl& h) {
  std::string tag, line;
  if (!next_tag_line(in, tag, line)) return fail("#H0 reading ", file);
  if (tag != "#H") return fail("#H1 reading ", file);
  Fields f(line);
  f >> h.col >> h.C0 >> h.SH0 >> h.SZ0 >> h.EQ;
  if (!f.ok()) return fail("#H2 reading ", file);
  h.file = f.rest();
  LOG_LINE("XYZGCPfile=" << h.file << " XYZGCPcol=" << h.col << " XYZC0=" << h.C0 << " XYZSH0=" << h.SH0
                         << " XYZSZ0=" << h.SZ0 << " XYZEQ=" << h.EQ);
  return true;
}

bool read_swaths(TxtFileIn& in, const std::string& file, uint32_t nsw, SwathVector<DUTswath>& swaths) {
  for (size_t sw = 0; sw < nsw; sw++) {
    std::string tag, line;
    if (!next_tag_line(in, tag, line)) return fail("#S reading ", file);
    if (tag != "#S") return fail("#S0 reading ", file);
    DUTswath s;
    size_t number = 0;
    Fields f(line);
    f >> number >> s.group >> s.ch >> s.mainch >> s.fixed >> s.adj >> s.ro >> s.wro >> s.tmin >> s.tmax;
    if (!f.ok() || number != sw || s.group < 0 || s.ch < 0) return fail("#S1 reading ", file);
    s.path = f.rest();
    if (s.path.empty()) return fail("#S2 reading ", file);
    swaths.push_back(s);
  }
  return true;
}

bool read_pairs(TxtFileIn& in, const std::string& file, const SwathVector<DUTswath>& swaths,
                std::vector<DUTinter>& pairs) {
  for (size_t i = 0; i < pairs.size(); i++) {
    std::string tag, line;
    if (!next_tag_line(in, tag, line)) return fail("#P reading ", file);
    if (tag != "#P") return fail("#P0 reading ", file);
    DUTinter& p = pairs[i];
    int64_t number = -1, n = -1;
    Fields f(line);
    f >> number >> p.sw1.number >> p.sw2.number >> n;
    const bool ok = f.ok() && number == static_cast<int64_t>(i) && swaths.has(p.sw1) && swaths.has(p.sw2) &&
                    p.sw1 != p.sw2 && n >= 0 && n < (int64_t{1} << 48);
    if (!ok) return fail("#P1 reading ", file);
    p.ndisp = static_cast<uint64_t>(n);
  }
  return true;
}

void log_index(const DUTidx& idx) {
  std::set<int> groups;
  for (const SwathId sw : idx.swaths.ids()) {
    const DUTswath& s = idx.swaths[sw];
    groups.insert(s.group);
    LOG_LINE("S " << sw << " g " << s.group << "ch " << s.ch << (s.mainch ? "* " : "- ")
                  << (s.fixed ? "F " : "") << (s.adj ? "ADJ " : "M ") << (s.wro ? " WS " : "") << "t:["
                  << s.tmin << " " << s.tmax << "] dt=" << s.tmax - s.tmin);
  }
  LOG_LINE("nsw=" << idx.nsw() << " nint=" << idx.nint() << " nreg=" << idx.nreg << " ngrp=" << groups.size()
                  << " npt=" << idx.nvec() << " nGCP=" << idx.nGCP << " nXYZGCP=" << idx.nXYZGCP
                  << " gsize=" << idx.gsize << " level=" << idx.level << " dim=" << idx.dim
                  << " feet=" << idx.feet() << " tr=" << idx.time_res);
  LOG_LINE("full mTI X: " << idx.area.xmin << " " << idx.area.xmax << " Y: " << idx.area.ymin << " "
                          << idx.area.ymax);
  LOG_LINE("over mTI X: " << idx.ovr.xmin << " " << idx.ovr.xmax << " Y: " << idx.ovr.ymin << " "
                          << idx.ovr.ymax);
}
}  // namespace

DUTswath make_DUTswath(const SwathTable& swaths, SwathId id) {
  const Swath& s = swaths[id];
  DUTswath d;
  d.path = swaths.name(id);
  d.group = s.present() ? s.group : 0;
  d.mainch = s.present() && s.is_main();
  if (!s.present()) return d;
  d.ch = s.channel;
  d.fixed = s.fixed;
  d.adj = s.clock.raw_adj;
  d.ro = s.clock.rover != Rollover::none;
  d.wro = s.clock.rover == Rollover::week;
  d.tmin = s.clock.tmin;
  d.tmax = s.clock.tmax;
  return d;
}

bool is_row(const DUTswath& line, const SwathTable& swaths, SwathId id) {
  const std::string name = swaths.name(id);
  return same_file(line.path, name) || base_name(line.path) == base_name(name);
}

std::string DUT_base(const std::string& path) {
  for (const std::string ending : {".dut", "_idx.log"})
    if (path.size() > ending.size() && path.compare(path.size() - ending.size(), ending.size(), ending) == 0)
      return path.substr(0, path.size() - ending.size());
  return path;
}

bool read_DUT_IDX(const std::string& name, DUTidx& idx) {
  LOG_ENTER("read_DUT_IDX " << name);
  const std::string file = name + IDX_EXT;
  idx = DUTidx{};
  TxtFileIn in(true);
  if (!in.open(file)) return false;
  const int64_t fsize = file_size(file);
  uint32_t nsw = 0;
  int64_t nint = 0;
  if (!read_header(in, file, fsize, idx, nsw) || !read_counts(in, file, fsize, nint, idx.nreg)) return false;
  idx.pairs.resize(static_cast<size_t>(nint));
  if (!read_GCP(in, file, idx.gcp) || !read_XYZGCP(in, file, idx.xyzgcp)) return false;
  if (!read_swaths(in, file, nsw, idx.swaths) || !read_pairs(in, file, idx.swaths, idx.pairs)) return false;
  log_index(idx);
  return true;
}
}  // namespace veld
