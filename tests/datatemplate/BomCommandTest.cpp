#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>

#include "BomTestSupport.h"
#include "support/VNTestDir.h"

namespace {

std::string varnel(const std::string& arguments) {
  return std::string(VARNEL_BINARY_DIR) + "/tools/varnel/varnel " + arguments + " 2>&1";
}

class BomCommand : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(::mkdir((dir_ / "tree").c_str(), 0755), 0);
    ASSERT_EQ(::mkdir((dir_ / "tree/d").c_str(), 0700), 0);
    VNWriteTestFile(dir_ / "tree/d/f", "The quick brown fox jumps over the lazy dog", 0640);
    ASSERT_EQ(::link((dir_ / "tree/d/f").c_str(), (dir_ / "tree/g").c_str()), 0);
    ASSERT_EQ(::symlink("d/f", (dir_ / "tree/l").c_str()), 0);
    ASSERT_EQ(::lchown((dir_ / "tree/l").c_str(), 7, 8), 0);
  }
  std::string bom() const { return dir_ / "out.bom"; }

  VNTestDir dir_;
};

}  // namespace

TEST_F(BomCommand, CreateThenListPrintsOneLinePerEntryInWalkOrder) {
  CommandResult created = runCommand(varnel("bom create '" + (dir_ / "tree") + "' '" + bom() + "'"));
  ASSERT_EQ(created.status, 0) << created.output;
  EXPECT_NE(created.output.find("wrote 5 entries"), std::string::npos) << created.output;

  CommandResult listed = runCommand(varnel("bom list '" + bom() + "'"));
  ASSERT_EQ(listed.status, 0) << listed.output;
  EXPECT_EQ(listed.output,
            ".\tdirectory\t040755\t0/0\t0\t-\t\n"
            "d\tdirectory\t040700\t0/0\t0\t-\t\n"
            "d/f\tfile\t100640\t0/0\t43\t414fa339\tlink of d/f\n"
            "g\tfile\t100640\t0/0\t43\t414fa339\tlink of d/f\n"
            "l\tsymlink\t120777\t7/8\t0\t-\t-> d/f\n");

  CommandResult json = runCommand(varnel("bom list --json '" + bom() + "'"));
  ASSERT_EQ(json.status, 0) << json.output;
  for (const char* expected : {"\"path\": \"d/f\"", "\"checksum\": 1095738169",
                               "\"hardlinkGroup\": \"d/f\"", "\"linkTarget\": \"d/f\"",
                               "\"type\": \"symlink\"", "\"uid\": 7"})
    EXPECT_NE(json.output.find(expected), std::string::npos) << expected << "\n" << json.output;
}

TEST_F(BomCommand, ClearErrorsForMissingForeignAndDamagedFiles) {
  CommandResult missing = runCommand(varnel("bom list '" + (dir_ / "none.bom") + "'"));
  EXPECT_EQ(missing.status, 1);
  EXPECT_NE(missing.output.find("No such file or directory"), std::string::npos) << missing.output;

  VNWriteTestFile(dir_ / "text.bom", "not a bom\n");
  CommandResult foreign = runCommand(varnel("bom list '" + (dir_ / "text.bom") + "'"));
  EXPECT_EQ(foreign.status, 1);
  EXPECT_NE(foreign.output.find("is not a bill of materials"), std::string::npos) << foreign.output;

  ASSERT_EQ(runCommand(varnel("bom create '" + (dir_ / "tree") + "' '" + bom() + "'")).status, 0);
  ASSERT_EQ(::truncate(bom().c_str(), 5000), 0);
  CommandResult damaged = runCommand(varnel("bom list '" + bom() + "'"));
  EXPECT_EQ(damaged.status, 1);
  EXPECT_NE(damaged.output.find("damaged"), std::string::npos) << damaged.output;

  CommandResult noTree = runCommand(varnel("bom create '" + (dir_ / "none") + "' '" + bom() + "'"));
  EXPECT_EQ(noTree.status, 1);
  EXPECT_NE(noTree.output.find("cannot open"), std::string::npos) << noTree.output;
  EXPECT_EQ(::access(bom().c_str(), F_OK), 0) << "a failed create leaves the earlier file";

  EXPECT_EQ(runCommand(varnel("bom")).status, 2);
  EXPECT_EQ(runCommand(varnel("bom list")).status, 2);
  EXPECT_EQ(runCommand(varnel("bom create only-one")).status, 2);
}
