// The template copier's configuration: creation, locations, handlers, log and
// the template system's version.
#include "datatemplate/VNUDataTemplateCopier.h"

#include "datatemplate/internal/VNDataTemplateLocations.h"
#include "datatemplate/internal/VNSymlinkPatterns.h"
#include "platform/VNPlatformService.h"
#include "platform/VNRunningSystemVersion.h"
#include "platform/VNSystemLog.h"

const char* const VNUDataTemplateErrorDomain = "org.varnel.VNUDataTemplateErrorDomain";
const char* const VNUDTTemplateReceiptIdentifier = "org.varnel.files.data-template";
const char* const VNUDTTetherlinkSourceKey = "VNUDTTetherlinkSourceKey";
const char* const VNUDTTetherlinkDestinationKey = "VNUDTTetherlinkDestinationKey";

std::shared_ptr<VNUDataTemplateCopier> VNUDataTemplateCopier::init() {
  return initWithSystemURL(VNFileURL::fileURLWithPath("/", /*isDirectory=*/true));
}

std::shared_ptr<VNUDataTemplateCopier> VNUDataTemplateCopier::initWithSystemURL(
    const VNFileURL& systemURL) {
  return std::shared_ptr<VNUDataTemplateCopier>(new VNUDataTemplateCopier(systemURL));
}

VNFileURL VNUDataTemplateCopier::dataTemplateURL() const {
  return systemURL_.URLByAppendingPathComponent(VNDataTemplateLocations::kDataTemplate, /*isDirectory=*/true);
}

VNFileURL VNUDataTemplateCopier::symlinkedPatternsManifestURL() const {
  return systemURL_.URLByAppendingPathComponent(VNDataTemplateLocations::kSymlinkPatternsManifest);
}

VNFileURL VNUDataTemplateCopier::dataTemplateBOMURL() const {
  return dataTemplateURL()
      .URLByAppendingPathComponent(VNDataTemplateLocations::kReceiptsFolder, /*isDirectory=*/true)
      .URLByAppendingPathComponent(std::string(VNUDTTemplateReceiptIdentifier) + ".bom");
}

VNUDataTemplateCopier::LogHandler VNUDataTemplateCopier::logHandler() const {
  std::shared_ptr<const LogHandler> handler = logHandler_.load();
  return handler ? *handler : LogHandler();
}

void VNUDataTemplateCopier::setLogHandler(LogHandler handler) {
  logHandler_.store(handler ? std::make_shared<const LogHandler>(std::move(handler)) : nullptr);
}

VNUDataTemplateCopier::ProgressHandler VNUDataTemplateCopier::progressHandler() const {
  std::shared_ptr<const ProgressHandler> handler = progressHandler_.load();
  return handler ? *handler : ProgressHandler();
}

void VNUDataTemplateCopier::setProgressHandler(ProgressHandler handler) {
  progressHandler_.store(handler ? std::make_shared<const ProgressHandler>(std::move(handler))
                                 : nullptr);
}

namespace {

// The list of a pattern set, sharing the set's ownership: the same pointer
// for as long as the set is the copier's.
std::shared_ptr<const VNUDataTemplateCopier::PatternList> listOf(std::shared_ptr<const VNSymlinkPatternSet> set) {
  if (!set) return nullptr;
  const VNUDataTemplateCopier::PatternList* list = &set->patterns();
  return std::shared_ptr<const VNUDataTemplateCopier::PatternList>(std::move(set), list);
}

}  // namespace

std::shared_ptr<const VNUDataTemplateCopier::PatternList>
VNUDataTemplateCopier::symlinkedFilePatterns() const {
  return listOf(symlinkedFilePatterns_.load());
}

std::shared_ptr<const VNUDataTemplateCopier::PatternList>
VNUDataTemplateCopier::symlinkedDirectoryPatterns() const {
  return listOf(symlinkedDirectoryPatterns_.load());
}

void VNUDataTemplateCopier::log(std::string_view format, std::span<const VNFormatArg> arguments) {
  std::string message = VNFormatArgs(format, arguments);
  if (std::shared_ptr<const LogHandler> handler = logHandler_.load()) {
    (*handler)(*this, message);
    return;
  }
  VNPlatformSlot<VNSystemLog>::get()->log(VNSystemLog::Level::Default, "", "", message);
}

VNValue VNUDataTemplateCopier::systemVersionDictionary() {
  std::string path = systemURL_.URLByAppendingPathComponent(VNDataTemplateLocations::kSystemVersionFile).path();
  std::optional<VNValue> version = VNValue::fromPropertyListFile(path);
  if (version && version->asDictionary()) return std::move(*version);
  log("using current system version, could not read %s", path);
  return VNPlatformSlot<VNRunningSystemVersion>::get()->versionDictionary();
}
