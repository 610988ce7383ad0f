#include "foundation/VNProgress.h"

#include <algorithm>
#include <cmath>

#include "foundation/VNFormat.h"

// Locking: each progress guards its own fields. A parent locks a child only
// while holding its own lock (fraction, description, addChild), never the
// other way round; a finishing child releases its lock before it folds
// itself into its parent, so the two orders never meet. Linking a child is
// serialised process-wide, so that two concurrent calls cannot build a cycle
// that each one's ancestry check alone would miss.

namespace {

std::mutex& linkMutex() {
  static std::mutex mutex;
  return mutex;
}

}  // namespace

std::shared_ptr<VNProgress> VNProgress::create(std::int64_t totalUnitCount) {
  std::shared_ptr<VNProgress> progress(new VNProgress());
  progress->total_ = totalUnitCount;
  return progress;
}

std::int64_t VNProgress::totalUnitCount() const {
  std::lock_guard lock(mutex_);
  return total_;
}

std::int64_t VNProgress::completedUnitCount() const {
  std::lock_guard lock(mutex_);
  return completed_;
}

template <class Change>
void VNProgress::update(Change change) {
  std::shared_ptr<VNProgress> parent;
  std::int64_t pending = 0;
  {
    std::lock_guard lock(mutex_);
    change();
    // Attached implies not finished before: a finished child is detached.
    if (finishedLocked() && (parent = parent_.lock())) {
      parent_.reset();
      pending = pendingInParent_;
    }
  }
  if (!parent) return;
  // Folding drops the parent's reference; keep this object alive meanwhile.
  auto keepAlive = shared_from_this();
  parent->foldChild(this, pending);
}

void VNProgress::setTotalUnitCount(std::int64_t units) {
  update([&] { total_ = units; });
}

void VNProgress::setCompletedUnitCount(std::int64_t units) {
  update([&] { completed_ = units; });
}

void VNProgress::incrementCompletedUnitCount(std::int64_t units) {
  update([&] { completed_ += units; });
}

void VNProgress::foldChild(const VNProgress* child, std::int64_t pendingUnitCount) {
  std::vector<Child> removed;
  update([&] {
    auto found = std::find_if(children_.begin(), children_.end(),
                              [&](const Child& c) { return c.progress.get() == child; });
    if (found != children_.end()) {
      removed.push_back(std::move(*found));
      children_.erase(found);
    }
    completed_ += pendingUnitCount;
  });
}

bool VNProgress::isSelfOrAncestor(const VNProgress* candidate) const {
  std::shared_ptr<const VNProgress> node = shared_from_this();
  while (node) {
    if (node.get() == candidate) return true;
    std::lock_guard lock(node->mutex_);
    std::shared_ptr<const VNProgress> up = node->parent_.lock();
    node.swap(up);
  }
  return false;
}

bool VNProgress::addChild(const std::shared_ptr<VNProgress>& child, std::int64_t pendingUnitCount) {
  if (!child || pendingUnitCount < 0) return false;
  bool finishedAlready = false;
  {
    std::lock_guard link(linkMutex());
    if (isSelfOrAncestor(child.get())) return false;
    // Both at once: the two may be unrelated so far, with no order between them.
    std::scoped_lock lock(mutex_, child->mutex_);
    if (child->adopted_) return false;
    child->adopted_ = true;
    finishedAlready = child->finishedLocked();
    if (!finishedAlready) {
      child->parent_ = weak_from_this();
      child->pendingInParent_ = pendingUnitCount;
      children_.push_back({child, pendingUnitCount});
    }
  }
  if (finishedAlready) foldChild(child.get(), pendingUnitCount);
  return true;
}

double VNProgress::fractionLocked() const {
  if (total_ <= 0) return 0;
  double units = static_cast<double>(completed_);
  for (const auto& child : children_)
    units += child.progress->fractionCompleted() * static_cast<double>(child.pendingUnitCount);
  return std::clamp(units / static_cast<double>(total_), 0.0, 1.0);
}

double VNProgress::fractionCompleted() const {
  std::lock_guard lock(mutex_);
  return fractionLocked();
}

bool VNProgress::isFinished() const {
  std::lock_guard lock(mutex_);
  return finishedLocked();
}

std::string VNProgress::localizedDescription() const {
  std::lock_guard lock(mutex_);
  // The small allowance keeps 29 of 100 from reading 28% through rounding.
  int percent = static_cast<int>(std::floor(fractionLocked() * 100.0 + 1e-9));
  if (percent > 99 && !finishedLocked()) percent = 99;
  return VNFormat("%d%% completed", percent);
}

void VNProgress::describe(int depth, std::string& out) const {
  std::lock_guard lock(mutex_);
  out += VNFormat("<VNProgress %p> completed %lld of %lld units, fraction %.4f",
                  static_cast<const void*>(this), static_cast<long long>(completed_),
                  static_cast<long long>(total_), fractionLocked());
  const std::string indent(static_cast<size_t>(depth + 1) * 4, ' ');
  for (const auto& child : children_) {
    out += VNFormat("\n%schild for %lld units: ", indent.c_str(),
                    static_cast<long long>(child.pendingUnitCount));
    child.progress->describe(depth + 1, out);
  }
}

std::string VNProgress::description() const {
  std::string out;
  describe(0, out);
  return out;
}
