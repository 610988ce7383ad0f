#pragma once

#include <memory>
#include <optional>
#include <string>

#include <CLI/CLI.hpp>

#include "foundation/VNFileURL.h"
#include "systemview/VNSystem_FileManager_DiskBased.h"

namespace varnel {

// The "system" subcommand group.
CLI::App* systemCommand(CLI::App& app);
// The view of the system at `root`, a folder on this host; prints why and
// gives null when there is none.
std::unique_ptr<VNSystem_FileManager_DiskBased> openSystemView(const std::string& root);
// A path as seen from inside the target system: it must begin with "/".
// Prints a usage complaint and gives null otherwise.
std::optional<VNFileURL> targetPathArgument(const std::string& text);

}  // namespace varnel
