// varnel template sync, system version and tetherlinks: exit statuses, the
// messages that name the file at fault, and JSON that parses.
#include <gtest/gtest.h>

#include <filesystem>

#include "support/VNLoopImage.h"
#include "support/VNTestDir.h"

namespace {

struct ToolRun {
  int status;
  std::string out;
  std::string err;
};

ToolRun varnel(const std::string& arguments) {
  VNTestDir dir;
  ToolRun run;
  run.status = VNRunCommand("(" VARNEL_BINARY_DIR "/tools/varnel/varnel " + arguments + " 2>" + dir / "err)", &run.out);
  VNRunCommand("cat " + dir / "err", &run.err);
  return run;
}

void put(const std::string& path, const std::string& contents) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  VNWriteTestFile(path, contents);
}

std::string plist(const std::string& body) { return "<plist version=\"1.0\"><dict>" + body + "</dict></plist>"; }

const std::string kVersion = plist("<key>ProductVersion</key><string>7.1</string>"
                                   "<key>ProductBuildVersion</key><string>7B2</string>");
const char* kReceipt = "Library/Veltra/System/Library/Receipts/org.varnel.files.data-template.plist";

bool validJSON(const std::string& text) {
  VNTestDir dir;
  VNWriteTestFile(dir / "out.json", text);
  return VNRunCommand("python3 -c 'import json,sys; json.load(open(sys.argv[1]))' " + dir / "out.json") == 0;
}

TEST(TemplateSyncTool, ExitsOneNamingTheMissingFileAndZeroInSync) {
  VNTestDir system, data;
  ToolRun none = varnel("template sync --system " + system.path() + " --data " + data.path());
  EXPECT_EQ(none.status, 1);
  EXPECT_EQ(none.out, "no-system-version\n");
  EXPECT_NE(none.err.find(system / "System/Library/Baseworks/SystemVersion.plist"), std::string::npos) << none.err;

  put(system / "System/Library/Baseworks/SystemVersion.plist", kVersion);
  ToolRun noReceipt = varnel("template sync --system " + system.path() + " --data " + data.path());
  EXPECT_EQ(noReceipt.status, 1);
  EXPECT_NE(noReceipt.err.find(data / kReceipt), std::string::npos) << noReceipt.err;

  put(data / kReceipt, plist("<key>AdditionalInformation</key><dict><key>SystemVersion</key><string>7.1</string>"
                             "<key>SystemBuild</key><string>7B2</string></dict>"));
  ToolRun inSync = varnel("template sync --json --system " + system.path() + " --data " + data.path());
  EXPECT_EQ(inSync.status, 0) << inSync.err;
  EXPECT_NE(inSync.out.find("\"in-sync\""), std::string::npos);
  EXPECT_TRUE(validJSON(inSync.out)) << inSync.out;

  ToolRun version = varnel("system version --json " + system.path());
  EXPECT_EQ(version.status, 0) << version.err;
  EXPECT_NE(version.out.find("\"minor\": 1"), std::string::npos) << version.out;
  EXPECT_TRUE(validJSON(version.out)) << version.out;
  EXPECT_EQ(varnel("system version " + data.path()).status, 1);
}

TEST(TetherlinksTool, ListsDefinitionsAndNamesEveryLineItSkips) {
  VNTestDir volume;
  put(volume / "System/Library/Baseworks/Tetherlinks", "partner ../data\n/Users\tUsers\n/x\t../../etc\n");
  ToolRun written = varnel("tetherlinks --no-live " + volume.path());
  EXPECT_EQ(written.status, 0) << written.err;
  EXPECT_EQ(written.out, "/Users -> Users\n");
  EXPECT_NE(written.err.find("Tetherlinks:3: "), std::string::npos) << written.err;
  EXPECT_EQ(varnel("tetherlinks --json " + volume.path()).out, "[]\n");  // the partner is not mounted

  put(volume / "System/Library/Baseworks/Tetherlinks", "partner ../data\n/b\xff\tc\n");
  VNTestDir dir;
  VNWriteTestFile(dir / "out.json", varnel("tetherlinks --no-live --json " + volume.path()).out);
  std::string check = "python3 -c 'import json,sys; d=json.load(open(sys.argv[1])); "
                      "assert d[0][\"source\"].encode(\"utf-8\", \"surrogateescape\") == b\"/b\\xff\"' ";
  EXPECT_EQ(VNRunCommand(check + dir / "out.json"), 0) << VNReadTestFile(dir / "out.json");
  ToolRun missing = varnel("tetherlinks " + volume / "missing");
  EXPECT_EQ(missing.status, 1);
  EXPECT_NE(missing.err.find(volume / "missing"), std::string::npos) << missing.err;
}

}  // namespace
