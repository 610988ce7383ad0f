// Walking the template's BOM and sizing the template.
#include "CopierFakes.h"
#include "datatemplate/VNBomStore.h"
#include "support/VNTest.h"

namespace {

// A system with a template folder and, when asked, a BOM of that folder.
struct TemplateSystem : TestSystem {
  TemplateSystem() { VNMakeFolders(templatePath("Library/Veltra/System/Library/Receipts")); }
  std::string bomPath() const { return copier->dataTemplateBOMURL().path(); }
  // Scans the template into its own BOM (which then does not list itself).
  void writeTemplateBOM() {
    ::unlink(bomPath().c_str());
    VNBomStorePtr store(bom_new_from_directory(bomPath().c_str(), templatePath().c_str(), BomOptionStat | BomOptionChecksums));
    ASSERT_TRUE(store);
    ASSERT_EQ(bom_commit(store.get()), 0);
  }
  std::uint64_t bomFileSize() const { return static_cast<std::uint64_t>(VNStatOf(bomPath()).st_size); }
  // Items every template BOM here has: the root, the five folders of the
  // receipts path and the BOM file itself.
  static constexpr std::uint64_t kFixedItems = 1 + 5 + 1;
};

struct WalkedEntry {
  BomEntryType type;
  std::string target;
  bool symlinked;
};

// The walk's entries by path, without a leading "./".
std::map<std::string, WalkedEntry> walk(VNUDataTemplateCopier& copier) {
  std::map<std::string, WalkedEntry> entries;
  VNBomStorePtr store(copier._openDataTemplateBOM());
  copier._enumerateDataTemplateBOM(store.get(), [&](BomStore*, BomEntry* entry, bool symlinked) {
    std::string path = bom_entry_path_name(entry);
    entries[path.starts_with("./") ? path.substr(2) : path] = {
        bom_entry_type(entry), bom_entry_type(entry) == BomEntryTypeSymlink ? bom_entry_symlink_target(entry) : "",
        symlinked};
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

// Hard-linked names count as items but their bytes once; a symlinked folder
// is one item that hides its contents, a link into the template.
TEST(CopierAnalysisTest, CountsNamesOnceAndSymlinkedFoldersAsOneItem) {
  TemplateSystem system;
  VNWriteTestFile(system.templatePath("a"), "0123456789");
  VNMakeFolders(system.templatePath("c"));
  ASSERT_EQ(::link(system.templatePath("a").c_str(), system.templatePath("b").c_str()), 0);
  ASSERT_EQ(::link(system.templatePath("a").c_str(), system.templatePath("c/d").c_str()), 0);
  for (int i = 0; i < 100; ++i) VNWriteTestFile(system.templatePath("Big/f" + std::to_string(i)), "xx");
  system.writeTemplateBOM();
  system.writeManifest("Big/\n");
  system.copier->analyzeDataTemplate();
  EXPECT_TRUE(system.copier->hasDataTemplateBOM());
  EXPECT_EQ(system.copier->totalItems(), TemplateSystem::kFixedItems + 3 + 1 + 1);  // 3 names, c, Big
  EXPECT_EQ(system.copier->totalBytes(), 10 + system.bomFileSize());
  EXPECT_EQ(system.copier->totalDuplicateItems(), 2u);
  EXPECT_EQ(system.copier->totalSymlinkedItems(), 1u);
  auto entries = walk(*system.copier);
  ASSERT_TRUE(entries.contains("Big"));
  EXPECT_TRUE(entries["Big"].symlinked);
  EXPECT_EQ(entries["Big"].type, BomEntryTypeSymlink);
  EXPECT_EQ(entries["Big"].target, "System/Library/Templates/Data/Big/");
  EXPECT_FALSE(entries.contains("Big/f0"));
}

// A file pattern never selects a folder, so its contents are walked and
// selected; the template's own links stay as they are.
TEST(CopierAnalysisTest, WalkReplacesSelectedEntriesButNeverSymbolicLinks) {
  TemplateSystem system;
  VNWriteTestFile(system.templatePath("Library/Caches/deep/file"), "abc");
  VNWriteTestFile(system.templatePath("Library/Caches/top"), "abc");
  ASSERT_EQ(::symlink("elsewhere", system.templatePath("Library/Caches/link").c_str()), 0);
  ASSERT_EQ(::symlink("dir", system.templatePath("Library/dirlink").c_str()), 0);
  system.writeTemplateBOM();
  system.writeManifest("Library/Caches/**\nLibrary/dirlink/\nLibrary/dirlink\n");
  system.copier->loadSymlinkedPatterns();
  auto entries = walk(*system.copier);
  const std::tuple<const char*, bool, const char*> expected[] = {
      {"Library/Caches", false, ""},
      {"Library/Caches/top", true, "../../System/Library/Templates/Data/Library/Caches/top"},
      {"Library/Caches/deep", false, ""},
      {"Library/Caches/deep/file", true, "../../../System/Library/Templates/Data/Library/Caches/deep/file"},
      {"Library/Caches/link", false, "elsewhere"},
      {"Library/dirlink", false, "dir"},
  };
  for (const auto& [path, symlinked, target] : expected) {
    ASSERT_TRUE(entries.contains(path)) << path;
    EXPECT_EQ(entries[path].symlinked, symlinked) << path;
    EXPECT_EQ(entries[path].target, target) << path;
  }
  int calls = 0;
  system.copier->_enumerateDataTemplateBOM(nullptr, [&](BomStore*, BomEntry*, bool) { ++calls; });
  EXPECT_EQ(calls, 0) << "no store, no walk";
}

// Without a BOM the root counts, and what is at the BOM's place: one item
// with its bytes, a folder without.
TEST(CopierAnalysisTest, WithoutBOMCountsTheRootAndTheBOMPlace) {
  TemplateSystem system;
  system.copier->analyzeDataTemplate();
  EXPECT_FALSE(system.copier->hasDataTemplateBOM());
  EXPECT_EQ(system.copier->totalItems(), 1u);
  EXPECT_EQ(system.copier->totalBytes(), 0u);
  EXPECT_EQ(system.messages.back(),
            "analyzed data templatewithout BOM: 1 items (0.00 MB), 0 duplicate items, 0 symlinked items");
  VNWriteTestFile(system.bomPath(), std::string(2500000, 'j'));
  system.copier->analyzeDataTemplate();
  EXPECT_FALSE(system.copier->hasDataTemplateBOM());
  EXPECT_EQ(system.copier->totalItems(), 2u);
  EXPECT_EQ(system.copier->totalBytes(), 2500000u);
  EXPECT_EQ(system.messages.back(),
            "analyzed data templatewithout BOM: 2 items (2.50 MB), 0 duplicate items, 0 symlinked items");
  ::unlink(system.bomPath().c_str());
  VNMakeFolders(system.bomPath());
  system.copier->analyzeDataTemplate();
  EXPECT_EQ(system.copier->totalItems(), 2u);
  EXPECT_EQ(system.copier->totalBytes(), 0u);
}

// Run once when needed, with one line; a changed template is not looked at
// again until asked for directly.
TEST(CopierAnalysisTest, AnalysisRunsOnceWhenNeededAndLogsOneLine) {
  TemplateSystem system;
  VNWriteTestFile(system.templatePath("f"), std::string(1234567, 'z'));
  system.writeTemplateBOM();
  system.copier->analyzeDataTemplateIfNeeded();
  std::uint64_t items = system.copier->totalItems();
  EXPECT_EQ(items, TemplateSystem::kFixedItems + 1);
  char expected[200];
  std::snprintf(expected, sizeof expected, "analyzed data template: %lu items (%.2f MB), 0 duplicate items, 0 symlinked items",
                static_cast<unsigned long>(items), (1234567.0 + system.bomFileSize()) / 1e6);
  ASSERT_FALSE(system.messages.empty());
  EXPECT_EQ(system.messages.back(), expected);
  const size_t logged = system.messages.size();
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
  EXPECT_FALSE(system.copier->copyDataTemplateToURL(VNFolderURL(system.root / "a-file"), &error));
  EXPECT_EQ(descriptorsOn(system.bomPath()), 0) << "after a failed copy";
}

}  // namespace
