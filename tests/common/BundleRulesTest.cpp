#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <set>
#include <string>
#include <thread>
#include <vector>

#include "common/VNBundleRules.h"
#include "common/VNStringUtilities.h"
#include "platform/VNBundleService.h"
#include "platform/VNCodeSigning.h"
#include "platform/VNPlatformService.h"
#include "platform/VNSystemLog.h"
#include "platform/VNTypeService.h"
#include "support/VNLogCapture.h"
#include "support/VNLoopImage.h"
#include "support/VNTestDir.h"

using namespace VNUtilities;

namespace {

VNFileURL url(const std::string& path) { return VNFileURL::fileURLWithPath(path); }

void makeDir(const std::string& path) { ASSERT_EQ(::mkdir(path.c_str(), 0755), 0) << path; }

void writePlist(const std::string& path, VNValue::Dictionary values) {
  ASSERT_TRUE(VNValue(std::move(values)).writePropertyListFile(path, VNValue::Format::XML)) << path;
}

// What reached the system log while `capture` lived, as level and text.
std::vector<std::pair<VNSystemLog::Level, std::string>> lines(VNLogCapture& capture) {
  std::vector<std::pair<VNSystemLog::Level, std::string>> out;
  for (const auto& entry : capture.systemLog().entries()) out.emplace_back(entry.level, entry.text);
  return out;
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

// A bundle "Tool.<ext>" with an ELF executable in the "Contents" layout.
std::string makeSignedBundle(const std::string& folder, const char* name) {
  std::string bundle = folder + "/" + name;
  makeDir(bundle);
  makeDir(bundle + "/Contents");
  makeDir(bundle + "/Contents/bin");
  writePlist(bundle + "/Contents/Info.plist", {{"QFBundleExecutable", VNValue("tool")}});
  EXPECT_EQ(VNRunCommand("cp /bin/true '" + bundle + "/Contents/bin/tool'"), 0);
  writePlist(bundle + "/Contents/Signature.plist", {{"PlatformIdentifier", VNValue(7)}});
  return bundle;
}

}  // namespace

TEST(CommonBundleExtensions, TwentyTwoSharedAndCaseSensitive) {
  const auto& extensions = commonBundleExtensions();
  EXPECT_EQ(extensions.size(), 22u);
  for (const char* ext : {"app", "prefPane", "colorPicker", "monitorPanels", "mdimporter", "ideplugin",
                          "tracepack", "reportplugin"})
    EXPECT_EQ(extensions.count(ext), 1u) << ext;
  EXPECT_EQ(extensions.count("prefpane"), 0u);
  EXPECT_EQ(extensions.count("APP"), 0u);
  std::vector<const void*> seen(8);
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) threads.emplace_back([&seen, i] { seen[i] = &commonBundleExtensions(); });
  for (auto& thread : threads) thread.join();
  for (const void* address : seen) EXPECT_EQ(address, &extensions);
}

TEST(PathIsBundle, DirectoriesByExtensionAndInformation) {
  VNTestDir dir;
  makeDir(dir / "Foo.framework");
  makeDir(dir / "Foo.data");
  makeDir(dir / "en.lproj");
  makeDir(dir / "Stuff");
  makeDir(dir / "Odd.prefpane");
  EXPECT_TRUE(pathIsBundle(url(dir / "Foo.framework")));
  EXPECT_FALSE(pathIsBundle(url(dir / "Foo.data")));
  EXPECT_TRUE(pathIsBundle(url(dir / "en.lproj")));
  EXPECT_FALSE(pathIsBundle(url(dir / "Stuff")));
  EXPECT_FALSE(pathIsBundle(url(dir / "Odd.prefpane")));  // extensions are compared exactly

  // Information dictionaries in each layout; only a name or version counts.
  makeDir(dir / "A.data");
  makeDir(dir / "A.data/Contents");
  writePlist(dir / "A.data/Contents/Info.plist", {{"QFBundleName", VNValue("A")}});
  EXPECT_TRUE(pathIsBundle(url(dir / "A.data")));
  makeDir(dir / "B.data");
  writePlist(dir / "B.data/Info.plist", {{"QFBundleShortVersionString", VNValue("1.0")}});
  EXPECT_TRUE(pathIsBundle(url(dir / "B.data")));
  makeDir(dir / "C.data");
  writePlist(dir / "C.data/Info.plist", {{"Unrelated", VNValue(1)}});
  EXPECT_FALSE(pathIsBundle(url(dir / "C.data")));
  // "Resources/Info.plist" counts by its mere presence, even unreadable.
  makeDir(dir / "D.data");
  makeDir(dir / "D.data/Resources");
  VNWriteTestFile(dir / "D.data/Resources/Info.plist", "not a property list");
  EXPECT_TRUE(pathIsBundle(url(dir / "D.data")));
  // A dictionary that is not one, in the first layout, does not hide the next.
  makeDir(dir / "E.data");
  makeDir(dir / "E.data/Contents");
  VNWriteTestFile(dir / "E.data/Contents/Info.plist", "<plist><array/></plist>");
  writePlist(dir / "E.data/Info.plist", {{"QFBundleVersion", VNValue(3)}});
  EXPECT_TRUE(pathIsBundle(url(dir / "E.data")));
}

