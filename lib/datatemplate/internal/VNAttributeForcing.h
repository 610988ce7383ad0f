#pragma once

#include <string>

#include "foundation/VNError.h"
#include "platform/VNFsStatus.h"

// Forces owner, group, permission bits, times and the flags word of every
// item below the template folder `source` onto the item of the same relative
// path below the folder `destination`, which is opened without following a
// link and named `destinationPath` in messages. Items below it are reached
// through held folders only, never through a symbolic link. Missing
// destination items are logged and skipped.
[[nodiscard]] bool VNForceAttributesBelow(const std::string& source, VNAtPath destination, const std::string& destinationPath,
                            VNError* error);
