#pragma once

#include <sys/types.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/VNExport.h"

// Finds running processes by name. Linux: the entries of /proc (a root that
// tests replace). A process matches a name when the name equals its command
// name (/proc/<pid>/comm, which the kernel cuts to 15 bytes) or the base name
// of its executable (/proc/<pid>/exe), so a name longer than 15 bytes
// matches through the executable only, and a name holding "/" or empty
// matches nothing. The calling process never matches.
class VN_EXPORT VNProcessLookup {
 public:
  static std::shared_ptr<VNProcessLookup> makeDefault();
  virtual ~VNProcessLookup() = default;

  // The lowest matching identifier (usually the longest running process of
  // that name), or 0 when none runs.
  virtual pid_t processIdentifierForName(std::string_view name) = 0;
  // Every matching identifier, ascending; empty when none runs.
  virtual std::vector<pid_t> processIdentifiersForName(std::string_view name) = 0;
};

// The lookup over the /proc-like tree at `procRoot`.
VN_EXPORT std::shared_ptr<VNProcessLookup> VNMakeProcessLookup(std::string procRoot);
