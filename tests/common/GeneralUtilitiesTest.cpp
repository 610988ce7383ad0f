// The error trace and the main-queue question.
#include <gtest/gtest.h>

#include <thread>

#include "common/VNGeneralUtilities.h"
#include "foundation/VNQueue.h"

using namespace VNUtilities;

namespace {

VNError chain(std::vector<VNError> records) {
  for (size_t i = records.size() - 1; i > 0; --i)
    records[i - 1].setUnderlyingError(std::make_shared<const VNError>(records[i]));
  return records.front();
}

std::string traceOf(const VNError& error) {
  const auto& info = error.userInfo();
  auto found = info.find(VNMessageTracerErrorStringKey);
  return found == info.end() || !found->second.asString() ? "" : *found->second.asString();
}

TEST(ErrorTraceTest, FollowsTheChainToItsRoot) {
  const VNError lattice(VNLatticeErrorDomain, 3, {{VNLocalizedDescriptionKey, VNValue("No node")}});
  const VNError root = originalUnderlyingErrorForError(chain({VNError("A", 1), VNError("B", 2), lattice}));
  EXPECT_EQ(root.domain(), VNLatticeErrorDomain);
  EXPECT_EQ(root.code(), 3);
  EXPECT_EQ(traceOf(root), std::string("A:1-B:2-") + VNLatticeErrorDomain + ":3:No node");
  EXPECT_EQ(root.userInfo().size(), 1u) << "only the trace is carried over";

  EXPECT_EQ(traceOf(originalUnderlyingErrorForError(chain({VNError("A", 1), VNError("B", -1)}))), "A:1-B:-1");
  EXPECT_EQ(traceOf(originalUnderlyingErrorForError(VNError("Solo", 7, {{VNFilePathErrorKey, VNValue("/x")}}))),
            "Solo:7");
}

TEST(ErrorTraceTest, ARootThatCarriesATraceIsReturnedUnchanged) {
  const VNError traced("B", 2, {{VNMessageTracerErrorStringKey, VNValue("earlier")},
                                {VNFilePathErrorKey, VNValue("/p")}});
  const VNError root = originalUnderlyingErrorForError(chain({VNError("A", 1), traced}));
  EXPECT_EQ(traceOf(root), "earlier");
  EXPECT_EQ(root.filePath(), "/p");
}

TEST(MainQueueTest, TrueOnTheMainQueueAndWhatTargetsItOnly) {
  EXPECT_TRUE(isMainQueue());
  auto privateQueue = VNQueue::create("test.private");
  bool onPrivate = true, onTargeting = false;
  privateQueue->sync([&] { onPrivate = isMainQueue(); });
  VNQueue::create("test.targeting", VNQueue::main())->sync([&] { onTargeting = isMainQueue(); });
  EXPECT_FALSE(onPrivate);
  EXPECT_TRUE(onTargeting);
  bool onThread = true;
  std::thread([&] { onThread = isMainQueue(); }).join();
  EXPECT_FALSE(onThread);
}

}  // namespace
