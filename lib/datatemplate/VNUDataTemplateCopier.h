#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/VNError.h"
#include "foundation/VNExport.h"
#include "foundation/VNFileURL.h"
#include "foundation/VNFormat.h"
#include "foundation/VNSharedSlot.h"
#include "foundation/VNValue.h"

struct BomStore;
struct BomEntry;
class VNSymlinkPatternSet;

// Domain of the data-template subsystem's errors: "org.varnel.VNUDataTemplateErrorDomain".
VN_EXTERN_C VN_EXPORT const char* const VNUDataTemplateErrorDomain;
// Identifier of the template receipts: "org.varnel.files.data-template".
VN_EXTERN_C VN_EXPORT const char* const VNUDTTemplateReceiptIdentifier;
// Keys of one tetherlink pair in a tetherlink list.
VN_EXTERN_C VN_EXPORT const char* const VNUDTTetherlinkSourceKey;
VN_EXTERN_C VN_EXPORT const char* const VNUDTTetherlinkDestinationKey;

// Codes of VNUDataTemplateErrorDomain (2 and 3 are never raised).
enum VNUDataTemplateErrorCode : std::int64_t {
  VNUDataTemplateErrorNoMountPoint = 1,
  VNUDataTemplateErrorReceiptBOM = 4,
  VNUDataTemplateErrorReceiptPlist = 5,
  VNUDataTemplateErrorRemoveTemporaryFolder = 6,
  VNUDataTemplateErrorCreateTemporaryFolder = 7,
  VNUDataTemplateErrorShove = 8,
  VNUDataTemplateErrorForceAttributes = 9,
  // The data volume is the system volume, lies inside its data template, or
  // holds the template: nothing was written.
  VNUDataTemplateErrorVolumesOverlap = 10,
  // Another installation holds the data volume's lock: nothing was written.
  VNUDataTemplateErrorVolumeBusy = 11,
};

// Size of the buffer dataTemplateLinkForPath writes into.
inline constexpr std::size_t VNUDTLinkBufferSize = 1024;

// Writes into `buffer` (VNUDTLinkBufferSize bytes, always NUL-terminated) the
// text of the symbolic link that stands on a target for the template item at
// the template-relative `path`: one "../" per slash of the path (after a
// leading run of "/" and "./" is stripped), then
// "System/Library/Templates/Data/<path>", with a final "/" for a directory.
// Text that does not fit is cut off.
VN_EXTERN_C VN_EXPORT void dataTemplateLinkForPath(const char* path, bool isDirectory,
                                                   char* buffer);

// Takes the data template of a system root to a target: finds the template,
// its bill of materials (BOM) and its symlink-pattern manifest, decides which
// template items are laid down as symbolic links back into the template,
// sizes the template, and writes the receipts of a copy.
//
// A copier is used from one thread at a time. The handlers and the pattern
// lists may be read or replaced from any thread; each read or replacement is
// indivisible. The totals are plain fields written by the analysis.
class VN_EXPORT VNUDataTemplateCopier {
 public:
  // Receives every finished log message.
  using LogHandler = std::function<void(VNUDataTemplateCopier& copier, const std::string& message)>;
  // Receives the items and bytes finished so far during a copy.
  using ProgressHandler =
      std::function<void(VNUDataTemplateCopier& copier, std::uint64_t items, std::uint64_t bytes)>;
  // Receives each entry of a BOM walk and whether it is symlinked; a
  // symlinked entry arrives as the symbolic-link entry that replaces it.
  using BOMWalkBlock = std::function<void(BomStore* store, BomEntry* entry, bool symlinked)>;
  using PatternList = std::vector<std::string>;

  // A copier on the running system, whose root is "/".
  static std::shared_ptr<VNUDataTemplateCopier> init();
  // A copier on the system rooted at `systemURL`. Nothing is read yet.
  static std::shared_ptr<VNUDataTemplateCopier> initWithSystemURL(const VNFileURL& systemURL);

  VNUDataTemplateCopier(const VNUDataTemplateCopier&) = delete;
  VNUDataTemplateCopier& operator=(const VNUDataTemplateCopier&) = delete;

