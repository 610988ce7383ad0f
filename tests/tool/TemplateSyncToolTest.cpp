// varnel template sync, system version and tetherlinks: exit statuses, the
// messages that name the file at fault, and JSON that parses.
#include "support/VNTest.h"
#include "support/VNToolRun.h"

namespace {

std::string plist(const std::string& body) { return "<plist version=\"1.0\"><dict>" + body + "</dict></plist>"; }

const char* kReceipt = "Library/Veltra/System/Library/Receipts/org.varnel.files.data-template.plist";

TEST(TemplateSyncTool, ExitsOneNamingTheMissingFileAndZeroInSync) {
  VNTestDir system, data;
  const std::string sync = "template sync --system " + system.path() + " --data " + data.path();
  VNToolRun none = VNRunVarnel(sync);
  EXPECT_EQ(none.status, 1);
  EXPECT_EQ(none.out, "no-system-version\n");
  EXPECT_NE(none.err.find(system / "System/Library/Baseworks/SystemVersion.plist"), std::string::npos) << none.err;
  VNWriteTestFile(system / "System/Library/Baseworks/SystemVersion.plist",
                  plist("<key>ProductVersion</key><string>7.1</string><key>ProductBuildVersion</key><string>7B2</string>"));
  VNToolRun noReceipt = VNRunVarnel(sync);
  EXPECT_EQ(noReceipt.status, 1);
  EXPECT_NE(noReceipt.err.find(data / kReceipt), std::string::npos) << noReceipt.err;
  VNWriteTestFile(data / kReceipt, plist("<key>AdditionalInformation</key><dict><key>SystemVersion</key><string>7.1</string>"
                                         "<key>SystemBuild</key><string>7B2</string></dict>"));
  VNToolRun inSync = VNRunVarnel(sync + " --json");
  EXPECT_EQ(inSync.status, 0) << inSync.err;
  EXPECT_TRUE(VNJSONPasses(inSync.out, "assert 'in-sync' in json.dumps(d)")) << inSync.out;
  VNToolRun version = VNRunVarnel("system version --json " + system.path());
  EXPECT_EQ(version.status, 0) << version.err;
  EXPECT_TRUE(VNJSONPasses(version.out, "assert '\"minor\": 1' in json.dumps(d)")) << version.out;
  EXPECT_EQ(VNRunVarnel("system version " + data.path()).status, 1);
}

TEST(TetherlinksTool, ListsDefinitionsAndNamesEveryLineItSkips) {
  VNTestDir volume;
  const std::string definitions = volume / "System/Library/Baseworks/Tetherlinks";
  VNWriteTestFile(definitions, "partner ../data\n/Users\tUsers\n/x\t../../etc\n");
  VNToolRun written = VNRunVarnel("tetherlinks --no-live " + volume.path());
  EXPECT_EQ(written.status, 0) << written.err;
  EXPECT_EQ(written.out, "/Users -> Users\n");
  EXPECT_NE(written.err.find("Tetherlinks:3: "), std::string::npos) << written.err;
  EXPECT_EQ(VNRunVarnel("tetherlinks --json " + volume.path()).out, "[]\n");  // the partner is not mounted
  VNWriteTestFile(definitions, "partner ../data\n/b\xff\tc\n");
  VNToolRun json = VNRunVarnel("tetherlinks --no-live --json " + volume.path());
  EXPECT_TRUE(VNJSONPasses(json.out, "assert raw(d[0]['source']) == b'/b\\xff'")) << json.out;
  VNToolRun missing = VNRunVarnel("tetherlinks " + volume / "missing");
  EXPECT_EQ(missing.status, 1);
  EXPECT_NE(missing.err.find(volume / "missing"), std::string::npos) << missing.err;
}

}  // namespace
