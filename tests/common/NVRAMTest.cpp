// Firmware variables over an efivarfs-like folder of the test's: the bytes
// of each value type, refused names, a missing store, and the immutable flag
// of an existing variable (on a loop-mounted ext4 image).
#include <linux/fs.h>

#include "common/VNGeneralUtilities.h"
#include "platform/VNFirmwareVariables.h"
#include "support/VNTest.h"

namespace {

std::string fileOf(const std::string& folder, const std::string& name) {
  return folder + "/" + name + "-" + VNFirmwareVendorGUID;
}

// The attribute word, then the value's bytes.
std::string stored(const void* bytes, size_t size) {
  std::string out(4 + size, '\0');
  std::memcpy(out.data(), &VNFirmwareVariableAttributes, 4);
  std::memcpy(out.data() + 4, bytes, size);
  return out;
}
std::string stored(const std::string& bytes) { return stored(bytes.data(), bytes.size()); }

class NVRAMTest : public ::testing::Test {
 protected:
  std::shared_ptr<VNFirmwareVariables> store(const std::string& root) { return VNMakeFirmwareVariables(root); }
  VNTestDir dir_;
  VNLogCapture capture_{dir_ / "migration.log"};
};

TEST_F(NVRAMTest, StoresTheAttributeWordAndTheValuesBytes) {
  VNMakeFolders(dir_ / "vars");
  VNPlatformOverride<VNFirmwareVariables> vars(store(dir_ / "vars"));
  const std::int64_t integer = -2;
  const double real = 1.5;
  const std::pair<VNValue, std::string> cases[] = {
      {VNValue("boot-args"), stored("boot-args")},
      {VNValue(true), stored("\1")},
      {VNValue(integer), stored(&integer, 8)},
      {VNValue(real), stored(&real, 8)},
      {VNValue(VNValue::Data{0, 0xff}), stored(std::string("\0\xff", 2))},
  };
  int index = 0;
  for (const auto& [value, bytes] : cases) {
    const std::string name = "Var" + std::to_string(index++);  // efivarfs replaces; a plain file would keep a tail
    ASSERT_TRUE(VNUtilities::writeNVRAMVariable(name, value)) << name;
    EXPECT_EQ(VNReadTestFile(fileOf(dir_ / "vars", name)), bytes) << name;
  }
  EXPECT_TRUE(capture_.systemLog().entries().empty());
}

// Names that could leave the folder are refused, each with a line; a
// missing store is one line of its own.
TEST_F(NVRAMTest, RefusesNamesThatCouldLeaveTheFolderAndAMissingStore) {
  VNMakeFolders(dir_ / "vars");
  {
    VNPlatformOverride<VNFirmwareVariables> vars(store(dir_ / "vars"));
    for (const std::string& name : std::vector<std::string>{"../escape", "a/b", "..", ".", "", std::string("nul\0x", 5)})
      EXPECT_FALSE(VNUtilities::writeNVRAMVariable(name, VNValue("x"))) << name;
  }
  EXPECT_TRUE(VNNamesIn(dir_ / "vars").empty());
  EXPECT_FALSE(VNExists(fileOf(dir_.path(), "../escape")));
  VNPlatformOverride<VNFirmwareVariables> absent(store(dir_ / "absent"));
  EXPECT_FALSE(VNUtilities::writeNVRAMVariable("Boot", VNValue("x")));
  const auto entries = capture_.systemLog().entries();
  ASSERT_EQ(entries.size(), 7u);
  EXPECT_EQ(entries[0].text, "Could not write NVRAM key \"../escape\" Error Return: 22");
  EXPECT_EQ(entries[6].level, VNSystemLog::Level::Error);
  EXPECT_EQ(entries[6].text, "Could not obtain Kelvane node to write NVRAM key \"Boot\"");
}

TEST_F(NVRAMTest, LiftsAndRestoresTheImmutableFlagOfAnExistingVariable) {
  VN_MOUNT_OR_SKIP(image, VNLoopImage::Kind::Ext4, 32 << 20);
  VNPlatformOverride<VNFirmwareVariables> vars(store(image->mountPoint()));
  const std::string file = fileOf(image->mountPoint(), "Locked");
  VNWriteTestFile(file, stored("old"));
  ASSERT_EQ(VNRunCommand("chattr +i '" + file + "'"), 0);
  EXPECT_TRUE(VNUtilities::writeNVRAMVariable("Locked", VNValue("new")));
  EXPECT_EQ(VNReadTestFile(file), stored("new"));
  EXPECT_THAT(file, HasInodeFlags(FS_IMMUTABLE_FL));
}

}  // namespace
