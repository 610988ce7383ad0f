// Loading the symlink patterns and answering which template items become
// symbolic links.
#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <optional>

#include "datatemplate/VNUDataTemplateCopier.h"
#include "datatemplate/internal/VNSymlinkPatterns.h"
#include "foundation/VNFormat.h"
#include "foundation/VNUniqueFd.h"

namespace {

// Why the manifest at `path` was not read, for the log; empty when it is
// simply not there.
using Refusal = std::string;

// Feeds the whole manifest at `path` to `reader`. Only a regular file of at
// most kMaxManifestBytes is read: opened without blocking (a FIFO or a device
// could hold the copier forever) and refused by its kind before a byte is read.
std::optional<Refusal> readManifest(const std::string& path, VNSymlinkPatternReader& reader) {
  VNUniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  if (!fd) return errno == ENOENT ? Refusal() : VNFormat("cannot open %s: %s", path, std::strerror(errno));
  struct stat status;
  if (::fstat(fd.get(), &status) != 0) return VNFormat("cannot read %s: %s", path, std::strerror(errno));
  if (!S_ISREG(status.st_mode)) return VNFormat("%s is not a regular file", path);
  const auto tooLarge = [&] {
    return VNFormat("%s is larger than %llu bytes", path, static_cast<unsigned long long>(kMaxManifestBytes));
  };
  if (static_cast<std::uint64_t>(status.st_size) > kMaxManifestBytes) return tooLarge();
  std::uint64_t total = 0;
  char chunk[16 * 1024];
  for (;;) {
    ssize_t got = ::read(fd.get(), chunk, sizeof chunk);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return VNFormat("cannot read %s: %s", path, std::strerror(errno));
    if (got == 0) break;
    // The file may grow while it is read.
    if ((total += static_cast<std::uint64_t>(got)) > kMaxManifestBytes) return tooLarge();
    reader.feed(std::string_view(chunk, static_cast<std::size_t>(got)));
  }
  reader.finish();
  return std::nullopt;
}

VNValue describedList(const VNUDataTemplateCopier::PatternList& patterns) {
  return VNValue(VNValue::Array(patterns.begin(), patterns.end()));
}

}  // namespace

void VNUDataTemplateCopier::loadSymlinkedPatterns() {
  VNSymlinkPatternReader reader;
  if (std::optional<Refusal> refusal = readManifest(symlinkedPatternsManifestURL().path(), reader)) {
    if (!refusal->empty()) log("ignoring symlinked patterns manifest: %s", *refusal);
    log("symlinked patterns manifest not present");
    reader = VNSymlinkPatternReader();
  } else {
    log("loaded symlinked file patterns: %@", describedList(reader.filePatterns()));
    log("loaded symlinked directory patterns: %@", describedList(reader.directoryPatterns()));
  }
  symlinkedFilePatterns_.store(std::make_shared<const VNSymlinkPatternSet>(reader.filePatterns()));
  symlinkedDirectoryPatterns_.store(std::make_shared<const VNSymlinkPatternSet>(reader.directoryPatterns()));
}

void VNUDataTemplateCopier::loadSymlinkedPatternsIfNeeded() {
  if (!symlinkedFilePatterns_.load() && !symlinkedDirectoryPatterns_.load()) loadSymlinkedPatterns();
}

bool VNUDataTemplateCopier::shouldSymlinkPath(std::string_view path, bool isDirectory) {
  loadSymlinkedPatternsIfNeeded();
  return _shouldSymlinkPath(std::string(path).c_str(), isDirectory);
}

bool VNUDataTemplateCopier::_shouldSymlinkPath(const char* path, bool isDirectory) const {
  std::shared_ptr<const VNSymlinkPatternSet> patterns =
      (isDirectory ? symlinkedDirectoryPatterns_ : symlinkedFilePatterns_).load();
  return patterns && patterns->matches(VNStripTemplateRelativePath(path).data());
}
