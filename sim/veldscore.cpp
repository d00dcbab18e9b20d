// veldscore: compares the corrected swaths or the displacements of a simulated project with the truth and prints
// tables.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>

#include "sim/scoreread.h"
#include "sim/trackproof.h"

namespace veld {
namespace {
struct Options {
  std::string project, corrected, suffix = "_c", ext = ".las", cal, dut, track;
  std::string row;  // title of the lines for a document; empty: tables
  double limit = 0, cell = 10, radius = 0, gross = 0.1;
};

void print_stat(const std::string& name, const ErrorStat& s) {
  std::printf("  %-12s RMS %7.4f %7.4f %7.4f  3D %7.4f  mean %8.4f %8.4f %8.4f  max %7.3f %7.3f %7.3f\n",
              name.c_str(), s.rms.x, s.rms.y, s.rms.z, s.rms3d, s.mean.x, s.mean.y, s.mean.z, s.largest.x,
              s.largest.y, s.largest.z);
}

void print_score(const char* title, const std::vector<SwathScore>& swaths, const ProjectScore& score) {
  std::printf("%s (metres; x y z)\n", title);
  for (size_t i = 0; i < swaths.size(); i++) print_stat(swaths[i].name, score.swaths[i]);
  print_stat("all", score.all);
  print_stat("less shift", score.all_rel);
  std::printf("  %-12s RMS %7.4f %7.4f %7.4f  3D %7.4f  over %lld cells\n", "relative", score.relative.x,
              score.relative.y, score.relative.z, score.relative3d, static_cast<long long>(score.ncells));
}

struct Calibration {  // lever X Y Z (m), boresight roll pitch yaw (degrees) of the first set in a "_cal" file
  double found[6], truth[6];
  double drift[3];  // mean drift of roll, pitch, yaw while the swaths were flown, recorded less true
};

// Means over the records of the drift (time, position, attitude) within the swaths; 0 without drift.
void mean_drift(const nlohmann::json& truth, double (&mean)[3]) {
  std::fill_n(mean, 3, 0.0);
  if (!truth.contains("drift")) return;
  const nlohmann::json& drift = truth["drift"];
  int n = 0;
  for (const auto& row : drift.is_object() ? drift["rows"] : drift) {
    const double t = row[0].get<double>();
    const auto flown = [t](const nlohmann::json& s) { return t >= s["t0"] && t <= s["t1"]; };
    if (row.size() < 7 || !std::any_of(truth["swaths"].begin(), truth["swaths"].end(), flown)) continue;
    for (size_t i = 0; i < 3; i++) mean[i] += row[4 + i].get<double>();
    n++;
  }
  for (double& m : mean) m /= std::max(n, 1);
}

bool read_calibration(const std::string& path, const nlohmann::json& truth, Calibration& cal) {
  std::ifstream file(path);
  for (int i = 0; i < 6; i++) {
    if (!(file >> cal.found[i])) return false;
    cal.truth[i] = i < 3 ? truth["lever_m"][i].get<double>() : truth["boresight_deg"][i - 3].get<double>();
  }
  mean_drift(truth, cal.drift);
  return true;
}

void print_calibration(const Calibration& cal) {
  const char* names[6] = {"lever X m", "lever Y m", "lever Z m", "roll deg", "pitch deg", "yaw deg"};
  std::printf("calibration          found      true     error\n");
  for (int i = 0; i < 6; i++)
    std::printf("  %-12s %10.4f %9.4f %9.4f\n", names[i], cal.found[i], cal.truth[i],
                cal.found[i] - cal.truth[i]);
  std::printf("  the mean drift of roll, pitch, yaw, which is part of what is found: %.4f %.4f %.4f\n",
              -cal.drift[0], -cal.drift[1], -cal.drift[2]);
}

void print_vectors(const std::string& name, Land land, const VectorStat& s) {
  if (s.n == 0) return;
  const auto mm = [](const dxyz& v) {
    char text[40];
    std::snprintf(text, sizeof text, " %6.1f %6.1f %6.1f |", 1000 * v.x, 1000 * v.y, 1000 * v.z);
    return std::string(text);
  };
  std::printf("  %-14s %-6s %7lld %7lld |%s%s%s %5.2f %5.2f %5.2f | %4.2f %4.2f %4.2f | %5.1f %5.1f %5.1f\n",
              name.c_str(), land_name(land), static_cast<long long>(s.n),
              static_cast<long long>(s.n - s.ntimed), mm(s.median).c_str(), mm(s.weighted).c_str(),
              mm(s.spread).c_str(), 100 * s.gross.x, 100 * s.gross.y, 100 * s.gross.z, s.ratio50.x,
              s.ratio50.y, s.ratio50.z, s.ratio99.x, s.ratio99.y, s.ratio99.z);
}

void print_dut(const DutFile& dut, const DutScore& score) {
  std::printf("displacements against the truth (errors in mm; x y z)\n");
  std::printf("  %-14s %-6s %7s %7s | %20s | %20s | %20s | %17s | %14s | %17s\n", "pair", "land", "vectors",
              "no time", "median", "mean by 1/Unc^2", "robust spread", "gross %", "|e|/Unc 50 %",
              "|e|/Unc 99 %");
  for (size_t p = 0; p <= dut.pairs.size(); p++) {
    const bool sum = p == dut.pairs.size();
    const std::string name = sum ? "all"
                                 : dut.swaths[static_cast<size_t>(dut.pairs[p].sw1)] + " " +
                                       dut.swaths[static_cast<size_t>(dut.pairs[p].sw2)];
    for (int land = 0; land < NLAND; land++)
      print_vectors(name, static_cast<Land>(land),
                    (sum ? score.all : score.pairs[p])[static_cast<size_t>(land)]);
  }
  if (score.nwithout > 0)
    std::printf("  %lld vectors lie where a swath has too few points\n",
                static_cast<long long>(score.nwithout));
}

// A line of docs/accuracy.md by land cover.
void print_dut_rows(const std::string& title, const DutScore& score) {
  for (int land = 0; land < NLAND; land++) {
    const VectorStat& s = score.all[static_cast<size_t>(land)];
    if (s.n == 0) continue;
    std::printf(
        "VECTORS | %s | %s | %lld | %.1f, %.1f, %.1f | %.1f, %.1f, %.1f | %.0f, %.0f, %.0f | "
        "%.2f, %.2f, %.2f | %.2f, %.2f, %.2f | %.1f, %.1f, %.1f |\n",
        title.c_str(), land_name(static_cast<Land>(land)), static_cast<long long>(s.n), 1000 * s.median.x,
        1000 * s.median.y, 1000 * s.median.z, 1000 * s.weighted.x, 1000 * s.weighted.y, 1000 * s.weighted.z,
        1000 * s.spread.x, 1000 * s.spread.y, 1000 * s.spread.z, 100 * s.gross.x, 100 * s.gross.y,
        100 * s.gross.z, s.ratio50.x, s.ratio50.y, s.ratio50.z, s.ratio99.x, s.ratio99.y, s.ratio99.z);
  }
}

// A line of docs/accuracy.md.
void print_point_row(const std::string& title, double floor, const ProjectScore& before,
                     const ProjectScore& after, const Calibration* cal) {
  std::printf("POINTS | %s | %.3f | %.4f | %.4f | %.4f, %.4f, %.4f |", title.c_str(), before.all_rel.rms3d,
              floor, after.all_rel.rms3d, after.relative.x, after.relative.y, after.relative.z);
  if (cal) {
    double error[3];
    for (int i = 0; i < 3; i++) error[i] = cal->found[3 + i] - cal->truth[3 + i];
    std::printf(" %.4f, %.4f, %.4f | %.4f, %.4f, %.4f |\n", error[0], error[1], error[2],
                error[0] + cal->drift[0], error[1] + cal->drift[1], error[2] + cal->drift[2]);
  } else {
    std::printf(" | |\n");
  }
}

bool score_displacements(const Options& o, const nlohmann::json& truth) {
  DutFile dut;
  DutScore score;
  if (!read_dut(o.dut, dut)) return false;
  // A wide circle holds more points, but over short vectors' spacings the truth itself changes.
  const double radius = o.radius > 0 ? o.radius : std::clamp(0.75 * dut.spacing, 1.5, 6.0);
  if (!score_dut_file(o.project, truth, dut, radius, o.gross, score)) return false;
  if (o.row.empty())
    print_dut(dut, score);
  else
    print_dut_rows(o.row, score);
  return true;
}

bool score_points(const Options& o, const nlohmann::json& truth) {
  std::vector<SwathScore> observed, corrected;
  bool same = true;
  for (const auto& s : truth["swaths"]) {
    SwathScore before, after;
    const std::string stem = swath_stem(s);
    if (!read_observed(o.project, stem, before)) return false;
    if (!read_corrected(o.project, o.corrected + "/" + stem + o.suffix + o.ext, before, after)) {
      if (after.points.size() != before.points.size()) return false;
      same = false;
    }
    observed.push_back(std::move(before));
    corrected.push_back(std::move(after));
  }
  const ProjectScore before = score_project(observed, o.cell), after = score_project(corrected, o.cell);
  const double floor = noise_floor(observed);
  Calibration cal;
  const bool calibrated = !o.cal.empty() && read_calibration(o.cal, truth, cal);
  if (o.row.empty()) {
    print_score("before", observed, before);
    print_score("after", corrected, after);
    std::printf("  %-12s 3D %7.4f\n", "noise", floor);
    if (calibrated) print_calibration(cal);
  } else {
    print_point_row(o.row, floor, before, after, calibrated ? &cal : nullptr);
  }
  if (o.limit > 0 && after.all_rel.rms3d > o.limit) {
    std::fprintf(stderr, "ERROR: 3-D RMS less the mean shift %.4f m is above %.4f m\n", after.all_rel.rms3d,
                 o.limit);
    return false;
  }
  return same;
}

bool score_track(const Options& o, const nlohmann::json& truth) {
  ProofScore score;
  if (!prove_track({o.project, o.corrected, o.suffix, o.ext, o.track, o.cal}, truth, score)) return false;
  std::printf(
      "corrected points from corrected trajectory and calibration: RMS %.5f %.5f %.5f  max %.5f %.5f %.5f m, "
      "%lld points\n",
      score.rms.x, score.rms.y, score.rms.z, score.largest.x, score.largest.y, score.largest.z,
      static_cast<long long>(score.n));
  return true;
}

int usage() {
  std::printf(
      "usage: veldscore PROJECT_DIR [CORRECTED_DIR] [-dut FILE.dut] [-NAME VALUE ...]\n"
      "  -suffix, -ext  of the corrected files (_c, .las)\n"
      "  -cal           calibration file, _cal_0.txt\n"
      "  -sbet          corrected trajectory: does it give the corrected points again, with -cal?\n"
      "  -cell          m, cells of the relative error (10)\n"
      "  -limit         m, fail when the 3-D RMS less the mean shift is larger\n"
      "  -radius        m, surroundings of a displacement in which its truth is measured\n"
      "                 (three quarters of the vectors' spacing, 6 at most)\n"
      "  -gross         m, limit of gross errors of displacements (0.1)\n"
      "  -row           title: one line a table, for a document\n");
  return 1;
}
}  // namespace
}  // namespace veld

