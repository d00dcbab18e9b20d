// Writing of the DUT files.
#include "lib/general/family_out.h"
#include "lib/general/log.h"
#include "lib/general/path.h"
#include "prj/LiDAR/DUTio/DUTio.h"
#include "prj/LiDAR/DUTio/DUTio_internal.h"

namespace veld {
namespace {
// A word of a blank-separated line: "-" stands for an empty one.
std::string word(const std::string& s) { return s.empty() ? "-" : s; }

bool one_line(const std::string& s) {
  if (s.find_first_of("\n\r") == std::string::npos) return true;
  ERROR_MSG("file name with a line break, file " << s);
  return false;
}

void put_box(std::ostream& os, const mTbox& b) {
  os << ' ' << b.xmin << ' ' << b.ymin << ' ' << b.xmax << ' ' << b.ymax;
}

// Sections 1 to 4 and the labels of section 5.
bool write_idx_head(std::ofstream& fs, const DUTidx& idx) {
  fs << IDX_TAG << '\n';
  fs << "NSwaths GridSize Level Dim Unit NGCP NXYZGCP"
     << " Area{Xmin Ymin Xmax Ymax}:mT Ovr{Xmin Ymin Xmax Ymax}:mT TimeRes\n";
  fs << idx.nsw() << ' ' << idx.gsize << ' ' << idx.level << ' ' << idx.dim << ' ' << idx.unit << ' '
     << idx.nGCP << ' ' << idx.nXYZGCP;
  put_box(fs, idx.area);
  put_box(fs, idx.ovr);
  fs.precision(9);
  fs << ' ' << idx.time_res << "\n\n";
  const GCPctrl& g = idx.gcp;
  fs.precision(6);
  fs << "Parse Ctrl0 Sigma0 EqualWeights PCExport GCPFileName\n"
     << "#G " << word(g.col) << ' ' << g.C0 << ' ' << g.S0 << ' ' << g.EQ << ' ' << g.exp << ' ' << g.file
     << "\n\n";
  const XYZGCPctrl& h = idx.xyzgcp;
  fs << "Parse Ctrl0 SigmaH0 SigmaZ0 EqualWeights XYZGCPFileName\n"
     << "#H " << word(h.col) << ' ' << h.C0 << ' ' << h.SH0 << ' ' << h.SZ0 << ' ' << h.EQ << ' ' << h.file
     << "\n\n";
  if (!one_line(g.file) || !one_line(h.file)) return false;
  fs << "Swath# Group# Ch# MainCh Fixed AdjGPS RO WRO TimeMin TimeMax FileName\n";
  for (const SwathId sw : idx.swaths.ids()) {
    const DUTswath& s = idx.swaths[sw];
    if (!one_line(s.path)) return false;
    fs << "#S " << sw << ' ' << s.group << ' ' << s.ch << ' ' << s.mainch << ' ' << s.fixed << ' ' << s.adj
       << ' ' << s.ro << ' ' << s.wro << ' ' << s.tmin << ' ' << s.tmax << ' ' << s.path << '\n';
  }
  fs << "\nPair# Swath#1 Swath#2 NDisp\n";
  return true;
}

bool write_summed(DUTwriter& w, const void* data, uint64_t n) {
  w.sums.add(data, n);
  return w.dut.write(data, n);
}
}  // namespace

bool open_DUT_IDX(DUTwriter& w, const std::string& name, const DUTidx& idx, bool reg, bool nop) {
  LOG_ENTER("open_DUT_IDX nsw=" << idx.nsw() << " dim=" << idx.dim << " level=" << idx.level
                                << " gsize=" << idx.gsize << " DATAUNIT=" << idx.feet()
                                << " tr=" << idx.time_res << " REG=" << reg << " NOP=" << nop);
  LOG_LINE("sizeof(DUTstr)=" << sizeof(DUTstr) << " sizeof(DUTHdr)=" << sizeof(DUTHdr));
  LOG_LINE("GCPfile=" << idx.gcp.file << " C0=" << idx.gcp.C0 << " S0=" << idx.gcp.S0 << " EQ=" << idx.gcp.EQ
                      << " exp=" << idx.gcp.exp << " XYZGCPfile=" << idx.xyzgcp.file
                      << " XYZC0=" << idx.xyzgcp.C0 << " XYZSH0=" << idx.xyzgcp.SH0
                      << " XYZSZ0=" << idx.xyzgcp.SZ0 << " XYZEQ=" << idx.xyzgcp.EQ);
  ASSERT(!w.active);
  w.name = name;
  w.reg = reg;
  w.nint = w.nreg = 0;
  w.nvec = 0;
  if (nop) return true;
  w.active = true;
  DUTHdr hdr;
  hdr.dim = idx.dim;
  hdr.level = idx.level;
  hdr.gsize = idx.gsize;
  if (reg && !(w.dut.open(w.name + DUT_EXT) && write_summed(w, &hdr, sizeof(hdr)))) return false;
  return w.idx.open(w.name + IDX_EXT) && write_idx_head(w.idx.fs, idx);
}

bool write_DUT_pair(DUTwriter& w, SwathId sw1, SwathId sw2, std::vector<DUTstr>& rec,
                    const std::string& why) {
  if (!w.active) return true;
  const int pair = w.nint++;
  if (static_cast<uint32_t>(pair) >= DUT_MAXPAIRS) {
    ERROR_MSG("too many pairs for a DUT file, limit=" << DUT_MAXPAIRS << ", file " << w.name << DUT_EXT);
    return false;
  }
  w.nreg += !rec.empty();
  w.nvec += rec.size();
  for (DUTstr& r : rec) r.Pair = static_cast<uint16_t>(pair);
  if (!rec.empty() && !write_summed(w, rec.data(), rec.size() * sizeof(DUTstr))) return false;
  w.idx.fs << "#P " << pair << ' ' << sw1 << ' ' << sw2 << ' ' << rec.size() << (why.empty() ? "" : " ")
           << why << '\n';
  if (w.idx.fs.good()) return true;
  ERROR_MSG("writing file " << w.idx.part());
  return false;
}

bool close_DUT_IDX(DUTwriter& w) {
  if (!w.active) return true;
  w.idx.fs << "\nNPairs NPairsReg\n#N " << w.nint << ' ' << w.nreg << '\n';
  w.active = false;
  bool ok = !w.reg || w.dut.close();
  ok = w.idx.close() && ok;
  // The older index goes first: whatever happens in between, no index describes another's records.
  if (ok && w.reg && is_regular_file(w.name + IDX_EXT)) ok = remove_file(w.name + IDX_EXT);
  return ok &&
         (!w.reg ||
          (w.dut.commit_synced() && publish_sums(w.name + SUM_EXT, {{DUT_EXT, w.sums.finish()}}))) &&
         w.idx.commit();
}
}  // namespace veld
