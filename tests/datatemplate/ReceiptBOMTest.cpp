// The receipts of a copy: the receipt BOM against the template and its own
// BOM, and the order and failures of the two receipt files.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <map>

#include "CopierFakes.h"
#include "foundation/VNFileIO.h"
#include "platform/VNPlatformService.h"
#include "datatemplate/VNBomStore.h"
#include "platform/VNCompression.h"
#include "support/VNLoopImage.h"

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
  if (!store) return entries;
  VNBomEntryPtr root(bom_root_entry(store.get()));
  VNBomEnumeratorPtr walker(bom_enumerator_new(store.get(), root.get()));
  while (VNBomEntryPtr entry{bom_enumerator_next(walker.get())}) {
    entries[bom_entry_path_name(entry.get())] = {bom_entry_type(entry.get()), bom_entry_mode(entry.get()),
                                                 bom_entry_size(entry.get()), bom_entry_checksum(entry.get()),
                                                 bom_entry_symlink_target(entry.get())};
  }
  return entries;
}

std::string linkText(const char* path, bool isDirectory) {
  char buffer[VNUDTLinkBufferSize] = {};
  dataTemplateLinkForPath(path, isDirectory, buffer);
  return buffer;
}

// A system whose template has a symlinked folder with contents, a symlinked
// file, plain files, a hard link and a symbolic link; and a target folder.
struct ReceiptSystem : TestSystem {
  VNTestDir target;

  ReceiptSystem() {
    makeFolders(root.path(), "System/Library/Templates/Data");
    makeFolders(templatePath(), kReceipts);
    makeFolders(templatePath(), "Big/inner");
    for (int i = 0; i < 5; ++i) VNWriteTestFile(templatePath("Big/f" + std::to_string(i)), "big");
    VNWriteTestFile(templatePath("Big/inner/x"), "x");
    makeFolders(templatePath(), "Keep");
    VNWriteTestFile(templatePath("Keep/k"), "symlinked file");
    VNWriteTestFile(templatePath("Keep/plain"), "plain contents");
    ::link(templatePath("Keep/plain").c_str(), templatePath("Keep/second").c_str());
    ::symlink("Keep/plain", templatePath("link").c_str());
    writeManifest("Big/\nKeep/k\nlink\n");
    writeSystemVersion("<key>ProductVersion</key><string>2.0</string><key>ProductBuildVersion</key><string>2B1</string>");
    makeFolders(target.path(), kReceipts);
  }
  void writeTemplateBOM() {
    VNBomStorePtr store(bom_new_from_directory(copier->dataTemplateBOMURL().path().c_str(),
                                               templatePath().c_str(), BomOptionStat | BomOptionChecksums));
    ASSERT_TRUE(store);
    ASSERT_EQ(bom_commit(store.get()), 0);
  }
  std::string receiptPath(const char* extension) const {
    return target / (std::string(kReceipts) + "/org.varnel.files.data-template." + extension);
  }
  bool writeReceipts(VNError* error) {
    copier->analyzeDataTemplateIfNeeded();
    return copier->_writeDataTemplateReceiptIfNeededToURL(VNFileURL::fileURLWithPath(target.path(), true),
                                                          error);
  }
};

// Puts a non-empty folder at `path`, which no file can be renamed over.
void occupyWithFolder(const std::string& path) {
  ASSERT_EQ(::mkdir(path.c_str(), 0755), 0) << path;
  VNWriteTestFile(path + "/occupied", "");
}

void expectSymlinkEntry(const Recorded& receipt, const char* path, bool isDirectory) {
  auto found = receipt.find(path);
  ASSERT_NE(found, receipt.end()) << path;
  EXPECT_EQ(found->second.type, BomEntryTypeSymlink) << path;
  EXPECT_EQ(found->second.mode, 0xA1ED) << path;
  EXPECT_EQ(found->second.target, linkText(path, isDirectory)) << path;
}

TEST(ReceiptBOMTest, CopyOfTheTemplateBOMDiffersOnlyAtSymlinkedPaths) {
  ReceiptSystem system;
  system.writeTemplateBOM();
  VNError error;
  ASSERT_TRUE(system.writeReceipts(&error)) << error.description();

  Recorded original = readBOM(system.copier->dataTemplateBOMURL().path());
  Recorded receipt = readBOM(system.receiptPath("bom"));
  ASSERT_TRUE(original.contains("Big/inner/x"));
  expectSymlinkEntry(receipt, "Big", true);
  expectSymlinkEntry(receipt, "Keep/k", false);
  EXPECT_EQ(receipt.at("Big").target, "System/Library/Templates/Data/Big/");
  // A symbolic link of the template stays itself although a pattern names it.
  EXPECT_EQ(receipt.at("link"), original.at("link"));
  for (const auto& [path, entry] : original) {
    if (path == "Big" || path == "Keep/k") continue;
    if (path.starts_with("Big/")) {
      EXPECT_FALSE(receipt.contains(path)) << path;
      continue;
    }
    ASSERT_TRUE(receipt.contains(path)) << path;
    EXPECT_EQ(receipt.at(path), entry) << path;
  }
  for (const auto& [path, entry] : receipt) EXPECT_TRUE(original.contains(path)) << path;

  // Both names of the hard-linked file stay recorded as the template has them.
  EXPECT_EQ(receipt.at("Keep/second").type, BomEntryTypeFile);
  EXPECT_EQ(system.messages.back(), "wrote receipt BOM to " + system.receiptPath("bom"));
  EXPECT_TRUE(VNValue::fromPropertyListFile(system.receiptPath("plist")));

  // The first receipt came from what the analysis found; written again, it
  // comes from a walk of its own, and must be the same.
  ASSERT_TRUE(system.writeReceipts(&error)) << error.description();
  EXPECT_EQ(readBOM(system.receiptPath("bom")), receipt);
}

