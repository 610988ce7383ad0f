#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "foundation/VNExport.h"
#include "foundation/VNValue.h"

// Stateless helpers on UTF-8 strings and paths. None keeps state between
// calls; all may be called from any thread at once.
namespace VNUtilities {

// Prefix and suffix tests in canonical decomposition (NFD): both strings are
// decomposed and compared UTF-16 code unit by code unit, so a precomposed
// "é" and "e" followed by a combining acute accent compare equal. Case, width
// and compatibility forms are not folded.
// Strings need not be UTF-8 (file names are bytes): each maximal run of
// valid UTF-8 is decomposed on its own, and each byte outside such a run
// stands for itself as the lone surrogate U+DC00 plus the byte, which no
// character has. So such bytes match only the same bytes, never a character,
// and "/Volumes/Data/\xff" begins with "/Volumes/Data".
// An empty prefix is always found.
VN_EXPORT bool VN_hasPrefix(std::string_view string, std::string_view prefix);
// An empty suffix is never found.
VN_EXPORT bool VN_hasSuffix(std::string_view string, std::string_view suffix);

// The decomposed `string` less as many leading UTF-16 code units as the
// decomposed `prefix` has, in UTF-8, with bytes outside UTF-8 kept as they
// were. Whether `string` begins with `prefix` is not tested (callers ask
// VN_hasPrefix first). A character whose first unit falls among the removed
// ones is removed whole (half a surrogate pair has no UTF-8 form). Empty when
// `prefix` is the longer.
VN_EXPORT std::string VN_stringByRemovingPrefix(std::string_view string, std::string_view prefix);

// `string` ending in exactly the "/" it had, or with "/" appended; "" gives "/".
VN_EXPORT std::string VN_stringWithTrailingSlash(std::string_view string);

// Literal, case-sensitive search with no normalisation; an empty `needle` is
// never found.
VN_EXPORT bool containsString(std::string_view string, std::string_view needle);

// Whether the POSIX extended regular expression `pattern` matches anywhere in
// `string` (bytes up to the first NUL of either). A pattern that does not
// compile gives false. Patterns must come from a trusted source: the C
// library's regcomp needs memory exponential in stacked or nested
// repetitions ("a++++++++++++++++++++++" takes gigabytes).
VN_EXPORT bool containsRegEx(std::string_view string, std::string_view pattern);

// Whether `path` names the root or an item directly in it, written with or
// without a leading and a trailing "/": "/", "Users", "/Users", "Users/" and
// "/Users/" do; "/Users/a", "Users/a" and "/Users/a/" do not.
VN_EXPORT bool VN_pathRefersToFSRoot(std::string_view path);

// The path of the item at `path` relative to the mount point of the volume
// that holds it, taken on that volume itself rather than through a bind
// mount: "/srv/data/Users/a" on a volume mounted at "/srv/data" gives
// "/Users/a", "/Users/a" on the root volume gives "Users/a", a mount point
// itself gives "". A final symbolic link is not followed: a path naming one
// gives null, as does any failure (missing item, over-long path, a path that
// is not on a mounted volume). Nothing is logged.
VN_EXPORT std::optional<std::string> VN_pathByRemovingMountPoint(std::string_view path);

// SHA-256 of the UTF-8 bytes of `string` as 64 lowercase hexadecimal digits.
VN_EXPORT std::string VN_sha256Hash(std::string_view string);

// Whether the item at `path` is a bundle by the rules of pathIsBundle for
// file URLs (VNBundleRules.h).
VN_EXPORT bool pathIsBundle(std::string_view path);

// Fills a format whose placeholders are "%@" from the first ten elements of
// `args` (their descriptions); missing elements are null ("(null)"), elements
// past the tenth are ignored. A format should hold at most ten placeholders.
VN_EXPORT std::string VN_stringWithFormat(std::string_view format, const VNValue::Array& args);

}  // namespace VNUtilities
