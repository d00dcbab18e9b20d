// Trajectories and coordinate systems of all kinds on a simulated project: what the corrected points are worth is
// told by the truth, not by the program's own figures.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <regex>
#include <sstream>

#include "las/las_access.h"
#include "tests/run/scored_project.h"

namespace veld {
namespace {
// With the whole attitude in the project's own system 0.024 m remain; wrong geometry leaves decimetres.
constexpr double GOOD_RMS = 0.035, GOOD_LARGEST = 0.15;

void expect_good(const ScoredRun& r, const char* said) {
  EXPECT_EQ(r.run.code, 0) << r.run.err;
  EXPECT_TRUE(r.scored);
  EXPECT_LT(r.rms, GOOD_RMS);
  EXPECT_LT(r.largest, GOOD_LARGEST);
  EXPECT_TRUE(holds(r.run.err, said)) << r.run.err;
}

// The transverse Mercator system of the project in other clothes.
std::string system_text(const char* projection, double unit, const char* unit_name, double easting) {
  char text[700];
  std::snprintf(text, sizeof(text),
                "PROJCS[\"p\",GEOGCS[\"g\",DATUM[\"d\",SPHEROID[\"WGS 84\",6378137,298.257223563]],"
                "PRIMEM[\"Greenwich\",0],UNIT[\"degree\",0.0174532925199433]],PROJECTION[\"%s\"],"
                "PARAMETER[\"latitude_of_origin\",0],PARAMETER[\"central_meridian\",15],"
                "PARAMETER[\"scale_factor\",0.9996],PARAMETER[\"false_easting\",%.17g],"
                "PARAMETER[\"false_northing\",0],UNIT[\"%s\",%.17g]]",
                projection, easting / unit, unit_name, unit);
  return text;
}
}  // namespace

TEST(TrajectoryRun, AnglesThatTheTextHasNot) {
  const struct {
    const char* columns;
    Args more;
    const char* said;
  } cases[] = {
      {"txyz", "-po_att 0", "WARNING: no attitude in PO file traj.txt, using the direction of the track"},
      {"txyzk", {}, "WARNING: no roll and pitch in PO file traj.txt, using 0"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.columns);
    const ScoredProject project;
    project.add_trajectory(std::string("-po_parse ") + c.columns);
    const Args args = Args("-utm 33 -i L*.las -po traj.txt -po_geo 1 -po_time 1 -po_parse") + c.columns;
    expect_good(project.align(args + c.more), c.said);
  }
}

// What was read from an SBET and written as text does as well as the SBET.
TEST(TrajectoryRun, RecordsAsTheyWereReadServeAgain) {
  const ScoredProject project;
  const ScoredRun sbet = project.align("-utm 33 -i L*.las -po traj.out -porec 1 -po_sub 1");
  expect_good(sbet, "");
  std::filesystem::remove(project.dir + "/traj.out");
  const ScoredRun text =
      project.align("-utm 33 -i L*.las -po out/*_PO_rec_sw_*.txt -po_geo 0 -po_time 1 -po_parse txyzwpk");
  expect_good(text, "");
  EXPECT_NEAR(text.rms, sbet.rms, 5e-4);
}

TEST(TrajectoryRun, UnitsAreThoseOfTheNumbers) {
  constexpr double US = 1200.0 / 3937.0;
  const char* const mercator = "Transverse_Mercator";
  const struct {
    double plane, height;
    const char *name, *vertical;
  } cases[] = {
      {0.3048, 0.3048, "Foot", ""},
      {1, US, "metre", "VERT_CS[\"v\",VERT_DATUM[\"d\",2005],UNIT[\"US survey foot\",0.3048006096012192]]"},
      {US, 1, "US survey foot", "VERT_CS[\"v\",VERT_DATUM[\"d\",2005],UNIT[\"metre\",1]]"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.name) + c.vertical);
    ScoredProject project;
    project.change_units(c.plane, c.height);
    std::string text = system_text(mercator, c.plane, c.name, 500000);
    if (*c.vertical) text = "COMPD_CS[\"c\"," + text + "," + c.vertical + "]";
    write_text(project.dir + "/c.wkt", text);
    expect_good(project.align("-wkt c.wkt -i L*.las -po traj.out"), "");
  }
}