using namespace veld;

int main(int argc, char** argv) {
  Options o;
  const struct {
    const char* name;
    std::string* text;
    double* number;
  } rows[] = {{"-suffix", &o.suffix, nullptr}, {"-ext", &o.ext, nullptr},     {"-cal", &o.cal, nullptr},
              {"-dut", &o.dut, nullptr},       {"-sbet", &o.track, nullptr},  {"-row", &o.row, nullptr},
              {"-cell", nullptr, &o.cell},     {"-limit", nullptr, &o.limit}, {"-radius", nullptr, &o.radius},
              {"-gross", nullptr, &o.gross}};
  for (int i = 1; i < argc; i++) {
    const std::string a = argv[i];
    bool known = false;
    for (const auto& row : rows)
      if (a == row.name && i + 1 < argc) {
        known = true;
        i++;
        if (row.text)
          *row.text = argv[i];
        else
          *row.number = std::atof(argv[i]);
        break;
      }
    if (known) continue;
    if (a.rfind('-', 0) == 0 || !o.corrected.empty()) return usage();
    (o.project.empty() ? o.project : o.corrected) = a;
  }
  if (o.project.empty() || (o.corrected.empty() && o.dut.empty()) || !(o.cell > 0) || o.radius < 0)
    return usage();
  nlohmann::json truth;
  if (!read_truth(o.project, truth)) return 1;
  const bool points_ok = o.corrected.empty() || score_points(o, truth);
  const bool vectors_ok = o.dut.empty() || score_displacements(o, truth);
  const bool track_ok = o.track.empty() || score_track(o, truth);
  return points_ok && vectors_ok && track_ok ? 0 : 1;
}
