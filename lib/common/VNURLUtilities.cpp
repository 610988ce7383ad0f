#include "common/VNURLUtilities.h"

#include <fcntl.h>
#include <openssl/evp.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <vector>

#include "common/VNFileManagerUtilities.h"
#include "common/VNStringUtilities.h"
#include "common/internal/VNPathStandardization.h"
#include "foundation/VNUniqueFd.h"
#include "platform/VNMountTable.h"
#include "platform/VNPlatformService.h"

namespace {

constexpr size_t kChecksumChunk = 8192;

struct DigestDeleter {
  void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
};

bool hasNul(const std::string& path) { return path.find('\0') != std::string::npos; }

// The path below the URL's missing trailing components with every link
// resolved, and those components appended again as written.
VNFileURL expandExistingPart(VNFileURL url) {
  std::vector<std::string> missing;
  while (!VNUtilities::VN_safeFileExistsAtPath(url) && url.path() != "/") {
    missing.insert(missing.begin(), url.lastPathComponent());
    url = url.URLByDeletingLastPathComponent();
  }
  url = VNFileURL::fileURLWithPath(VNResolvedPath(url.path()), url.hasDirectoryPath());
  for (const std::string& name : missing) url = url.URLByAppendingPathComponent(name);
  return url;
}

// Puts a path whose top-level item links into "/private" back below it:
// "/var/db" becomes "/private/var/db" when "/var" links to "private/var".
VNFileURL withPrivatePrefix(const VNFileURL& url) {
  auto parts = url.pathComponents();
  if (parts.size() < 2) return url;
  std::string topLevel = parts[0] + "/" + parts[1];
  std::string target(256, '\0');
  ssize_t n = ::readlink(topLevel.c_str(), target.data(), target.size());
  if (n < 0) return url;
  target.resize(static_cast<size_t>(n));
  if (target.rfind("/private", 0) != 0 && target.rfind("private", 0) != 0) return url;
  return VNFileURL::fileURLWithPath("/private/" + url.path(), url.hasDirectoryPath());
}

}  // namespace

namespace VNUtilities {

VNFileURL VN_URLByStandardizingPathAndFullyExpandSymlinks(const VNFileURL& url,
                                                          bool expandSymlinks) {
  if (url.empty()) return url;
  VNFileURL result = VNFileURL::fileURLWithPath(VNStandardizedPath(url.path()), url.hasDirectoryPath());
  if (expandSymlinks) result = expandExistingPart(std::move(result));
  result = withPrivatePrefix(result);
  if (url.hasDirectoryPath() && !result.hasDirectoryPath())
    result = VNFileURL::fileURLWithPath(result.path(), /*isDirectory=*/true);
  return result;
}

VNFileURL VN_URLByStandardizingPath(const VNFileURL& url) {
  return VN_URLByStandardizingPathAndFullyExpandSymlinks(url, /*expandSymlinks=*/false);
}

VNFileURL VN_URLByAppendingRelativePath(const VNFileURL& url, const VNFileURL& relative) {
  if (url.empty()) return url;
  std::string_view rest = relative.path();
  while (!rest.empty() && rest.front() == '/') rest.remove_prefix(1);
  std::string joined = url.path() == "/" ? "" : url.path();
  joined += "/";
  joined += rest;
  return VN_URLByStandardizingPath(VNFileURL::fileURLWithPath(joined, relative.hasDirectoryPath()));
}

std::optional<VNFileURL> pathMountPoint(const VNFileURL& url) {
  if (url.empty() || hasNul(url.path())) return std::nullopt;
  auto mountPoint = VNPlatformSlot<VNMountTable>::get()->mountPointOfPath(url.path());
  if (!mountPoint) return std::nullopt;
  return VNFileURL::fileURLWithPath(*mountPoint, /*isDirectory=*/true);
}

std::optional<VNValue::Data> VN_fileChecksum(const VNFileURL& url) {
  if (url.empty() || hasNul(url.path())) return std::nullopt;
  VNUniqueFd fd(::open(url.path().c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY));
  if (!fd) return std::nullopt;
  std::unique_ptr<EVP_MD_CTX, DigestDeleter> context(EVP_MD_CTX_new());
  if (!context || !EVP_DigestInit_ex(context.get(), EVP_sha256(), nullptr)) return std::nullopt;
  std::vector<unsigned char> buffer(kChecksumChunk, 0);
  for (;;) {
    ssize_t n = ::read(fd.get(), buffer.data(), buffer.size());
    if (n < 0 && (errno == EAGAIN || errno == EINTR)) continue;
    if (n <= 0) break;
    if (!EVP_DigestUpdate(context.get(), buffer.data(), static_cast<size_t>(n))) return std::nullopt;
  }
  VNValue::Data digest(EVP_MAX_MD_SIZE);
  unsigned int size = 0;
  if (!EVP_DigestFinal_ex(context.get(), digest.data(), &size)) return std::nullopt;
  digest.resize(size);
  return digest;
}

bool VN_pathRefersToFSRoot(const VNFileURL& url) { return VN_pathRefersToFSRoot(url.path()); }

}  // namespace VNUtilities