// The lines lie on the central meridian, where north in the grid jumps from half a turn to minus half a turn.
TEST(TrajectoryRun, SouthOrientatedGrid) {
  const ScoredProject project;
  project.change_swaths([](std::string& bytes) {
    change_points(bytes, [](std::string& p, size_t at) {
      for (const size_t k : {0, 4}) poke(p, at + k, -peek<int32_t>(p, at + k));
    });
    poke(bytes, 155, 500000 - peek<double>(bytes, 155));
    poke(bytes, 163, -peek<double>(bytes, 163));
    for (const size_t k : {179, 195}) {  // max and min change places
      const double high = peek<double>(bytes, k), low = peek<double>(bytes, k + 8),
                   east = k == 179 ? 500000 : 0;
      poke(bytes, k, east - low);
      poke(bytes, k + 8, east - high);
    }
  });
  write_text(project.dir + "/c.wkt", system_text("Transverse_Mercator_South_Orientated", 1, "metre", 0));
  expect_good(project.align("-wkt c.wkt -i L*.las -po traj.out"), "");
}

// All formats give the points that an SBET gives, to a step of the files. The displacements are those of the first
// registration, the same for all: a second one is about what each format gave, to its own numerical noise of half a millimetre.
TEST(TrajectoryRun, EachFormatGivesThePointsOfTheSbet) {
  const ScoredProject project;
  Vector<dxyz> sbet, points;
  for (const std::string format : {"sbet", "trj", "sol", "bin", "pof", "las", "txt"}) {
    SCOPED_TRACE(format);
    const bool first = format == "sbet", text = format == "txt";
    if (!first) project.add_trajectory(text ? "-po_parse txyzwpk" : "-po_format " + format);
    const Args args = {"-utm",  "33", "-i", "L*.las", "-po", "traj." + (first ? std::string("out") : format),
                       "-reg2", "0"};
    expect_good(project.align(text ? args + "-po_geo 1 -po_time 1" : args), "");
    ASSERT_TRUE(read_las_dxyz(project.dir + "/out/L01.las", first ? sbet : points, "xyz"));
    double largest = 0;
    for (uint64_t i = 0; i < points.size(); i++) {
      const dxyz d = points(i) - sbet(i);
      largest = std::max({largest, std::fabs(d.x), std::fabs(d.y), std::fabs(d.z)});
    }
    EXPECT_LT(largest, 0.00101);
  }
}

// A time scale that no option tells is that in which the swaths lie in the trajectory.
TEST(TrajectoryRun, TimeScalesByTheSwaths) {
  const ScoredProject project;
  project.add_trajectory("-po_parse txyzwpk");
  std::vector<std::string> fields;  // of each row behind its time
  std::vector<double> times;        // adjusted standard GPS time
  std::istringstream rows(read_text(project.dir + "/traj.txt"));
  for (std::string line; std::getline(rows, line);) {
    times.push_back(std::stod(line));
    fields.push_back(line.substr(line.find(' ')));
  }
  const double week = std::floor((times[0] + 1e9) / 604800) * 604800 - 1e9;
  const struct {
    const char* what;
    double zero;  // of the scale, in adjusted time
    bool hms;
  } cases[] = {{"Unix seconds, UTC", 18 - 1e9 - 315964800, false},
               {"seconds of the day, GPS", week + std::floor((times[0] - week) / 86400) * 86400, false},
               {"hours, minutes and seconds of the day, GPS",
                week + std::floor((times[0] - week) / 86400) * 86400, true}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    std::string text;
    for (size_t i = 0; i < times.size(); i++) {
      const double t = times[i] - c.zero;
      char field[40];
      if (c.hms)
        std::snprintf(field, sizeof field, "%02d:%02d:%09.6f", static_cast<int>(t / 3600),
                      static_cast<int>(t / 60) % 60, std::fmod(t, 60));
      else
        std::snprintf(field, sizeof field, "%.6f", t);
      text += field + fields[i] + '\n';
    }
    write_text(project.dir + "/traj.txt", text);
    const ScoredRun r = project.align("-utm 33 -i L*.las -po traj.txt -po_geo 1");
    expect_good(r, "");
    EXPECT_TRUE(holds(r.run.out, std::string("are taken as ") + c.what)) << r.run.out;
  }
}

