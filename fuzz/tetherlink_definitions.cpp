// Fuzzes the tetherlink definitions parser. Checks that can fail: every
// definition kept is a usable pair (SOURCE absolute, DEST relative, neither
// empty nor holding NUL, newline, "." or ".." components, both shorter than
// PATH_MAX); each problem names a line of the input; writing the partner and
// the definitions back out and parsing that gives the same with no problems.
#include <limits.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "platform/internal/VNTetherlinkDefinitions.h"

namespace {

constexpr std::size_t kMaxInput = 64 * 1024;

void check(bool condition, const char* what) {
  if (condition) return;
  std::fprintf(stderr, "check failed: %s\n", what);
  std::abort();
}

void checkPath(const std::string& path, bool absolute) {
  check(!path.empty() && path.size() < PATH_MAX, "path empty or too long");
  check(path.find_first_of(std::string_view("\0\n\t", 3)) == std::string::npos, "path holds NUL, newline or tab");
  check((path.front() == '/') == absolute, "leading slash wrong");
  std::string framed = "/" + path + "/";
  check(framed.find("/./") == std::string::npos && framed.find("/../") == std::string::npos, "dot component kept");
}

std::string writeBack(const VNTetherlinkDefinitions& definitions) {
  std::string text = definitions.partner ? "partner " + *definitions.partner + "\n" : "";
  for (const auto& link : definitions.links) text += link.source + "\t" + link.destination + "\n";
  return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size > kMaxInput) return 0;
  std::string_view text(reinterpret_cast<const char*>(data), size);
  VNTetherlinkDefinitions parsed = VNParseTetherlinkDefinitions(text, "F");
  for (const auto& link : parsed.links) {
    checkPath(link.source, /*absolute=*/true);
    checkPath(link.destination, /*absolute=*/false);
  }
  if (parsed.partner) check(!parsed.partner->empty(), "empty partner kept");
  std::size_t lines = 0;
  for (char c : text) lines += c == '\n';
  lines += !text.empty() && text.back() != '\n';
  for (const std::string& problem : parsed.problems) {
    check(problem.starts_with("F:"), "problem without origin");
    check(std::strtoull(problem.c_str() + 2, nullptr, 10) - 1 < lines, "problem names no line of the input");
  }
  check(parsed.links.size() + parsed.problems.size() <= lines, "more results than lines");

  VNTetherlinkDefinitions again = VNParseTetherlinkDefinitions(writeBack(parsed), "G");
  check(again.partner == parsed.partner && again.links == parsed.links, "definitions change when written back");
  check(again.problems.empty(), "written-back definitions have problems");
  return 0;
}
