// System version, template sync states and the tetherlink query of
// VNUDataTemplateUtilities.
#include "datatemplate/VNUDataTemplateCopier.h"
#include "datatemplate/VNUDataTemplateUtilities.h"
#include "datatemplate/VNUVersion.h"
#include "platform/VNTetherlinkResolver.h"
#include "support/VNTest.h"

namespace {

constexpr const char* kVersionFile = "System/Library/Baseworks/SystemVersion.plist";
constexpr const char* kReceipt = "Library/Veltra/System/Library/Receipts/org.varnel.files.data-template.plist";

std::string plist(const std::string& body) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?><plist version=\"1.0\"><dict>" + body + "</dict></plist>";
}
std::string entry(const char* key, const char* value) {
  return std::string("<key>") + key + "</key><string>" + value + "</string>";
}
std::string versionFile(const char* version, const char* build) {
  return plist(entry("ProductVersion", version) + entry("ProductBuildVersion", build));
}
std::string receiptFile(const char* version, const char* build) {
  return plist("<key>AdditionalInformation</key><dict>" + entry("SystemVersion", version) +
               entry("SystemBuild", build) + "</dict>");
}

struct VersionCase {
  const char* productVersion;
  std::int64_t major, minor, patch;
};

TEST(SystemVersionTest, SplitsTheProductVersionIntoThreeNumbers) {
  const VersionCase cases[] = {
      {"10.15.7", 10, 15, 7}, {"14", 14, 0, 0},        {"11.2.3.4", 11, 2, 3},  {"", 0, 0, 0},
      {"4b.x.7", 4, 0, 7},    {" 12.\t-3.+5", 12, -3, 5}, {"..", 0, 0, 0},      {"- 1.+.1-2", 0, 0, 1},
      {"99999999999999999999.-99999999999999999999", INT64_MAX, INT64_MIN, 0},
  };
  for (const VersionCase& c : cases) {
    VNTestDir dir;
    VNWriteTestFile(dir / kVersionFile, versionFile(c.productVersion, "7Q1"));
    auto version = VNUDataTemplateUtilities::systemVersionForMountPoint(VNFolderURL(dir.path()));
    ASSERT_TRUE(version) << c.productVersion;
    EXPECT_EQ(version->versionString(), c.productVersion);
    EXPECT_EQ(version->buildNumber(), "7Q1");
    EXPECT_EQ((std::array{version->versionMajor(), version->versionMinor(), version->versionPatch()}),
              (std::array{c.major, c.minor, c.patch}))
        << c.productVersion;
  }
}

TEST(SystemVersionTest, GivesNullWithoutAReadableDictionaryAndEmptyFieldsForAbsentKeys) {
  VNTestDir dir;
  auto version = [&] { return VNUDataTemplateUtilities::systemVersionForMountPoint(VNFolderURL(dir.path())); };
  EXPECT_FALSE(VNUDataTemplateUtilities::systemVersionForMountPoint(VNFileURL()));
  EXPECT_FALSE(version());
  std::string file = dir / kVersionFile;
  for (const char* contents : {"", "not a plist", "<plist><array/></plist>"}) {
    VNWriteTestFile(file, contents);
    EXPECT_FALSE(version()) << contents;
  }
  ASSERT_EQ(::truncate(file.c_str(), off_t{1} << 30), 0);  // sparse, beyond any property list we read
  EXPECT_FALSE(version());
  ::unlink(file.c_str());
  VNMakeFolders(file);
  EXPECT_FALSE(version());
  ::rmdir(file.c_str());
  VNWriteTestFile(file, plist(entry("ProductName", "x")));
  ASSERT_TRUE(version());
  EXPECT_FALSE(version()->versionString());
  EXPECT_FALSE(version()->buildNumber());
  EXPECT_EQ(version()->versionMajor() + version()->versionMinor() + version()->versionPatch(), 0);
}

struct SyncCase {
  const char* name;
  std::optional<std::string> version;  // version file contents; none: absent
  std::optional<std::string> receipt;  // receipt contents; none: absent
  VNUTemplateSyncState expected;
};

