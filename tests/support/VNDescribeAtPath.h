#pragma once

#include <string>

#include "platform/VNFsStatus.h"

// The whole path of the item `item` names, its folder descriptor (or the
// item's own, for an empty path) read back through /proc, for fakes that
// pick the items they act on by path.
std::string VNDescribeAtPath(VNAtPath item);
