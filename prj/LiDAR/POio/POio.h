// prj/LiDAR/POio/POio.h
// Trajectories: the record of position and orientation, files of it, and interpolation.
// Here:     PO, reading and scanning of SBET, TRJ, SOL, BIN, POF and text files, unrolling, statistics, interpolation.
// Not here: time scales and dates (POtime.h), projection and matching with swaths (VR2POsync).
#pragma once
#include <algorithm>
#include <cstdint>
#include <string>

#include "lib/DataStructure/vector.h"
#include "lib/Geometry/xyz.h"

namespace veld {
struct [[gnu::packed, gnu::aligned(4)]] PO {  // one sample, 44 bytes in memory and in caches
  double t;                                   // s
  double x, y, z;          // longitude and latitude in degrees, or easting and northing in m; height in m
  float roll, pitch, yaw;  // degrees; yaw clockwise from north
};
static_assert(sizeof(PO) == 44);
// The fields lie on 4-byte boundaries: take copies of them, no references.
inline dxyz position(const PO& rec) { return {rec.x, rec.y, rec.z}; }
// Widens a box to a point.
inline void grow_box(dxyz& min, dxyz& max, const dxyz& p) {
  min = {std::min(min.x, p.x), std::min(min.y, p.y), std::min(min.z, p.z)};
  max = {std::max(max.x, p.x), std::max(max.y, p.y), std::max(max.z, p.z)};
}

// Format numbers, by the suffix of the file name.
enum POformat { PO_TXT = 1, PO_POF = 2, PO_SBET = 3, PO_SOL = 4, PO_TRJ = 5, PO_BIN = 6, PO_LAS = 7 };
int PO_format(const std::string& path);
const char* PO_format_word(int fmt);  // four characters: "TXT ", "SBET", ...; "??? "

// Coordinate kinds (-po_geo).
enum POcoord { PO_PROJ = 0, PO_GEO = 1, PO_ECEF = 2 };
const char* PO_coord_word(int proj);  // "PROJ", "GEO ", "ECEF"
// Coordinate kind of a file: formats that can hold only one kind have that one whatever the option says
// (SBET, SOL, BIN, POF: geographic; TRJ: projected); text files have the kind given.
int PO_file_coord(int fmt, int geo);

struct POread {           // how a file is to be read; the same for all files of a group
  int proj = PO_PROJ;     // coordinates of text files (-po_geo)
  int time = 0;           // time format code 0..10 (-po_time), see POtime.h
  uint32_t gweek = 0;     // GPS week of the user's date, 0: not given (-gps_date)
  uint32_t gday = 0;      // day of the week of that date
  bool has_day = false;   // gday is that of the flight, whatever the week
  bool raw_time = false;  // times as they are in the file, without judging them: for who finds their scale
  bool rad = false;       // angles of text files are radians (-po_rad)
  bool sbetw0 = false;    // SBET: heading is taken as it stands, without the wander angle (-po_att 2)
  std::string col;        // columns of text files (-po_parse), empty: "txyzwpk"
  bool unroll = true;     // make the angles continuous; else yaw is within half a turn
  double deltat = 0;      // s, added to all times after conversion from the file's format
  double tinf = -2e307;   // s, time window after that shift; one sample or more is kept beyond each end
  double tsup = 2e307;
};

struct POscan {       // result of a scan
  int fmt = 0;        // POformat
  int coord = 0;      // POcoord of its samples
  bool tadj = false;  // times are adjusted standard GPS time (GPS seconds - 1e9), else seconds of the week
  double t0 = 0;      // s, first time after conversion
  double t1 = 0;      // s, last time, any rollover corrected
  uint64_t nrec = 0;  // records of a binary file; 0 for text
  bool own_time = false;  // the file itself says which scale its times have
  bool hms = false;       // times are written as hours, minutes and seconds
  bool roll = true;       // the file has this angle
  bool pitch = true;
  bool yaw = true;
};

// Reads only the first and the last record, for time and format. With AUTO_ADJ the adjusted flag
// follows the time stamps. False after an ERROR line.
[[nodiscard]] bool scan_PO(const std::string& path, const POread& par, POscan& scan);

// Reads the samples of the window in rising time order. tadj: as scan_PO. Angles in degrees; those that the file
// has not are 0. Single records that cannot be true are dropped and counted in a WARNING. Needs memory for the
// window only. False after an ERROR line, at last "failed to read PO file ".
[[nodiscard]] bool read_PO(const std::string& path, const POread& par, Vector<PO>& po, bool& tadj);

// Makes roll, pitch and yaw continuous from record i0 to the end: a step of more than 180 degrees is a wrap.
void unroll_PO(Vector<PO>& po, uint32_t i0 = 0);

struct POstat {
  double dt = 0;      // s, mean interval (of those up to MAX_TRAJ_DT, if there are any)
  double minint = 0;  // s
  double maxint = 0;
  double devint = 0;     // s, standard deviation of the interval
  uint64_t nerr = 0;     // intervals that don't rise
  uint64_t nsmall = 0;   // intervals below half the mean
  uint64_t nlarge = 0;   // intervals above twice the mean
  dxyz min = {0, 0, 0};  // bounding box
  dxyz max = {0, 0, 0};
};
// Statistics of intervals, bounding box, and their log lines. An empty list gives zeros.
POstat comp_PO_dt_stat(const Vector<PO>& po, int proj, bool tadj);
// The mean interval alone, without a log line: the dt that interpolation needs. At least 1e-6; 1 for one
// record.
double mean_dt_PO(const Vector<PO>& po);

// ---- interpolation: any thread, no allocation. dt > 0 and a non-empty list are asserted

constexpr double PO_TTOL = 0.1;  // s, accepted beyond both ends; the end sample is the answer there

// Cubic convolution on four samples, indices clamped at the ends. False (out unchanged) more than PO_TTOL
// outside. Starts at floor((t - t0) / dt) and walks to the bracket, so that jitter and gaps do no harm; in a
// bracket of uneven spacing (a gap) the interpolation is linear.
[[nodiscard]] bool InterpPO(const Vector<PO>& po, double t, double dt, PO& out);
// Linear between the two records of the bracket, for sparse tracks. Outside the ends out is the end sample;
// the result is false when that is more than PO_TTOL outside.
[[nodiscard]] bool SafeInterpPO(const Vector<PO>& po, double t, double dt, PO& out);
}  // namespace veld
