#include "StderrRelay.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>

namespace varnel {

StderrRelay::StderrRelay(std::function<std::string()> progressLine)
    : progressLine_(std::move(progressLine)) {
  int fds[2];
  realStderr_.reset(::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3));
  if (!realStderr_ || ::pipe2(fds, O_CLOEXEC) != 0) {
    realStderr_.reset();
    return;
  }
  readEnd_.reset(fds[0]);
  ::dup2(fds[1], STDERR_FILENO);
  ::close(fds[1]);
  drawBar_ = progressLine_ && ::isatty(realStderr_.get()) == 1;
  thread_ = std::thread([this] { relay(); });
}

StderrRelay::~StderrRelay() {
  if (!realStderr_) return;
  // Our stderr goes back to the terminal; the relay then sees end of data.
  ::dup2(realStderr_.get(), STDERR_FILENO);
  stopping_ = true;
  thread_.join();
}

void StderrRelay::writeOut(const std::string& text) {
  for (size_t done = 0; done < text.size();) {
    const ssize_t count = ::write(realStderr_.get(), text.data() + done, text.size() - done);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return;
    done += static_cast<size_t>(count);
  }
}

// Writes the complete lines of `pending` (all of it when `flushAll`) above
// the progress line, then redraws that.
void StderrRelay::passOn(std::string& pending, bool flushAll) {
  const size_t end = flushAll ? pending.size() : pending.rfind('\n') + 1;
  std::string out;
  if (barShown_) out = "\r\033[K";
  out.append(pending, 0, end);
  if (flushAll && !out.empty() && out.back() != '\n' && end > 0) out += '\n';
  pending.erase(0, end);
  barShown_ = drawBar_ && !flushAll;
  if (barShown_) out += progressLine_();
  if (!out.empty()) writeOut(out);
}

void StderrRelay::relay() {
  std::string pending;
  char buffer[16384];
  for (;;) {
    pollfd fd{readEnd_.get(), POLLIN, 0};
    // Once stopping, every write has been made: drain without waiting.
    const bool stopping = stopping_;
    const int ready = ::poll(&fd, 1, stopping ? 0 : 100);
    ssize_t count = 0;
    if (ready > 0) count = ::read(readEnd_.get(), buffer, sizeof buffer);
    if (count > 0) pending.append(buffer, static_cast<size_t>(count));
    const bool ended = stopping && count <= 0;
    if (ended) {
      passOn(pending, /*flushAll=*/true);
      return;
    }
    passOn(pending, /*flushAll=*/false);
  }
}

}  // namespace varnel
