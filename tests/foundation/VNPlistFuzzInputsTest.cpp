#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "foundation/VNError.h"
#include "foundation/VNFileIO.h"
#include "foundation/VNValue.h"
#include "support/VNPlistRoundTrip.h"

// Replays the fuzz target's check on its seed corpus and on every input
// that once broke the reader (tests/data/plist-regressions): each is either
// refused with EINVAL or read as a value that survives both formats.
TEST(VNPlistFuzzInputs, SeedsAndFormerCrashesReadCleanly) {
  namespace fs = std::filesystem;
  const fs::path folders[] = {fs::path(VARNEL_SOURCE_DIR) / "fuzz/corpus/plist",
                              fs::path(VARNEL_SOURCE_DIR) / "tests/data/plist-regressions"};
  size_t seeds = 0;
  for (const auto& folder : folders) {
    ASSERT_TRUE(fs::is_directory(folder)) << folder;
    for (const auto& entry : fs::directory_iterator(folder)) {
      SCOPED_TRACE(entry.path().string());
      VNError error;
      auto value = VNValue::fromPropertyListFile(entry.path(), &error);
      if (!value) {
        EXPECT_TRUE(error.isPOSIX(EINVAL)) << error.description();
        continue;
      }
      EXPECT_EQ(VNPlistRoundTripProblem(*value), "");
      seeds += folder == folders[0];
    }
  }
  EXPECT_GE(seeds, 8u) << "every seed is a property list";
}
