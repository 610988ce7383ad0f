// Target-system views on one volume: selection, folders, versions, path
// mapping, the template receipt and the list queries.
#include "datatemplate/VNBomStore.h"
#include "platform/VNResourceValues.h"
#include "support/VNTest.h"
#include "systemview/VNSystem_FileManager_Traditional.h"

namespace {

using ::testing::HasSubstr;

constexpr const char* kReceipts = "Library/Veltra/System/Library/Receipts";
constexpr const char* kReceiptName = "org.varnel.files.data-template";

// A one-volume target at dir/target with a version file, a data template's
// files and the receipts describing them.
struct Target {
  VNTestDir dir;
  std::string root = dir / "target";
  Target() {
    std::string receipts = root + "/" + kReceipts;
    VNMakeFolders(receipts);
    VNWriteTestFile(root + "/System/Library/Baseworks/SystemVersion.plist",
                    "<plist><dict><key>ProductVersion</key><string>5.2</string>"
                    "<key>ProductBuildVersion</key><string>5C104</string></dict></plist>");
    VNWriteTestFile(dir / "template/Users/Shared/note", "as laid down");
    VNWriteTestFile(root + "/Users/Shared/note", "as laid down");
    BomStore* bom = bom_new_from_directory((receipts + "/" + kReceiptName + ".bom").c_str(),
                                           (dir / "template").c_str(), BomOptionStat | BomOptionChecksums);
    if (!bom || bom_commit(bom) != 0) std::abort();
    bom_free(bom);
    VNWriteTestFile(receipts + "/" + kReceiptName + ".plist",
                    "<plist><dict><key>PackageVersion</key><string>5.2.1</string></dict></plist>");
  }
  std::unique_ptr<VNSystem_FileManager_DiskBased> view() {
    return VNSystem_FileManager_DiskBased::appropriateDiskFileMangerForSystemRoot(VNFolderURL(root));
  }
};

// Implements only the folder and version answers, so that the base class's
// own queries can be reached.
class BareView final : public VNSystem_FileManager_Kestos {
 public:
  bool isFileSystemReady() override { return false; }
  std::optional<VNFileURL> slash() override { return std::nullopt; }
  std::optional<VNFileURL> userContentRoot() override { return std::nullopt; }
  std::optional<VNFileURL> userHomeRoot() override { return std::nullopt; }
  std::optional<std::string> productVersion() override { return std::nullopt; }
  std::optional<std::string> buildVersion() override { return std::nullopt; }
};

TEST(SystemViewTest, BaseClassQueriesRaiseAndTheDiskBasedClassAnswersNothing) {
  BareView bare;
  try {
    bare.activate();
    FAIL() << "activate on the base class must raise";
  } catch (const VNSystem_FileManager_Kestos_Exception& exception) {
    EXPECT_STREQ(exception.what(), "Concrete subclasses must implement -[VNSystem_FileManager_Kestos activate]");
  }
  EXPECT_THROW(bare.bundleInformationAtPaths({}), VNSystem_FileManager_Kestos_Exception);

  Target target;
  VNLogCapture capture(target.dir / "log");
  auto view = VNSystem_FileManager_DiskBased::initAtRoot(VNFolderURL(target.root));
  bool exists = true;
  EXPECT_FALSE(view->pathToRemoteFile(VNURL("/Users"), &exists, true));
  EXPECT_TRUE(exists) << "the existence flag is not written";
  EXPECT_FALSE(view->productVersion());
  EXPECT_FALSE(view->buildVersion());
  EXPECT_TRUE(view->templateReceipt() == nullptr);
  auto errors = capture.systemLog().texts(VNSystemLog::Level::Error);
  ASSERT_EQ(errors.size(), 1u);
  EXPECT_THAT(errors[0], ::testing::StartsWith("[VNSystem_FileManager_DiskBased:0x"));
  EXPECT_THAT(errors[0], HasSubstr("]: The template receipt plist could not be fetched for: file:///" +
                                   std::string(kReceipts)));
}

TEST(SystemViewTest, OneVolumeViewAnswersFromItsRootAndFollowsRootChanges) {
  Target target;
  VNLogCapture capture(target.dir / "log");
  auto view = target.view();
  ASSERT_NE(view, nullptr);
  EXPECT_STREQ(view->className(), "VNSystem_FileManager_Traditional");
  EXPECT_TRUE(view->isFileSystemReady());
  EXPECT_EQ(view->userHomeRoot(), VNFolderURL(target.root + "/Users"));
  EXPECT_EQ(view->userContentRoot(), VNFolderURL(target.root));
  EXPECT_EQ(view->productVersion(), "5.2");
  EXPECT_EQ(view->buildVersion(), "5C104");

  view->setRoot(VNFolderURL(target.dir / "elsewhere"));
  EXPECT_EQ(view->userHomeRoot(), VNFolderURL(target.dir / "elsewhere/Users"));
  EXPECT_FALSE(view->productVersion());

  auto unrooted = VNSystem_FileManager_Traditional::initAtRoot(std::nullopt);
  EXPECT_FALSE(unrooted->isFileSystemReady());
  EXPECT_FALSE(unrooted->userHomeRoot());
  EXPECT_THAT(capture.systemLog().texts(VNSystemLog::Level::Error),
              ::testing::ElementsAre(HasSubstr("Returning from initAtRoot with nil root passed!")));
}

TEST(SystemViewTest, PathMappingStaysBelowTheRoot) {
  Target target;
  auto view = target.view();
  ASSERT_EQ(::symlink("nowhere", (target.root + "/dangling").c_str()), 0);
  struct Case {
    std::string targetPath;
    std::string mapped;
    bool folder;
    bool exists;
  } cases[] = {
      {"/Users/Shared/note", "/Users/Shared/note", false, true},
      {"/Users/", "/Users", true, true},
      {"/../../etc/passwd", "/etc/passwd", false, false},
      {"/Users/../../..", "", true, true},
      {"/Users/./Shared//note", "/Users/Shared/note", false, true},
      {"/dangling", "/dangling", false, false},
  };
  for (const Case& c : cases) {
    bool exists = !c.exists;
    std::optional<VNFileURL> mapped = view->pathToRemoteFile(VNFileURL::fileURLWithPath(c.targetPath), &exists, false);
    ASSERT_TRUE(mapped) << c.targetPath;
    EXPECT_EQ(mapped->path(), target.root + c.mapped) << c.targetPath;
    EXPECT_EQ(mapped->hasDirectoryPath(), c.folder) << c.targetPath;
    EXPECT_EQ(exists, c.exists) << c.targetPath;
  }
  bool exists = true;
  EXPECT_FALSE(view->pathToRemoteFile(VNFileURL(), &exists, false));
  EXPECT_FALSE(exists);
}

TEST(SystemViewTest, TemplateReceiptLoadsOnceAndTellsLaidDownFilesFromChangedOnes) {
  Target target;
  VNLogCapture capture(target.dir / "log");
  auto view = target.view();
  const VNTemplateReceipt* receipt = view->templateReceipt();
  ASSERT_NE(receipt, nullptr);
  EXPECT_EQ(view->templateReceipt(), receipt) << "loaded once";
  EXPECT_EQ(receipt->packageVersion(), "5.2.1");
  view->cleanup();
  ASSERT_NE(view->templateReceipt(), nullptr);
  auto loads = capture.systemLog().texts(VNSystemLog::Level::Default);
  EXPECT_EQ(std::count_if(loads.begin(), loads.end(),
                          [](const std::string& t) { return t.find("Template receipt has been loaded from") != t.npos; }),
            2);

  std::string note = target.root + "/Users/Shared/note";
  EXPECT_TRUE(view->matchesFileInDataTemplateWithPath(note, "Users/Shared/note"));
  EXPECT_THAT(capture.systemLog().texts(VNSystemLog::Level::Default).back(),
              HasSubstr("Skipping Users/Shared/note (template checksum matches that of the previous OS)"));
  EXPECT_FALSE(view->matchesFileInDataTemplateWithPath(note, "Users/Shared/unknown"));
  EXPECT_FALSE(view->matchesFileInDataTemplateWithPath(note, "Users/Shared"));
  VNWriteTestFile(note, "as laid dowN");
  std::size_t before = capture.systemLog().entries().size();
  EXPECT_FALSE(view->matchesFileInDataTemplateWithPath(note, "Users/Shared/note"));
  EXPECT_EQ(capture.systemLog().entries().size(), before) << "a difference is not logged";
  ::unlink(note.c_str());
  EXPECT_FALSE(view->matchesFileInDataTemplateWithPath(note, "Users/Shared/note"));
  EXPECT_THAT(capture.systemLog().texts(VNSystemLog::Level::Error).back(), HasSubstr("Unable to compute checksum for " + note));
}

TEST(SystemViewTest, DamagedReceiptIsReportedAndTriedAgain) {
  Target target;
  VNLogCapture capture(target.dir / "log");
  std::string bom = target.root + "/" + kReceipts + "/" + kReceiptName + ".bom";
  std::string good = VNReadTestFile(bom);
  VNWriteTestFile(bom, "not a bill of materials");
  auto view = target.view();
  EXPECT_TRUE(view->templateReceipt() == nullptr);
  EXPECT_THAT(capture.systemLog().texts(VNSystemLog::Level::Error).back(),
              HasSubstr("CRReceipt could not be constructed from BOM at path: file://" + bom));
  EXPECT_EQ(view->productVersion(), "5.2") << "the version file does not depend on the receipt";
  VNWriteTestFile(bom, good);
  EXPECT_NE(view->templateReceipt(), nullptr) << "a failed load is not cached";
}

TEST(SystemViewTest, ResourceValuesAnswerPerPathWithTheLaterOfTwiceGivenPaths) {
  Target target;
  auto view = target.view();
  std::vector<std::string> keys = {VNResourceKey::kName, VNResourceKey::kFileSize, VNResourceKey::kIsDirectory,
                                   "noSuchKey"};
  VNError untouched = VNError::posix(EPERM, "sentinel", "test");
  VNFileURL note = VNURL("/Users/Shared/note");
  auto values = view->resourceValuesForKeys(keys, {note, VNURL("/missing"), VNFolderURL("/Users"), note}, &untouched);
  ASSERT_TRUE(values);
  ASSERT_EQ(values->size(), 2u) << "the missing path has no entry";
  const VNValue& noteValues = values->at(note);
  EXPECT_EQ(*noteValues.findString("name"), "note");
  EXPECT_EQ(noteValues.find("fileSize")->asInteger(), 12);
  EXPECT_FALSE(*noteValues.find("isDirectory")->asBoolean());
  EXPECT_TRUE(noteValues.find("noSuchKey") == nullptr);
  EXPECT_TRUE(*values->at(VNFolderURL("/Users")).find("isDirectory")->asBoolean());
  EXPECT_EQ(untouched.filePath(), "sentinel");
  auto none = view->resourceValuesForKeys(keys, {}, nullptr);
  ASSERT_TRUE(none);
  EXPECT_TRUE(none->empty());
}

TEST(SystemViewTest, BundleInformationAnswersEveryPathBelowTheRoot) {
  Target target;
  std::string app = target.root + "/Applications/Tool.app/Contents";
  VNMakeFolders(app + "/_EmporiaReceipt");
  VNWriteTestFile(app + "/Info.plist",
                  "<plist><dict><key>QFBundleIdentifier</key><string>org.example.tool</string>"
                  "<key>QFBundleVersion</key><integer>42</integer></dict></plist>");
  auto view = target.view();
  VNFileURL tool = VNFolderURL("/Applications/Tool.app"), missing = VNFolderURL("/Applications/Missing.app");
  auto info = view->bundleInformationAtPaths({tool, missing, VNFileURL()});
  ASSERT_TRUE(info);
  ASSERT_EQ(info->size(), 3u);
  EXPECT_EQ(*info->at(tool).findString("RawQFBundleVersionString"), "42");
  EXPECT_TRUE(*info->at(tool).find("Emporia")->asBoolean());
  EXPECT_TRUE(info->at(missing).asDictionary()->empty());
  EXPECT_TRUE(info->at(VNFileURL()).asDictionary()->empty());
}

}  // namespace