// Swaths that hold nothing but GeoTIFF keys, and no option about coordinate systems.
TEST(TrajectoryRun, SystemsOfTheSwathsAlone) {
  constexpr double US = 1200.0 / 3937.0;
  const struct {
    const char* what;
    const char* place;
    double unit_xy, unit_z;
  } cases[] = {
      {"US feet, heights in US feet", "-crs EPSG:2229 -east 1981200 -north 563900 -unit_z 0.3048006096", US,
       US},
      {"feet, heights in metres", "-crs EPSG:2994 -east 500000 -north 300000", 0.3048, 1},
      {"south zone", "-crs EPSG:32733 -east 560000 -north 7500000", 1, 1},
      {"Lambert with two parallels, geoid", "-crs EPSG:2154 -east 652000 -north 6862000 -geoid 1", 1, 1}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    ScoredProject project(c.place);
    project.unit = {c.unit_xy, c.unit_xy, c.unit_z};
    Args args = "-i L*.las -po traj.out -gcp gcp_all.txt";
    if (holds(c.place, "-geoid")) args = args + "-geoid geoid.gtx -gdir .";
    const ScoredRun r = project.align(args);
    expect_good(r, "");
    const std::string others =
        std::regex_replace(r.run.err, std::regex("WARNING: [^\n]*(GCP|check points)[^\n]*"), "");
    EXPECT_FALSE(holds(others, "WARNING")) << r.run.err;
    // Control points in the units of the swaths agree with them.
    const size_t control = r.run.out.find("Control points, RMS of height differences: ");
    ASSERT_NE(control, std::string::npos) << r.run.out;
    EXPECT_LT(number_after(r.run.out.substr(control), " m before, "), 0.03) << r.run.out;
  }
}

// Boxes, footprints, tracks and world files are in metres, or in the unit of the swaths with -out_metre 0.
TEST(TrajectoryRun, ExportedPlacesAreInTheUnitThatIsAskedFor) {
  constexpr double US = 1200.0 / 3937.0;
  const ScoredProject project(
      "-crs EPSG:2229 -east 1981200 -north 563900 -unit_z 0.3048006096 -pulse_rate 1500");
  const std::unique_ptr<LASreader> swath = las_read_open(project.dir + "/L01.las", "xyz", false);
  ASSERT_TRUE(swath);
  for (const int metres : {1, 0}) {
    SCOPED_TRACE(metres);
    const RunOutput r = project.program.run(
        Args("-scan -i L*.las -po traj.out -bb -fp -wf -odir out -tmpdir tmp -out_metre") +
        (metres ? "1" : "0"));
    ASSERT_EQ(r.code, 0) << r.err;
    const double unit = metres ? US : 1, x = swath->header.min_x * unit, y = swath->header.min_y * unit,
                 far = 600 / US * unit, platform = (500 + 160) / US * unit;
    for (const char* const name :
         {"_sw_bb.txt", "_sw_mbr.txt", "_sw_fp.txt", "_ovr_bb.txt", "_sw_traj.txt"}) {
      const std::string text = read_text(project.dir + "/out/project" + name);
      double v[3] = {0, 0, 0};
      ASSERT_GE(std::sscanf(text.c_str() + text.find('\n'), "%lf %lf %lf", v, v + 1, v + 2), 2) << name;
      EXPECT_NEAR(v[0], x, far) << name;
      EXPECT_NEAR(v[1], y, far) << name;
      if (std::string(name) == "_sw_traj.txt") {
        EXPECT_NEAR(v[2], platform, 40 / US * unit);
      }
    }
    const std::string world = read_text(project.dir + "/out/project_ovr.jgw");
    double w[6] = {};
    ASSERT_EQ(std::sscanf(world.c_str(), "%lf %lf %lf %lf %lf %lf", w, w + 1, w + 2, w + 3, w + 4, w + 5), 6)
        << world;
    EXPECT_NEAR(w[4], x, far);
  }
}

