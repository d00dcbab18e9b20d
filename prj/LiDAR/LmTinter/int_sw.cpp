// Choice of the swath pairs.
#include <algorithm>

#include "lib/general/log.h"
#include "prj/LiDAR/LmTinter/LmTinter.h"
#include "prj/LiDAR/LmTplot/LmTplot.h"

namespace {
bool boxes_meet(const LTidxInfo& a, const LTidxInfo& b) {
  return a.XImin <= b.XImax && b.XImin <= a.XImax && a.YImin <= b.YImax && b.YImin <= a.YImax;
}

const char* filter_word(int v, const char* same, const char* all, const char* diff) {
  return v == KEEP_SAME ? same : v == KEEP_ALL ? all : diff;
}

// Channels are a swath's own; a line flown by two channels is two swaths at the same time.
struct PairFlags {
  bool samech, samefl, samegrpfl, anyfixed, main1, main2;
};

PairFlags comp_pair_flags(const Project& prj, const std::vector<LTidxInfo>& info, size_t i, size_t j) {
  const Swath &a = prj.swaths[i], &b = prj.swaths[j];
  PairFlags f;
  f.anyfixed = a.fixed || b.fixed;
  f.samech = a.channel == b.channel;
  f.samefl = !f.samech && !f.anyfixed && info[i].tmin < info[j].tmax && info[j].tmin < info[i].tmax;
  f.samegrpfl = a.group == b.group || f.samefl;
  f.main1 = a.mainch == static_cast<int>(i);
  f.main2 = b.mainch == static_cast<int>(j);
  return f;
}

bool keep_pair(const PairFlags& f, const PairFilter& filter) {
  if (filter.RDIM == 1 && !f.samech && !f.samefl) return false;
  if (filter.RDIM == 2 && !(f.samefl ? f.main1 || f.main2 : f.main1 && f.main2)) return false;
  if (!filter.filter) return true;
  if (filter.GRP == KEEP_SAME && !f.samegrpfl) return false;
  if (filter.GRP == KEEP_DIFF && f.samegrpfl) return false;
  if (filter.REF == KEEP_SAME && f.anyfixed) return false;
  if (filter.REF == KEEP_DIFF && !f.anyfixed) return false;
  if (filter.CH == KEEP_SAME && !f.samech) return false;
  return filter.CH != KEEP_DIFF || !f.samech;
}
}  // namespace

bool comp_sw_overlap(const Project& prj, Image<uint8_t>& overlap) {
  const int nsw = static_cast<int>(prj.swaths.size());
  LOG_ENTER("comp_sw_overlap nsw=" << nsw);
  overlap.resize(nsw, nsw, uint8_t{0});
  std::vector<LTidxInfo> info(prj.swaths.size());
  for (size_t i = 0; i < prj.swaths.size(); i++)
    if (prj.swaths[i].used && !read_LTidxInfo(prj.swaths[i].path, info[i])) {
      ERROR_MSG("missing/incompatible temp. tile files, swath " << prj.swaths[i].path);
      return false;
    }
  for (int i = 0; i < nsw; i++) {
    const Swath& a = prj.swaths[static_cast<size_t>(i)];
    Tocc occ1, occ2;
    for (int j = i + 1; j < nsw && a.used; j++) {
      const Swath& b = prj.swaths[static_cast<size_t>(j)];
      if (!b.used || !boxes_meet(info[static_cast<size_t>(i)], info[static_cast<size_t>(j)])) continue;
      if ((occ1.empty() && !read_Tocc(a.path, occ1)) || !read_Tocc(b.path, occ2)) {
        ERROR_MSG("missing/incompatible temp. tile files, swath " << (occ1.empty() ? a.path : b.path));
        return false;
      }
      overlap(i, j) = overlap(j, i) = !inter_Tocc(occ1, occ2).empty();
    }
  }
  return true;
}

std::vector<SwPair> comp_int_sw(const Project& prj, const std::vector<LTidxInfo>& info,
                                const Image<uint8_t>& overlap, const PairFilter& filter, bool REG, int& n0,
                                int& n1) {
  const int nsw = static_cast<int>(prj.swaths.size());
  const char* label = REG ? "Reg Pair filtering" : "QC Pair filtering";
  LOG_ENTER("comp_int_sw nsw=" << nsw << " REG=" << REG << " ALLDZ=" << filter.ALLDZ << " RDIM="
                               << filter.RDIM << " GRPREG=" << filter.GRP << " REFREG=" << filter.REF
                               << " CHREG=" << filter.CH << " filter=" << filter.filter);
  if (filter.filter)
    LOG_LINE(label << ": Grp=" << filter_word(filter.GRP, "same", "all", "diff")
                   << " Ref=" << filter_word(filter.REF, "off", "on", "only")
                   << " Ch=" << filter_word(filter.CH, "same", "all", "diff") << " Reduce=" << filter.RDIM);
  n0 = n1 = 0;
  std::vector<SwPair> pairs;
  for (int i = 0; i < nsw; i++)
    for (int j = i + 1; j < nsw; j++) {
      const bool references =
          prj.swaths[static_cast<size_t>(i)].fixed && prj.swaths[static_cast<size_t>(j)].fixed;
      if (overlap(i, j) == 0 || references) continue;
      const PairFlags f = comp_pair_flags(prj, info, static_cast<size_t>(i), static_cast<size_t>(j));
      const bool reg = keep_pair(f, filter);
      LOG_LINE("sw1=" << i << " sw2=" << j << " ch1=" << prj.swaths[static_cast<size_t>(i)].channel
                      << " ch2=" << prj.swaths[static_cast<size_t>(j)].channel << " main1=" << f.main1
                      << " main2=" << f.main2 << " samech=" << f.samech << " samefl=" << f.samefl
                      << " samegrpfl=" << f.samegrpfl << " nofx=" << !f.anyfixed << " reg=" << reg);
      n0++;
      n1 += reg;
      if (reg || filter.ALLDZ) pairs.push_back({i, j, reg, static_cast<int>(pairs.size())});
    }
  LOG_LINE("n0=" << n0 << " n1=" << n1 << " " << label);
  return pairs;
}
