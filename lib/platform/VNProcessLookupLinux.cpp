#include <dirent.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <memory>

#include "platform/VNProcessLookup.h"
#include "platform/internal/VNProcFields.h"

namespace {

struct DirCloser {
  void operator()(DIR* dir) const { ::closedir(dir); }
};

std::string readSmallFile(const std::string& path) {
  std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "re"), std::fclose);
  if (!file) return {};
  char buffer[256];
  const size_t count = std::fread(buffer, 1, sizeof buffer, file.get());
  return std::string(buffer, count);
}

std::string linkTarget(const std::string& path) {
  char buffer[4096];
  const ssize_t count = ::readlink(path.c_str(), buffer, sizeof buffer);
  return count > 0 ? std::string(buffer, static_cast<size_t>(count)) : std::string();
}

class ProcLookup final : public VNProcessLookup {
 public:
  explicit ProcLookup(std::string root) : root_(std::move(root)) {}

  pid_t processIdentifierForName(std::string_view name) override {
    const auto all = processIdentifiersForName(name);
    return all.empty() ? 0 : all.front();
  }

  std::vector<pid_t> processIdentifiersForName(std::string_view name) override {
    std::vector<pid_t> found;
    if (name.empty() || name.find('/') != std::string_view::npos) return found;
    std::unique_ptr<DIR, DirCloser> dir(::opendir(root_.c_str()));
    if (!dir) return found;
    const pid_t self = ::getpid();
    while (const dirent* entry = ::readdir(dir.get())) {
      const pid_t pid = VNParseProcessIdentifier(entry->d_name);
      if (pid > 0 && pid != self && matches(pid, name)) found.push_back(pid);
    }
    std::sort(found.begin(), found.end());
    return found;
  }

 private:
  bool matches(pid_t pid, std::string_view name) const {
    const std::string base = root_ + "/" + std::to_string(pid);
    if (VNParseCommandName(readSmallFile(base + "/comm")) == name) return true;
    return VNExecutableBaseName(linkTarget(base + "/exe")) == name;
  }

  const std::string root_;
};

}  // namespace

std::shared_ptr<VNProcessLookup> VNMakeProcessLookup(std::string procRoot) {
  return std::make_shared<ProcLookup>(std::move(procRoot));
}

std::shared_ptr<VNProcessLookup> VNProcessLookup::makeDefault() {
  return VNMakeProcessLookup("/proc");
}
