// The receipts of a copy: the receipt BOM against the template and its own
// BOM, and the order and failures of the two receipt files.
#include "CopierFakes.h"
#include "datatemplate/VNBomStore.h"
#include "platform/VNCompression.h"
#include "support/VNTest.h"

namespace {

constexpr const char* kReceipts = "Library/Veltra/System/Library/Receipts";

struct RecordedEntry {
  BomEntryType type;
  std::uint16_t mode;
  std::uint64_t size;
  std::uint32_t checksum;
  std::string target;
  bool operator==(const RecordedEntry&) const = default;
};
using Recorded = std::map<std::string, RecordedEntry>;

// Every entry of the BOM file at `path`, walked with the store's own walker.
Recorded readBOM(const std::string& path) {
  Recorded entries;
  VNBomStorePtr store(bom_open(path.c_str()));
  EXPECT_TRUE(store) << path;
  VNBomEntryPtr root(store ? bom_root_entry(store.get()) : nullptr);
  VNBomEnumeratorPtr walker(store ? bom_enumerator_new(store.get(), root.get()) : nullptr);
  while (VNBomEntryPtr entry{bom_enumerator_next(walker.get())})
    entries[bom_entry_path_name(entry.get())] = {bom_entry_type(entry.get()), bom_entry_mode(entry.get()),
                                                 bom_entry_size(entry.get()), bom_entry_checksum(entry.get()),
                                                 bom_entry_symlink_target(entry.get())};
  return entries;
}

// A system whose template has a symlinked folder with contents, a symlinked
// file, plain files, a hard link and a symbolic link; and a target folder.
struct ReceiptSystem : TestSystem {
  VNTestDir target;

