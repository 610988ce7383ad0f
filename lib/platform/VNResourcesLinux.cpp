#include <dlfcn.h>
#include <sys/stat.h>

#include <cstdlib>

#include "platform/VNResources.h"

namespace {

bool isDirectory(const std::string& path) {
  struct stat status;
  return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

// "VarnelUtils/Resources" in the folder of the object this code was loaded
// from: the shared library once installed, or a program linked statically.
std::string besideLoadedLibrary() {
  Dl_info info{};
  if (::dladdr(reinterpret_cast<void*>(&VNResourcesDirectory), &info) == 0 || !info.dli_fname)
    return {};
  std::string path = info.dli_fname;
  const size_t slash = path.rfind('/');
  if (slash == std::string::npos) return {};
  return path.substr(0, slash) + "/VarnelUtils/Resources";
}

}  // namespace

std::string VNResourcesDirectory() {
  if (const char* override = std::getenv(VNResourcesDirectoryVariable))
    return isDirectory(override) ? override : std::string();
  if (std::string installed = besideLoadedLibrary(); isDirectory(installed)) return installed;
#ifdef VARNEL_BUILD_RESOURCES_DIR
  if (isDirectory(VARNEL_BUILD_RESOURCES_DIR)) return VARNEL_BUILD_RESOURCES_DIR;
#endif
  return {};
}

std::optional<std::string> VNResourcePath(std::string_view name, std::string_view subfolder) {
  const std::string folder = VNResourcesDirectory();
  if (folder.empty() || name.empty() || name.find('/') != std::string_view::npos) return {};
  std::string path = folder;
  if (!subfolder.empty()) path.append("/").append(subfolder);
  path.append("/").append(name);
  struct stat status;
  if (::stat(path.c_str(), &status) != 0) return {};
  return path;
}
