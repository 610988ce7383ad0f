#pragma once

#include <string>
#include <string_view>

// The two path rules behind the canonical form of file URLs. Both take an
// absolute path and give one without empty components, "." components or a
// trailing "/" (except the root).

// Lexical standardisation: "." and empty components dropped, ".." taken
// against the component before it ("/.." is "/"), and a leading "/private"
// dropped when the path without it still names an existing item.
std::string VNStandardizedPath(std::string_view path);

// Every symbolic link in `path` replaced by its target, as far as the path
// exists; components below the first missing one are kept as written. A
// link whose target is missing is still replaced; a loop of links (more than
// 40 in one walk) or a link that cannot be read leaves `path` standardised but unresolved. A leading
// "/private" is dropped as VNStandardizedPath drops it.
std::string VNResolvedPath(std::string_view path);