  // Locations below the system root.
  const VNFileURL& systemURL() const { return systemURL_; }
  // "System/Library/Templates/Data"
  VNFileURL dataTemplateURL() const;
  // "System/Library/Templates/Data.symlink-patterns"
  VNFileURL symlinkedPatternsManifestURL() const;
  // The template's own BOM, in the template's receipts folder.
  VNFileURL dataTemplateBOMURL() const;

  LogHandler logHandler() const;
  void setLogHandler(LogHandler handler);
  ProgressHandler progressHandler() const;
  void setProgressHandler(ProgressHandler handler);

  // The pattern lists in manifest order; null until loaded.
  std::shared_ptr<const PatternList> symlinkedFilePatterns() const;
  std::shared_ptr<const PatternList> symlinkedDirectoryPatterns() const;

  // Results of the last analysis; false and 0 before the first.
  bool hasDataTemplateBOM() const { return hasDataTemplateBOM_; }
  std::uint64_t totalItems() const { return totalItems_; }
  std::uint64_t totalBytes() const { return totalBytes_; }
  std::uint64_t totalSymlinkedItems() const { return totalSymlinkedItems_; }
  std::uint64_t totalDuplicateItems() const { return totalDuplicateItems_; }

  // What the last copy laid down, counted as it went (all 0 before the
  // first copy, and for a template that is not there): items of every kind,
  // the bytes of the files and the blocks they take, clones (later names of
  // a hard-linked file) and the symbolic links that stand for symlinked
  // items. After a failed copy, what was laid down before it failed.
  struct CopyCounts {
    std::uint64_t items = 0;
    std::uint64_t bytes = 0;
    std::uint64_t bytesOnDisk = 0;
    std::uint64_t clonedItems = 0;
    std::uint64_t symlinkedItems = 0;
  };
  const CopyCounts& lastCopyCounts() const { return lastCopyCounts_; }

  // The template system's version file as a dictionary. When it can't be
  // read, logs "using current system version, could not read <path>" and
  // answers the running system's version dictionary instead.
  VNValue systemVersionDictionary();

  // Formats a printf-style message ("%@" takes a description) and hands it to
  // the log handler, or to the general system log when there is none.
  template <class... Args>
  void log(std::string_view format, const Args&... args) {
    if constexpr (sizeof...(Args) == 0) {
      log(format, std::span<const VNFormatArg>{});
    } else {
      const VNFormatArg list[] = {VNFormatArg(args)...};
      log(format, std::span<const VNFormatArg>(list));
    }
  }
  void log(std::string_view format, std::span<const VNFormatArg> arguments);

  // Reads the symlink-pattern manifest and replaces both pattern lists. A
  // missing or unreadable manifest leaves both lists empty (not null).
  void loadSymlinkedPatterns();
  // Loads the patterns when both lists are still null.
  void loadSymlinkedPatternsIfNeeded();
  // Whether the template item at the template-relative `path` is laid down
  // as a symbolic link; loads the patterns first when needed.
  [[nodiscard]] bool shouldSymlinkPath(std::string_view path, bool isDirectory);
  // The same answer without loading: nothing matches while both lists are
  // null. Internal to the data-template subsystem (the copy engine calls it
  // once per item).
  [[nodiscard]] bool _shouldSymlinkPath(const char* path, bool isDirectory) const;

  // Opens the template's BOM read-only; null when it can't. The caller
  // releases it with bom_free.
  [[nodiscard]] BomStore* _openDataTemplateBOM() const;
  // Walks `store` (null allowed: nothing is visited) depth-first from its
  // root. An entry the patterns select (never a symbolic link) is replaced
  // by a new symbolic-link entry (mode 0120755, the link text of
  // dataTemplateLinkForPath) and the subtree below it is not visited. Every
  // entry is released after the block returns.
  void _enumerateDataTemplateBOM(BomStore* store, const BOMWalkBlock& block);

  // Sizes the template from its BOM and sets the totals and
  // hasDataTemplateBOM. Never fails: without a BOM the totals count only the
  // template root and the BOM file's place.
  void analyzeDataTemplate();
  // Runs the analysis while totalItems is 0.
  void analyzeDataTemplateIfNeeded();

  // Writes the receipt property list, then the receipt BOM, into the
  // receipts folder below `targetURL`, reached from `targetURL` without
  // following a symbolic link. A receipts folder that is missing, or that is
  // or lies below a symbolic link, is not an error: nothing is written, the
  // log says why, and the answer is true. On failure `error`
  // (never null) holds code 5 (property list; the BOM is then not written) or
  // code 4 (BOM; the property list stays written).
  [[nodiscard]] bool _writeDataTemplateReceiptIfNeededToURL(const VNFileURL& targetURL, VNError* error);

