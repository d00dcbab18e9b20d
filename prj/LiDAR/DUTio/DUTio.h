// prj/LiDAR/DUTio/DUTio.h
// The DUT files (displacement, uncertainty, time): the result of a registration. "<name>.dut" holds one
// record a vertex and pair, "<name>_idx.log" describes the project, the swaths and the pairs.
// Here:     the records, the index, writing (open, append, close), reading, export as text.
// Not here: the loop over pairs that makes the records (LmTinter), the inversion of them (VR2inv).
#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "lib/DataStructure/nodata.h"
#include "lib/DataStructure/vector.h"
#include "lib/Geometry/xyz.h"
#include "lib/general/checksum.h"
#include "lib/general/result_file.h"
#include "prj/LiDAR/swath/swath_table.h"

namespace veld {
constexpr uint32_t DUT_MAGIC = 0x471EFF39;
constexpr uint32_t DUT_VERSION = 0x0003378A;
constexpr double DUT_NOTIME = -2e307;     // Time1 or Time2 of a vertex without a time
constexpr float DUT_NODATA = NODATA;      // Z of a vertex without an estimate
constexpr float DUT_COM_XY = 2;           // the common part of the uncertainty in X and Y, of that in Z
constexpr uint32_t DUT_MAXPAIRS = 65536;  // Pair# is 16 bits wide

struct DUTHdr {  // start of ".dut"
  uint32_t magic = DUT_MAGIC;
  uint32_t version = DUT_VERSION;
  int32_t dim = 0;    // pixels along the side of a microtile
  int32_t level = 0;  // log2 of the side of a tile in metres
  int32_t gsize = 0;  // m, spacing of the vertices
};

struct DUTstr {          // one vertex of one pair
  int32_t X = 0;         // m, ground position of the vertex
  int32_t Y = 0;         // m
  float Z = 0;           // m, mean reference height of the vertex; DUT_NODATA: invalid
  xyz Disp = {0, 0, 0};  // m, position in the first swath less that in the second
  xyz Unc = {0, 0, 0};   // m, standard deviation
  float Com =
      0;  // m, of Unc Z: what vegetation does to all vectors of a pair alike; DUT_COM_XY times in X, Y
  double Time1 = 0;   // s, time of the vertex in the first swath; DUT_NOTIME: invalid
  double Time2 = 0;   // s, in the second
  uint16_t Pair = 0;  // pair number, from 0
  uint8_t pad2[6] = {0, 0, 0, 0, 0, 0};
};
static_assert(sizeof(DUTHdr) == 20 && sizeof(DUTstr) == 64);

// True for a record that every reader takes.
inline bool DUT_valid(const DUTstr& r) {
  return r.Time1 != DUT_NOTIME && r.Time2 != DUT_NOTIME && r.Z != DUT_NODATA;
}

struct DUTswath {      // a "#S " line: a row of the table of swaths
  int group = 1;       // 1-based group of mobile swaths; 0 for fixed ones, and for rows that are not present
  int ch = 0;          // laser channel
  bool mainch = true;  // the swath is the main channel of its line
  bool fixed = false;  // a reference
  bool adj = false;    // times are adjusted standard GPS time
  bool ro = false;     // a rollover of the times was corrected
  bool wro = false;    // that rollover was one of a week, else of a day
  double tmin = 0;     // s, unrolled
  double tmax = 0;     // s
  std::string path;    // with the number of members behind it for a union
  bool present() const { return fixed || group > 0; }
};

// The line of a row, and whether a line is of this row: the same file, or one of the same name. Of a union the first
// member and the number of members count.
DUTswath make_DUTswath(const SwathTable& swaths, SwathId id);
bool is_row(const DUTswath& line, const SwathTable& swaths, SwathId id);

struct DUTinter {      // a "#P " line
  SwathId sw1;         // the first swath: the moved image
  SwathId sw2;         // the second: the reference
  uint64_t ndisp = 0;  // records of the pair in ".dut", 0 when it could not be registered
};

struct GCPctrl {    // "#G ": ground control points
  std::string col;  // columns of the file, empty without one
  double C0 = 0;    // default control flag
  double S0 = 0;    // m, default sigma
  int EQ = 0;       // weights: 0 by both uncertainties, 1 equal, 2 by sigma
  int exp = 0;      // export of the point cloud around the points
  std::string file;
};

struct XYZGCPctrl {  // "#H ": XYZ ground control points
  std::string col;
  double C0 = 0;   // default control flag
  double SH0 = 0;  // m, default sigma in X and Y
  double SZ0 = 0;  // m, default sigma in Z
  bool EQ = false;
  std::string file;
};

struct mTbox {  // limits in microtiles, both ends inside; absolute (tile index x 32 + microtile)
  int64_t xmin = 0, ymin = 0, xmax = 0, ymax = 0;
};

struct DUTidx {  // the whole content of "_idx.log"
  int gsize = 0;
  int level = 0;
  int dim = 0;
  int unit = 0;  // unit of the input files: 0 metres, 1 international feet, 2 US survey feet
  int nGCP = 0;
  int nXYZGCP = 0;
  mTbox area;           // of all swaths
  mTbox ovr;            // of the overlaps
  double time_res = 0;  // s
  GCPctrl gcp;
  XYZGCPctrl xyzgcp;
  SwathVector<DUTswath> swaths;
  std::vector<DUTinter> pairs;  // by pair number; filled by the reader
  int nreg = 0;                 // pairs with a valid registration; filled by the reader