TEST(PathIsBundle, FilesMissingItemsAndApplications) {
  VNTestDir dir;
  VNWriteTestFile(dir / "Helper.plugin", "x");
  VNWriteTestFile(dir / "notes.txt", "x");
  EXPECT_TRUE(pathIsBundle(url(dir / "Helper.plugin")));
  EXPECT_FALSE(pathIsBundle(url(dir / "notes.txt")));
  EXPECT_TRUE(pathIsBundle(url(dir / "Missing.app")));
  EXPECT_FALSE(pathIsBundle(url(dir / "Missing.txt")));
  // The type table knows applications whatever the case of their extension.
  makeDir(dir / "Tool.APP");
  EXPECT_TRUE(pathIsBundle(url(dir / "Tool.APP")));
  // Through the string form: trailing separators, "..", odd and invalid names.
  makeDir(dir / "Foo.framework");
  EXPECT_TRUE(pathIsBundle(dir / "Foo.framework/"));
  EXPECT_TRUE(pathIsBundle(dir / "Foo.framework/x/.."));
  EXPECT_FALSE(pathIsBundle(dir / "Foo.framework/.."));
  EXPECT_TRUE(pathIsBundle(dir / "line\nbreak.bundle"));
  EXPECT_FALSE(pathIsBundle(dir / "\xC3(.data"));
  EXPECT_FALSE(pathIsBundle(""));
  EXPECT_FALSE(pathIsBundle(std::string("/x.app\0y", 8)));
  EXPECT_TRUE(pathIsBundle(dir / (std::string(5000, 'n') + ".app")));
}

TEST(PathIsBundle, PackageFlagAndApplicationTypeWin) {
  VNTestDir dir;
  makeDir(dir / "Stuff");
  {
    VNPlatformOverride<VNTypeService> types(std::make_shared<FixedTypes>(
        VNTypeResourceValues{true, true, std::string("org.varnel.folder")}));
    EXPECT_TRUE(pathIsBundle(url(dir / "Stuff")));
  }
  {
    VNPlatformOverride<VNTypeService> types(std::make_shared<FixedTypes>(
        VNTypeResourceValues{false, false, std::string("org.example.game")}));
    EXPECT_TRUE(pathIsBundle(url(dir / "Stuff")));
  }
  auto real = VNTypeService::makeDefault();
  EXPECT_TRUE(real->typeConformsTo("org.varnel.application-bundle", VNTypeIdentifierApplication));
  EXPECT_FALSE(real->typeConformsTo("org.varnel.plugin-bundle", VNTypeIdentifierApplication));
  EXPECT_FALSE(real->typeConformsTo("org.example.unknown", VNTypeIdentifierApplication));
  auto values = real->resourceValues(url(dir / "missing"));
  EXPECT_FALSE(values.isPackage || values.isDirectory || values.typeIdentifier);
}

