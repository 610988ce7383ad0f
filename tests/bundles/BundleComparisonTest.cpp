#include "BundleTestSupport.h"
#include "bundles/VNBundleInformation.h"
#include "bundles/VNBundleVersionComparison.h"
#include "foundation/VNFormat.h"
#include "support/VNTest.h"

namespace {

using VNUtilities::VN_compareBundleVersionsForPath;
using VNUtilities::VN_compareBundleVersionsForSourceBundleInformation;

VNValue versionInfo(const char* shortVersion, bool fromStore) {
  VNValue info = VNValue::dictionary();
  info.set("QFBundleShortVersionString", shortVersion);
  info.set("Emporia", fromStore);
  return info;
}

TEST(BundleComparisonTest, LeftoverLosesAndIsRemovedWhileTheMarkerStays) {
  VNTestDir dir;
  VNLogCapture capture(dir / "migration.log");
  makeTestBundle(dir / "old.app", versionInfo("1.0", false));
  makeTestBundle(dir / "A.app", versionInfo("9.0", true));
  VNWriteTestFile(dir / "A.app/Contents/data", "x");
  VNWriteTestFile(dir / "A.app.incompleteMigration", "");
  VNFileURL destination = VNURL(dir / "A.app");
  EXPECT_EQ(VNDecideBundleComparison(VNValue::dictionary(), VNValue::dictionary(), destination).reason,
            VNBundleComparisonReason::Leftover);
  EXPECT_TRUE(VNExists(dir / "A.app"));
  EXPECT_EQ(VN_compareBundleVersionsForPath(VNURL(dir / "old.app"), destination), 1);
  EXPECT_FALSE(VNExists(dir / "A.app"));
  EXPECT_TRUE(VNExists(dir / "A.app.incompleteMigration"));
  EXPECT_EQ(capture.systemLog().texts(), std::vector<std::string>{VNFormat(
                                   "  *!!* The Bundle '%@' was left over from a previous migration.", destination)});
}

// A folder with a mount on it cannot be removed, even by root.
TEST(BundleComparisonTest, LeftoverThatCannotBeRemovedStillLoses) {
  if (::geteuid() != 0) {
    ASSERT_FALSE(VNFileSystemTestsRequired()) << "bind mounts need root";
    GTEST_SKIP() << "bind mounts need root";
  }
  VNTestDir dir;
  VNLogCapture capture(dir / "migration.log");
  makeTestBundle(dir / "A.app", VNValue::dictionary());
  VNMakeFolders(dir / "elsewhere");
  VNWriteTestFile(dir / "A.app.incompleteMigration", "");
  VNFileURL destination = VNURL(dir / "A.app");
  {
    VNBindMount mount(dir / "elsewhere", dir / "A.app/Contents");
    ASSERT_TRUE(mount.ok());
    EXPECT_EQ(VN_compareBundleVersionsForSourceBundleInformation({}, {}, {}, destination), 1);
  }
  std::vector<std::string> lines = capture.systemLog().texts();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[1].rfind(VNFormat("  *!!* Failed to Remove %@: ", destination), 0), 0u) << lines[1];
  EXPECT_TRUE(VNExists(dir / "A.app.incompleteMigration"));
}

TEST(BundleComparisonTest, StoreRuleThenVersions) {
  VNFileURL nowhere = VNURL("/nonexistent/B.app");
  struct Case {
    VNValue source, destination;
    std::int64_t order;
    VNBundleComparisonReason reason;
  } cases[] = {
      {versionInfo("9", false), versionInfo("1", true), -1, VNBundleComparisonReason::StoreRule},
      {versionInfo("1", true), versionInfo("9", false), -1, VNBundleComparisonReason::Versions},
      {versionInfo("9", true), versionInfo("1", false), 1, VNBundleComparisonReason::Versions},
      {versionInfo("9", true), versionInfo("1", true), 1, VNBundleComparisonReason::Versions},
      {VNValue::dictionary(), VNValue::dictionary(), 0, VNBundleComparisonReason::Versions},
  };
  for (const Case& c : cases) {
    VNBundleComparison decision = VNDecideBundleComparison(c.source, c.destination, nowhere);
    EXPECT_EQ(decision.order, c.order);
    EXPECT_EQ(decision.reason, c.reason);
    EXPECT_EQ(VN_compareBundleVersionsForSourceBundleInformation(c.source, c.destination, {}, nowhere), c.order);
  }
  VNValue numberStore = VNValue::dictionary();
  numberStore.set("Emporia", 1);
  EXPECT_EQ(VNDecideBundleComparison(versionInfo("9", false), numberStore, nowhere).order, -1);
  numberStore.set("Emporia", 0);
  EXPECT_EQ(VNDecideBundleComparison(versionInfo("9", false), numberStore, nowhere).order, 1);
}

TEST(BundleComparisonTest, NoMarkerForTheRoot) {
  EXPECT_FALSE(VNLeftoverMarkerURL(VNURL("/")));
  EXPECT_EQ(VNLeftoverMarkerURL(VNFolderURL("/a/B.app/"))->path(), "/a/B.app.incompleteMigration");
}

}  // namespace
