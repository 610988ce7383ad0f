#include "common/VNBundleRules.h"
#include "common/VNStringUtilities.h"
#include "platform/VNTypeService.h"
#include "support/VNTest.h"

using namespace VNUtilities;

namespace {

void writePlist(const std::string& path, VNValue::Dictionary values) {
  VNMakeFolders(path.substr(0, path.rfind('/')));
  ASSERT_TRUE(VNValue(std::move(values)).writePropertyListFile(path, VNValue::Format::XML)) << path;
}

// A type service that tags every item with one set of values.
class FixedTypes final : public VNTypeService {
 public:
  explicit FixedTypes(VNTypeResourceValues values) : values_(std::move(values)) {}
  VNTypeResourceValues resourceValues(const VNFileURL&) override { return values_; }
  bool typeConformsTo(std::string_view type, std::string_view parent) override {
    return type == parent || (type == "org.example.game" && parent == VNTypeIdentifierApplication);
  }
  std::string deviceTypeIdentifier(std::optional<std::string_view>) override { return {}; }
  std::string deviceTypeDescription(std::string_view) override { return {}; }

 private:
  VNTypeResourceValues values_;
};

// A bundle with an ELF executable and a signature record in the "Contents" layout.
std::string makeSignedBundle(const std::string& bundle) {
  writePlist(bundle + "/Contents/Info.plist", {{"QFBundleExecutable", VNValue("tool")}});
  VNMakeFolders(bundle + "/Contents/bin");
  EXPECT_EQ(VNRunCommand("cp /bin/true '" + bundle + "/Contents/bin/tool'"), 0);
  writePlist(bundle + "/Contents/Signature.plist", {{"PlatformIdentifier", VNValue(7)}});
  return bundle;
}

}  // namespace

// Folders by their (exactly compared) extension or an information
// dictionary with a name or version in any layout; files and missing items
// by extension; applications by the type table whatever the case.
TEST(PathIsBundle, ByKindExtensionAndInformation) {
  VNTestDir dir;
  for (const char* folder : {"Foo.framework", "Foo.data", "en.lproj", "Stuff", "Odd.prefpane", "Tool.APP"})
    VNMakeFolders(dir / folder);
  writePlist(dir / "A.data/Contents/Info.plist", {{"QFBundleName", VNValue("A")}});
  writePlist(dir / "B.data/Info.plist", {{"QFBundleShortVersionString", VNValue("1.0")}});
  writePlist(dir / "C.data/Info.plist", {{"Unrelated", VNValue(1)}});
  // "Resources/Info.plist" counts by its mere presence, even unreadable.
  VNWriteTestFile(dir / "D.data/Resources/Info.plist", "not a property list");
  // A dictionary that is not one, in the first layout, does not hide the next.
  VNWriteTestFile(dir / "E.data/Contents/Info.plist", "<plist><array/></plist>");
  writePlist(dir / "E.data/Info.plist", {{"QFBundleVersion", VNValue(3)}});
  VNWriteTestFile(dir / "Helper.plugin", "x");
  VNWriteTestFile(dir / "notes.txt", "x");
  const std::pair<std::string, bool> cases[] = {
      {"Foo.framework", true}, {"Foo.data", false}, {"en.lproj", true}, {"Stuff", false},
      {"Odd.prefpane", false}, {"Tool.APP", true}, {"A.data", true}, {"B.data", true}, {"C.data", false},
      {"D.data", true}, {"E.data", true}, {"Helper.plugin", true}, {"notes.txt", false}, {"Missing.app", true},
      {"Missing.txt", false}, {"Foo.framework/", true}, {"Foo.framework/x/..", true}, {"Foo.framework/..", false},
      {"line\nbreak.bundle", true}, {"\xC3(.data", false}, {std::string(5000, 'n') + ".app", true},
  };
  for (const auto& [name, expected] : cases) EXPECT_EQ(pathIsBundle(dir / name), expected) << name;
  EXPECT_FALSE(pathIsBundle(""));
  EXPECT_FALSE(pathIsBundle(std::string("/x.app\0y", 8)));
}

TEST(PathIsBundle, PackageFlagAndApplicationTypeWin) {
  VNTestDir dir;
  VNMakeFolders(dir / "Stuff");
  for (auto values : {VNTypeResourceValues{true, true, std::string("org.varnel.folder")},
                      VNTypeResourceValues{false, false, std::string("org.example.game")}}) {
    VNPlatformOverride<VNTypeService> types(std::make_shared<FixedTypes>(values));
    EXPECT_TRUE(pathIsBundle(VNURL(dir / "Stuff")));
  }
}

