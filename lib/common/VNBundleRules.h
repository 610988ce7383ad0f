#pragma once

#include <optional>
#include <set>
#include <string>

#include "foundation/VNExport.h"
#include "foundation/VNFileURL.h"

// Whether an item is a bundle, and whether a bundle is the platform's own
// code. Stateless; may be called from any thread at once.
namespace VNUtilities {

// The 22 file-name extensions that mark a bundle, compared exactly (case
// counts). Built once per process and shared. The last three name the
// plug-in kinds of our own tools: "ideplugin" (plug-ins of the developer
// environment), "tracepack" (instruments of the tracing and profiling tool)
// and "reportplugin" (collectors of the system-report tool).
VN_EXPORT const std::set<std::string>& commonBundleExtensions();

// Whether the item at `url` is a bundle: a package, an application, a
// directory with an extension that is "lproj", has an information dictionary
// naming a name or version, or holds "Resources/Info.plist", and otherwise
// anything (directory, file or missing item) whose extension is common.
VN_EXPORT bool pathIsBundle(const VNFileURL& url);

// Whether the bundle at `url` carries the platform's signature and an
// executable with at least one architecture; null, after logging why, when
// its signing information cannot be read. An unsigned bundle is never true.
VN_EXPORT std::optional<bool> VN_bundleIsPlatformBinary(const VNFileURL& url);

}  // namespace VNUtilities
