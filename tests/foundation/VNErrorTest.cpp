#include "foundation/VNFormat.h"
#include "support/VNTest.h"

TEST(VNError, PosixErrorsNameTheStepAndThePath) {
  VNError error = VNError::posix(ENOENT, "/data/Users/é x", "open");
  EXPECT_EQ(error.domain(), VNPOSIXErrorDomain);
  EXPECT_EQ(error.code(), ENOENT);
  EXPECT_TRUE(error.isPOSIX(ENOENT));
  EXPECT_FALSE(error.isPOSIX(EACCES));
  EXPECT_EQ(error.localizedDescription(), "cannot open '/data/Users/é x': No such file or directory");
  EXPECT_EQ(error.userInfo().at(VNFilePathErrorKey), VNValue("/data/Users/é x"));
  VNError noPath = VNError::posix(EACCES, {}, "spawn helper");
  EXPECT_EQ(noPath.localizedDescription(), "spawn helper: Permission denied");
  EXPECT_EQ(noPath.userInfo().count(VNFilePathErrorKey), 0u);
  EXPECT_EQ(VNError::posix(EACCES, "/x").localizedDescription(), "cannot access '/x': Permission denied");
  EXPECT_EQ(VNError::posix(EIO).localizedDescription(), "Input/output error");
}

// Without a text entry: strerror for POSIX codes it knows, else domain and code.
TEST(VNError, DescriptionWithoutEntryFallsBackToDomainAndCode) {
  const std::pair<VNError, const char*> cases[] = {
      {VNError("org.varnel.Test", 7), "The operation couldn't be completed. (org.varnel.Test error 7.)"},
      {VNError(VNPOSIXErrorDomain, ENOSPC), "No space left on device"},
      {VNError(VNPOSIXErrorDomain, -3), "The operation couldn't be completed. (VNPOSIXErrorDomain error -3.)"},
      {VNError("org.varnel.Test", 1, {{VNLocalizedDescriptionKey, VNValue("custom text")}}), "custom text"},
      {VNError("org.varnel.Test", 1, {{VNLocalizedDescriptionKey, VNValue(5)}}),
       "The operation couldn't be completed. (org.varnel.Test error 1.)"},
  };
  for (const auto& [error, text] : cases) EXPECT_EQ(error.localizedDescription(), text);
}

TEST(VNError, DescriptionShowsUserInfoAndTheUnderlyingError) {
  VNError outer("org.varnel.DataTemplate", 4);
  outer.setUserInfoValue(VNFilePathErrorKey, VNValue("/t"));
  outer.setUnderlyingError(std::make_shared<const VNError>(VNError::posix(EPERM, "/t/a", "clone")));
  std::string text = VNFormat("%@", outer);
  EXPECT_EQ(text.rfind("Error Domain=org.varnel.DataTemplate Code=4 \"", 0), 0u) << text;
  EXPECT_NE(text.find("VNFilePath = /t;"), std::string::npos) << text;
  EXPECT_NE(text.find(std::string(VNUnderlyingErrorKey) + " = \"Error Domain=VNPOSIXErrorDomain Code=1 "),
            std::string::npos)
      << text;
  EXPECT_NE(text.find("cannot clone '/t/a': Operation not permitted"), std::string::npos) << text;
  EXPECT_EQ(outer.userInfo().count(VNUnderlyingErrorKey), 0u) << "shown, not stored";
}

// Errors are made on many threads at once; the texts of unknown codes must
// not bleed into each other.
TEST(VNError, ConcurrentErrorsKeepTheirOwnTexts) {
  std::vector<std::thread> threads;
  std::atomic<int> wrong{0};
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([t, &wrong] {
      int code = 4000 + t;  // unknown to strerror, below the generic-text cut-off
      std::string expected = "Unknown error " + std::to_string(code);
      for (int i = 0; i < 2000; ++i) {
        if (VNError::posix(code, {}, "step").localizedDescription() != "step: " + expected)
          wrong.fetch_add(1);
        if (VNError(VNPOSIXErrorDomain, code).localizedDescription() != expected) wrong.fetch_add(1);
      }
    });
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(wrong.load(), 0);
}
