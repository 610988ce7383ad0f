#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "foundation/VNFormat.h"
#include "foundation/VNProgress.h"

TEST(VNProgress, FractionFollowsUnitsAndStaysWithinZeroAndOne) {
  auto progress = VNProgress::create();
  EXPECT_EQ(progress->fractionCompleted(), 0.0);
  EXPECT_FALSE(progress->isFinished()) << "a total of 0 is never finished";
  progress->setCompletedUnitCount(5);
  EXPECT_EQ(progress->fractionCompleted(), 0.0) << "no total, no fraction";
  EXPECT_FALSE(progress->isFinished());

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

// The task runner's case: a child of 10 one-second units standing for 5 of
// the parent's units moves the parent 5 units on when it is completed.
TEST(VNProgress, FinishedChildAddsItsWholePendingCountToTheParent) {
  auto parent = VNProgress::create(100);
  auto child = VNProgress::create(10);
  ASSERT_TRUE(parent->addChild(child, 5));

  child->setCompletedUnitCount(4);
  EXPECT_EQ(parent->completedUnitCount(), 0) << "a running child only counts in the fraction";
  EXPECT_DOUBLE_EQ(parent->fractionCompleted(), 0.4 * 5 / 100);

  child->setCompletedUnitCount(child->totalUnitCount());
  EXPECT_EQ(parent->completedUnitCount(), 5);
  EXPECT_DOUBLE_EQ(parent->fractionCompleted(), 0.05);

  // Detached once folded in: it neither counts twice nor pulls the parent back.
  child->setCompletedUnitCount(2);
  child->setCompletedUnitCount(10);
  EXPECT_EQ(parent->completedUnitCount(), 5);
  EXPECT_DOUBLE_EQ(parent->fractionCompleted(), 0.05);
  EXPECT_EQ(parent->description().find("child for"), std::string::npos);
}

TEST(VNProgress, LoweringTheTotalBelowTheCompletedCountFinishesAChild) {
  auto parent = VNProgress::create(10);
  auto child = VNProgress::create(100);
  ASSERT_TRUE(parent->addChild(child, 3));
  child->setCompletedUnitCount(50);
  child->setTotalUnitCount(50);
  EXPECT_EQ(parent->completedUnitCount(), 3);
}

TEST(VNProgress, ChildWithoutTotalNeverFinishesAndCountsNothing) {
  auto parent = VNProgress::create(4);
  auto child = VNProgress::create(0);
  ASSERT_TRUE(parent->addChild(child, 2));
  child->setCompletedUnitCount(7);
  EXPECT_EQ(parent->completedUnitCount(), 0);
  EXPECT_EQ(parent->fractionCompleted(), 0.0);
}

TEST(VNProgress, ChildFinishedBeforeItIsAddedIsFoldedInAtOnce) {
  auto parent = VNProgress::create(10);
  auto child = VNProgress::create(2);
  child->setCompletedUnitCount(2);
  ASSERT_TRUE(parent->addChild(child, 10));
  EXPECT_EQ(parent->completedUnitCount(), 10);
  EXPECT_TRUE(parent->isFinished());
  EXPECT_FALSE(parent->addChild(child, 10)) << "adding it again would count it twice";
  EXPECT_EQ(parent->completedUnitCount(), 10);
}

TEST(VNProgress, RefusesChildrenThatWouldBreakTheTree) {
  auto root = VNProgress::create(10);
  auto middle = VNProgress::create(10);
  auto leaf = VNProgress::create(10);
  auto other = VNProgress::create(10);
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

TEST(VNProgress, FinishingCascadesThroughGrandparents) {
  auto root = VNProgress::create(2);
  auto middle = VNProgress::create(1);
  auto leaf = VNProgress::create(1);
  ASSERT_TRUE(root->addChild(middle, 2));
  ASSERT_TRUE(middle->addChild(leaf, 1));
  EXPECT_EQ(root->fractionCompleted(), 0.0);
  leaf->setCompletedUnitCount(1);
  EXPECT_TRUE(middle->isFinished());
  EXPECT_TRUE(root->isFinished());
  EXPECT_EQ(root->completedUnitCount(), 2);
}

TEST(VNProgress, ChildOutlivingItsParentCanStillBeUpdated) {
  auto child = VNProgress::create(3);
  {
    auto parent = VNProgress::create(3);
    ASSERT_TRUE(parent->addChild(child, 3));
  }
  child->setCompletedUnitCount(3);
  EXPECT_TRUE(child->isFinished());
}

TEST(VNProgress, ParentHoldsARunningChildTheCallerLetGoOf) {
  auto parent = VNProgress::create(4);
  std::weak_ptr<VNProgress> weakChild;
  {
    auto child = VNProgress::create(2);
    weakChild = child;
    ASSERT_TRUE(parent->addChild(child, 4));
    child->setCompletedUnitCount(1);
  }
  EXPECT_DOUBLE_EQ(parent->fractionCompleted(), 0.5);
  // Finishing through the parent's reference releases the last one.
  weakChild.lock()->setCompletedUnitCount(2);
  EXPECT_TRUE(weakChild.expired());
  EXPECT_TRUE(parent->isFinished());
}

TEST(VNProgress, DescriptionsReadAsPercentAndListRunningChildren) {
  auto parent = VNProgress::create(100);
  parent->setCompletedUnitCount(29);
  EXPECT_EQ(parent->localizedDescription(), "29% completed");
  parent->setCompletedUnitCount(57);
  EXPECT_EQ(parent->localizedDescription(), "57% completed");
  parent->setTotalUnitCount(1000);
  parent->setCompletedUnitCount(999);
  EXPECT_EQ(parent->localizedDescription(), "99% completed") << "not finished yet";
  parent->setCompletedUnitCount(1000);
  EXPECT_EQ(parent->localizedDescription(), "100% completed");

  parent->setCompletedUnitCount(0);
  auto child = VNProgress::create(10);
  auto grandchild = VNProgress::create(4);
  ASSERT_TRUE(parent->addChild(child, 500));
  ASSERT_TRUE(child->addChild(grandchild, 2));
  grandchild->setCompletedUnitCount(1);
  std::string text = VNFormat("tree: %@", *parent);
  EXPECT_NE(text.find("completed 0 of 1000 units, fraction 0.0250"), std::string::npos) << text;
  EXPECT_NE(text.find("\n    child for 500 units: <VNProgress "), std::string::npos) << text;
  EXPECT_NE(text.find("\n        child for 2 units: <VNProgress "), std::string::npos) << text;
  EXPECT_NE(text.find("completed 1 of 4 units, fraction 0.2500"), std::string::npos) << text;
}

// Many threads advance one shared child; it must be folded in exactly once.
TEST(VNProgress, ConcurrentIncrementsOfOneChildFoldItInOnce) {
  for (int round = 0; round < 20; ++round) {
    auto parent = VNProgress::create(10);
    auto child = VNProgress::create(400);
    ASSERT_TRUE(parent->addChild(child, 10));
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
      threads.emplace_back([&] {
        for (int i = 0; i < 110; ++i) child->incrementCompletedUnitCount(1);
      });
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(child->completedUnitCount(), 440);
    EXPECT_EQ(parent->completedUnitCount(), 10);
    EXPECT_TRUE(parent->isFinished());
  }
}

// Children advance on their own threads while a reader watches the parent:
// the parent's fraction never goes back and never leaves [0, 1].
TEST(VNProgress, ParentFractionRisesMonotonicallyUnderConcurrentChildren) {
  constexpr int kChildren = 6;
  constexpr int kUnits = 300;
  auto parent = VNProgress::create(kChildren * 7);
  std::vector<std::shared_ptr<VNProgress>> children;
  for (int i = 0; i < kChildren; ++i) {
    children.push_back(VNProgress::create(kUnits));
    ASSERT_TRUE(parent->addChild(children.back(), 7));
  }
  std::atomic<bool> done{false};
  std::atomic<int> violations{0};
  std::thread reader([&] {
    double last = 0;
    while (!done.load()) {
      double now = parent->fractionCompleted();
      if (now < last || now > 1.0) violations.fetch_add(1);
      last = now;
      (void)parent->description();
      (void)parent->localizedDescription();
    }
  });
  std::vector<std::thread> writers;
  for (auto& child : children)
    writers.emplace_back([child] {
      for (int i = 0; i < kUnits; ++i) child->setCompletedUnitCount(i + 1);
    });
  for (auto& writer : writers) writer.join();
  done = true;
  reader.join();
  EXPECT_EQ(violations.load(), 0);
  EXPECT_EQ(parent->completedUnitCount(), kChildren * 7);
  EXPECT_EQ(parent->fractionCompleted(), 1.0);
}

// Adding a child races with the child finishing: either order must count its
// pending units exactly once.
TEST(VNProgress, AddingAChildWhileItFinishesCountsItOnce) {
  for (int round = 0; round < 200; ++round) {
    auto parent = VNProgress::create(100);
    auto child = VNProgress::create(1);
    std::thread finisher([&] { child->setCompletedUnitCount(1); });
    std::thread adder([&] { EXPECT_TRUE(parent->addChild(child, 3)); });
    finisher.join();
    adder.join();
    ASSERT_EQ(parent->completedUnitCount(), 3) << "round " << round;
  }
}

// Several parents compete for one child; only one of them gets it.
TEST(VNProgress, OnlyOneOfConcurrentParentsAdoptsAChild) {
  for (int round = 0; round < 100; ++round) {
    auto child = VNProgress::create(5);
    std::vector<std::shared_ptr<VNProgress>> parents;
    for (int i = 0; i < 3; ++i) parents.push_back(VNProgress::create(5));
    std::atomic<int> adopted{0};
    std::vector<std::thread> threads;
    for (auto& parent : parents)
      threads.emplace_back([&, parent] {
        if (parent->addChild(child, 5)) adopted.fetch_add(1);
      });
    for (auto& thread : threads) thread.join();
    ASSERT_EQ(adopted.load(), 1);
    child->setCompletedUnitCount(5);
    int finished = 0;
    for (auto& parent : parents) finished += parent->isFinished();
    ASSERT_EQ(finished, 1);
  }
}

// Two progresses added to each other from two threads: exactly one call
// wins, so no cycle forms (it would hang the fraction and leak both).
TEST(VNProgress, CrossedAddChildCallsBuildNoCycle) {
  for (int round = 0; round < 100; ++round) {
    auto a = VNProgress::create(1);
    auto b = VNProgress::create(1);
    std::atomic<int> added{0};
    std::thread first([&] { added.fetch_add(a->addChild(b, 1)); });
    std::thread second([&] { added.fetch_add(b->addChild(a, 1)); });
    first.join();
    second.join();
    ASSERT_EQ(added.load(), 1);
    EXPECT_EQ(a->fractionCompleted(), 0.0);
  }
}
