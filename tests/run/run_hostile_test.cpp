// Point files that are cut, damaged or lie, through the whole program: each ends with a line that names the
// file, and none with a crash.
#include <gtest/gtest.h>

#include <filesystem>

#include "las/las_access.h"
#include "tests/run/program.h"
#include "tests/support/las_bytes.h"
#include "tests/support/swath_writer.h"

namespace veld {
namespace {
template <typename T>
std::string poked(std::string bytes, size_t at, T value) {
  poke(bytes, at, value);
  return bytes;
}

std::string as_laz(const std::string& las) {
  const std::string laz = std::filesystem::path(las).replace_extension(".laz");
  auto reader = las_read_open(las, "", false);
  auto writer = las_write_open(laz, reader->header, "");
  while (reader->read_point())
    if (!writer->write_point(reader->point)) std::abort();
  if (!las_write_close(writer)) std::abort();
  return read_text(laz);
}

}  // namespace

TEST(RunHostile, PointFilesThatLie) {
  const Program program;
  const std::string good = program.work.path + "/good.las";
  write_test_las(good, fly_line({}));
  const std::string las = read_text(good), laz = as_laz(good);
  const size_t data = peek<uint32_t>(laz, 96) + 8;
  std::string damaged = laz;
  for (size_t i = 0; i < 64; i++) damaged[laz.size() / 2 + i] = '\xFF';
  std::filesystem::create_directory(program.work.path + "/directory.las");
  const std::string cut = "WARNING: LAS tiling: I/O read error, swath may be truncated, ";
  const struct {
    std::string name, bytes;
    int code;
    std::string text;  // on standard error; the name behind it
  } cases[] = {
      {"sound.laz", laz, 0, ""},
      {"cut_in_points.las", las.substr(0, las.size() * 2 / 3), 0, cut},
      {"cut_in_points.laz", laz.substr(0, laz.size() * 2 / 3), 0, cut},
      {"damaged_chunk.laz", damaged, 0, ", chunk 1, point "},
      {"announces_more.laz", poked(laz, 107, uint32_t{4000000000}), 0, cut},
      {"empty.las", "", 1, "ERROR: file is too short for a header, file '"},
      {"cut_in_header.las", las.substr(0, 100), 1, "ERROR: file is too short for a header, file '"},
      {"no_points.las", las.substr(0, 227), 1, "ERROR: could not tile LiDAR data, "},
      {"no_chunk.laz", laz.substr(0, data + 1), 1,
       "ERROR: damaged LAZ data: chunk of 1 bytes ends inside its"},
      {"record_length.laz", poked(laz, 105, uint16_t{30}), 1,
       "ERROR: items of 28 bytes in points of 30, file"},
      {"no_times.las", poked(las, 104, uint8_t{0}), 1, "ERROR: timestamp processing: insufficient data, "},
      {"signature.las", poked(las, 0, uint32_t{0}), 1, "ERROR: bad LAS header, file "},
      {"scale.las", poked(las, 131, 0.0), 1, "ERROR: could not tile LiDAR data, "},
      {"directory.las", "", 1, "ERROR: could not find file "},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string path = program.work.path + "/" + c.name;
    if (!std::filesystem::is_directory(path)) write_text(path, c.bytes);
    const RunOutput r = program.run({"-scan", "-i", c.name, "-utm", "33", "-nthreads", "2"});
    EXPECT_EQ(r.code, c.code) << r.err;
    const size_t at = r.err.find(c.text);
    EXPECT_NE(at, std::string::npos) << r.err;
    if (!c.text.empty()) {
      EXPECT_NE(r.err.find(c.name, at == std::string::npos ? 0 : at), std::string::npos) << r.err;
    }
    EXPECT_EQ(c.bytes, std::filesystem::is_directory(path) ? "" : read_text(path));  // sources stay
  }
}

// Names that only the writing would find too long stop the run before its work.
TEST(RunHostile, NamesTooLongForTheirOutputsAreFoundFirst) {
  const Program program;
  const std::string stem(215, 's');
  write_test_las(program.work.path + "/" + stem + ".las", fly_line({}));
  const RunOutput cache = program.run("-scan -i *.las");
  EXPECT_EQ(cache.code, 1);
  EXPECT_TRUE(holds(cache.err,
                    "ERROR: name too long for the cache of a swath, use a shorter name of the swath or "
                    "another -tmpdir: "))
      << cache.err;
  EXPECT_FALSE(holds(cache.out, "TILING"));
  write_test_las(program.work.path + "/a.las", fly_line({}));
  write_text(program.work.path + "/t.out", "x");
  const RunOutput out = program.run(
      {"-align", "-i", "a.las", "-po", "t.out", "-utm", "33", "-out", std::string(249, 'p') + "*.las"});
  EXPECT_EQ(out.code, 1);
  EXPECT_TRUE(holds(out.err, "ERROR: name too long for a corrected swath, use -out: ")) << out.err;
}
}  // namespace veld
