#include <sstream>

#include "foundation/VNValue.h"
#include "support/VNTest.h"

namespace fs = std::filesystem;

namespace {

const std::string kScript = std::string(VARNEL_SOURCE_DIR) + "/scripts/make-sample-system";
const std::string kTemplate = "System/Library/Templates/Data";

int Generate(const std::string& root, const std::string& options, std::string* output) {
  return VNRunCommand(kScript + " '" + root + "' --varnel /bin/false " + options, output);
}

// Every item below `folder` with its kind, size, mode and modification time.
std::map<std::string, std::string> Listing(const std::string& folder) {
  std::map<std::string, std::string> items;
  for (const auto& entry : fs::recursive_directory_iterator(folder)) {
    struct stat st {};
    ::lstat(entry.path().c_str(), &st);
    std::ostringstream line;
    line << std::oct << st.st_mode << std::dec << " " << st.st_size << " " << st.st_mtim.tv_sec << "."
         << st.st_mtim.tv_nsec << " " << st.st_nlink;
    items[entry.path().lexically_relative(folder).string()] = line.str();
  }
  return items;
}

// The sample has what the copy engine must meet: the item count asked for,
// deep folders, hard-link groups, holes, links, FIFOs, the manifest's
// targets, the version file; the same seed gives the same tree.
TEST(MakeSampleSystem, BuildsTheTemplateItsUsersRelyOn) {
  VNTestDir dir;
  std::string output;
  ASSERT_EQ(Generate(dir / "a", "--items 400 --large-bytes 3000000", &output), 0) << output;
  EXPECT_NE(output.find("skipping the template's BOM"), std::string::npos) << output;
  std::string data = dir / "a/" + kTemplate;

  std::map<std::string, std::string> items = Listing(data);
  EXPECT_GE(items.size(), 400u);
  EXPECT_LE(items.size(), 402u);
  size_t hardLinked = 0, symlinks = 0, sparse = 0, deepest = 0, large = 0;
  for (const auto& [relative, line] : items) {
    struct stat st {};
    ASSERT_EQ(::lstat((data + "/" + relative).c_str(), &st), 0);
    deepest = std::max<size_t>(deepest, std::count(relative.begin(), relative.end(), '/'));
    if (S_ISREG(st.st_mode) && st.st_nlink > 1) ++hardLinked;
    if (S_ISLNK(st.st_mode)) ++symlinks;
    if (S_ISREG(st.st_mode) && st.st_size >= (8 << 20) && st.st_blocks * 512 < st.st_size / 4) ++sparse;
    if (S_ISREG(st.st_mode) && st.st_size >= 1000000) ++large;
  }
  EXPECT_GE(hardLinked, 2u);
  EXPECT_GT(symlinks, 0u);
  EXPECT_GE(sparse, 3u);
  EXPECT_GE(large, 1u);
  EXPECT_GE(deepest, 8u);
  EXPECT_TRUE(fs::is_directory(data + "/Library/Veltra/System/Library/Receipts"));
  EXPECT_TRUE(fs::is_directory(data + "/Users"));

  std::istringstream manifest(VNReadTestFile(dir / "a/System/Library/Templates/Data.symlink-patterns"));
  int folderPatterns = 0, filePatterns = 0;
  for (std::string line; std::getline(manifest, line);)
    if (!line.empty() && line[0] != '#') ++(line.back() == '/' ? folderPatterns : filePatterns);
  EXPECT_GT(folderPatterns, 0);
  EXPECT_GT(filePatterns, 0);
  EXPECT_TRUE(fs::is_regular_file(data + "/Library/Shared Resources/resource-0.dat"));
  EXPECT_TRUE(fs::is_directory(data + "/Library/Frameworks Cache/bundle-0"));
  auto version = VNValue::fromPropertyListFile(dir / "a/System/Library/Baseworks/SystemVersion.plist");
  ASSERT_TRUE(version && version->findString("ProductVersion") && version->findString("ProductBuildVersion"));
  EXPECT_EQ(*version->findString("ProductVersion"), "5.2");

  ASSERT_EQ(Generate(dir / "b", "--items 400 --large-bytes 3000000", &output), 0) << output;
  EXPECT_EQ(Listing(dir / "b/" + kTemplate), items) << "the same seed must give the same tree";
  EXPECT_NE(Generate(dir / "a", "--items 10", &output), 0) << "an existing template is never overwritten";
}

}  // namespace
