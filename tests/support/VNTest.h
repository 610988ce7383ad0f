#pragma once

// What most tests need: GoogleTest and GoogleMock, the POSIX calls that make
// fixtures, the standard containers and threads, and the support helpers.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "foundation/VNError.h"
#include "platform/VNPlatformService.h"
#include "support/VNFsMatchers.h"
#include "support/VNLogCapture.h"
#include "support/VNLoopImage.h"
#include "support/VNTestDir.h"
