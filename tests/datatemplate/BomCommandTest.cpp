#include "support/VNTest.h"
#include "support/VNToolRun.h"

namespace {

class BomCommand : public ::testing::Test {
 protected:
  void SetUp() override {
    VNMakeFolders(dir_ / "tree/d", 0700);
    VNWriteTestFile(dir_ / "tree/d/f", "The quick brown fox jumps over the lazy dog", 0640);
    ASSERT_EQ(::link((dir_ / "tree/d/f").c_str(), (dir_ / "tree/g").c_str()), 0);
    ASSERT_EQ(::symlink("d/f", (dir_ / "tree/l").c_str()), 0);
    ASSERT_EQ(::lchown((dir_ / "tree/l").c_str(), 7, 8), 0);
    VNWriteTestFile(dir_ / "tree/n\nl", "");
    VNWriteTestFile(dir_ / "tree/\xc3\xa9", "");
  }
  std::string create() const { return "bom create '" + dir_ / "tree" + "' '" + bom() + "'"; }
  std::string bom() const { return dir_ / "out.bom"; }
  VNTestDir dir_;
};

// One line per entry in walk order; names that are not printable UTF-8 are
// quoted, the rest printed as they are.
TEST_F(BomCommand, CreateThenListPrintsOneLinePerEntryInWalkOrder) {
  VNToolRun created = VNRunVarnel(create());
  ASSERT_EQ(created.status, 0) << created.err;
  EXPECT_NE(created.out.find("wrote 7 entries"), std::string::npos) << created.out;
  VNToolRun listed = VNRunVarnel("bom list '" + bom() + "'");
  ASSERT_EQ(listed.status, 0) << listed.err;
  EXPECT_EQ(listed.out,
            ".\tdirectory\t040755\t0/0\t0\t-\t\n"
            "d\tdirectory\t040700\t0/0\t0\t-\t\n"
            "d/f\tfile\t100640\t0/0\t43\t414fa339\tlink of d/f\n"
            "g\tfile\t100640\t0/0\t43\t414fa339\tlink of d/f\n"
            "l\tsymlink\t120777\t7/8\t0\t-\t-> d/f\n"
            "$'n\\nl'\tfile\t100644\t0/0\t0\t00000000\t\n"
            "\xc3\xa9\tfile\t100644\t0/0\t0\t00000000\t\n");
  VNToolRun json = VNRunVarnel("bom list --json '" + bom() + "'");
  ASSERT_EQ(json.status, 0) << json.err;
  for (const char* expected : {"\"path\": \"d/f\"", "\"checksum\": 1095738169", "\"hardlinkGroup\": \"d/f\"",
                               "\"linkTarget\": \"d/f\"", "\"type\": \"symlink\"", "\"uid\": 7"})
    EXPECT_NE(json.out.find(expected), std::string::npos) << expected << "\n" << json.out;
}

TEST_F(BomCommand, ClearErrorsForMissingForeignAndDamagedFiles) {
  VNWriteTestFile(dir_ / "text.bom", "not a bom\n");
  ASSERT_EQ(VNRunVarnel(create()).status, 0);
  ASSERT_EQ(::truncate(bom().c_str(), 5000), 0);
  const std::pair<std::string, const char*> failures[] = {
      {"bom list '" + dir_ / "none.bom" + "'", "No such file or directory"},
      {"bom list '" + dir_ / "text.bom" + "'", "is not a bill of materials"},
      {"bom list '" + bom() + "'", "damaged"},
      {"bom create '" + dir_ / "none" + "' '" + bom() + "'", "cannot open"},
  };
  for (const auto& [arguments, message] : failures) {
    VNToolRun run = VNRunVarnel(arguments);
    EXPECT_EQ(run.status, 1) << arguments;
    EXPECT_NE(run.err.find(message), std::string::npos) << run.err;
  }
  EXPECT_TRUE(VNExists(bom())) << "a failed create leaves the earlier file";
  for (const char* usage : {"bom", "bom list", "bom create only-one"}) EXPECT_EQ(VNRunVarnel(usage).status, 2) << usage;
}

}  // namespace