// A text with names above its columns needs no option about columns and coordinates, whatever its separators.
TEST(TrajectoryRun, TextWithHeaderLine) {
  const ScoredProject project;
  project.add_trajectory("-po_parse txyzwpk");
  const Args args = "-utm 33 -i L*.las -po traj.txt -po_time 1";
  const std::string rows = read_text(project.dir + "/traj.txt");
  write_text(project.dir + "/traj.txt", "Time (s) Longitude Latitude H-Ell Roll Pitch Heading\n" + rows);
  expect_good(project.align(args), "");
  std::string commas = rows;
  for (char& c : commas) c = c == ' ' ? ';' : c == '.' ? ',' : c;
  write_text(project.dir + "/traj.txt", "Time [s];Longitude;Latitude;H-Ell;Roll;Pitch;Heading\n" + commas);
  const ScoredRun r = project.align(args);
  expect_good(r, "");
  EXPECT_TRUE(holds(r.run.out, "commas are taken for points of numbers")) << r.run.out;
  // The trajectory alone, without a coordinate system: its export lies over the swaths, and its lines are theirs.
  const RunOutput plot = project.program.run("-plot_po -po traj.txt -po_time 1 -po_sub 1 -name p");
  EXPECT_EQ(plot.code, 0) << plot.err;
  const std::string text = read_text(project.dir + "/p.txt");
  EXPECT_EQ(text.substr(0, text.find('\n')), "Time Lon Lat h X Y Z Roll Pitch Yaw");
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), std::count(rows.begin(), rows.end(), '\n') + 1);
  double t, lon, lat, h, x, y;
  ASSERT_EQ(
      std::sscanf(text.c_str() + text.find('\n'), "%lf %lf %lf %lf %lf %lf", &t, &lon, &lat, &h, &x, &y), 6);
  EXPECT_NEAR(x, 500000, 1000);
  EXPECT_NEAR(y, 5321000, 2000);
  const RunOutput cut = project.program.run("-cut -po traj.txt -po_time 1 -cut_dist 150");
  EXPECT_EQ(cut.code, 0) << cut.err;
  EXPECT_TRUE(holds(cut.out, "segments, written pos_cut.txt")) << cut.out;
  const RunOutput none = project.program.run("-cut -po traj.txt -po_time 1 -cut_dist 2000");
  EXPECT_EQ(none.code, 1);
  EXPECT_TRUE(holds(none.err, "no smooth segment found, PO file ")) << none.err;
}

TEST(TrajectoryRun, OneTrajectoryServesAllChannels) {
  const ScoredProject project("-channels 2");
  expect_good(project.align("-utm 33 -i L*_c0.las -i L*_c1.las -chgrp 0 1 -po traj.out -bore 0 0 0 0 8 0"),
              "");
}

// Two lines in one file, the second with a hole in it, come apart again: whole records, in their order.
TEST(TrajectoryRun, SwathsCutByLinesAndGaps) {
  const ScoredProject project;
  const auto records = [&](const std::string& name) {
    const std::string bytes = read_text(project.dir + "/" + name);
    return bytes.substr(std::min<size_t>(peek<uint32_t>(bytes, 96), bytes.size()));
  };
  std::string all = read_text(project.dir + "/L01.las");
  const size_t length = peek<uint16_t>(all, 105);
  const std::string first = records("L01.las"), second = records("L02.las");
  const size_t n = second.size() / length, hole0 = n / 3 * length, hole1 = n * 2 / 3 * length;
  all += second.substr(0, hole0) + second.substr(hole1);
  const uint64_t npoints = (all.size() - peek<uint32_t>(all, 96)) / length;
  poke(all, 107, static_cast<uint32_t>(npoints));
  if (all[25] == 4) poke(all, 247, npoints);
  write_text(project.dir + "/all.las", all);
  std::filesystem::create_directory(project.dir + "/cut");
  const auto cut = [&](const char* gap) {
    return project.program.run(Args("-cut -utm 33 -i all.las -po traj.out -cut_dist 100 -odir cut -cut_gap") +
                               gap);
  };
  const RunOutput r = cut("1");
  EXPECT_EQ(r.code, 0) << r.err;
  EXPECT_TRUE(holds(r.out, "Recut 1 swaths due to time gaps, created 1 extra swaths")) << r.out;
  const struct {
    const char* name;
    std::string from;
  } files[] = {{"cut/all_c_1.las", first},
               {"cut/all_c_2_x_1.las", second.substr(0, hole0)},
               {"cut/all_c_2_x_2.las", second.substr(hole1)}};
  for (const auto& f : files) {
    const std::string part = records(f.name);
    EXPECT_GT(part.size(), f.from.size() * 8 / 10) << f.name;  // the ends of a line may belong to its turns
    EXPECT_NE(f.from.find(part), std::string::npos) << f.name;
  }
  EXPECT_FALSE(exists(project.dir + "/cut/all_c_2.las"));
  const RunOutput whole = cut("0");
  EXPECT_TRUE(holds(whole.err, "WARNING: 1 swaths have time gaps but extra cutting disabled")) << whole.err;
  EXPECT_TRUE(exists(project.dir + "/cut/all_c_2.las"));
}
}  // namespace veld
