// Caches that are flipped, cut, emptied, removed or swapped between two runs: the second names them and gives the
// undisturbed bytes. A displacement file is refused.
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/run/hostile_project.h"

namespace veld {
namespace {
enum Damage { FLIPPED, CUT, EMPTIED, REMOVED, SWAPPED };

void damage(const std::string& path, const std::string& other, Damage how) {
  std::string bytes = read_text(path);
  const std::string whole = bytes;
  if (how == FLIPPED) bytes[bytes.size() * 2 / 3] ^= 16;
  if (how == CUT) bytes.pop_back();
  if (how == EMPTIED) bytes.clear();
  if (how == SWAPPED) bytes = read_text(other);
  write_text(path, bytes);
  if (how == SWAPPED) write_text(other, whole);
  if (how == REMOVED) std::filesystem::remove(path);
}

std::string cache_of(const HostileProject& p, const std::string& suffix, bool last = false) {
  std::string found;
  for (const std::string& path : p.caches())
    if (path.ends_with(suffix) && (found.empty() || last)) found = path;
  return found;
}
}  // namespace

TEST(Damage, CachesAreNamedAndMadeAnewInTheSameRun) {
  const HostileProject& p = hostile_project();
  ASSERT_FALSE(p.good.empty());
  const struct {
    const char* suffix;
    std::vector<Damage> how;
    const char* kind;
  } cases[] = {
      {".0T.idx", {CUT, SWAPPED}, "tile"},     {".mT.idx", {FLIPPED}, "tile"},
      {".mT.tbl.Zm", {EMPTIED}, "tile"},       {".mT.tbl.dT", {SWAPPED}, "tile"},
      {".mT.XYZ", {FLIPPED, CUT}, "tile"},     {".mT.sum", {FLIPPED, REMOVED}, "tile"},
      {".gmT.idx", {EMPTIED}, "grid"},         {".gmT.ZDS", {FLIPPED, REMOVED}, "grid"},
      {".gmT.sum", {SWAPPED}, "grid"},         {".rpc.idx", {CUT}, "pair"},
      {".rpc.d0", {FLIPPED, REMOVED}, "pair"}, {".rpc.sum", {FLIPPED}, "pair"},
  };
  p.clear();
  ASSERT_EQ(p.align().code, 0);
  for (const auto& c : cases)
    for (const Damage how : c.how) {
      SCOPED_TRACE(std::string(c.suffix) + " " + std::to_string(how));
      const std::string path = cache_of(p, c.suffix);
      damage(path, cache_of(p, c.suffix, true), how);
      // Points are needed for new grids alone.
      if (std::string(c.suffix) == ".mT.XYZ") std::filesystem::remove(cache_of(p, ".gmT.idx"));
      p.clear_results(1);
      const RunOutput r = p.align();
      EXPECT_EQ(r.code, 0) << r.err;
      EXPECT_TRUE(holds(r.err, std::string("WARNING: damaged ") + c.kind + " cache is made anew: ")) << r.err;
      const std::string name =
          std::filesystem::path(path).filename();  // swapped sums damn the first file under them
      EXPECT_TRUE(holds(r.err, how == SWAPPED ? name.substr(0, name.find(".las")) : name)) << r.err;
      EXPECT_FALSE(holds(r.err, "ERROR")) << r.err;
      EXPECT_EQ(p.differences(), "");
    }
  p.clear_results(1);
  const RunOutput r = p.align();  // all is sound again
  EXPECT_FALSE(holds(r.err, "made anew")) << r.err;
  EXPECT_EQ(p.differences(), "");
}

TEST(Damage, ADisplacementFileWithABadBlockIsRefused) {
  const HostileProject& p = hostile_project();
  p.clear();
  ASSERT_EQ(p.align().code, 0);
  const std::string dut = p.dir + "/o1/project.dut", whole = read_text(dut);
  for (const size_t at : {size_t{20 + 64 * 10 + 12}, whole.size() / 2, whole.size() - 24}) {
    std::string bytes = whole;
    bytes[at] ^= 1;
    write_text(dut, bytes);
    const RunOutput r = p.program.run(
        "-mul -corr o1/project -utm 33 -po traj.out -i L0?.las -out *_d.las -tmpdir t -odir o1 -name again");
    EXPECT_EQ(r.code, 1);
    EXPECT_TRUE(holds(r.err, "ERROR: damaged DUT file, register again: block ")) << r.err;
    EXPECT_FALSE(exists(p.dir + "/o1/L01_d.las"));
  }
}
}  // namespace veld
