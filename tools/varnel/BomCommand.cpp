// varnel bom: write a bill of materials of a folder, or list one.
#include <cinttypes>
#include <cstdio>

#include "Command.h"
#include "datatemplate/VNBomStore.h"
#include "foundation/VNError.h"
#include "foundation/VNValue.h"

namespace varnel {
namespace {

const char* typeName(BomEntryType type) {
  switch (type) {
    case BomEntryTypeFile: return "file";
    case BomEntryTypeDirectory: return "directory";
    case BomEntryTypeSymlink: return "symlink";
    case BomEntryTypeCharDevice: return "char-device";
    case BomEntryTypeBlockDevice: return "block-device";
    case BomEntryTypeFIFO: return "fifo";
    case BomEntryTypeSocket: return "socket";
    default: return "unknown";
  }
}

// Calls `visit` for the root entry, then for every entry in walk order.
template <typename Visit>
void forEachEntry(BomStore* store, Visit visit) {
  VNBomEntryPtr root(bom_root_entry(store));
  if (!root) return;
  visit(root.get());
  VNBomEnumeratorPtr walk(bom_enumerator_new(store, root.get()));
  while (VNBomEntryPtr entry{bom_enumerator_next(walk.get())}) visit(entry.get());
}

// One line: path, type, mode in octal, owner/group, size, checksum, link
// target; "-" for a field the entry does not carry.
void printLine(BomStore* store, const BomEntry* entry) {
  uint16_t options = bom_entry_flags(entry);
  std::printf("%s\t%s\t%06o\t", quotedName(bom_entry_path_name(entry)).c_str(), typeName(bom_entry_type(entry)),
              bom_entry_mode(entry));
  if (options & BomOptionStat)
    std::printf("%" PRIu32 "/%" PRIu32 "\t", bom_entry_uid(entry), bom_entry_gid(entry));
  else
    std::printf("-\t");
  std::printf("%" PRIu64 "\t", bom_entry_size(entry));
  if (options & BomOptionChecksums)
    std::printf("%08" PRIx32 "\t", bom_entry_checksum(entry));
  else
    std::printf("-\t");
  char group[BomHardlinkPathBufferSize];
  if (bom_entry_type(entry) == BomEntryTypeSymlink)
    std::printf("-> %s\n", quotedName(bom_entry_symlink_target(entry)).c_str());
  else if (bom_entry_hardlink_path(store, entry, 0, group))
    std::printf("link of %s\n", quotedName(group).c_str());
  else
    std::printf("\n");
}

VNValue entryValue(BomStore* store, const BomEntry* entry) {
  VNValue value = VNValue::dictionary();
  uint16_t options = bom_entry_flags(entry);
  value.set("path", bom_entry_path_name(entry));
  value.set("type", typeName(bom_entry_type(entry)));
  value.set("mode", static_cast<unsigned>(bom_entry_mode(entry)));
  value.set("size", static_cast<unsigned long long>(bom_entry_size(entry)));
  if (options & BomOptionStat) {
    value.set("uid", bom_entry_uid(entry));
    value.set("gid", bom_entry_gid(entry));
    value.set("mtime", static_cast<long long>(bom_entry_mtime(entry)));
  }
  if (options & BomOptionChecksums) value.set("checksum", bom_entry_checksum(entry));
  if (bom_entry_type(entry) == BomEntryTypeSymlink)
    value.set("linkTarget", bom_entry_symlink_target(entry));
  char group[BomHardlinkPathBufferSize];
  if (bom_entry_hardlink_path(store, entry, 0, group)) value.set("hardlinkGroup", group);
  return value;
}

int runList(const std::string& path, bool json) {
  VNError error;
  VNBomStorePtr store(VNBomOpen(path.c_str(), &error));
  if (!store) {
    printError(error);
    return kExitFailed;
  }
  if (!json) {
    forEachEntry(store.get(), [&](const BomEntry* entry) { printLine(store.get(), entry); });
    return kExitOK;
  }
  VNValue::Array entries;
  forEachEntry(store.get(),
               [&](const BomEntry* entry) { entries.push_back(entryValue(store.get(), entry)); });
  printJSON(VNValue(std::move(entries)));
  return kExitOK;
}

int runCreate(const std::string& directory, const std::string& output) {
  VNError error;
  VNBomStorePtr store(VNBomNewFromDirectory(output.c_str(), directory.c_str(),
                                            BomOptionStat | BomOptionChecksums, &error));
  if (!store || !VNBomCommit(store.get(), &error)) {
    printError(error);
    return kExitFailed;
  }
  size_t count = 0;
  forEachEntry(store.get(), [&](const BomEntry*) { ++count; });
  std::printf("wrote %zu entries of %s to %s\n", count, quotedName(directory).c_str(),
              quotedName(output).c_str());
  return kExitOK;
}

CommandRegistration registration("bom", [](CLI::App& app, int& status) {
  auto* bom = app.add_subcommand("bom", "Write or list a bill of materials");
  bom->require_subcommand(1);

  auto* create = bom->add_subcommand("create", "Write a bill of materials of a folder");
  auto directory = std::make_shared<std::string>();
  auto output = std::make_shared<std::string>();
  create->add_option("DIR", *directory, "Folder to list")->required();
  create->add_option("OUT", *output, "BOM file to write")->required();
  create->callback([=, &status] { status = runCreate(*directory, *output); });

  auto* list = bom->add_subcommand("list", "List the entries of a bill of materials");
  auto file = std::make_shared<std::string>();
  auto json = std::make_shared<bool>(false);
  list->add_option("FILE", *file, "BOM file to read")->required();
  list->add_flag("--json", *json, "Print the entries as JSON");
  list->callback([=, &status] { status = runList(*file, *json); });
});

}  // namespace
}  // namespace varnel