TEST(BundleIsPlatformBinary, OnlyTrustedRecordsWithAnExecutable) {
  if (::geteuid() != 0) GTEST_SKIP() << "skipped: trusted signature records must be owned by root";
  VNTestDir dir;
  VNLogCapture capture(dir / "migration.log");
  std::string bundle = makeSignedBundle(dir.path(), "Tool.app");
  EXPECT_EQ(VN_bundleIsPlatformBinary(url(bundle)), true);
  ASSERT_FALSE(lines(capture).empty());
  EXPECT_EQ(lines(capture).back().second, "Platform Binary: Found platform signature at path: " + bundle);

  // Anyone may write a group-writable record: its platform identifier is ignored.
  ASSERT_EQ(::chmod((bundle + "/Contents/Signature.plist").c_str(), 0664), 0);
  EXPECT_EQ(VN_bundleIsPlatformBinary(url(bundle)), false);
  ASSERT_EQ(::chmod((bundle + "/Contents/Signature.plist").c_str(), 0644), 0);
  ASSERT_EQ(::chown((bundle + "/Contents/Signature.plist").c_str(), 1000, 1000), 0);
  EXPECT_EQ(VN_bundleIsPlatformBinary(url(bundle)), false);

  // A trusted record without an executable architecture is not enough.
  std::string empty = makeSignedBundle(dir.path(), "Empty.app");
  VNWriteTestFile(empty + "/Contents/bin/tool", "#!/bin/sh\n");
  EXPECT_EQ(VN_bundleIsPlatformBinary(url(empty)), false);
}

TEST(BundleIsPlatformBinary, UnsignedIsNeverTrue) {
  VNTestDir dir;
  VNLogCapture capture(dir / "migration.log");
  makeDir(dir / "Plain.app");
  EXPECT_EQ(VN_bundleIsPlatformBinary(url(dir / "Plain.app")), false);
  VNWriteTestFile(dir / "file", "x");
  EXPECT_EQ(VN_bundleIsPlatformBinary(url(dir / "file")), false);
  EXPECT_TRUE(lines(capture).empty());

  EXPECT_EQ(VN_bundleIsPlatformBinary(url(dir / "missing.app")), std::nullopt);
  ASSERT_EQ(lines(capture).size(), 1u);
  EXPECT_EQ(lines(capture)[0].first, VNSystemLog::Level::Error);
  EXPECT_EQ(lines(capture)[0].second,
            "Platform Binary: Could not create code from path (OSS 2): " + dir / "missing.app");

  makeDir(dir / "Broken.app");
  VNWriteTestFile(dir / "Broken.app/Signature.plist", "<plist><dict><key>");
  EXPECT_EQ(VN_bundleIsPlatformBinary(url(dir / "Broken.app")), std::nullopt);
  ASSERT_EQ(lines(capture).size(), 2u);
  EXPECT_EQ(lines(capture)[1].second,
            "Platform Binary: Sigilread failed (OSS 22): " + dir / "Broken.app");
}

TEST(TypeService, ValuesFromTheTableWithoutFollowingLinks) {
  VNTestDir dir;
  auto types = VNTypeService::makeDefault();
  makeDir(dir / "x.bundle");
  makeDir(dir / "x.framework");
  VNWriteTestFile(dir / "a.PLIST", "x");
  ASSERT_EQ(::symlink("x.bundle", (dir / "link.plist").c_str()), 0);
  ASSERT_EQ(::mkfifo((dir / "pipe.txt").c_str(), 0644), 0);
  auto check = [&](const std::string& name, bool package, bool directory, const char* type) {
    auto values = types->resourceValues(url(dir / name));
    EXPECT_EQ(values.isPackage, package) << name;
    EXPECT_EQ(values.isDirectory, directory) << name;
    EXPECT_EQ(values.typeIdentifier, type) << name;
  };
  check("x.bundle", true, true, "org.varnel.plugin-bundle");
  check("x.framework", false, true, "org.varnel.framework");
  check("a.PLIST", false, false, "org.varnel.property-list");
  check("link.plist", false, false, "org.varnel.symlink");
  check("pipe.txt", false, false, "org.varnel.special-file");
  EXPECT_TRUE(types->typeConformsTo("org.varnel.plugin-bundle", "org.varnel.package"));
  EXPECT_FALSE(types->typeConformsTo("org.varnel.framework", "org.varnel.package"));
  // The link is not followed: the bundle behind it does not make it one.
  EXPECT_FALSE(pathIsBundle(url(dir / "link.plist")));
}
