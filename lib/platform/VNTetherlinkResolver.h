#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "foundation/VNExport.h"

// Knows which folders of one volume appear inside its partner volume. On
// Linux such a folder is a bind mount; what each volume is meant to show is
// written in its definitions file (docs/tetherlinks.md). Callers open
// volumes, put them in a group and iterate the group's mappings.
class VN_EXPORT VNTetherlinkResolver {
 public:
  // Volume kinds.
  static constexpr int kKindDefinitions = 0;  // the volume as its definitions describe it
  static constexpr int kKindMounted = 1;      // the volume as the mount table shows it now
  // Group option bits.
  static constexpr std::uint32_t kGroupLive = 0x1;         // answer from the mount table
  static constexpr std::uint32_t kGroupDefinitions = 0x4;  // read the volumes' definitions
  // Iteration filters.
  static constexpr int kFilterAll = 0;       // every mapping every volume yields
  static constexpr int kFilterEachOnce = 1;  // a mapping two volumes yield, once

  struct Volume {
    std::string path;
    int kind = kKindDefinitions;
    std::uint32_t options = 0;
  };
  struct Group {
    std::uint32_t options = 0;
    std::vector<std::shared_ptr<const Volume>> volumes;
  };
  // Receives each mapping's source (where the folder appears) and
  // destination (where its contents lie); returns 0 to go on.
  using MappingCallback = std::function<int(const char* source, const char* destination)>;

  virtual ~VNTetherlinkResolver() = default;

  // Opening never fails: a path without a volume yields no mappings.
  virtual std::shared_ptr<Volume> openVolume(const char* path, int kind, std::uint32_t options) = 0;
  virtual std::shared_ptr<Group> createGroup(std::uint32_t options) = 0;
  virtual void addVolume(Group& group, std::shared_ptr<const Volume> volume) = 0;
  // Mappings in the group's volume order. Definitions lines the resolver
  // cannot use are logged (error type) and skipped.
  virtual void iterateMappings(const Group& group, int filter, const MappingCallback& callback) = 0;

  static std::shared_ptr<VNTetherlinkResolver> makeDefault();
};

// What is wrong with the definitions file of the volume rooted at
// `volumeRoot`, one message per problem ("<file>:<line>: <reason>"); empty
// when the file is absent or sound. For tools that report to a person; the
// resolver itself only logs these.
VN_EXPORT std::vector<std::string> VNTetherlinkDefinitionProblems(const std::string& volumeRoot);
