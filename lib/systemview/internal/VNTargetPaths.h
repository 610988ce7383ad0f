#pragma once

#include <optional>

#include "foundation/VNFileURL.h"

// Places a path of a target system below the folder where that system lies
// now. ".." is taken lexically, as inside a changed root: at the target's "/"
// it stays at "/", so no target path maps above `base`. Symbolic links on the
// target are not resolved. A folder URL maps to a folder URL. Null for an
// empty target path.
std::optional<VNFileURL> VNTargetPathBelow(const VNFileURL& base, const VNFileURL& targetPath);
