#include "prj/LiDAR/options/outputs.h"

#include <cstring>
#include <regex>

namespace veld {
namespace {
constexpr char STAT_COLUMNS[] =
    "Pair#: number of the pair in NAME_idx.log, from 0\n"
    "Swath#1, Swath#2: numbers of its swaths, as in NAME_sw_stat.log\n"
    "Mean, StdDev, RMS: robust centre, scale and root mean square of the height differences (first less "
    "second), m\n"
    "Outlier%: pixels outside the robust scale, percent\n"
    "Filtered%: pixels taken out as spikes, percent\n"
    "Area: compared ground, m2 or km2 as the header says\n"
    "FileName1, FileName2: of the swaths, without directory, blanks are _\n"
    "NPairs: of the last table, over all pairs: their number, StdDev, RMS and Area together";
constexpr char GCP_COLUMNS[] =
    "lengths in the unit of the input files, as the header says\n"
    "GCP LIST: a line for each point in each swath; DZ: height of the swath less that of the point\n"
    "In, InGrp: 0 for outliers among all, in the group; InCI95, InCI99: within the interval\n"
    "Corr: the correction there; Slope: of the ground; Density: points per square unit\n"
    "Roughness: RMS of the points about the ground; Unc: standard deviation of the height\n"
    "Npts, Out%: points within the kernel, and the percentage left out; Sigma: of the survey; Control: 0 for "
    "check points\n"
    "ASPRS TIN: the triangle T1 T2 T3 around the point, and its height there";
constexpr char XYZGCP_COLUMNS[] =
    "LiDAR: where the target lies in the swath; StdDev, RMS of XY: of one horizontal axis; DR: of the "
    "radius\n"
    "InCI95, InCI99: within the confidence region; the rest as in NAME_GCP.log";
constexpr char XYZ_COLUMNS[] =
    "Mean, StdDev, RMS, Min, Max: of the vectors, X Y Z each, m\n"
    "NPts: number of vectors\n"
    "Pair#, Swath#1, Swath#2 or Swath#: numbers as in the other files; FileName1, FileName2 or FileName: "
    "their "
    "files\n"
    "NSwaths: of the last table, over all swaths";
constexpr char DZ_FILES[] =
    "(map): differences in m\n"
    "_hist: their histogram; _hist.txt with -ascii: DZ (m, middle of a bin), Count";
constexpr char VECTOR_FILES[] =
    "_x, _y, _z: an axis each, m; with -vmap_rgb _rgb, all axes as colours; with -vmap_max _max, the "
    "largest\n"
    "_XY, _YZ, _XZ: scatter plots of two axes\n"
    ".img.txt with -ascii: X Y (m) and the vector (m), a line a vertex";

constexpr char SEP_COLUMNS[] =
    "RMSDz, Max, P95: root mean square, largest and 95th percentile of the height differences of cells, m\n"
    "Beyond1%, Beyond2%: cells beyond the first and the second break of the colours, percent\n"
    "Area: of the cells, m2\n"
    "Precision{Mean P95 Max}: range of heights in a cell of twice the point spacing less what the slope "
    "explains, m\n"
    "NCells: number of these cells\n"
    "PrecisionMax, RMSDzMax, DzMax: limits of each quality level, m";

// What may follow the suffix of a picture: axis or plot, part of a large map, colour bar, file type.
const std::regex& picture_ending() {
  static const std::regex ending(
      "(_hist|_[xyz]|_rgb|_max|_XY|_YZ|_XZ)?(_r[0-9]+_c[0-9]+)?(_cmap_[-_.0-9]+|[.]img)?\\.(jpg|tif|jgw|tfw|"
      "txt)");
  return ending;
}
}  // namespace

const std::vector<OutputTable>& output_tables() {
  static const std::vector<OutputTable> tables = {
      {"_sw_stat.log", "Swath# Group# Ch# MainCh MPts NTiles",
       "statistics of the swaths, then of the project",
       "Swath#: number from 0 in the order of the inputs; all other files use it\n"
       "Group#, Ch#: group (each -i from 1) and laser channel (from 0)\n"
       "MainCh: 1 for the main channel of its line\n"
       "MPts: points kept, millions\n"
       "NTiles, NmTiles: tiles, microtiles with points\n"
       "Length, Width, Area: of the swath, m (or km, as the header says)\n"
       "Heading: degrees clockwise from grid north; Ori: that of a reference\n"
       "Density: points/m2\n"
       "Dim, GGSD: grid pixels along a microtile, grid spacing in m\n"
       "Xmin, Xmax, Ymin, Ymax, Zmin, Zmax: box of the points kept, m; Zmed: median height\n"
       "DateTimeMin, DateTimeMax: first and last point, UTC, or day of the week and time without a GPS week\n"
       "Amin, Amax: recorded scan angles, degrees\n"
       "AdjGPS: 1 for adjusted standard GPS time; RO, WRO: a rollover of the day or of the week was "
       "corrected\n"
       "TimeRes: mean time to pass a microtile, s\n"
       "DTmax: largest time range in a microtile, s\n"
       "Dev, Devmax: mean and largest deviation of times from a plane, ratio\n"
       "FileName: of the swath\n"
       "RefSwath#: second table, if there are references; TimeMin, TimeMax: s, as in the file\n"
       "NSwaths, NGrp: last table, of the project: swaths and groups\n"
       "BBox_DX, BBox_DY: size of the project, m (or km)\n"
       "TileSize, mTileSize: sides of tiles and microtiles, m\n"
       "Zmin0, Zmax0: heights without the outliers taken off, m\n"
       "Distance, Speed, FlightTime: flown along the swaths of main channels: m (or km), m/s, s"},
      {"_rej.log", "FileName", "swaths that were left out, with the reason below each", ""},
      {"_idx.log", "#[IDX",
       "index of the displacement file NAME.dut: settings, swaths (#S; not used: group 0, Fixed 0), pairs "
       "(#P)",
       ""},
      {"_2_idx.log", "#[IDX",
       "the same of NAME_2.dut, the second registration: displacements measured about what the first ones "
       "gave",
       ""},
      {"_DZ_stat.log", "Pair# Swath#1 Swath#2 Mean StdDev RMS Outlier% Filtered% Area:",
       "height differences of the pairs as the files are", STAT_COLUMNS},
      {"_DZreg_stat.log", "Pair# Swath#1 Swath#2 Mean StdDev RMS Outlier% Filtered% Area:",
       "the same with the displacements taken out", STAT_COLUMNS},
      {"_DZcorr_stat.log", "Pair# Swath#1 Swath#2 Mean StdDev RMS Outlier% Filtered% Area:",
       "the same with the corrections applied", STAT_COLUMNS},
      {"_DXYZreg_stat.log", "Pair# Swath#1 Swath#2 Mean{X Y Z}",
       "displacements of the pairs: position in the first swath less that in the second", XYZ_COLUMNS},
      {"_DXYZcorr_stat.log", "Swath# Mean{X Y Z}", "corrections of the swaths, shift of the swath included",
       XYZ_COLUMNS},
      {"_inv_stat.log", "Pair# Swath#1 Swath#2 Mean{X Y Z}", "residuals of the inversion",
       "Mean, StdDev, RMS, Min, Max, NPts: of the residuals, X Y Z each, m\n"
       "Sqrt(Chi2/n): residuals in units of the precisions in use, 1 is right\n"
       "HFDrift: change along the line, m per root of an hour\n"
       "ResScale: residuals in units of the uncertainties that the registration gave\n"
       "Down%: vectors with less than half their weight, percent\n"
       "Pair#, Swath#1, Swath#2, FileName1, FileName2: of the pair\n"
       "NPairs: of the last table, over all pairs"},
      {"_int_rej.log", "", "pairs of which no vector, or less than three quarters of them, took part",
       "Pair#, Swath#1, Swath#2, FileName1, FileName2: of the pair\n"
       "Down%: vectors put aside, percent; 100: the pair was rejected"},
      {"_PO_stat.log", "POFile# Freq TimeInt", "trajectories that were used",
       "POFile#: number from 0 in the order of -po\n"
       "Freq: records/s\n"
       "TimeInt, DateTimeMin, DateTimeMax: length (hh:mm:ss), first and last record, UTC\n"
       "Xmin, Xmax, Ymin, Ymax, Zmin, Zmax: box, m, in the project's system\n"
       "FileName: of the trajectory\n"
       "A last line has the files together. While a run is at work, and behind one that failed, the table of "
       "the "
       "scan "
       "may stand there instead: Format, Coord (coordinates), TimeFormat (-po_time), Att (-po_att), "
       "AdjGPSFile (1: "
       "adjusted standard GPS time), DateTime0 (first record, UTC), Angle and Parse (of text)"},
      {"_PO_sync_stat.log", "Swath# POFile# Group# Ch#", "swaths and the trajectories that flew them",
       "Swath#, Group#, Ch#, MainCh: as in NAME_sw_stat.log; POFile#: as in NAME_PO_stat.log\n"
       "TimeCorr: s, added to the times of the swath or file so that both are on one clock\n"
       "TimeInt, DateTimeMin, DateTimeMax: length (hh:mm:ss), begin and end, UTC\n"
       "Xmin, Xmax, Ymin, Ymax, Zmin, Zmax: box of the trajectory over the swath, m\n"
       "FileName: of the swath, in the second table of the trajectory\n"
       "NSwathsSync, NPOFilesSync: third table, by group of trajectories: swaths and files that belong "
       "together\n"
       "GPSWeekIn, GPSDayIn: by -gps_date; GPSWeek: found; GPSWeekDate: its first day"},
      {"_ch_stat.log", "Swath#_Ch{...} Group#_Ch{...} NCh",
       "lines with several channels, one time span for all",
       "Swath#_Ch, Group#_Ch: swaths and groups of the channels; NCh: their number\n"
       "TimeInt, DateTimeMin, DateTimeMax: length (hh:mm:ss), begin and end, UTC"},
      {"_sw_PO_rej.log", "Swath# FileName", "swaths without a trajectory or without displacements",
       "Swath#, FileName: of the swath"},
      {"_PO_rej.log", "POFile# FileName", "trajectories that no swath lies in",
       "POFile#, FileName: of the trajectory"},
      {"_BF_ICS_stat.log", "Swath# Group# Ch# MainCh AGL", "microtiles of the swaths seen from the scanner",
       "Swath#, Group#, Ch#, MainCh: as in NAME_sw_stat.log; FileName: of the swath\n"
       "AGL: mean height of the trajectory above the ground, m\n"
       "Width: of the swath, m\n"
       "Roll, Pitch, Yaw: mean attitude, degrees\n"
       "FOV: range of the scan angles, degrees\n"
       "RMS: of the distance of microtiles from the scan plane, m\n"
       "NLargeErr, NPts: microtiles in directions that no scan has, of all\n"
       "Pass: 1 when less than 1 percent of them"},
      {"_cal.log", "Lever{X Y Z} Bore{Roll Pitch Yaw}", "calibration sets found, to be added",
       "Lever: m, X forward, Y right, Z down\n"
       "Bore: degrees\n"
       "Int: internal parameters (range bias m, range scale, scan angle coefficients rad, tilt)\n"
       "NSwaths{Ext Int}: swaths that share the set; Swath#, Group#, Ch#, FileName: of the first of them"},
      {"_cal.txt", "",
       "the same in one line for -calib_corr: lever (m), boresight (degrees), internal parameters; with "
       "-calib_param on "
       "top of the calibration given there",
       ""},
      {"_cal_cov.txt", "Parameter Unit Uncertainty Correlations{upper triangle}",
       "uncertainties of the calibration, with 2 cm for a lever arm that was not calibrated: boresight in "
       "radians, unlike in NAME_cal.txt",
       "Parameter: x y z lever, w p k boresight roll pitch yaw, I1 to I7 internal, SX SY SZ shift to the "
       "references\n"
       "Unit: of the uncertainty\n"
       "Uncertainty: standard deviation\n"
       "Correlations: with the parameters in the order of the lines"},
      {"_TA.log", "Time TrajCorr{X Y Z} AttCorr{Roll Pitch Yaw} CtrlPt# Swath#",
       "drift found, at the nodes of each swath, to be added",
       "Time: s, adjusted standard GPS time (GPS seconds less 1e9), or seconds of the week without a GPS "
       "week\n"
       "TrajCorr: m\n"
       "AttCorr: degrees, roll, pitch, yaw\n"
       "CtrlPt#: node within the swath; Swath#"},
      {"_P_TA.log", "Time X Y Z TrajCorr{X Y Z} AttCorr{Roll Pitch Yaw} CtrlPt# Swath#",
       "the same with the place of the trajectory",
       "X, Y, Z: m, in the project's system; Time, TrajCorr, AttCorr, CtrlPt#, Swath#: as in NAME_TA.log"},
      {"_TA_stat.log", "Swath# Period NPts",
       "statistics of the drift of each swath, T position (m), A attitude (degrees)",
       "Swath#, FileName: of the swath; NSwaths: of the tables of all swaths\n"
       "Period: length of the swath, s; NPts: nodes\n"
       "T_Min, T_Max, T_Mean, T_RMS, T_StdDev: over the nodes, m; T: the one value of a swath without nodes\n"
       "T_Drift: slope, m/h; T_HFDrift: steps between nodes, m per root of an hour\n"
       "A_Min, A_Max, A_Mean, A_mean, A_RMS, A_StdDev, A_Drift, A_drift, A_HFDrift, A: the same of the "
       "attitude, "
       "degrees"},
      {"_PO_sw_N.txt", "Time X Y Z Roll Pitch Yaw", "corrected trajectory of swath number N (-oposeg)",
       "Time: s, as in NAME_TA.log\n"
       "X, Y, Z: in the project's system, output units (-out_metre)\n"
       "Roll, Pitch, Yaw: degrees, yaw from grid north"},
      {"_PO_rec_sw_N.txt", "Time X Y Z Roll Pitch Yaw",
       "trajectory of swath number N as it was read, every n-th record (-porec, -po_sub); with -po_sub 1 it "
       "can take the "
       "place of the trajectory file",
       "columns as in NAME_PO_sw_N.txt, attitudes with the IMU angles if -att_imu is on"},
      {"_P_TA_sw_N.txt", "Time X Y Z TrajCorr{X Y Z} AttCorr{Roll Pitch Yaw}",
       "trajectory of swath number N and its corrections, to be added (-ocorr)",
       "columns as in NAME_P_TA.log"},
      {"_po_N.out", "",
       "trajectory file number N corrected (-opo): a copy of an SBET with place, height and angles changed "
       "where swaths "
       "were corrected, all else as it is; with the calibration in NAME_cal.txt it gives the corrected "
       "points",
       ""},
      {"_po_N.txt", "Time Lon Lat h Roll Pitch Yaw",
       "the same of other formats: X Y Z instead of Lon Lat h for projected ones",
       "Time: s, as in NAME_TA.log\n"
       "Lon, Lat: degrees; X, Y, Z in the unit of the swaths; h: m\n"
       "Roll, Pitch, Yaw: degrees, yaw from north as in the source"},
      {"_report.html", "",
       "what was done and whether it is good, on one page for a browser or for paper: map, differences, "
       "control "
       "points, accuracy, calibration, drift, what was rejected, options",
       ""},
      {"_GCP.log", "", "heights of the swaths as they are at the control points (-gcp)", GCP_COLUMNS},
      {"_GCPcorr.log", "", "the same with the corrections applied", "as in NAME_GCP.log"},
      {"_XYZGCP.log", "", "targets in three dimensions (-xyz_gcp) in the swaths as they are", XYZGCP_COLUMNS},
      {"_XYZGCPcorr.log", "", "the same with the corrections applied", "as in NAME_XYZGCP.log"},
      {"_GCP.json", "",
       "with -json: NAME_GCP.log as JSON; likewise NAME_GCPcorr.json, NAME_XYZGCP.json, NAME_XYZGCPcorr.json",
       ""},
      {"_GCP_PC.txt", "X Y Z Swath# Group# In",
       "with -ogcp_pc: laser points around the control points; with the corrections NAME_GCP_PC_corr.txt",
       "In: 1 for points that made the height"},
      {"_GCP_sw.txt", "Label_sw_Swath# X Y Z_LiDAR Swath# Group#",
       "with -ogcp_pc: heights of the swaths at the control points; with the corrections "
       "NAME_GCP_sw_corr.txt",
       "Label_sw_Swath#: name of the point, number of the swath"},
      {"_GCP_tin.txt", "Label_sw_Swath# T1{X Y Z} T2{X Y Z} T3{X Y Z}",
       "with -ogcp_tin: triangles around the control points, with -obj as .obj too; with the corrections "
       "NAME_GCP_tin_corr.txt",
       "Label_sw_Swath#: name of the point, number of the swath"},
      {".txt", "Time Lon Lat h X Y Z Roll Pitch Yaw",
       "the trajectory of -plot_po, every n-th record (-po_sub)",
       "Time: s, as after -po_time\n"
       "Lon, Lat, h: degrees and m, of a geographic file; X0, Y0, Z0: m, of an earth-centred one\n"
       "X, Y, Z: in the project's system, output units (-out_metre)\n"
       "Roll, Pitch, Yaw: degrees, yaw from grid north"},
      {"_corr.txt", "X Y Corr{X Y Z} Swath#", "corrections of the microtiles (-ascii)",
       "X, Y: centre, m\n"
       "Corr: m, to be added, shift of the swath included"},
      {"_tiles.log", "Column Row Xmin Ymin Xmax Ymax NPts FileName", "output tiles (-otile)",
       "Column, Row: of the tile; column i begins i tiles from the origin (-otile_origin)\n"
       "Xmin to Ymax: its borders, in the unit of the swaths; a point on a border lies in the tile that "
       "begins there"},
      {"_ovr_bb.txt", "X Y", "box of the ground that at least two swaths have",
       "X, Y: corners, in output units (-out_metre)"},
      {"_QC.log", "Quality control report", "points, areas and differences of the run, a row each", ""},
      {"_sw_bb.txt", "X Y Swath# Group#",
       "boxes of the swaths, five corners each, in output units (-bb; .obj with -obj)", ""},
      {"_sw_mbr.txt", "X Y Swath# Group#",
       "rectangles along the swaths, five corners each, in output units (-bb; .obj with -obj)", ""},
      {"_sw_fp.txt", "X Y Swath# Group#",
       "footprints of the swaths: border edges of their microtiles, two corners each, in output units (-fp; "
       ".obj with "
       "-obj)",
       ""},
      {"_full_bb.txt", "X Y", "box of the ground that mobile swaths cover (-bb)",
       "X, Y: corners, in output units (-out_metre)"},
      {"_full_fp.txt", "X Y",
       "footprint of all mobile swaths together, in output units (-fp; .obj with -obj)", ""},
      {"_full_fp.geojson", "", "the same as polygons, in longitude and latitude (WGS 84)", ""},
      {"_full_fp_prj.geojson", "", "the same in the project's coordinates", ""},
      {"_op_fp.txt", "X Y Pair#",
       "footprints of the overlaps in which pairs are compared, in output units (-fp; .obj with -obj)",
       "Pair#: as in NAME_idx.log"},
      {"_op_fp.geojson", "", "the same with what is known of each pair, in longitude and latitude (WGS 84)",
       ""},
      {"_op_fp_prj.geojson", "", "the same in the project's coordinates", ""},
      {"_tnsg.txt", "X Y Z Time DT Dev N Swath# Group#", "microtiles of the swaths (-scan -ascii)",
       "X, Y: centre, whole m; Z: mean height, m\n"
       "Time: s, of the swath's file behind rollovers; -1E10 without one\n"
       "DT: range of times, s, up to -dt_range; Dev: their deviation, ratio, up to -dev_range; N: points"},
      {"_t.txt", "X Y Time Swath# Group#", "times of the microtiles (-scan -ascii)", "as in NAME_tnsg.txt"},
      {"_sw_traj.txt", "X Y Z Time Swath# Group#",
       "tracks of the swaths with -fp: where the platform was while they were scanned, a place a second "
       "(.obj with -obj)",
       "X, Y, Z: in the project's system, output units (-out_metre)\n"
       "Time: s, synchronised"},
      {"_sw_mbr.geojson", "",
       "the rectangles with what is known of each swath, in longitude and latitude (WGS 84)", ""},
      {"_sw_mbr_prj.geojson", "", "the same in the project's coordinates", ""},
      {"_sw_fp.geojson", "",
       "the footprints with what is known of each swath, in longitude and latitude (WGS 84)", ""},
      {"_sw_fp_prj.geojson", "", "the same in the project's coordinates", ""},
      {"_trans.txt", "X Y Z Swath# Group#",
       "points in the box of -trans_x, -trans_y, -trans_z, in output units", ""},
      {"_sep_stat.log", "Swath#1 Swath#2 RMSDz Max",
       "swath separation (-sep): pairs on open ground that slopes less than 10 degrees, swaths on hard flat "
       "ground, "
       "limits of the quality levels",
       SEP_COLUMNS},
      {"_sepcorr_stat.log", "Swath#1 Swath#2 RMSDz Max",
       "the same with the corrections applied, without the swaths", SEP_COLUMNS},
      {"_DZ", "",
       "maps of the height differences of the pairs as the files are, first less second; with -fastqc "
       "largest "
       "less smallest height of all swaths",
       DZ_FILES, true},
      {"_DZreg", "", "the same with the displacements taken out", DZ_FILES, true},
      {"_DZcorr", "", "the same with the corrections applied", DZ_FILES, true},
      {"_DXYZ", "", "maps of the displacements of the pairs", VECTOR_FILES, true},
      {"_UNC", "", "maps of the uncertainties of the displacements", VECTOR_FILES, true},
      {"_mix_res", "", "maps of the residuals of the inversion, with sign", VECTOR_FILES, true},
      {"_max_abs_res", "", "the same by their size", VECTOR_FILES, true},
      {"_res", "", "scatter plots of the residuals of the inversion", VECTOR_FILES, true},
      {"_mean_corr", "",
       "maps of the corrections, the mean over the swaths of each microtile, shifts of swaths included",
       VECTOR_FILES, true},
      {"_max_abs_corr", "", "the same, the largest of the swaths by its size", VECTOR_FILES, true},
      {"_corr", "", "scatter plots of the corrections of the microtiles", VECTOR_FILES, true},
      {"_sep", "",
       "swath separation: classes of the difference of the highest and the lowest swath, over intensities",
       "", true},
      {"_sepcorr", "", "the same with the corrections applied", "", true},
      {"_xzview", "",
       "points in the box of -trans_x, -trans_y, -trans_z seen along y: points a pixel, heights upwards", "",
       true},
      {"_yzview", "", "the same seen along x", "", true},
      {"_mN", "", "map of the points of each microtile (-scan); .img.txt with -ascii", "", true},
      {"_mD", "", "map of their density, points/m2 (-scan)", "", true},
      {"_mZ", "", "map of their mean height, m (-scan)", "", true},
      {"_dt", "", "map of the longest time interval in a microtile, s (-scan)", "", true},
      {"_dev", "", "map of the largest time deviation in a microtile, ratio (-scan)", "", true},
      {"_ovr", "",
       "map of the number of swaths on each microtile (-scan): mobile ones, and references on their ground",
       "", true},
      {"_ovr_mob", "", "the same of mobile swaths, where there are references", "", true},
      {"_ovr_ref", "", "the same of references", "", true},
      {"_ovr_grp", "", "map of the number of groups on each microtile, of projects with several (-scan)", "",
       true},
      {"_D", "", "map of the density in points/m2, of all swaths together (-dmap)", "", true},
      {"_R", "", "map of the roughness, m (-rmap)", "", true},
      {"_Z", "", "map of the elevation, m (-zmap)", "", true},
      {"_S", "", "shaded relief (-smap)", "", true},
      {"_I", "", "map of the mean intensity of the points (-imap), 2 percent of it black and white", "",
       true},
      {"_vr_gtile_X_Y.laz", "",
       "gridded heights of a tile (-ogtile), X Y its lower left corner in whole units of the swaths: a point "
       "per pixel and "
       "swath, point source ID the swath's number + 1, user data the roughness in 16ths of the grid spacing, "
       "intensity "
       "the density code; only overlaps without -full",
       ""},
      {"_vr_gtile_X_Y.tif", "",
       "the same as a raster (-ogtile_tiff): mean of the swaths at a pixel, m; with a world file", ""},
      {"_corr_vr_gtile_X_Y.laz", "", "the same with the corrections applied (-ogtile_corr); .tif as well",
       ""},
      {"_run.json", "", "summary of the run for programs; its fields stand in docs/run.schema.json", ""},
      {"_opt.xml", "", "the options of the run, an input for -opt from any directory", ""},
  };
  return tables;
}

const OutputTable* output_of(const std::string& whole) {
  static const std::regex group("_ig[0-9]+_.*");  // of the inversion of one group alone
  const std::string ending = std::regex_match(whole, group) ? whole.substr(whole.find('_', 1)) : whole;
  for (const OutputTable& t : output_tables()) {
    if (!ending.starts_with(t.suffix)) continue;
    const std::string rest = ending.substr(std::strlen(t.suffix));
    if (t.picture ? std::regex_match(rest, picture_ending()) : rest.empty()) return &t;
  }
  return nullptr;
}

std::string outputs_text() {
  std::string text =
      "# Outputs\n\nNAME is that of `-name`, else `project`. Corrected swaths have the names that `-out` "
      "gives. Lengths "
      "are metres, blanks\nseparate columns, `{X Y Z}` behind a name stands for a column each. Dates are "
      "UTC; times in "
      "seconds are those of the\nswaths after synchronisation. A blank line ends a table.\nPictures are "
      "`.jpg` and "
      "`.tif` files, world files `.jgw` and `.tfw`; `_cmap_BOTTOM_TOP` is the colour bar of a\nmap, "
      "`_r<row>_c<column>` a part of one beyond `-map_size`.\nNAME_ig<group>_... are those of one group "
      "alone "
      "(`-gcp_grp`).\n";
  for (const OutputTable& t : output_tables()) {
    text +=
        std::string("\n## NAME") + t.suffix + (t.picture ? " (pictures)" : "") + "\n\n" + t.meaning + "\n";
    std::string columns = t.columns;
    if (!columns.empty()) text += "\n- ";
    for (const char c : columns) text += c == '\n' ? std::string("\n- ") : std::string(1, c);
    if (!columns.empty()) text += "\n";
  }
  return text;
}
}  // namespace veld
