#pragma once

#include <atomic>
#include <functional>
#include <string>
#include <thread>

#include "foundation/VNUniqueFd.h"

namespace varnel {

// Takes over this process's stderr while it lives: what is written to
// descriptor 2 (the library's echoed log lines among it) is passed on to the
// real stderr a line at a time, and a progress line, when given, is kept
// below the last of them on a terminal, never overwritten by them.
class StderrRelay {
 public:
  // `progressLine` (may be empty) is asked for the current progress text
  // about ten times a second; it is drawn only when stderr is a terminal.
  explicit StderrRelay(std::function<std::string()> progressLine);
  // Passes on what is left, ends the progress line and restores stderr.
  ~StderrRelay();
  StderrRelay(const StderrRelay&) = delete;
  StderrRelay& operator=(const StderrRelay&) = delete;

 private:
  void relay();
  void passOn(std::string& pending, bool flushAll);
  void writeOut(const std::string& text);

  std::function<std::string()> progressLine_;
  VNUniqueFd realStderr_;
  VNUniqueFd readEnd_;
  bool drawBar_ = false;
  bool barShown_ = false;
  std::atomic<bool> stopping_{false};
  std::thread thread_;
};

}  // namespace varnel
