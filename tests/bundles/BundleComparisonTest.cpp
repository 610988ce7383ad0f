#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include "BundleTestSupport.h"
#include "bundles/VNBundleInformation.h"
#include "bundles/VNBundleVersionComparison.h"
#include "foundation/VNFormat.h"
#include "support/VNLogCapture.h"
#include "support/VNLoopImage.h"

namespace {

using VNUtilities::VN_compareBundleVersionsForPath;
using VNUtilities::VN_compareBundleVersionsForSourceBundleInformation;

VNValue versionInfo(const char* shortVersion, bool fromStore) {
  VNValue info = VNValue::dictionary();
  info.set("QFBundleShortVersionString", shortVersion);
  info.set("Emporia", fromStore);
  return info;
}

bool exists(const std::string& path) {
  struct stat item {};
  return ::lstat(path.c_str(), &item) == 0;
}

std::vector<std::string> logLines(VNLogCapture& capture) {
  std::vector<std::string> lines;
  for (const auto& entry : capture.systemLog().entries()) lines.push_back(entry.text);
  return lines;
}

TEST(BundleComparisonTest, LeftoverLosesAndIsRemovedWhileTheMarkerStays) {
  VNTestDir dir;
  VNLogCapture capture(dir / "migration.log");
  makeTestBundle(dir / "old.app", versionInfo("1.0", false));
  makeTestBundle(dir / "A.app", versionInfo("9.0", true));
  VNWriteTestFile(dir / "A.app/Contents/data", "x");
  VNWriteTestFile(dir / "A.app.incompleteMigration", "");
  VNFileURL destination = VNFileURL::fileURLWithPath(dir / "A.app");
  EXPECT_EQ(VNDecideBundleComparison(VNValue::dictionary(), VNValue::dictionary(), destination).reason,
            VNBundleComparisonReason::Leftover);
  EXPECT_TRUE(exists(dir / "A.app"));
  EXPECT_EQ(VN_compareBundleVersionsForPath(VNFileURL::fileURLWithPath(dir / "old.app"), destination), 1);
  EXPECT_FALSE(exists(dir / "A.app"));
  EXPECT_TRUE(exists(dir / "A.app.incompleteMigration"));
  EXPECT_EQ(logLines(capture), std::vector<std::string>{VNFormat(
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
  ::mkdir((dir / "elsewhere").c_str(), 0755);
  VNWriteTestFile(dir / "A.app.incompleteMigration", "");
  ASSERT_EQ(::mount((dir / "elsewhere").c_str(), (dir / "A.app/Contents").c_str(), nullptr, MS_BIND, nullptr), 0);
  VNFileURL destination = VNFileURL::fileURLWithPath(dir / "A.app");
  EXPECT_EQ(VN_compareBundleVersionsForSourceBundleInformation({}, {}, {}, destination), 1);
  ::umount2((dir / "A.app/Contents").c_str(), MNT_DETACH);
  std::vector<std::string> lines = logLines(capture);
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[1].rfind(VNFormat("  *!!* Failed to Remove %@: ", destination), 0), 0u) << lines[1];
  EXPECT_TRUE(exists(dir / "A.app.incompleteMigration"));
}

TEST(BundleComparisonTest, StoreRuleThenVersions) {
  VNFileURL nowhere = VNFileURL::fileURLWithPath("/nonexistent/B.app");
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
  EXPECT_FALSE(VNLeftoverMarkerURL(VNFileURL::fileURLWithPath("/")));
  EXPECT_EQ(VNLeftoverMarkerURL(VNFileURL::fileURLWithPath("/a/B.app/", true))->path(), "/a/B.app.incompleteMigration");
}

}  // namespace
