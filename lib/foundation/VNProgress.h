#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "foundation/VNExport.h"

// Progress of one piece of work as completed units out of total units, with
// children that each account for a share of the parent's units.
//
// A child is added with a pending unit count: the parent units its
// completion stands for. While it runs, the child's fraction times its
// pending count counts toward the parent's fraction. When the child finishes
// (total above 0 and completed reaching total) it is folded in: its whole
// pending count is added to the parent's completed count and it is detached,
// so later changes to it no longer reach the parent.
//
// Every member may be called from any thread. A read-modify-write sequence of
// several calls is not atomic as a whole; callers that need one serialise on
// a queue of their own.
class VN_EXPORT VNProgress : public std::enable_shared_from_this<VNProgress> {
 public:
  // A progress without a parent.
  static std::shared_ptr<VNProgress> create(std::int64_t totalUnitCount = 0);

  VNProgress(const VNProgress&) = delete;
  VNProgress& operator=(const VNProgress&) = delete;

  std::int64_t totalUnitCount() const;
  void setTotalUnitCount(std::int64_t units);
  std::int64_t completedUnitCount() const;
  void setCompletedUnitCount(std::int64_t units);
  // Adds `units` (which may be negative) to the completed count in one step.
  void incrementCompletedUnitCount(std::int64_t units);

  // Makes `child` account for `pendingUnitCount` of this progress's units.
  // A child that is already finished is folded in at once. Refuses (false,
  // nothing changed) a null child, a child that was added to a parent before
  // (even one it has since finished in), this progress itself or one of its
  // ancestors, and a negative pending count.
  bool addChild(const std::shared_ptr<VNProgress>& child, std::int64_t pendingUnitCount);

  // (completed + sum of running children's fraction x pending) / total,
  // clamped to [0, 1]; 0 while the total is 0 or less.
  double fractionCompleted() const;
  // True when the total is above 0 and the completed count has reached it.
  bool isFinished() const;

  // "<percent>% completed", the percentage rounded down, so that only a
  // finished progress reads "100% completed".
  std::string localizedDescription() const;
  // Text for "%@": identity, units, fraction and the running children,
  // one per indented line.
  std::string description() const;

 private:
  struct Child {
    std::shared_ptr<VNProgress> progress;
    std::int64_t pendingUnitCount;
  };

  VNProgress() = default;
  // Calls under mutex_: finished per the counts.
  bool finishedLocked() const { return total_ > 0 && completed_ >= total_; }
  double fractionLocked() const;
  // Changes the counts with `change` under the lock; when that finishes this
  // progress, folds it into its parent.
  template <class Change>
  void update(Change change);
  void foldChild(const VNProgress* child, std::int64_t pendingUnitCount);
  bool isSelfOrAncestor(const VNProgress* candidate) const;
  void describe(int depth, std::string& out) const;

  mutable std::mutex mutex_;
  std::int64_t total_ = 0;
  std::int64_t completed_ = 0;
  std::weak_ptr<VNProgress> parent_;
  std::int64_t pendingInParent_ = 0;
  bool adopted_ = false;
  std::vector<Child> children_;
};
