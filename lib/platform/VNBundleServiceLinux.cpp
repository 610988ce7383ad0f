// Bundle layouts and ELF executables.
#include <elf.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstring>

#include "foundation/VNUniqueFd.h"
#include "foundation/internal/VNPlistDocument.h"
#include "platform/internal/VNReadBeneath.h"
#include "platform/VNBundleService.h"

extern "C" {
const char* const VNBundleExecutableKey = "QFBundleExecutable";
}

namespace {

struct Layout {
  const char* infoPath;
  const char* executableFolder;
};

constexpr Layout kLayouts[] = {
    {"Contents/Info.plist", "Contents/bin/"},
    {"Resources/Info.plist", ""},
    {"Info.plist", ""},
};

bool isDirectory(const std::string& path) {
  struct stat item {};
  return ::stat(path.c_str(), &item) == 0 && S_ISDIR(item.st_mode);
}

std::optional<std::string> architectureOf(std::uint16_t machine) {
  switch (machine) {
    case EM_X86_64: return "x86_64";
    case EM_386: return "i386";
    case EM_AARCH64: return "arm64";
    case EM_ARM: return "arm";
    case EM_RISCV: return "riscv";
    case EM_PPC64: return "ppc64";
    case EM_S390: return "s390x";
    case EM_LOONGARCH: return "loongarch";
    default: return std::nullopt;
  }
}

// The architecture in the ELF header of the regular file at `path`.
std::vector<std::string> elfArchitectures(const std::string& path) {
  VNUniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
  struct stat item {};
  if (!fd || ::fstat(fd.get(), &item) != 0 || !S_ISREG(item.st_mode)) return {};
  Elf64_Ehdr header{};  // e_machine lies at the same offset in 32-bit headers
  if (::pread(fd.get(), &header, sizeof header, 0) < static_cast<ssize_t>(EI_NIDENT + 4) ||
      std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0)
    return {};
  std::uint16_t machine = header.e_machine;
  if (header.e_ident[EI_DATA] == ELFDATA2MSB) machine = static_cast<std::uint16_t>(machine >> 8 | machine << 8);
  auto name = architectureOf(machine);
  if (!name) return {};
  return {*name};
}

// Only the entries a caller asks for become VNValues: converting whole
// dictionaries cost as much as parsing them.
std::shared_ptr<const VNPlistDocument> readInfoBeneath(int folderFd) {
  for (const Layout& layout : kLayouts) {
    auto bytes = VNReadFileBeneath(folderFd, layout.infoPath, VNBundleService::kMaxInfoBytes);
    if (!bytes) continue;
    auto info = VNPlistDocument::parseDictionary({reinterpret_cast<const std::uint8_t*>(bytes->data()), bytes->size()});
    if (info) return std::make_shared<const VNPlistDocument>(std::move(*info));
  }
  return nullptr;
}

class LinuxBundleService final : public VNBundleService {
 public:
  std::optional<VNOpenedBundle> openBundle(const VNFileURL& url) override {
    if (url.empty() || url.path().find('\0') != std::string::npos) return std::nullopt;
    VNOpenedBundle bundle{VNUniqueFd(::open(url.path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)), {}};
    if (!bundle.folder) return std::nullopt;
    bundle.info = readInfoBeneath(bundle.folder.get());
    return bundle;
  }

  std::optional<VNValue> infoDictionary(const VNFileURL& url) override {
    for (const Layout& layout : kLayouts) {
      auto info = readInfo(url, layout);
      if (info) return info;
    }
    return std::nullopt;
  }

  std::vector<std::string> executableArchitectures(const VNFileURL& url) override {
    if (url.empty() || url.path().find('\0') != std::string::npos) return {};
    if (!isDirectory(url.path())) return elfArchitectures(url.path());
    for (const Layout& layout : kLayouts) {
      auto info = readInfo(url, layout);
      const std::string* name = info ? info->findString(VNBundleExecutableKey) : nullptr;
      if (!name) continue;
      if (name->empty() || name->find('/') != std::string::npos || *name == "..") return {};
      return elfArchitectures(url.path() + "/" + layout.executableFolder + *name);
    }
    return {};
  }

 private:
  static std::optional<VNValue> readInfo(const VNFileURL& url, const Layout& layout) {
    if (url.empty() || url.path().find('\0') != std::string::npos) return std::nullopt;
    auto info = VNValue::fromPropertyListFile(url.path() + "/" + layout.infoPath);
    if (!info || !info->asDictionary()) return std::nullopt;
    return info;
  }
};

}  // namespace

std::optional<VNValue> VNOpenedBundle::infoValue(const char* key) const {
  return info ? info->find(key) : std::nullopt;
}

bool VNOpenedBundle::hasItem(const char* relativePath) const {
  struct stat item {};
  return folder && ::fstatat(folder.get(), relativePath, &item, 0) == 0;
}

std::shared_ptr<VNBundleService> VNBundleService::makeDefault() { return std::make_shared<LinuxBundleService>(); }
