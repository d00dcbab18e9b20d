// tests/support/swath_writer.h
// Small LAS files made by the tests themselves: any header field may lie, any byte may be cut off. It shares
// no code with the program's own writer.
#pragma once
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace veld {
struct TestPoint {
  double x = 0, y = 0, z = 0;  // file units
  double t = 0;                // GPS time, s
  int rn = 1, nr = 1;          // return number, number of returns
  int cls = 2;
  bool synthetic = false, withheld = false;
  double angle = 0;  // scan angle, degrees
};

struct TestLas {         // how the file is written
  int format = 1;        // 0, 1, 2, 3 as LAS 1.2; 6, 7 as LAS 1.4
  bool adjusted = true;  // global encoding bit 0
  double scale = 0.001;
  double xoff = 500000, yoff = 5000000, zoff = 0;
  int64_t count = -1;  // point count in the header; -1: the true one
  int64_t cut = 0;     // bytes left out at the end
};

// Writes a file; aborts the test program when it cannot.
void write_test_las(const std::string& path, const std::vector<TestPoint>& points, const TestLas& how = {});

struct TestLine {                    // a straight flight over a surface
  double x0 = 500000, y0 = 5000000;  // start
  double heading = 0;                // degrees clockwise from north
  double length = 300, width = 120;  // m
  double density = 4;                // points/m2
  double speed = 40;                 // m/s
  double tstart = 1000000;           // s
  std::function<double(double x, double y)> height = [](double, double) { return 100.0; };
};

// Points in the order of flight: scan lines across the track, positions slightly irregular but repeatable.
std::vector<TestPoint> fly_line(const TestLine& line);
}  // namespace veld