  ReceiptSystem() {
    VNMakeFolders(templatePath(kReceipts));
    for (int i = 0; i < 5; ++i) VNWriteTestFile(templatePath("Big/f" + std::to_string(i)), "big");
    VNWriteTestFile(templatePath("Big/inner/x"), "x");
    VNWriteTestFile(templatePath("Keep/k"), "symlinked file");
    VNWriteTestFile(templatePath("Keep/plain"), "plain contents");
    ::link(templatePath("Keep/plain").c_str(), templatePath("Keep/second").c_str());
    ::symlink("Keep/plain", templatePath("link").c_str());
    writeManifest("Big/\nKeep/k\nlink\n");
    writeSystemVersion("<key>ProductVersion</key><string>2.0</string><key>ProductBuildVersion</key><string>2B1</string>");
    VNMakeFolders(target / kReceipts);
  }
  void writeTemplateBOM() {
    VNBomStorePtr store(bom_new_from_directory(copier->dataTemplateBOMURL().path().c_str(), templatePath().c_str(),
                                               BomOptionStat | BomOptionChecksums));
    ASSERT_TRUE(store);
    ASSERT_EQ(bom_commit(store.get()), 0);
  }
  std::string receiptPath(const char* extension) const {
    return target / (std::string(kReceipts) + "/org.varnel.files.data-template." + extension);
  }
  bool writeReceipts(VNError* error) {
    copier->analyzeDataTemplateIfNeeded();
    return copier->_writeDataTemplateReceiptIfNeededToURL(VNFolderURL(target.path()), error);
  }
};

// A symlinked path is recorded as the link laid down there.
void expectSymlinkEntry(const Recorded& receipt, const char* path, const std::string& target) {
  ASSERT_TRUE(receipt.contains(path)) << path;
  EXPECT_EQ(receipt.at(path).type, BomEntryTypeSymlink) << path;
  EXPECT_EQ(receipt.at(path).mode, 0xA1ED) << path;
  EXPECT_EQ(receipt.at(path).target, target) << path;
}

// The receipt is the template's BOM but at the symlinked paths (whose
// contents are left out); a template link stays itself although a pattern
// names it. Written again from a walk of its own, it is the same.
TEST(ReceiptBOMTest, CopyOfTheTemplateBOMDiffersOnlyAtSymlinkedPaths) {
  ReceiptSystem system;
  system.writeTemplateBOM();
  VNError error;
  ASSERT_TRUE(system.writeReceipts(&error)) << error.description();
  Recorded original = readBOM(system.copier->dataTemplateBOMURL().path());
  Recorded receipt = readBOM(system.receiptPath("bom"));
  ASSERT_TRUE(original.contains("Big/inner/x"));
  expectSymlinkEntry(receipt, "Big", "System/Library/Templates/Data/Big/");
  expectSymlinkEntry(receipt, "Keep/k", "../System/Library/Templates/Data/Keep/k");
  for (const auto& [path, entry] : original) {
    if (path == "Big" || path == "Keep/k") continue;
    ASSERT_EQ(receipt.contains(path), !path.starts_with("Big/")) << path;
    EXPECT_TRUE(path.starts_with("Big/") || receipt.at(path) == entry) << path;
  }
  EXPECT_EQ(receipt.size(), original.size() - 7) << "Big's five files, its folder and the file in it";
  EXPECT_EQ(system.messages.back(), "wrote receipt BOM to " + system.receiptPath("bom"));
  EXPECT_TRUE(VNValue::fromPropertyListFile(system.receiptPath("plist")));
  ASSERT_TRUE(system.writeReceipts(&error)) << error.description();
  EXPECT_EQ(readBOM(system.receiptPath("bom")), receipt);
}

TEST(ReceiptBOMTest, WithoutTemplateBOMTheTemplateFolderIsScannedWithChecksums) {
  ReceiptSystem system;
  VNError error;
  ASSERT_TRUE(system.writeReceipts(&error)) << error.description();
  EXPECT_FALSE(system.copier->hasDataTemplateBOM());
  Recorded receipt = readBOM(system.receiptPath("bom"));
  expectSymlinkEntry(receipt, "Big", "System/Library/Templates/Data/Big/");
  expectSymlinkEntry(receipt, "Keep/k", "../System/Library/Templates/Data/Keep/k");
  EXPECT_FALSE(receipt.contains("Big/f0"));
  EXPECT_EQ(receipt.at("link").type, BomEntryTypeSymlink);
  EXPECT_EQ(receipt.at("link").target, "Keep/plain");
  int files = 0;
  for (const auto& [path, entry] : receipt) {
    if (entry.type != BomEntryTypeFile) continue;
    ++files;
    std::uint32_t checksum = 0;
    std::uint64_t length = 0;
    ASSERT_EQ(bom_crc32_for_file(system.templatePath(path).c_str(), &checksum, &length), 0) << path;
    EXPECT_EQ(entry.checksum, checksum) << path;
    EXPECT_EQ(entry.size, length) << path;
  }
  EXPECT_EQ(files, 2);  // Keep/plain and Keep/second
}

// No receipts folder in the target: no receipts and no error.
TEST(ReceiptBOMTest, TargetWithoutReceiptsFolderGetsNoReceipts) {
  ReceiptSystem system;
  VNTestDir bare;
  system.copier->analyzeDataTemplate();
  VNError error;
  EXPECT_TRUE(system.copier->_writeDataTemplateReceiptIfNeededToURL(VNFolderURL(bare.path()), &error));
  EXPECT_EQ(system.messages.back(), "skipping data template receipts, directory not present: " + bare / kReceipts);
  EXPECT_TRUE(VNNamesIn(bare.path()).empty());
}

// A failed property list (code 5) leaves the BOM alone; a failed BOM (code
// 4, also for a template that cannot be read) the property list.
TEST(ReceiptBOMTest, EachFailedReceiptLeavesTheOther) {
  for (const std::string failing : {"plist", "bom", "template"}) {
    SCOPED_TRACE(failing);
    ReceiptSystem system;
    const std::string bom = system.receiptPath("bom"), plist = system.receiptPath("plist");
    if (failing == "plist") VNWriteTestFile(bom, "the BOM the copy brought");
    if (failing == "template") std::filesystem::remove_all(system.templatePath());
    else VNWriteTestFile((failing == "plist" ? plist : bom) + "/occupied", "");  // no file can be renamed over it
    VNError error;
    EXPECT_FALSE(system.writeReceipts(&error));
    EXPECT_EQ(error.domain(), VNUDataTemplateErrorDomain);
    EXPECT_EQ(error.code(), failing == "plist" ? 5 : 4);
    if (failing == "plist") {
      EXPECT_EQ(VNReadTestFile(bom), "the BOM the copy brought");
      EXPECT_EQ(system.messages.back().rfind("failed to write receipt plist to " + plist + ": ", 0), 0u);
      continue;
    }
    EXPECT_TRUE(VNValue::fromPropertyListFile(plist));
    EXPECT_TRUE(error.userInfo().empty() && !error.underlyingError());
    EXPECT_TRUE(failing == "template" || system.messages.back() == "failed to write receipt BOM to " + bom)
        << system.messages.back();
    EXPECT_TRUE(failing == "bom" || !VNExists(bom));
  }
}

TEST(ReceiptBOMTest, ReceiptBOMIsCompressedWhereTheFileSystemCan) {
  VN_MOUNT_OR_SKIP(image, VNLoopImage::Kind::Btrfs, 300u << 20);
  ReceiptSystem system;
  VNMakeFolders(*image / kReceipts);
  system.copier->analyzeDataTemplate();
  VNError error;
  ASSERT_TRUE(system.copier->_writeDataTemplateReceiptIfNeededToURL(VNFolderURL(image->mountPoint()), &error))
      << error.description();
  bool compressed = false;
  std::string bom = *image / kReceipts + "/org.varnel.files.data-template.bom";
  ASSERT_TRUE(VNPlatformSlot<VNCompression>::get()->isCompressed(bom, &compressed).ok());
  EXPECT_TRUE(compressed);
  EXPECT_FALSE(readBOM(bom).empty());
}

}  // namespace
