#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

#include "platform/VNChildProcess.h"
#include "platform/internal/VNReadLoop.h"

namespace {

constexpr size_t kChunkSize = 64 * 1024;

// The reads armed on this thread. Weak: a pipe that goes away takes its
// armed read with it.
thread_local std::vector<std::weak_ptr<VNOutputPipe::ArmedRead>> armedReads;

// Reads one chunk; empty at end of data, nullopt-like errno in `error`.
std::string readChunk(int fd, int& error) {
  std::string bytes(kChunkSize, '\0');
  ssize_t count;
  do {
    count = ::read(fd, bytes.data(), bytes.size());
  } while (count < 0 && errno == EINTR);
  error = count < 0 ? errno : 0;
  bytes.resize(count > 0 ? static_cast<size_t>(count) : 0);
  return bytes;
}

// Completes `read`: it is disarmed first, so its completion may arm again.
void complete(const std::shared_ptr<VNOutputPipe::ArmedRead>& read) {
  int error = 0;
  std::string bytes = readChunk(read->fd, error);
  if (error == EAGAIN) return;
  auto completion = std::exchange(read->completion, nullptr);
  if (completion) completion(bytes);
}

}  // namespace

VNChildProcessException::VNChildProcessException(const std::string& step, const std::string& path,
                                                 int errnoValue)
    : std::runtime_error("cannot " + step + " '" + path + "': " + std::strerror(errnoValue)),
      errno_(errnoValue) {}

void VNArmReadOnThisThread(const std::shared_ptr<VNOutputPipe::ArmedRead>& read) {
  for (const auto& existing : armedReads)
    if (existing.lock() == read) return;
  armedReads.push_back(read);
}

int VNRunReadsUntilReadable(int fd) {
  for (;;) {
    std::vector<std::shared_ptr<VNOutputPipe::ArmedRead>> live;
    std::vector<pollfd> fds{{fd, POLLIN, 0}};
    std::erase_if(armedReads, [](const auto& weak) { return weak.expired(); });
    for (const auto& weak : armedReads) {
      auto read = weak.lock();
      if (!read->completion) continue;
      live.push_back(read);
      fds.push_back({read->fd, POLLIN, 0});
    }
    if (::poll(fds.data(), fds.size(), -1) < 0) {
      if (errno == EINTR) continue;
      return errno;
    }
    for (size_t i = 1; i < fds.size(); ++i)
      if (fds[i].revents) complete(live[i - 1]);
    if (fds[0].revents) return 0;
  }
}

VNOutputPipe::VNOutputPipe(VNUniqueFd read, VNUniqueFd write)
    : read_(std::move(read)), write_(std::move(write)), armed_(std::make_shared<ArmedRead>()) {
  armed_->fd = read_.get();
}

VNOutputPipe::~VNOutputPipe() { cancelRead(); }

std::shared_ptr<VNOutputPipe> VNOutputPipe::create() {
  int fds[2];
  if (::pipe2(fds, O_CLOEXEC) != 0) throw VNChildProcessException("make", "output pipe", errno);
  VNUniqueFd read(fds[0]), write(fds[1]);
  // Non-blocking reads: an armed read that finds nothing waits for the next
  // poll, and draining never blocks on a pipe a stray descendant holds open.
  ::fcntl(read.get(), F_SETFL, O_NONBLOCK);
  return std::shared_ptr<VNOutputPipe>(new VNOutputPipe(std::move(read), std::move(write)));
}

void VNOutputPipe::readInBackground(Completion completion) {
  armed_->completion = std::move(completion);
  VNArmReadOnThisThread(armed_);
}

void VNOutputPipe::cancelRead() { armed_->completion = nullptr; }

std::string VNOutputPipe::readAvailableData() {
  int error = 0;
  std::string bytes = readChunk(read_.get(), error);
  if (error == EAGAIN) return {};
  if (error != 0) throw VNChildProcessException("read", "output pipe", error);
  return bytes;
}
