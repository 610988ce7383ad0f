// Serial queues: a FIFO of entries guarded by one mutex and a "busy" flag
// that whoever runs a job holds. Asynchronous entries are taken by the
// queue's worker thread; synchronous callers queue a ticket and are woken
// when their turn comes, then run on their own thread.
#include "foundation/VNQueue.h"

#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <future>
#include <mutex>
#include <thread>
#include <unordered_map>

namespace {

// How long an idle worker waits for more work before its thread ends.
constexpr std::chrono::seconds kWorkerIdleTime{2};

struct Ticket {
  bool granted = false;
  std::condition_variable turn;
};

struct Entry {
  VNQueue::Job job;          // an asynchronous job, or empty for a ticket
  Ticket* ticket = nullptr;  // a synchronous caller waiting for its turn
};

[[noreturn]] void misuse(const char* what, const std::string& label) {
  std::fprintf(stderr, "VNQueue: %s (queue '%s')\n", what, label.c_str());
  std::abort();
}

// The process's main thread is the one whose thread id is the process id.
bool onMainThread() {
  thread_local const bool isMain = ::gettid() == ::getpid();
  return isMain;
}

}  // namespace

struct VNQueueState {
  std::string label;
  std::shared_ptr<VNQueueState> target;
  bool isMain = false;

  std::mutex mutex;
  std::condition_variable workAvailable;
  std::deque<Entry> entries;
  bool busy = false;           // a job holds the queue
  bool workerRunning = false;  // a worker thread exists
  bool released = false;       // the last handle is gone

  std::mutex specificsMutex;
  std::unordered_map<const void*, void*> specifics;
};

namespace {

// The queues whose jobs the calling thread is inside, innermost first.
struct Frame {
  VNQueueState* queue;
  const Frame* outer;
};
thread_local const Frame* tCurrent = nullptr;

class CurrentQueue {
 public:
  explicit CurrentQueue(VNQueueState* queue) : frame_{queue, tCurrent} { tCurrent = &frame_; }
  ~CurrentQueue() { tCurrent = frame_.outer; }
  CurrentQueue(const CurrentQueue&) = delete;
  CurrentQueue& operator=(const CurrentQueue&) = delete;

 private:
  Frame frame_;
};

bool insideJobOf(const VNQueueState* queue) {
  for (const Frame* frame = tCurrent; frame; frame = frame->outer)
    if (frame->queue == queue) return true;
  return false;
}

bool frontIsAsync(const VNQueueState& q) {
  return !q.busy && !q.entries.empty() && !q.entries.front().ticket;
}

// With the lock held and the queue just freed: gives the queue to the next
// waiting synchronous caller, or wakes the worker for the next async job.
void handOver(VNQueueState& q) {
  if (q.busy || q.entries.empty()) return;
  if (Ticket* ticket = q.entries.front().ticket) {
    q.entries.pop_front();
    q.busy = true;
    ticket->granted = true;
    ticket->turn.notify_one();
  } else {
    q.workAvailable.notify_one();
  }
}

// Frees the queue when the job that held it ends, also by an exception.
class Occupancy {
 public:
  explicit Occupancy(VNQueueState& q) : q_(q) {}
  ~Occupancy() {
    std::lock_guard lock(q_.mutex);
    q_.busy = false;
    handOver(q_);
  }
  Occupancy(const Occupancy&) = delete;
  Occupancy& operator=(const Occupancy&) = delete;

 private:
  VNQueueState& q_;
};

void runJob(VNQueueState& q, VNQueue::Job job) {
  Occupancy occupancy(q);
  CurrentQueue current(&q);
  job();
}

// The worker takes async jobs while they reach the front of the queue and
// ends once nothing is queued and either the queue's handle is gone or it has
// been idle for kWorkerIdleTime. It owns a reference to the state, so it never
// touches anything destroyed, even at process exit.
void workerLoop(std::shared_ptr<VNQueueState> q) {
  std::unique_lock lock(q->mutex);
  for (;;) {
    bool ready = q->workAvailable.wait_for(lock, kWorkerIdleTime, [&] {
      return frontIsAsync(*q) || (q->released && q->entries.empty());
    });
    if (!ready || !frontIsAsync(*q)) {
      if (q->entries.empty()) {
        q->workerRunning = false;
        return;
      }
      continue;
    }
    VNQueue::Job job = std::move(q->entries.front().job);
    q->entries.pop_front();
    q->busy = true;
    lock.unlock();
    runJob(*q, std::move(job));
    lock.lock();
  }
}

std::shared_ptr<VNQueueState> makeState(std::string label, std::shared_ptr<VNQueueState> target,
                                        bool isMain) {
  auto state = std::make_shared<VNQueueState>();
  state->label = std::move(label);
  state->target = std::move(target);
  state->isMain = isMain;
  return state;
}

}  // namespace

