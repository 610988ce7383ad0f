// Parser of a volume's tetherlink definitions file.
#include "platform/internal/VNTetherlinkDefinitions.h"

#include <errno.h>
#include <limits.h>

#include "foundation/VNError.h"
#include "foundation/VNFileIO.h"
#include "foundation/VNFormat.h"

namespace {

// Why `path` cannot name a folder below a volume's root, or null when it can:
// `absolute` says whether it must begin with "/" or must not.
const char* pathProblem(std::string_view path, bool absolute) {
  if (path.empty()) return "empty path";
  if (path.size() >= PATH_MAX) return "path longer than PATH_MAX";
  if (path.find('\0') != std::string_view::npos) return "path holds a NUL byte";
  if ((path.front() == '/') != absolute)
    return absolute ? "source must begin with \"/\"" : "destination must not begin with \"/\"";
  bool named = false;
  for (size_t start = 0; start <= path.size();) {
    size_t end = path.find('/', start);
    if (end == std::string_view::npos) end = path.size();
    std::string_view component = path.substr(start, end - start);
    if (component == "." || component == "..") return "path leaves its volume or names it twice (\".\" or \"..\")";
    named = named || !component.empty();
    start = end + 1;
  }
  return named ? nullptr : "path names the volume's root";
}

const char* partnerProblem(std::string_view root) {
  if (root.empty()) return "partner line names no volume";
  if (root.size() >= PATH_MAX) return "path longer than PATH_MAX";
  if (root.find('\0') != std::string_view::npos) return "path holds a NUL byte";
  return nullptr;
}

struct Parser {
  VNTetherlinkDefinitions result;
  std::string_view origin;
  size_t lineNumber = 0;

  void problem(std::string_view reason) {
    result.problems.push_back(VNFormat("%s:%zu: %s", std::string(origin), lineNumber, std::string(reason)));
  }

  void partnerLine(std::string_view root) {
    if (const char* why = partnerProblem(root)) return problem(why);
    if (result.partner) return problem("second partner line");
    result.partner = std::string(root);
  }

  void linkLine(std::string_view line) {
    size_t tab = line.find('\t');
    if (tab == std::string_view::npos || line.find('\t', tab + 1) != std::string_view::npos)
      return problem("expected SOURCE<TAB>DEST or \"partner ROOT\"");
    std::string_view source = line.substr(0, tab), destination = line.substr(tab + 1);
    if (const char* why = pathProblem(source, /*absolute=*/true)) return problem(why);
    if (const char* why = pathProblem(destination, /*absolute=*/false)) return problem(why);
    result.links.push_back({std::string(source), std::string(destination)});
  }

  void line(std::string_view text) {
    ++lineNumber;
    size_t first = text.find_first_not_of(" \t");
    if (first == std::string_view::npos || text[first] == '#') return;
    constexpr std::string_view kPartner = "partner ";
    if (text.starts_with(kPartner)) return partnerLine(text.substr(kPartner.size()));
    linkLine(text);
  }
};

}  // namespace

VNTetherlinkDefinitions VNParseTetherlinkDefinitions(std::string_view text, std::string_view origin) {
  Parser parser;
  parser.origin = origin;
  while (!text.empty()) {
    size_t end = text.find('\n');
    parser.line(text.substr(0, end));
    text = end == std::string_view::npos ? std::string_view{} : text.substr(end + 1);
  }
  return std::move(parser.result);
}

VNTetherlinkDefinitions VNReadTetherlinkDefinitions(const std::string& volumeRoot) {
  std::string path = volumeRoot + (volumeRoot.ends_with('/') ? "" : "/") + kTetherlinkDefinitionsFile;
  VNError error;
  std::optional<std::string> text = VNReadFile(path, kTetherlinkDefinitionsMaxBytes, &error);
  if (text) return VNParseTetherlinkDefinitions(*text, path);
  VNTetherlinkDefinitions none;
  bool absent = error.domain() == VNPOSIXErrorDomain && (error.code() == ENOENT || error.code() == ENOTDIR);
  if (!absent) none.problems.push_back(error.localizedDescription());
  return none;
}

std::string VNTetherlinkPartnerRoot(const std::string& volumeRoot, const std::string& partner) {
  if (partner.front() == '/') return partner;
  return volumeRoot + (volumeRoot.ends_with('/') ? "" : "/") + partner;
}
