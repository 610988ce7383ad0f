// The error trace and the main-queue question.
#include "common/VNGeneralUtilities.h"
#include "foundation/VNQueue.h"
#include "support/VNTest.h"

using namespace VNUtilities;

namespace {

VNError chain(std::vector<VNError> records) {
  for (size_t i = records.size() - 1; i > 0; --i)
    records[i - 1].setUnderlyingError(std::make_shared<const VNError>(records[i]));
  return records.front();
}

std::string traceOf(const VNError& error) {
  auto found = error.userInfo().find(VNMessageTracerErrorStringKey);
  return found == error.userInfo().end() || !found->second.asString() ? "" : *found->second.asString();
}

// The root of the chain carries only the trace; a root that has one already
// comes back unchanged.
TEST(ErrorTraceTest, FollowsTheChainToItsRoot) {
  const VNError lattice(VNLatticeErrorDomain, 3, {{VNLocalizedDescriptionKey, VNValue("No node")}});
  const VNError root = originalUnderlyingErrorForError(chain({VNError("A", 1), VNError("B", 2), lattice}));
  EXPECT_EQ(root.domain(), VNLatticeErrorDomain);
  EXPECT_EQ(root.code(), 3);
  EXPECT_EQ(traceOf(root), std::string("A:1-B:2-") + VNLatticeErrorDomain + ":3:No node");
  EXPECT_EQ(root.userInfo().size(), 1u);
  EXPECT_EQ(traceOf(originalUnderlyingErrorForError(chain({VNError("A", 1), VNError("B", -1)}))), "A:1-B:-1");
  EXPECT_EQ(traceOf(originalUnderlyingErrorForError(VNError("Solo", 7, {{VNFilePathErrorKey, VNValue("/x")}}))),
            "Solo:7");

  const VNError traced("B", 2, {{VNMessageTracerErrorStringKey, VNValue("earlier")}, {VNFilePathErrorKey, VNValue("/p")}});
  const VNError kept = originalUnderlyingErrorForError(chain({VNError("A", 1), traced}));
  EXPECT_EQ(traceOf(kept), "earlier");
  EXPECT_EQ(kept.filePath(), "/p");
}

TEST(MainQueueTest, TrueOnTheMainQueueAndWhatTargetsItOnly) {
  EXPECT_TRUE(isMainQueue());
  bool onPrivate = true, onTargeting = false, onThread = true;
  VNQueue::create("test.private")->sync([&] { onPrivate = isMainQueue(); });
  VNQueue::create("test.targeting", VNQueue::main())->sync([&] { onTargeting = isMainQueue(); });
  std::thread([&] { onThread = isMainQueue(); }).join();
  EXPECT_FALSE(onPrivate);
  EXPECT_TRUE(onTargeting);
  EXPECT_FALSE(onThread);
}

}  // namespace
