// Reading of the DUT records, and their export as text.
#include <algorithm>
#include <cmath>

#include "lib/general/log.h"
#include "lib/general/path.h"
#include "lib/general/result_file.h"
#include "prj/LiDAR/DUTio/DUTio.h"
#include "prj/LiDAR/DUTio/DUTio_internal.h"

namespace veld {
namespace {
// Opens name + ".dut" and reads its header.
bool open_DUT(const std::string& file, BufBinFileIn& in, DUTHdr& hdr) {
  if (!in.open(file)) return false;
  if (in.read(&hdr, sizeof(hdr)) && hdr.magic == DUT_MAGIC && hdr.version == DUT_VERSION) return true;
  ERROR_MSG("invalid DUT format, file " << file);
  return false;
}

// Compares a file with its checksums. One of another size than theirs is left to those who count its records.
bool check_sums(const std::string& name) {
  BlockSums blocks;
  const SumState state = read_sum_file(name + SUM_EXT, DUT_EXT, blocks);
  if (state == SumState::none) LOG_LINE("<!> no checksums " << name << SUM_EXT);
  if (state == SumState::none ||
      (state == SumState::good && static_cast<int64_t>(blocks.size) != file_size(name + DUT_EXT)))
    return true;
  const std::string fault = state == SumState::damaged ? "damaged file " + name + SUM_EXT
                                                       : file_fault(name + DUT_EXT, blocks, true);
  if (fault.empty()) return true;
  ERROR_MSG("damaged DUT file, register again: " << fault);
  return false;
}

bool finite_record(const DUTstr& r) {
  return std::isfinite(r.Z) && std::isfinite(norm(r.Disp)) && std::isfinite(norm(r.Unc)) &&
         std::isfinite(r.Com) && std::isfinite(r.Time1) && std::isfinite(r.Time2);
}

void store_pair(const std::vector<DUTstr>& rec, DUTpair& p) {
  const uint64_t n = rec.size();
  p.pos.resize(n);
  p.disp.resize(n);
  p.unc.resize(n);
  p.com.resize(n);
  p.t1.resize(n);
  p.t2.resize(n);
  for (uint64_t i = 0; i < n; i++) {
    const DUTstr& r = rec[i];
    p.pos[i] = {static_cast<double>(r.X), static_cast<double>(r.Y), static_cast<double>(r.Z)};
    p.disp[i] = r.Disp;
    p.unc[i] = r.Unc;
    p.com[i] = r.Com;
    p.t1[i] = r.Time1;
    p.t2[i] = r.Time2;
  }
}
}  // namespace

bool read_DUT(const std::string& name, const DUTidx& idx, std::vector<DUTpair>& pairs) {
  const uint64_t nptt = idx.nvec();
  LOG_ENTER("read_DUT nint=" << idx.nint() << " dim=" << idx.dim << " level=" << idx.level
                             << " gsize=" << idx.gsize << " nptt=" << nptt);
  pairs.clear();
  const std::string file = name + DUT_EXT;
  BufBinFileIn in(BULK_BUFFER);
  DUTHdr hdr;
  if (!open_DUT(file, in, hdr)) return false;
  const uint64_t fsize = static_cast<uint64_t>(std::max<int64_t>(0, in.get_size()));
  const uint64_t nfile = (fsize - sizeof(DUTHdr)) / sizeof(DUTstr);
  if (fsize != sizeof(DUTHdr) + sizeof(DUTstr) * nptt) LOG_LINE("<!> fsize=" << fsize);
  LOG_MSG1("Reading DUT file " << file << " (" << nptt << " vectors, " << static_cast<double>(fsize) * 1e-6
                               << " Mb)");
  if (hdr.dim != idx.dim || hdr.level != idx.level || hdr.gsize != idx.gsize) {
    ERROR_MSG("incompatible DUT file " << file << " Hdr.level=" << hdr.level << " Hdr.gsize=" << hdr.gsize
                                       << " Hdr.dim=" << hdr.dim);
    return false;
  }
  uint64_t nread = 0, tnptok = 0;
  for (int i = 0; i < idx.nint(); i++) {
    const DUTinter& inter = idx.pairs[static_cast<size_t>(i)];
    std::vector<DUTstr> rec;  // the valid ones
    rec.reserve(std::min(inter.ndisp, nfile - std::min(nfile, nread)));
    for (uint64_t k = 0; k < inter.ndisp; k++) {
      DUTstr r;
      if (!in.read(&r, sizeof(r)) || r.Pair >= idx.nint()) {
        ERROR_MSG("reading record #" << k << " inter #" << i << ", file " << file);
        return false;
      }
      nread++;
      if (r.Pair == i && DUT_valid(r) && finite_record(r)) rec.push_back(r);
    }
    if (rec.empty()) continue;
    tnptok += rec.size();
    pairs.emplace_back();
    pairs.back().pair = i;
    pairs.back().sw1 = inter.sw1;
    pairs.back().sw2 = inter.sw2;
    store_pair(rec, pairs.back());
  }
  LOG_LINE("nreg=" << idx.nreg << " nregok=" << pairs.size() << " tnpt=" << nread << " tnptok=" << tnptok);
  if (tnptok > 0) return check_sums(name);
  ERROR_MSG("no valid registration data in DUT file " << file);
  return false;
}

bool export_DUT(const std::string& name) {
  LOG_ENTER("export_DUT " << name);
  DUTidx idx;
  if (!read_DUT_IDX(name, idx)) return false;
  const std::string file = name + DUT_EXT, text = name + "_dut.txt";
  BufBinFileIn in(BULK_BUFFER);
  DUTHdr hdr;
  if (!open_DUT(file, in, hdr)) return false;
  ResultFile out;
  if (!out.open(text)) return false;
  out.fs << "X Y Z Disp{X Y Z} Unc{X Y Z} Time1 Time2 Pair#\n";
  const double unit = 1.0 / idx.feet();
  const uint64_t n = idx.nvec();
  uint64_t tnok = 0;
  bool ok = true;
  for (uint64_t k = 0; k < n && ok; k++) {
    DUTstr r;
    ok = in.read(&r, sizeof(r));
    if (!ok) {
      ERROR_MSG("reading record #0 inter #0, file " << file);
      break;
    }
    tnok += DUT_valid(r);
    out.fs << r.X * unit << ' ' << r.Y * unit << ' ' << static_cast<double>(r.Z) * unit << ' ' << r.Disp.x
           << ' ' << r.Disp.y << ' ' << r.Disp.z << ' ' << r.Unc.x << ' ' << r.Unc.y << ' ' << r.Unc.z << ' ';
    if (r.Time1 == DUT_NOTIME || r.Time2 == DUT_NOTIME)
      out.fs << "-1E10 -1E10 ";
    else
      out.fs << r.Time1 << ' ' << r.Time2 << ' ';
    out.fs << r.Pair << '\n';
  }
  if (!ok || !check_sums(name) || !out.commit()) return false;
  LOG_MSG1("Exported DUT as ascii file " << text << " (" << n << " vectors)");
  LOG_LINE("nreg=" << idx.nreg << " tnok=" << tnok << " tnpt=" << n);
  return true;
}
}  // namespace veld