TEST(BundleIsPlatformBinary, OnlyTrustedRecordsWithAnExecutable) {
  if (::geteuid() != 0) GTEST_SKIP() << "skipped: trusted signature records must be owned by root";
  VNTestDir dir;
  VNLogCapture capture(dir / "migration.log");
  std::string bundle = makeSignedBundle(dir / "Tool.app"), record = bundle + "/Contents/Signature.plist";
  EXPECT_EQ(VN_bundleIsPlatformBinary(VNURL(bundle)), true);
  EXPECT_EQ(capture.systemLog().texts(), std::vector<std::string>{"Platform Binary: Found platform signature at path: " + bundle});
  // Anyone may write a group-writable record or one of another owner: its identifier is ignored.
  ASSERT_EQ(::chmod(record.c_str(), 0664), 0);
  EXPECT_EQ(VN_bundleIsPlatformBinary(VNURL(bundle)), false);
  ASSERT_EQ(::chmod(record.c_str(), 0644), 0);
  ASSERT_EQ(::chown(record.c_str(), 1000, 1000), 0);
  EXPECT_EQ(VN_bundleIsPlatformBinary(VNURL(bundle)), false);
  // A trusted record without an executable architecture is not enough.
  std::string script = makeSignedBundle(dir / "Script.app");
  VNWriteTestFile(script + "/Contents/bin/tool", "#!/bin/sh\n");
  EXPECT_EQ(VN_bundleIsPlatformBinary(VNURL(script)), false);
}

TEST(BundleIsPlatformBinary, UnsignedIsFalseAndUnreadableIsNull) {
  VNTestDir dir;
  VNLogCapture capture(dir / "migration.log");
  VNMakeFolders(dir / "Plain.app");
  VNWriteTestFile(dir / "file", "x");
  EXPECT_EQ(VN_bundleIsPlatformBinary(VNURL(dir / "Plain.app")), false);
  EXPECT_EQ(VN_bundleIsPlatformBinary(VNURL(dir / "file")), false);
  EXPECT_TRUE(capture.systemLog().entries().empty());

  EXPECT_EQ(VN_bundleIsPlatformBinary(VNURL(dir / "missing.app")), std::nullopt);
  VNWriteTestFile(dir / "Broken.app/Signature.plist", "<plist><dict><key>");
  EXPECT_EQ(VN_bundleIsPlatformBinary(VNURL(dir / "Broken.app")), std::nullopt);
  EXPECT_EQ(capture.systemLog().texts(VNSystemLog::Level::Error),
            (std::vector<std::string>{"Platform Binary: Could not create code from path (OSS 2): " + dir / "missing.app",
                                      "Platform Binary: Sigilread failed (OSS 22): " + dir / "Broken.app"}));
}

// The real type service does not follow links; what it does not know is no
// application and has no values.
TEST(TypeService, ValuesWithoutFollowingLinks) {
  VNTestDir dir;
  auto types = VNTypeService::makeDefault();
  VNMakeFolders(dir / "x.bundle");
  ASSERT_EQ(::symlink("x.bundle", (dir / "link.plist").c_str()), 0);
  ASSERT_EQ(::mkfifo((dir / "pipe.txt").c_str(), 0644), 0);
  const std::tuple<const char*, bool, bool, const char*> cases[] = {
      {"x.bundle", true, true, "org.varnel.plugin-bundle"},
      {"link.plist", false, false, "org.varnel.symlink"},
      {"pipe.txt", false, false, "org.varnel.special-file"},
  };
  for (const auto& [name, package, directory, type] : cases) {
    auto values = types->resourceValues(VNURL(dir / name));
    EXPECT_EQ(values.isPackage, package) << name;
    EXPECT_EQ(values.isDirectory, directory) << name;
    EXPECT_EQ(values.typeIdentifier, type) << name;
  }
  auto missing = types->resourceValues(VNURL(dir / "missing"));
  EXPECT_FALSE(missing.isPackage || missing.isDirectory || missing.typeIdentifier);
  EXPECT_FALSE(pathIsBundle(VNURL(dir / "link.plist"))) << "the bundle behind the link does not count";
  EXPECT_TRUE(types->typeConformsTo("org.varnel.application-bundle", VNTypeIdentifierApplication));
  EXPECT_FALSE(types->typeConformsTo("org.varnel.plugin-bundle", VNTypeIdentifierApplication));
  EXPECT_FALSE(types->typeConformsTo("org.example.unknown", VNTypeIdentifierApplication));
}
