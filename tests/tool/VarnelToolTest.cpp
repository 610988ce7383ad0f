#include "support/VNTest.h"
#include "support/VNToolRun.h"

TEST(VarnelTool, VersionAndHelpSucceedOnStdout) {
  VNToolRun version = VNRunVarnel("--version");
  EXPECT_EQ(version.status, 0) << version.err;
  EXPECT_EQ(version.out, "varnel 1.0\n");
  EXPECT_EQ(version.err, "");

  VNToolRun help = VNRunVarnel("--help");
  EXPECT_EQ(help.status, 0) << help.err;
  EXPECT_NE(help.out.find("self-check"), std::string::npos) << help.out;
  EXPECT_EQ(help.err, "");

  VNToolRun subHelp = VNRunVarnel("self-check --help");
  EXPECT_EQ(subHelp.status, 0);
  EXPECT_NE(subHelp.out.find("--json"), std::string::npos) << subHelp.out;
}

TEST(VarnelTool, BadUsageExitsTwoWithTheComplaintOnStderr) {
  VNToolRun unknown = VNRunVarnel("no-such-command");
  EXPECT_EQ(unknown.status, 2);
  EXPECT_EQ(unknown.out, "");
  EXPECT_NE(unknown.err.find("no-such-command"), std::string::npos) << unknown.err;

  VNToolRun badOption = VNRunVarnel("self-check --no-such-option");
  EXPECT_EQ(badOption.status, 2);
  EXPECT_NE(badOption.err.find("--no-such-option"), std::string::npos) << badOption.err;

  VNToolRun nothing = VNRunVarnel("");
  EXPECT_EQ(nothing.status, 2);
  EXPECT_EQ(nothing.out, "") << "usage goes to stderr when it is a complaint";
  EXPECT_NE(nothing.err.find("self-check"), std::string::npos) << nothing.err;
}

TEST(VarnelTool, SelfCheckPrintsValidJSON) {
  VNToolRun check = VNRunVarnel("self-check --json");
  ASSERT_EQ(check.status, 0) << check.err;
  EXPECT_EQ(check.err, "");
  EXPECT_TRUE(VNJSONPasses(check.out, "assert d['propertyListRoundTrip'] is True")) << check.out;
}

// One name holding every byte a name can hold (1 to 255 but "/") goes
// through each --json listing and maps back to the file (Python reads each
// escaped byte as the lone surrogate its "surrogateescape" handler turns
// back into that byte); the text listing keeps it on one line.
TEST(VarnelTool, JSONNamesOfAnyBytesMapBackToTheFiles) {
  VNTestDir dir;
  std::string name, tree = dir / "tree";
  for (int byte = 1; byte < 256; ++byte)
    if (byte != '/') name += static_cast<char>(byte);
  VNWriteTestFile(tree + "/" + name, "x");
  VNWriteTestFile(tree + "/\xFF", "y");
  ASSERT_EQ(VNRunVarnel("bom create " + tree + " " + dir / "t.bom").status, 0);
  VNToolRun list = VNRunVarnel("bom list --json " + dir / "t.bom");
  VNToolRun size = VNRunVarnel("size --json " + dir / "tree/*");
  ASSERT_EQ(list.status, 0) << list.err;
  ASSERT_EQ(size.status, 0) << size.err;
  const std::string names = "names = sorted(os.listdir(b'" + tree + "'))\n";
  EXPECT_TRUE(VNJSONPasses(list.out, names + "assert sorted(raw(e['path']) for e in d if e['path'] != '.') == names"));
  EXPECT_TRUE(VNJSONPasses(size.out, names + "assert sorted(os.path.basename(raw(p['path'])) for p in d['paths']) == names"));
  VNToolRun text = VNRunVarnel("bom list " + dir / "t.bom");
  EXPECT_EQ(std::count(text.out.begin(), text.out.end(), '\n'), 3) << text.out;
}

// varnel install through a template root that is a link, without a template
// BOM: the summary counts what was laid down; a failed step names its path
// and says why; a path the kernel cannot take is called what it is.
TEST(VarnelTool, InstallCountsWhatItLaidDownAndSaysWhyItFailed) {
  VNTestDir dir;
  for (const char* folder : {"system/System/Library/Templates", "data", "locked/.DTemplateInstantiation.lock"})
    VNMakeFolders(dir / folder);
  VNWriteTestFile(dir / "elsewhere/Users/Shared/file", std::string(5000, 'f'));
  ASSERT_EQ(::symlink((dir / "elsewhere").c_str(), (dir / "system/System/Library/Templates/Data").c_str()), 0);

  VNToolRun installed = VNRunVarnel("install --json --system " + dir / "system" + " --data " + dir / "data");
  ASSERT_EQ(installed.status, 0) << installed.err;
  EXPECT_NE(installed.out.find("\"bytes\": 5000,"), std::string::npos) << installed.out;
  EXPECT_NE(installed.out.find("\"items\": 4,"), std::string::npos) << installed.out;

  // The lock file must be a regular file: a folder there stops the step.
  VNToolRun refused = VNRunVarnel("install --system " + dir / "system" + " --data " + dir / "locked");
  EXPECT_EQ(refused.status, 1);
  EXPECT_NE(refused.err.find("varnel: Could not lock the data volume " + dir / "locked\n"), std::string::npos)
      << refused.err;
  EXPECT_NE(refused.err.find("because: "), std::string::npos) << refused.err;
  EXPECT_NE(refused.err.find(".DTemplateInstantiation.lock"), std::string::npos) << refused.err;

  VNToolRun tooLong = VNRunVarnel("install --system " + dir / "system" + " --data " + dir / std::string(5000, 'x'));
  EXPECT_EQ(tooLong.status, 2);
  EXPECT_NE(tooLong.err.find(": File name too long"), std::string::npos) << tooLong.err;
}