TEST(ReceiptBOMTest, WithoutTemplateBOMTheTemplateFolderIsScannedWithChecksums) {
  ReceiptSystem system;
  VNError error;
  ASSERT_TRUE(system.writeReceipts(&error)) << error.description();
  EXPECT_FALSE(system.copier->hasDataTemplateBOM());

  Recorded receipt = readBOM(system.receiptPath("bom"));
  expectSymlinkEntry(receipt, "Big", true);
  expectSymlinkEntry(receipt, "Keep/k", false);
  EXPECT_FALSE(receipt.contains("Big/f0"));
  EXPECT_FALSE(receipt.contains("Big/inner/x"));
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

TEST(ReceiptBOMTest, TargetWithoutReceiptsFolderGetsNoReceipts) {
  ReceiptSystem system;
  VNTestDir bare;
  system.copier->analyzeDataTemplate();
  VNError error;
  EXPECT_TRUE(system.copier->_writeDataTemplateReceiptIfNeededToURL(VNFileURL::fileURLWithPath(bare.path(), true),
                                                                    &error));
  EXPECT_EQ(system.messages.back(),
            "skipping data template receipts, directory not present: " + bare.path() + "/" + kReceipts);
  EXPECT_EQ(::access((bare / "Library").c_str(), F_OK), -1);
}

TEST(ReceiptBOMTest, FailedPropertyListLeavesTheBOMAlone) {
  ReceiptSystem system;
  VNWriteTestFile(system.receiptPath("bom"), "the BOM the copy brought");
  occupyWithFolder(system.receiptPath("plist"));
  VNError error;
  EXPECT_FALSE(system.writeReceipts(&error));
  EXPECT_EQ(error.domain(), VNUDataTemplateErrorDomain);
  EXPECT_EQ(error.code(), 5);
  EXPECT_EQ(VNReadFile(system.receiptPath("bom"), 1024), "the BOM the copy brought");
  EXPECT_EQ(system.messages.back().rfind("failed to write receipt plist to " + system.receiptPath("plist") + ": ", 0),
            0u);
}

TEST(ReceiptBOMTest, FailedBOMIsCode4AndKeepsThePropertyList) {
  ReceiptSystem system;
  occupyWithFolder(system.receiptPath("bom"));
  VNError error;
  EXPECT_FALSE(system.writeReceipts(&error));
  EXPECT_EQ(error.domain(), VNUDataTemplateErrorDomain);
  EXPECT_EQ(error.code(), 4);
  EXPECT_TRUE(error.userInfo().empty());
  EXPECT_FALSE(error.underlyingError());
  EXPECT_EQ(system.messages.back(), "failed to write receipt BOM to " + system.receiptPath("bom"));
  EXPECT_TRUE(VNValue::fromPropertyListFile(system.receiptPath("plist")));
}

TEST(ReceiptBOMTest, UnreadableTemplateFailsTheBOMWithCode4) {
  TestSystem system;
  VNTestDir target;
  makeFolders(target.path(), kReceipts);
  VNError error;
  EXPECT_FALSE(system.copier->_writeDataTemplateReceiptIfNeededToURL(
      VNFileURL::fileURLWithPath(target.path(), true), &error));
  EXPECT_EQ(error.code(), 4);
  EXPECT_EQ(::access((target / (std::string(kReceipts) + "/org.varnel.files.data-template.bom")).c_str(), F_OK), -1);
}

TEST(ReceiptBOMTest, ReceiptBOMIsCompressedWhereTheFileSystemCan) {
  VN_MOUNT_OR_SKIP(image, VNLoopImage::Kind::Btrfs, 300u << 20);
  ReceiptSystem system;
  std::string receipts = *image / kReceipts;
  makeFolders(image->mountPoint(), kReceipts);
  system.copier->analyzeDataTemplate();
  VNError error;
  ASSERT_TRUE(system.copier->_writeDataTemplateReceiptIfNeededToURL(
      VNFileURL::fileURLWithPath(image->mountPoint(), true), &error))
      << error.description();
  bool compressed = false;
  std::string bom = receipts + "/org.varnel.files.data-template.bom";
  ASSERT_TRUE(VNPlatformSlot<VNCompression>::get()->isCompressed(bom, &compressed).ok());
  EXPECT_TRUE(compressed);
  EXPECT_FALSE(readBOM(bom).empty());
}

}  // namespace
