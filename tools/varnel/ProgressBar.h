#pragma once

#include <chrono>
#include <cstdint>
#include <cstdio>

namespace varnel {

// A one-line progress bar on a terminal: done of total, elapsed time and
// rate, redrawn at most ten times a second. Draws nothing when the stream is
// not a terminal.
class ProgressBar {
 public:
  ProgressBar(std::FILE* stream, const char* unit, std::uint64_t total);
  ~ProgressBar();

  void update(std::uint64_t done);
  // Draws the final state and ends the line.
  void finish();
  double elapsedSeconds() const;

 private:
  void draw(std::uint64_t done);

  std::FILE* stream_;
  const char* unit_;
  std::uint64_t total_;
  bool enabled_;
  bool finished_ = false;
  std::uint64_t last_ = 0;
  std::chrono::steady_clock::time_point start_;
  std::chrono::steady_clock::time_point lastDraw_;
};

}  // namespace varnel
