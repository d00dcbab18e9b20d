// Trajectory caches and interpolation at times of vectors.
#include "lib/general/path.h"
#include "tests/prj/LiDAR/VR2POsync/sync_project.h"

namespace veld {
namespace {
Vector<PO> line(int n) {
  Vector<PO> po(static_cast<uint64_t>(n));
  for (int i = 0; i < n; i++) {
    po(i).t = 100 + 0.1 * i;
    po(i).x = 500000 + 6.0 * i, po(i).y = 5e6 - i, po(i).z = 700;
    po(i).roll = 1, po(i).pitch = 2, po(i).yaw = static_cast<float>(90 + i);
  }
  return po;
}
}  // namespace

TEST(Poc, RoundTripAndDamage) {
  TempDir dir;
  TMPDIR = dir.path + "/";
  const std::string swath = dir.path + "/x.las", name = POC_name(CacheName(swath), SwathId(7));
  const Vector<PO> po = line(25);
  ASSERT_TRUE(save_POC_TMP(CacheName(swath), SwathId(7), 391644800.0, po));
  EXPECT_EQ(file_size(name), 12 + 25 * 44);
  Vector<PO> back;
  double dt = 0;
  ASSERT_TRUE(load_POC_TMP(CacheName(swath), SwathId(7), back, dt));
  EXPECT_EQ(dt, 391644800.0);
  ASSERT_EQ(back.size(), 25u);
  EXPECT_EQ(double{back(24).x}, double{po(24).x});
  EXPECT_EQ(float{back(24).yaw}, float{po(24).yaw});
  EXPECT_FALSE(load_POC_TMP(CacheName(swath), SwathId(8), back, dt));

  const std::string whole = read_text(name);
  std::string huge = whole, none = whole.substr(0, 12);
  huge[3] = '\x7f';
  none[0] = 0;
  for (const std::string& bytes : {whole + "x", whole.substr(0, whole.size() - 1), whole.substr(0, 12),
                                   std::string(), whole.substr(0, 5), huge, none}) {
    write_text(name, bytes);
    EXPECT_FALSE(load_POC_TMP(CacheName(swath), SwathId(7), back, dt)) << bytes.size();
    EXPECT_TRUE(back.empty());
  }
  TMPDIR = dir.path + "/absent/";
  testing::internal::CaptureStderr();
  EXPECT_FALSE(save_POC_TMP(CacheName(swath), SwathId(7), 0, po));
  EXPECT_TRUE(holds(testing::internal::GetCapturedStderr(), "ERROR: failed to write trajectory cache"));
}

TEST(InterpOAtt, ErrorsAreMarkedAndCounted) {
  const Vector<PO> po = line(25);  // 100 to 102.4
  const Vector<double> t = {99.8, 99.95, 100.25, 101.0, 102.45, 102.6, std::nan("")};
  for (const bool AREC : {false, true}) {
    Vector<dxyz> O(t.size());
    Vector<xyz> Att(t.size());
    EXPECT_EQ(interp_O_Att(po, t, AREC, O, Att), 3u);
    for (const int i : {0, 5, 6}) {
      EXPECT_EQ(O(i).z, -9999);
      EXPECT_EQ(Att(i).z, 1000);
    }
    EXPECT_NEAR(O(1).x, 500000, 1e-6);
    EXPECT_NEAR(O(2).x, 500015, 1e-6);
    EXPECT_NEAR(O(3).y, 5e6 - 10, 1e-6);
    EXPECT_NEAR(O(4).x, 500144, 1e-6);
    EXPECT_NEAR(Att(2).z, AREC ? 90 + 12 : 92.5, 1e-4);  // one heading for all, or that of the time
  }
}
}  // namespace veld