  // Lays the template down in the folder `target` (which must exist) and
  // writes the receipts there: analyses the template when that has not been
  // done, copies, then writes the receipts. The two-argument form reports to
  // progressHandler(). On failure returns false with the error (the POSIX
  // error of the item that failed, with its path); what was laid down before
  // the failure stays, and no receipts are written.
  //
  // The call returns when the copy is over. Files are laid down by worker
  // threads beside the caller's (one fewer than the processors the process
  // may run on; VARNEL_COPY_THREADS=N asks for N threads in all, 1 for the
  // caller's alone), while the log and progress handlers are called on the
  // caller's thread only, between items. With workers, the failure that ends
  // the copy is the first one taken back, and items already handed out when
  // it happened are still laid down.
  [[nodiscard]] bool copyDataTemplateToURL(const VNFileURL& target, VNError* error = nullptr);
  [[nodiscard]] bool copyDataTemplateToURL(const VNFileURL& target, VNError* error, ProgressHandler progress);
  // The copy alone; true without copying when the template folder is missing.
  [[nodiscard]] bool _copyDataTemplateIfNeededToURL(const VNFileURL& target, VNError* error,
                                      ProgressHandler progress);
  // Writes the receipt dictionary to `plistURL` as an XML property list,
  // replacing any file there. On failure nothing changes at `plistURL`.
  [[nodiscard]] bool _writeDataTemplateReceiptPlistToURL(const VNFileURL& plistURL, VNError* error);
  // Writes the receipt BOM to `bomURL`, replacing any file there, and
  // compresses it where the file system can. On failure nothing changes at
  // `bomURL`.
  [[nodiscard]] bool _writeDataTemplateReceiptBOMToURL(const VNFileURL& bomURL, VNError* error);
  // A new uncommitted store for `path`: a copy of the template's BOM, or a
  // scan of the template folder (stat fields and checksums) when it has none.
  // Null when neither can be made.
  [[nodiscard]] BomStore* _openDataTemplateBOMForWritingToPath(const char* path) const;

 private:
  explicit VNUDataTemplateCopier(VNFileURL systemURL) : systemURL_(std::move(systemURL)) {}

  // What the last analysis leaves for the receipt BOM (see the .cpp).
  struct AnalysisForReceipt;

  // A receipt file: the path it is written through (which may reach its
  // folder through a held descriptor) and the path the log names.
  struct ReceiptFile {
    std::string written;
    std::string shown;
  };

  // The receipt dictionary; logs a missing system version.
  VNValue receiptPropertyList();
  // Logs how writing the receipt property list to `shownPath` ended; a
  // failure becomes code 5 in `error`.
  [[nodiscard]] bool reportReceiptPlist(bool written, const std::string& shownPath, const VNError& writeError,
                                        VNError* error);
  // The two halves of _writeDataTemplateReceiptBOMToURL: the uncommitted
  // receipt BOM with symlinked entries replaced (null on failure), and its
  // commit.
  [[nodiscard]] BomStore* prepareReceiptBOM(const std::string& path);
  // Takes `store` (may be null) and frees it.
  [[nodiscard]] bool commitReceiptBOM(BomStore* store, const ReceiptFile& bom, VNError* error);

  const VNFileURL systemURL_;
  VNSharedSlot<LogHandler> logHandler_;
  VNSharedSlot<ProgressHandler> progressHandler_;
  VNSharedSlot<VNSymlinkPatternSet> symlinkedFilePatterns_;
  VNSharedSlot<VNSymlinkPatternSet> symlinkedDirectoryPatterns_;
  bool hasDataTemplateBOM_ = false;
  std::uint64_t totalItems_ = 0;
  std::uint64_t totalBytes_ = 0;
  std::uint64_t totalSymlinkedItems_ = 0;
  std::uint64_t totalDuplicateItems_ = 0;
  CopyCounts lastCopyCounts_;
  // Set by analyzeDataTemplate, used and dropped by the receipt's writing;
  // touched only on the calling thread.
  std::shared_ptr<AnalysisForReceipt> analysisForReceipt_;
};
