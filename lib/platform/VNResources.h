#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "foundation/VNExport.h"

// The environment variable that points the library at another resources
// folder (tests, unusual installs). When set, it is the only place looked in.
inline constexpr const char* VNResourcesDirectoryVariable = "VARNEL_RESOURCES_DIR";

// The resources folder: $VARNEL_RESOURCES_DIR when set; else
// "VarnelUtils/Resources" beside the loaded library (the installed layout);
// else the build tree's "resources" folder. Empty when none exists.
VN_EXPORT std::string VNResourcesDirectory();

// The path of `name` in `subfolder` of the resources folder, when such an
// item exists there.
VN_EXPORT std::optional<std::string> VNResourcePath(std::string_view name,
                                                    std::string_view subfolder);
