#include "BundleTestSupport.h"
#include "bundles/VNBundleInformation.h"
#include "support/VNTest.h"

namespace {

using VNUtilities::VN_bundleInformationAtPath;

VNValue infoWith(std::initializer_list<std::pair<const char*, VNValue>> entries) {
  VNValue info = VNValue::dictionary();
  for (const auto& [key, value] : entries) info.set(key, value);
  return info;
}

VNValue informationOf(const std::string& path) { return VN_bundleInformationAtPath(VNFileURL::fileURLWithPath(path)); }

// Every key under its name here, numbers as text; absent facts are absent
// keys; the store's receipt is a folder or a file; each call reads anew.
TEST(BundleInformationTest, ReadsEveryKeyFromDiskEachTime) {
  VNTestDir dir;
  makeTestBundle(dir / "A.app", infoWith({{"QFBundleIdentifier", "org.example.a"},
                                          {"QFBundleShortVersionString", "2.1"},
                                          {"QFBundleVersion", 42},
                                          {"VarnelSourceVersion", "310.2"},
                                          {"VarnelBuildVersion", "7"}}));
  EXPECT_EQ(informationOf(dir / "A.app"), infoWith({{"BundleIdentifier", "org.example.a"},
                                                    {"RawQFBundleShortVersionString", "2.1"},
                                                    {"RawQFBundleVersionString", "42"},
                                                    {"QFBundleShortVersionString", "2.1"},
                                                    {"QFBundleVersion", "42"},
                                                    {"SourceVersion", "310.2"},
                                                    {"BuildVersion", "7"},
                                                    {"Emporia", false}}));
  makeTestBundle(dir / "A.app", infoWith({{"QFBundleShortVersionString", "1.0"}}));
  VNMakeFolders(dir / "A.app/Contents/_EmporiaReceipt");
  EXPECT_EQ(informationOf(dir / "A.app"),
            infoWith({{"RawQFBundleShortVersionString", "1.0"}, {"QFBundleShortVersionString", "1.0"}, {"Emporia", true}}));
  makeTestBundle(dir / "B.app", VNValue::dictionary());
  VNWriteTestFile(dir / "B.app/Contents/_EmporiaReceipt", "");
  EXPECT_EQ(*informationOf(dir / "B.app").find("Emporia"), VNValue(true));
  EXPECT_EQ(informationOf(dir / "missing.app"), VNValue::dictionary());
  VNWriteTestFile(dir / "file.app", "not a folder");
  EXPECT_EQ(informationOf(dir / "file.app"), VNValue::dictionary());
}

// Information dictionaries we cannot trust give absent keys, never a crash.
TEST(BundleInformationTest, HostileInformationDictionaries) {
  VNTestDir dir;
  VNValue onlyStore = infoWith({{"Emporia", false}});
  auto prepare = [&](const std::string& name) {
    VNMakeFolders(dir / (name + "/Contents"));
    return dir / (name + "/Contents/Info.plist");
  };
  VNWriteTestFile(prepare("broken.app"), "<?xml version=\"1.0\"?><plist><dict><key>QF");
  VNMakeFolders(prepare("folder.app"));
  VNWriteTestFile(dir / "outside.plist", *infoWith({{"QFBundleVersion", "9"}}).propertyListData(VNValue::Format::XML));
  ASSERT_EQ(::symlink((dir / "outside.plist").c_str(), prepare("absolute-link.app").c_str()), 0);
  ASSERT_EQ(::symlink("../../outside.plist", prepare("relative-link.app").c_str()), 0);
  VNWriteTestFile(prepare("huge.app"), "<?xml version=\"1.0\"?><plist><dict><key>QFBundleVersion</key><string>" +
                                           std::string(2 << 20, '1') + "</string></dict></plist>");
  for (const char* name : {"broken.app", "folder.app", "absolute-link.app", "relative-link.app", "huge.app"})
    EXPECT_EQ(informationOf(dir / name), onlyStore) << name;

  makeTestBundle(dir / "types.app", infoWith({{"QFBundleIdentifier", VNValue::array()},
                                              {"QFBundleShortVersionString", infoWith({{"a", "b"}})},
                                              {"QFBundleVersion", std::string(5000, '1')}}));
  VNValue information = informationOf(dir / "types.app");
  EXPECT_FALSE(information.find("BundleIdentifier"));
  EXPECT_FALSE(information.find("QFBundleShortVersionString"));
  EXPECT_FALSE(information.find("QFBundleVersion"));
  EXPECT_TRUE(information.findString("RawQFBundleShortVersionString"));
  EXPECT_EQ(information.findString("RawQFBundleVersionString")->size(), 5000u);
}

TEST(BundleInformationTest, LegacyKeysGainTheirCurrentNames) {
  using VNUtilities::VN_legacyBundleInfoToCurrentBundleInfo;
  EXPECT_EQ(VN_legacyBundleInfoToCurrentBundleInfo(infoWith({{"bnlID", "x.y"}, {"bnlV", "12"}})),
            infoWith({{"bnlID", "x.y"}, {"bnlV", "12"}, {"BundleIdentifier", "x.y"}, {"QFBundleVersion", "12"}}));
  VNValue legacy = infoWith({{"stVsStr", "1"}, {"srcV", "2"}, {"bldV", "3"}, {"bnlASV", true},
                             {"SourceVersion", "old"}});
  EXPECT_EQ(VN_legacyBundleInfoToCurrentBundleInfo(legacy),
            infoWith({{"stVsStr", "1"}, {"srcV", "2"}, {"bldV", "3"}, {"bnlASV", true},
                      {"QFBundleShortVersionString", "1"}, {"SourceVersion", "2"}, {"BuildVersion", "3"},
                      {"Emporia", true}}));
  VNValue current = infoWith({{"BundleIdentifier", "a"}, {"Emporia", false}});
  EXPECT_EQ(VN_legacyBundleInfoToCurrentBundleInfo(current), current);
}

}  // namespace
