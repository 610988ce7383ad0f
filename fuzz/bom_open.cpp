// Opens arbitrary bytes as a BOM file and walks every entry. A file that
// opens must walk in strict key order, with valid paths, each of which a
// lookup finds again, and skipping must never return a descendant.
#include <stdlib.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <string>

#include "datatemplate/VNBomStore.h"
#include "datatemplate/internal/VNBomKey.h"

namespace {

// The file each input is written to, removed when the process exits.
struct ScratchFile {
  std::string path;
  ScratchFile() {
    char templ[] = "/tmp/fuzz-bom-open.XXXXXX";
    int fd = ::mkstemp(templ);
    if (fd < 0) ::abort();
    ::close(fd);
    path = templ;
  }
  ~ScratchFile() { ::unlink(path.c_str()); }
};

const std::string& scratchPath() {
  static ScratchFile file;
  return file.path;
}

[[noreturn]] void broken(const char* what, const std::string& path) {
  std::fprintf(stderr, "walk invariant broken: %s at '%s'\n", what, path.c_str());
  ::abort();
}

// Walks from the root; with `skipDirectories` skips every directory and
// checks that nothing below a skipped one comes back.
size_t walk(BomStore* store, bool skipDirectories) {
  VNBomEntryPtr root(bom_root_entry(store));
  if (!root) return 0;
  VNBomEnumeratorPtr walker(bom_enumerator_new(store, root.get()));
  std::string previous;
  std::string skipped;
  size_t count = 0;
  while (VNBomEntryPtr entry{bom_enumerator_next(walker.get())}) {
    std::string path = bom_entry_path_name(entry.get());
    std::optional<std::string> key = VNBomKeyForPath(path);
    if (!key || key->empty()) broken("invalid path", path);
    if (*key <= previous) broken("out of order", path);
    if (!skipped.empty() && key->compare(0, skipped.size() + 1, skipped + '\0') == 0)
      broken("descendant of a skipped directory", path);
    VNBomEntryPtr found(bom_entry_at_path(store, path.c_str()));
    if (!found || bom_entry_type(found.get()) != bom_entry_type(entry.get()))
      broken("lookup differs", path);
    if (skipDirectories && bom_entry_type(entry.get()) == BomEntryTypeDirectory) {
      bom_enumerator_skip(walker.get());
      skipped = *key;
    }
    previous = std::move(*key);
    ++count;
  }
  return count;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > (1u << 20)) return 0;
  const std::string& path = scratchPath();
  FILE* file = std::fopen(path.c_str(), "wb");
  if (!file) ::abort();
  if (size && std::fwrite(data, 1, size, file) != size) ::abort();
  std::fclose(file);
  VNBomStorePtr store(bom_open(path.c_str()));
  if (!store) return 0;
  size_t all = walk(store.get(), /*skipDirectories=*/false);
  if (walk(store.get(), /*skipDirectories=*/true) > all) broken("skip added entries", path);
  return 0;
}
