#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

// A volume's tetherlink definitions file (docs/tetherlinks.md): a "partner
// ROOT" line naming the partner volume's root, then one "SOURCE<TAB>DEST"
// line per folder, SOURCE absolute within this volume, DEST relative to the
// partner's root. Blank lines and lines starting with "#" are skipped.

inline constexpr const char* kTetherlinkDefinitionsFile = "System/Library/Baseworks/Tetherlinks";
inline constexpr size_t kTetherlinkDefinitionsMaxBytes = 1 << 20;

struct VNTetherlinkDefinition {
  std::string source;
  std::string destination;
  bool operator==(const VNTetherlinkDefinition&) const = default;
};

struct VNTetherlinkDefinitions {
  std::optional<std::string> partner;
  std::vector<VNTetherlinkDefinition> links;
  // "<origin>:<line>: <reason>" for each line that was skipped.
  std::vector<std::string> problems;
};

// Parses `text`; `origin` names it in problems. Never fails: a line it
// cannot use becomes a problem and is skipped.
VNTetherlinkDefinitions VNParseTetherlinkDefinitions(std::string_view text, std::string_view origin);

// Reads the definitions file below `volumeRoot`. An absent file gives no
// definitions and no problems; an unreadable one (a folder, too large) gives
// one problem.
VNTetherlinkDefinitions VNReadTetherlinkDefinitions(const std::string& volumeRoot);

// The partner's root: `partner` itself when absolute, else taken against
// `volumeRoot`.
std::string VNTetherlinkPartnerRoot(const std::string& volumeRoot, const std::string& partner);
