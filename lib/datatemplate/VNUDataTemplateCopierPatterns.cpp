// Loading the symlink patterns and answering which template items become
// symbolic links.
#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include "datatemplate/VNUDataTemplateCopier.h"
#include "datatemplate/internal/VNSymlinkPatterns.h"
#include "foundation/VNUniqueFd.h"

namespace {

// Feeds the whole manifest at `path` to `reader`; false when it can't be
// opened or read.
bool readManifest(const std::string& path, VNSymlinkPatternReader& reader) {
  VNUniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!fd) return false;
  char chunk[16 * 1024];
  for (;;) {
    ssize_t got = ::read(fd.get(), chunk, sizeof chunk);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return false;
    if (got == 0) break;
    reader.feed(std::string_view(chunk, static_cast<std::size_t>(got)));
  }
  reader.finish();
  return true;
}

VNValue describedList(const VNUDataTemplateCopier::PatternList& patterns) {
  return VNValue(VNValue::Array(patterns.begin(), patterns.end()));
}

}  // namespace

void VNUDataTemplateCopier::loadSymlinkedPatterns() {
  VNSymlinkPatternReader reader;
  if (readManifest(symlinkedPatternsManifestURL().path(), reader)) {
    log("loaded symlinked file patterns: %@", describedList(reader.filePatterns()));
    log("loaded symlinked directory patterns: %@", describedList(reader.directoryPatterns()));
  } else {
    log("symlinked patterns manifest not present");
    reader = VNSymlinkPatternReader();
  }
  symlinkedFilePatterns_.store(std::make_shared<const PatternList>(reader.filePatterns()));
  symlinkedDirectoryPatterns_.store(std::make_shared<const PatternList>(reader.directoryPatterns()));
}

void VNUDataTemplateCopier::loadSymlinkedPatternsIfNeeded() {
  if (!symlinkedFilePatterns_.load() && !symlinkedDirectoryPatterns_.load()) loadSymlinkedPatterns();
}

bool VNUDataTemplateCopier::shouldSymlinkPath(std::string_view path, bool isDirectory) {
  loadSymlinkedPatternsIfNeeded();
  return _shouldSymlinkPath(std::string(path).c_str(), isDirectory);
}

bool VNUDataTemplateCopier::_shouldSymlinkPath(const char* path, bool isDirectory) const {
  std::shared_ptr<const PatternList> patterns =
      (isDirectory ? symlinkedDirectoryPatterns_ : symlinkedFilePatterns_).load();
  if (!patterns) return false;
  return VNMatchesSymlinkPattern(*patterns, VNStripTemplateRelativePath(path).data());
}