TEST(TemplateSyncTest, ReportsTheFourStatesCheckingTheVersionFileFirst) {
  const std::string nonPlist = "\x01\x02garbage";
  const SyncCase cases[] = {
      {"same version and build", versionFile("14.2", "23C64"), receiptFile("14.2", "23C64"), VNUTemplateSyncStateInSync},
      {"other build", versionFile("14.2", "23C64"), receiptFile("14.2", "23C65"), VNUTemplateSyncStateOutOfSync},
      {"other version", versionFile("14.2", "23C64"), receiptFile("14.3", "23C64"), VNUTemplateSyncStateOutOfSync},
      {"case differs", versionFile("14.2", "23c64"), receiptFile("14.2", "23C64"), VNUTemplateSyncStateOutOfSync},
      {"receipt without information", versionFile("14.2", "23C64"), plist(entry("PackageVersion", "14.2")),
       VNUTemplateSyncStateOutOfSync},
      {"build missing on both sides", plist(entry("ProductVersion", "1")),
       plist("<key>AdditionalInformation</key><dict>" + entry("SystemVersion", "1") + "</dict>"),
       VNUTemplateSyncStateOutOfSync},
      {"no receipt", versionFile("14.2", "23C64"), std::nullopt, VNUTemplateSyncStateNoTemplateReceipt},
      {"empty receipt", versionFile("14.2", "23C64"), plist(""), VNUTemplateSyncStateNoTemplateReceipt},
      {"receipt not a plist", versionFile("14.2", "23C64"), nonPlist, VNUTemplateSyncStateNoTemplateReceipt},
      {"no version file", std::nullopt, receiptFile("14.2", "23C64"), VNUTemplateSyncStateNoSystemVersion},
      {"neither file", std::nullopt, std::nullopt, VNUTemplateSyncStateNoSystemVersion},
      {"empty version file", std::string(), std::nullopt, VNUTemplateSyncStateNoSystemVersion},
  };
  for (const SyncCase& c : cases) {
    VNTestDir system, data;
    if (c.version) VNWriteTestFile(system / kVersionFile, *c.version);
    if (c.receipt) VNWriteTestFile(data / kReceipt, *c.receipt);
    EXPECT_EQ(VNUDataTemplateUtilities::determineTemplateSyncBetween(VNFolderURL(system.path()), VNFolderURL(data.path())),
              c.expected)
        << c.name;
  }
}

TEST(TemplateSyncTest, ReadsBothFilesFromTheSystemRootWithoutADataRoot) {
  VNTestDir system;
  VNWriteTestFile(system / kVersionFile, versionFile("3.1", "3A1"));
  VNWriteTestFile(system / kReceipt, receiptFile("3.1", "3A1"));
  EXPECT_EQ(VNUDataTemplateUtilities::determineTemplateSyncBetween(VNFolderURL(system.path()), VNFileURL()),
            VNUTemplateSyncStateInSync);
  ::unlink((system / kReceipt).c_str());
  VNMakeFolders(system / kReceipt);
  EXPECT_EQ(VNUDataTemplateUtilities::determineTemplateSyncBetween(VNFolderURL(system.path()), VNFileURL()),
            VNUTemplateSyncStateNoTemplateReceipt);
}

// Records how the library drives the resolver and yields fixed mappings.
class RecordingResolver final : public VNTetherlinkResolver {
 public:
  std::vector<std::pair<std::string, std::string>> mappings;
  std::vector<std::string> calls;

  std::shared_ptr<Volume> openVolume(const char* path, int kind, std::uint32_t options) override {
    calls.push_back("open " + std::string(path) + " " + std::to_string(kind) + " " + std::to_string(options));
    return std::make_shared<Volume>(Volume{path, kind, options});
  }
  std::shared_ptr<Group> createGroup(std::uint32_t options) override {
    calls.push_back("group " + std::to_string(options));
    return std::make_shared<Group>(Group{options, {}});
  }
  void addVolume(Group& group, std::shared_ptr<const Volume> volume) override {
    calls.push_back("add " + std::to_string(volume->kind));
    group.volumes.push_back(std::move(volume));
  }
  void iterateMappings(const Group&, int filter, const MappingCallback& callback) override {
    calls.push_back("iterate " + std::to_string(filter));
    for (const auto& [source, destination] : mappings) EXPECT_EQ(callback(source.c_str(), destination.c_str()), 0);
  }
};

TEST(TetherlinkManifestTest, DrivesTheResolverAndKeepsEveryMappingByteForByte) {
  auto resolver = std::make_shared<RecordingResolver>();
  resolver->mappings = {{"/Users", "Users"}, {"/caf\xc3\xa9", "bad\xff\xfe"}, {"/Users", "Users"}};
  VNPlatformOverride<VNTetherlinkResolver> override(resolver);
  VNError error(VNPOSIXErrorDomain, 77);
  VNValue::Array live = VNUDataTemplateUtilities::parseTetherlinkManifestForVolume(VNFolderURL("/vol"), &error);
  EXPECT_EQ(resolver->calls, (std::vector<std::string>{"open /vol 0 0", "open /vol 1 0", "group 5", "add 0", "add 1",
                                                       "iterate 1"}));
  ASSERT_EQ(live.size(), 3u);
  EXPECT_EQ(*live[1].findString(VNUDTTetherlinkSourceKey), "/caf\xc3\xa9");
  EXPECT_EQ(*live[1].findString(VNUDTTetherlinkDestinationKey), "bad\xff\xfe");
  EXPECT_EQ(live[1].asDictionary()->size(), 2u);
  EXPECT_EQ(error.code(), 77);

  resolver->calls.clear();
  resolver->mappings.clear();
  EXPECT_TRUE(VNUDataTemplateUtilities::parseTetherlinkManifestForVolume(VNFolderURL("/vol"), false).empty());
  EXPECT_EQ(resolver->calls[2], "group 4");
}

}  // namespace
