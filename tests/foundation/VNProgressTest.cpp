#include "foundation/VNFormat.h"
#include "foundation/VNProgress.h"
#include "support/VNTest.h"

namespace {

using Progress = std::shared_ptr<VNProgress>;

TEST(VNProgress, FractionFollowsUnitsAndStaysWithinZeroAndOne) {
  auto progress = VNProgress::create();
  progress->setCompletedUnitCount(5);
  EXPECT_EQ(progress->fractionCompleted(), 0.0) << "no total, no fraction";
  EXPECT_FALSE(progress->isFinished()) << "a total of 0 is never finished";
  progress->setTotalUnitCount(10);
  EXPECT_DOUBLE_EQ(progress->fractionCompleted(), 0.5);
  progress->incrementCompletedUnitCount(7);
  EXPECT_EQ(progress->completedUnitCount(), 12);
  EXPECT_EQ(progress->fractionCompleted(), 1.0);
  EXPECT_TRUE(progress->isFinished());
  progress->setCompletedUnitCount(-3);
  EXPECT_EQ(progress->fractionCompleted(), 0.0);
  EXPECT_FALSE(progress->isFinished());
  progress->setTotalUnitCount(-1);
  EXPECT_EQ(progress->fractionCompleted(), 0.0);
}

// The task runner's case: a child of 10 units standing for 5 of the
// parent's counts in the fraction while it runs and adds all 5 once it is
// finished; then it is detached and counts no more.
TEST(VNProgress, FinishedChildAddsItsWholePendingCountToTheParent) {
  auto parent = VNProgress::create(100), child = VNProgress::create(10);
  ASSERT_TRUE(parent->addChild(child, 5));
  child->setCompletedUnitCount(4);
  EXPECT_EQ(parent->completedUnitCount(), 0);
  EXPECT_DOUBLE_EQ(parent->fractionCompleted(), 0.4 * 5 / 100);
  child->setCompletedUnitCount(10);
  child->setCompletedUnitCount(2);
  child->setCompletedUnitCount(10);
  EXPECT_EQ(parent->completedUnitCount(), 5);
  EXPECT_DOUBLE_EQ(parent->fractionCompleted(), 0.05);
  EXPECT_EQ(parent->description().find("child for"), std::string::npos);
}

// A child finishes when its total drops below its count, never without a
// total, and at once when added finished (and only once).
TEST(VNProgress, WhenAChildCountsAsFinished) {
  auto parent = VNProgress::create(100);
  auto lowered = VNProgress::create(100), untotalled = VNProgress::create(0), done = VNProgress::create(2);
  ASSERT_TRUE(parent->addChild(lowered, 3));
  ASSERT_TRUE(parent->addChild(untotalled, 20));
  lowered->setCompletedUnitCount(50);
  lowered->setTotalUnitCount(50);
  untotalled->setCompletedUnitCount(7);
  EXPECT_EQ(parent->completedUnitCount(), 3);
  done->setCompletedUnitCount(2);
  ASSERT_TRUE(parent->addChild(done, 10));
  EXPECT_FALSE(parent->addChild(done, 10)) << "adding it again would count it twice";
  EXPECT_EQ(parent->completedUnitCount(), 13);
  EXPECT_DOUBLE_EQ(parent->fractionCompleted(), 0.13) << "a child without a total adds nothing";
}

TEST(VNProgress, RefusesChildrenThatWouldBreakTheTree) {
  auto root = VNProgress::create(10), middle = VNProgress::create(10), leaf = VNProgress::create(10),
       other = VNProgress::create(10);
  EXPECT_FALSE(root->addChild(nullptr, 1));
  EXPECT_FALSE(root->addChild(root, 1));
  EXPECT_FALSE(root->addChild(middle, -1));
  ASSERT_TRUE(root->addChild(middle, 5));
  ASSERT_TRUE(middle->addChild(leaf, 5));
  EXPECT_FALSE(leaf->addChild(root, 1)) << "a cycle";
  EXPECT_FALSE(leaf->addChild(middle, 1)) << "a cycle";
  EXPECT_FALSE(other->addChild(leaf, 1)) << "a second parent";
  EXPECT_FALSE(root->addChild(leaf, 1)) << "a second parent";
  leaf->setCompletedUnitCount(10);
  EXPECT_EQ(middle->completedUnitCount(), 5);
  EXPECT_EQ(root->completedUnitCount(), 0);
  EXPECT_EQ(other->completedUnitCount(), 0);
}

// Finishing cascades through grandparents; a parent holds a running child
// the caller let go of until it finishes, and a child outliving its parent
// can still be updated.
TEST(VNProgress, FinishingCascadesAndLifetimes) {
  auto root = VNProgress::create(2), middle = VNProgress::create(1);
  std::weak_ptr<VNProgress> weakLeaf;
  ASSERT_TRUE(root->addChild(middle, 2));
  {
    auto leaf = VNProgress::create(2);
    weakLeaf = leaf;
    ASSERT_TRUE(middle->addChild(leaf, 1));
    leaf->setCompletedUnitCount(1);
  }
  EXPECT_DOUBLE_EQ(root->fractionCompleted(), 0.5);
  weakLeaf.lock()->setCompletedUnitCount(2);
  EXPECT_TRUE(weakLeaf.expired()) << "finishing released the parent's reference";
  EXPECT_TRUE(middle->isFinished());
  EXPECT_EQ(root->completedUnitCount(), 2);
  auto orphan = VNProgress::create(3);
  ASSERT_TRUE(VNProgress::create(3)->addChild(orphan, 3));
  orphan->setCompletedUnitCount(3);
  EXPECT_TRUE(orphan->isFinished());
}

TEST(VNProgress, DescriptionsReadAsPercentAndListRunningChildren) {
  auto parent = VNProgress::create(1000);
  for (auto [completed, text] : {std::pair{290, "29%"}, {999, "99%"}, {1000, "100%"}}) {
    parent->setCompletedUnitCount(completed);
    EXPECT_EQ(parent->localizedDescription(), std::string(text) + " completed");
  }
  parent->setCompletedUnitCount(0);
  auto child = VNProgress::create(10), grandchild = VNProgress::create(4);
  ASSERT_TRUE(parent->addChild(child, 500));
  ASSERT_TRUE(child->addChild(grandchild, 2));
  grandchild->setCompletedUnitCount(1);
  std::string text = VNFormat("tree: %@", *parent);
  for (const char* part : {"completed 0 of 1000 units, fraction 0.0250", "\n    child for 500 units: <VNProgress ",
                           "\n        child for 2 units: <VNProgress ", "completed 1 of 4 units, fraction 0.2500"})
    EXPECT_NE(text.find(part), std::string::npos) << text;
}

template <typename Body>
void inThreads(int count, Body body) {
  std::vector<std::thread> threads;
  for (int t = 0; t < count; ++t) threads.emplace_back(body, t);
  for (auto& thread : threads) thread.join();
}

// Children advance on their own threads (one of them from four) while a
// reader watches the parent: each child is folded in once, and the
// parent's fraction never goes back nor leaves [0, 1].
TEST(VNProgress, ConcurrentChildrenAreFoldedInOnceAndTheFractionOnlyRises) {
  constexpr int kChildren = 6, kUnits = 300;
  auto parent = VNProgress::create(kChildren * 7);
  std::vector<Progress> children;
  for (int i = 0; i < kChildren; ++i) {
    children.push_back(VNProgress::create(kUnits));
    ASSERT_TRUE(parent->addChild(children.back(), 7));
  }
  std::atomic<bool> done{false};
  std::atomic<int> violations{0};
  std::thread reader([&] {
    for (double last = 0; !done.load();) {
      double now = parent->fractionCompleted();
      violations += now < last || now > 1.0;
      last = now;
      (void)parent->description();
    }
  });
  inThreads(kChildren + 3, [&](int t) {
    for (int i = 0; i < kUnits; ++i)
      t + 1 < kChildren ? children[t + 1]->setCompletedUnitCount(i + 1) : children[0]->incrementCompletedUnitCount(1);
  });
  done = true;
  reader.join();
  EXPECT_EQ(violations.load(), 0);
  EXPECT_EQ(children[0]->completedUnitCount(), 4 * kUnits);
  EXPECT_EQ(parent->completedUnitCount(), kChildren * 7);
  EXPECT_EQ(parent->fractionCompleted(), 1.0);
}

// Adding races with finishing, parents race for one child, and two
// progresses are added to each other at once: each child counts exactly
// once, has one parent, and no cycle forms.
TEST(VNProgress, RacingAddChildCallsKeepTheTreeSound) {
  for (int round = 0; round < 100; ++round) {
    auto parent = VNProgress::create(100), child = VNProgress::create(1);
    std::thread finisher([&] { child->setCompletedUnitCount(1); });
    EXPECT_TRUE(parent->addChild(child, 3));
    finisher.join();
    ASSERT_EQ(parent->completedUnitCount(), 3) << "round " << round;

    auto contested = VNProgress::create(5);
    std::vector<Progress> parents = {VNProgress::create(5), VNProgress::create(5), VNProgress::create(5)};
    std::atomic<int> adopted{0}, crossed{0};
    inThreads(3, [&](int t) { adopted += parents[t]->addChild(contested, 5); });
    ASSERT_EQ(adopted.load(), 1);
    contested->setCompletedUnitCount(5);
    ASSERT_EQ(parents[0]->isFinished() + parents[1]->isFinished() + parents[2]->isFinished(), 1);

    auto a = VNProgress::create(1), b = VNProgress::create(1);
    inThreads(2, [&](int t) { crossed += t ? a->addChild(b, 1) : b->addChild(a, 1); });
    ASSERT_EQ(crossed.load(), 1);
    EXPECT_EQ(a->fractionCompleted(), 0.0);
  }
}

}  // namespace
