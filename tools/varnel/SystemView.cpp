// What the "system" subcommands share: the group, opening a view, target paths.
#include "SystemView.h"

#include <sys/stat.h>

#include <cerrno>

#include "Command.h"
#include "foundation/VNError.h"

namespace varnel {

CLI::App* systemCommand(CLI::App& app) {
  return commandGroup(app, "system", "Inspect a target system, whatever its volume layout");
}

std::unique_ptr<VNSystem_FileManager_DiskBased> openSystemView(const std::string& root) {
  struct stat status;
  int error = ::stat(root.c_str(), &status) != 0 ? errno : (S_ISDIR(status.st_mode) ? 0 : ENOTDIR);
  if (error != 0) {
    printError(VNError::posix(error, root, "open system root"));
    return nullptr;
  }
  auto view = VNSystem_FileManager_DiskBased::appropriateDiskFileMangerForSystemRoot(
      VNFileURL::fileURLWithPath(root, /*isDirectory=*/true));
  if (!view || !view->activate()) {
    printError(VNError::posix(ENODEV, root, "place the system's volumes"));
    return nullptr;
  }
  return view;
}

std::optional<VNFileURL> targetPathArgument(const std::string& text) {
  if (text.empty() || text.front() != '/') {
    usageError("a target path must begin with \"/\": " + quotedName(text));
    return std::nullopt;
  }
  return VNFileURL::fileURLWithPath(text);
}

}  // namespace varnel
