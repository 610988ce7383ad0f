// Walking the template's BOM and sizing the template.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "CopierFakes.h"
#include "datatemplate/VNBomStore.h"

namespace {

// A system with a template folder and, when asked, a BOM of that folder.
struct TemplateSystem : TestSystem {
  std::string bomPath() const { return copier->dataTemplateBOMURL().path(); }

  void makeTemplate() { makeFolders(root.path(), "System/Library/Templates/Data"); }
  // Scans the template into its own BOM (which then does not list itself).
  void writeTemplateBOM() {
    makeFolders(templatePath(), "Library/Veltra/System/Library/Receipts");
    ::unlink(bomPath().c_str());
    VNBomStorePtr store(bom_new_from_directory(bomPath().c_str(), templatePath().c_str(),
                                               BomOptionStat | BomOptionChecksums));
    ASSERT_TRUE(store);
    ASSERT_EQ(bom_commit(store.get()), 0);
  }
  std::uint64_t bomFileSize() const {
    struct stat status;
    return ::lstat(bomPath().c_str(), &status) == 0 ? static_cast<std::uint64_t>(status.st_size) : 0;
  }
  // Items of the template BOM that every test has: the five folders of the
  // receipts path and the BOM file itself, plus the template root.
  static constexpr std::uint64_t kFixedItems = 5 + 1 + 1;
};

struct WalkedEntry {
  std::string path;
  BomEntryType type;
  std::string target;
  bool symlinked;
};

std::vector<WalkedEntry> walk(VNUDataTemplateCopier& copier) {
  std::vector<WalkedEntry> entries;
  VNBomStorePtr store(copier._openDataTemplateBOM());
  copier._enumerateDataTemplateBOM(store.get(), [&](BomStore*, BomEntry* entry, bool symlinked) {
    entries.push_back({bom_entry_path_name(entry), bom_entry_type(entry),
                       bom_entry_type(entry) == 3 ? bom_entry_symlink_target(entry) : "", symlinked});
  });
  return entries;
}

// How many of this process's descriptors are open on `path`.
int descriptorsOn(const std::string& path) {
  std::error_code ignored;
  std::string wanted = std::filesystem::canonical(path, ignored).string();
  int count = 0;
  for (const auto& fd : std::filesystem::directory_iterator("/proc/self/fd", ignored))
    count += std::filesystem::read_symlink(fd.path(), ignored).string() == wanted;
  return count;
}

const WalkedEntry* find(const std::vector<WalkedEntry>& entries, std::string_view path) {
  for (const WalkedEntry& entry : entries) {
    std::string_view name = entry.path;
    if (name.starts_with("./")) name.remove_prefix(2);
    if (name == path) return &entry;
  }
  return nullptr;
}

TEST(CopierAnalysisTest, HardLinkedNamesCountAsItemsButTheirBytesOnce) {
  TemplateSystem system;
  system.makeTemplate();
  VNWriteTestFile(system.templatePath("a"), "0123456789");
  ::mkdir(system.templatePath("c").c_str(), 0755);
  ASSERT_EQ(::link(system.templatePath("a").c_str(), system.templatePath("b").c_str()), 0);
  ASSERT_EQ(::link(system.templatePath("a").c_str(), system.templatePath("c/d").c_str()), 0);
  system.writeTemplateBOM();

  system.copier->analyzeDataTemplate();
  EXPECT_TRUE(system.copier->hasDataTemplateBOM());
  EXPECT_EQ(system.copier->totalItems(), TemplateSystem::kFixedItems + 3 + 1);  // 3 names, folder c
  EXPECT_EQ(system.copier->totalBytes(), 10 + system.bomFileSize());
  EXPECT_EQ(system.copier->totalDuplicateItems(), 2u);
  EXPECT_EQ(system.copier->totalSymlinkedItems(), 0u);
}

TEST(CopierAnalysisTest, SymlinkedFolderCountsOnceAndHidesItsContents) {
  TemplateSystem system;
  system.makeTemplate();
  ::mkdir(system.templatePath("Big").c_str(), 0755);
  for (int i = 0; i < 100; ++i) VNWriteTestFile(system.templatePath("Big/f" + std::to_string(i)), "xx");
  VNWriteTestFile(system.templatePath("kept"), "12345");
  system.writeTemplateBOM();
  system.writeManifest("Big/\n");

  system.copier->analyzeDataTemplate();
  EXPECT_EQ(system.copier->totalItems(), TemplateSystem::kFixedItems + 2);
  EXPECT_EQ(system.copier->totalSymlinkedItems(), 1u);
  EXPECT_EQ(system.copier->totalBytes(), 5 + system.bomFileSize());
  EXPECT_EQ(system.copier->totalDuplicateItems(), 0u);

  std::vector<WalkedEntry> entries = walk(*system.copier);
  const WalkedEntry* big = find(entries, "Big");
  ASSERT_TRUE(big);
  EXPECT_TRUE(big->symlinked);
  EXPECT_EQ(big->type, 3);
  EXPECT_EQ(big->target, "System/Library/Templates/Data/Big/");
  for (const WalkedEntry& entry : entries) EXPECT_EQ(entry.path.find("Big/"), std::string::npos) << entry.path;
}

TEST(CopierAnalysisTest, WalkReplacesSelectedEntriesButNeverSymbolicLinks) {
  TemplateSystem system;
  system.makeTemplate();
  makeFolders(system.templatePath(), "Library/Caches/deep");
  VNWriteTestFile(system.templatePath("Library/Caches/deep/file"), "abc");
  VNWriteTestFile(system.templatePath("Library/Caches/top"), "abc");
  ASSERT_EQ(::symlink("elsewhere", system.templatePath("Library/Caches/link").c_str()), 0);
  ASSERT_EQ(::symlink("dir", system.templatePath("Library/dirlink").c_str()), 0);
  system.writeTemplateBOM();
  system.writeManifest("Library/Caches/**\nLibrary/dirlink/\nLibrary/dirlink\n");
  system.copier->loadSymlinkedPatterns();

  std::vector<WalkedEntry> entries = walk(*system.copier);
  const WalkedEntry* caches = find(entries, "Library/Caches");
  ASSERT_TRUE(caches);
  EXPECT_FALSE(caches->symlinked);
  const WalkedEntry* top = find(entries, "Library/Caches/top");
  ASSERT_TRUE(top);
  EXPECT_TRUE(top->symlinked);
  EXPECT_EQ(top->target, "../../System/Library/Templates/Data/Library/Caches/top");
  // A file pattern never selects a folder, so the folder's contents are walked.
  const WalkedEntry* deep = find(entries, "Library/Caches/deep");
  ASSERT_TRUE(deep);
  EXPECT_FALSE(deep->symlinked);
  EXPECT_EQ(deep->type, 2);
  const WalkedEntry* file = find(entries, "Library/Caches/deep/file");
  ASSERT_TRUE(file);
  EXPECT_TRUE(file->symlinked);
  EXPECT_EQ(file->target, "../../../System/Library/Templates/Data/Library/Caches/deep/file");
  // Symbolic links of the template stay as they are.
  for (const char* path : {"Library/Caches/link", "Library/dirlink"}) {
    const WalkedEntry* link = find(entries, path);
    ASSERT_TRUE(link) << path;
    EXPECT_FALSE(link->symlinked) << path;
  }
  EXPECT_EQ(find(entries, "Library/Caches/link")->target, "elsewhere");
}

TEST(CopierAnalysisTest, WalkOfNoStoreCallsNothing) {
  TemplateSystem system;
  int calls = 0;
  system.copier->_enumerateDataTemplateBOM(nullptr, [&](BomStore*, BomEntry*, bool) { ++calls; });
  EXPECT_EQ(calls, 0);
}

TEST(CopierAnalysisTest, WithoutBOMCountsTheRootAndTheBOMPlace) {
  TemplateSystem system;
  system.makeTemplate();
  system.copier->analyzeDataTemplate();
  EXPECT_FALSE(system.copier->hasDataTemplateBOM());
  EXPECT_EQ(system.copier->totalItems(), 1u);
  EXPECT_EQ(system.copier->totalBytes(), 0u);
  EXPECT_EQ(system.messages.back(),
            "analyzed data templatewithout BOM: 1 items (0.00 MB), 0 duplicate items, 0 symlinked items");

  // Something at the BOM's place that is no BOM counts as one item with its bytes.
  makeFolders(system.templatePath(), "Library/Veltra/System/Library/Receipts");
  VNWriteTestFile(system.bomPath(), std::string(2500000, 'j'));
  system.copier->analyzeDataTemplate();
  EXPECT_FALSE(system.copier->hasDataTemplateBOM());
  EXPECT_EQ(system.copier->totalItems(), 2u);
  EXPECT_EQ(system.copier->totalBytes(), 2500000u);
  EXPECT_EQ(system.messages.back(),
            "analyzed data templatewithout BOM: 2 items (2.50 MB), 0 duplicate items, 0 symlinked items");

  // A folder there counts as an item without bytes.
  ::unlink(system.bomPath().c_str());
  ::mkdir(system.bomPath().c_str(), 0755);
  system.copier->analyzeDataTemplate();
  EXPECT_EQ(system.copier->totalItems(), 2u);
  EXPECT_EQ(system.copier->totalBytes(), 0u);
}

TEST(CopierAnalysisTest, AnalysisRunsOnceWhenNeededAndLogsOneLine) {
  TemplateSystem system;
  system.makeTemplate();
  VNWriteTestFile(system.templatePath("f"), std::string(1234567, 'z'));
  system.writeTemplateBOM();
  system.copier->analyzeDataTemplateIfNeeded();
  std::uint64_t items = system.copier->totalItems();
  EXPECT_EQ(items, TemplateSystem::kFixedItems + 1);
  char expected[200];
  std::snprintf(expected, sizeof expected,
                "analyzed data template: %lu items (%.2f MB), 0 duplicate items, 0 symlinked items",
                static_cast<unsigned long>(items), (1234567.0 + system.bomFileSize()) / 1e6);
  ASSERT_FALSE(system.messages.empty());
  EXPECT_EQ(system.messages.back(), expected);
  std::size_t logged = system.messages.size();

  // A changed template is not looked at again until asked for directly.
  VNWriteTestFile(system.templatePath("g"), "g");
  system.writeTemplateBOM();
  system.copier->analyzeDataTemplateIfNeeded();
  EXPECT_EQ(system.messages.size(), logged);
  EXPECT_EQ(system.copier->totalItems(), items);
  system.copier->analyzeDataTemplate();
  EXPECT_EQ(system.copier->totalItems(), items + 1);
}

// The template root may be a link to the folder that holds the template:
// the BOM is found through it, and the BOM is closed once the analysis or a
// failed copy returns, so the system volume is not kept busy.
TEST(CopierAnalysisTest, BOMIsFoundThroughARootLinkAndNeverLeftOpen) {
  TemplateSystem system;
  system.makeTemplate();
  VNWriteTestFile(system.templatePath("a"), "0123456789");
  system.writeTemplateBOM();
  std::filesystem::rename(system.templatePath(), system.root / "elsewhere");
  std::filesystem::create_directory_symlink("../../../elsewhere", system.templatePath());

  system.copier->analyzeDataTemplate();
  EXPECT_TRUE(system.copier->hasDataTemplateBOM());
  EXPECT_EQ(system.copier->totalItems(), TemplateSystem::kFixedItems + 1);
  EXPECT_EQ(descriptorsOn(system.bomPath()), 0) << "after the analysis";
  VNWriteTestFile(system.root / "a-file", "not a folder");
  VNError error;
  EXPECT_FALSE(system.copier->copyDataTemplateToURL(VNFileURL::fileURLWithPath(system.root / "a-file", true), &error));
  EXPECT_EQ(descriptorsOn(system.bomPath()), 0) << "after a failed copy";
}

}  // namespace
