// varnel bundle info and compare: exit statuses, the answer with its reason,
// and a leftover removed only when asked.
#include "support/VNTest.h"
#include "support/VNToolRun.h"

namespace {

void makeBundle(const std::string& path, const std::string& shortVersion) {
  std::filesystem::create_directories(path + "/Contents");
  VNWriteTestFile(path + "/Contents/Info.plist",
                  "<?xml version=\"1.0\"?><plist><dict><key>QFBundleShortVersionString</key><string>" + shortVersion +
                      "</string></dict></plist>");
}

TEST(BundleTool, InfoFailsForAPathThatIsNoBundle) {
  VNTestDir dir;
  makeBundle(dir / "A.app", "1.0");
  VNToolRun info = VNRunVarnel("bundle info --json '" + dir / "A.app" + "'");
  EXPECT_EQ(info.status, 0);
  EXPECT_NE(info.out.find("\"QFBundleShortVersionString\": \"1.0\""), std::string::npos) << info.out;
  EXPECT_EQ(VNRunVarnel("bundle info '" + dir / "A.app" + "' '" + dir / "none" + "'").status, 1);
}

TEST(BundleTool, CompareNamesTheDecidingStringAndRemovesLeftoversOnlyWhenAsked) {
  VNTestDir dir;
  makeBundle(dir / "S.app", "10.10");
  makeBundle(dir / "D.app", "10.9");
  std::string pair = "'" + dir / "S.app" + "' '" + dir / "D.app" + "'";
  VNToolRun compare = VNRunVarnel("bundle compare " + pair);
  EXPECT_EQ(compare.status, 0);
  EXPECT_EQ(compare.out, "newer: QFBundleShortVersionString 10.10 against 10.9\n");

  VNWriteTestFile(dir / "D.app.incompleteMigration", "");
  VNToolRun dryRun = VNRunVarnel("bundle compare " + pair);
  EXPECT_EQ(dryRun.status, 0);
  EXPECT_NE(dryRun.out.find("would remove"), std::string::npos) << dryRun.out;
  EXPECT_TRUE(std::filesystem::exists(dir / "D.app"));
  VNToolRun removal = VNRunVarnel("bundle compare --json --remove-leftovers " + pair);
  EXPECT_EQ(removal.status, 0);
  EXPECT_NE(removal.out.find("\"removed\": true"), std::string::npos) << removal.out;
  EXPECT_FALSE(std::filesystem::exists(dir / "D.app"));
}

}  // namespace