VNQueue::VNQueue(std::shared_ptr<VNQueueState> state) : state_(std::move(state)) {}

VNQueue::~VNQueue() {
  std::lock_guard lock(state_->mutex);
  state_->released = true;
  state_->workAvailable.notify_one();
}

std::shared_ptr<VNQueue> VNQueue::create(std::string label, std::shared_ptr<VNQueue> target) {
  return std::shared_ptr<VNQueue>(
      new VNQueue(makeState(std::move(label), target ? target->state_ : nullptr, false)));
}

// The process-wide queues are never destroyed, so that worker threads and
// jobs still running while the process exits find them intact.
std::shared_ptr<VNQueue> VNQueue::main() {
  static const auto* queue =
      new std::shared_ptr<VNQueue>(new VNQueue(makeState("org.varnel.main", nullptr, true)));
  return *queue;
}

std::shared_ptr<VNQueue> VNQueue::globalBackground() {
  static const auto* queue = new std::shared_ptr<VNQueue>(create("org.varnel.background"));
  return *queue;
}

const std::string& VNQueue::label() const { return state_->label; }

void VNQueue::async(Job job) {
  std::lock_guard lock(state_->mutex);
  if (!state_->isMain && !state_->workerRunning) {
    std::thread(workerLoop, state_).detach();
    state_->workerRunning = true;
  }
  state_->entries.push_back(Entry{std::move(job), nullptr});
  if (frontIsAsync(*state_)) state_->workAvailable.notify_one();
}

void VNQueue::sync(const Job& job) {
  VNQueueState& q = *state_;
  if (insideJobOf(&q)) misuse("sync onto a queue the caller is already inside", q.label);
  if (q.isMain) {
    if (onMainThread()) misuse("sync onto the main queue from the main thread", q.label);
    std::packaged_task<void()> task(job);
    std::future<void> done = task.get_future();
    async([&task] { task(); });
    done.get();
    return;
  }
  {
    std::unique_lock lock(q.mutex);
    if (!q.busy && q.entries.empty()) {
      q.busy = true;
    } else {
      Ticket ticket;
      q.entries.push_back(Entry{nullptr, &ticket});
      ticket.turn.wait(lock, [&] { return ticket.granted; });
    }
  }
  Occupancy occupancy(q);
  CurrentQueue current(&q);
  job();
}

void VNQueue::setSpecific(const void* key, void* value) {
  std::lock_guard lock(state_->specificsMutex);
  if (value)
    state_->specifics[key] = value;
  else
    state_->specifics.erase(key);
}

void* VNQueue::getSpecific(const void* key) {
  static VNQueueState* const mainQueue = main()->state_.get();
  VNQueueState* queue = tCurrent ? tCurrent->queue : onMainThread() ? mainQueue : nullptr;
  for (; queue; queue = queue->target.get()) {
    std::lock_guard lock(queue->specificsMutex);
    auto found = queue->specifics.find(key);
    if (found != queue->specifics.end()) return found->second;
  }
  return nullptr;
}

size_t VNQueue::drainMain() {
  VNQueueState& q = *main()->state_;
  if (!onMainThread()) misuse("drainMain called off the main thread", q.label);
  size_t ran = 0;
  std::unique_lock lock(q.mutex);
  while (frontIsAsync(q)) {
    Job job = std::move(q.entries.front().job);
    q.entries.pop_front();
    q.busy = true;
    lock.unlock();
    runJob(q, std::move(job));
    ++ran;
    lock.lock();
  }
  return ran;
}