  int nsw() const { return static_cast<int>(swaths.size()); }
  int nint() const { return static_cast<int>(pairs.size()); }
  uint64_t nvec() const {  // records of all pairs
    uint64_t n = 0;
    for (const DUTinter& p : pairs) n += p.ndisp;
    return n;
  }
  // Metres per unit of the input files.
  double feet() const { return unit == 1 ? 0.3048 : unit == 2 ? 1200.0 / 3937.0 : 1.0; }
};

struct DUTpair {  // the valid vectors of a pair, one entry a vertex in every array
  int pair = 0;   // number in DUTidx::pairs
  SwathId sw1;
  SwathId sw2;
  Vector<dxyz> pos;   // m, ground position and height
  Vector<xyz> disp;   // m, position in sw1 less position in sw2
  Vector<xyz> unc;    // m, standard deviation
  Vector<float> com;  // m, of unc.z: what is common to the vectors of the pair; DUT_COM_XY times in x, y
  Vector<double> t1;  // s, time in sw1
  Vector<double> t2;  // s, time in sw2
  uint64_t size() const { return pos.size(); }
};

// The two files under construction. They get their names in close_DUT_IDX; if that is never reached they are
// removed, and older files of that name stay.
struct DUTwriter {
  std::string name;
  bool active = false;  // between open and close, unless nothing is to be written at all
  bool reg = false;     // there is a ".dut"; without it the index stands alone
  int nint = 0;         // pairs written
  int nreg = 0;         // of these with vectors
  uint64_t nvec = 0;    // records written
  BinResultFile dut;
  BlockSummer sums;  // of the ".dut"
  ResultFile idx;
};

// The base path that the name of either file stands for: without ".dut" or "_idx.log" at its end. Other dots
// belong to the name.
std::string DUT_base(const std::string& path);

// Creates the files and writes everything that stands before the pairs. With nop nothing is created and the
// other writing calls succeed without effect. False after an ERROR line.
[[nodiscard]] bool open_DUT_IDX(DUTwriter& w, const std::string& name, const DUTidx& idx, bool reg, bool nop);
// Appends the records of the next pair (their Pair field is set here) and its "#P " line. There may be none;
// why then stands at the end of the line, where readers pass over it.
[[nodiscard]] bool write_DUT_pair(DUTwriter& w, SwathId sw1, SwathId sw2, std::vector<DUTstr>& rec,
                                  const std::string& why = "");
// Writes the counts of pairs, closes both files and gives them their final names.
[[nodiscard]] bool close_DUT_IDX(DUTwriter& w);

// Reads name + "_idx.log". False after an ERROR line that names the fault and the file.
[[nodiscard]] bool read_DUT_IDX(const std::string& name, DUTidx& idx);
// Reads name + ".dut" as idx describes it, and compares it with its checksums when it has some (".dut.sum"). Only pairs with valid records come back, each with its number.
// False after an ERROR line; a file without any valid record is an error.
[[nodiscard]] bool read_DUT(const std::string& name, const DUTidx& idx, std::vector<DUTpair>& pairs);
// Writes name + "_dut.txt" from the pair of files. False after an ERROR line.
[[nodiscard]] bool export_DUT(const std::string& name);
}  // namespace veld
