#include "ProgressBar.h"

#include <unistd.h>

#include <algorithm>
#include <string>

namespace varnel {

namespace {
constexpr int kBarWidth = 30;
constexpr auto kRedrawInterval = std::chrono::milliseconds(100);
}  // namespace

ProgressBar::ProgressBar(std::FILE* stream, const char* unit, std::uint64_t total)
    : stream_(stream), unit_(unit), total_(total), enabled_(::isatty(::fileno(stream)) == 1),
      start_(std::chrono::steady_clock::now()), lastDraw_(start_ - kRedrawInterval) {}

ProgressBar::~ProgressBar() {
  if (enabled_ && !finished_) std::fputc('\n', stream_);
}

double ProgressBar::elapsedSeconds() const {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
}

void ProgressBar::update(std::uint64_t done) {
  last_ = done;
  auto now = std::chrono::steady_clock::now();
  if (!enabled_ || now - lastDraw_ < kRedrawInterval) return;
  lastDraw_ = now;
  draw(done);
}

void ProgressBar::finish() {
  if (!enabled_ || finished_) return;
  draw(last_);
  std::fputc('\n', stream_);
  finished_ = true;
}

void ProgressBar::draw(std::uint64_t done) {
  double fraction = total_ ? std::min(1.0, static_cast<double>(done) / total_) : 0.0;
  int filled = static_cast<int>(fraction * kBarWidth);
  double seconds = elapsedSeconds();
  std::string bar(filled, '#');
  bar.resize(kBarWidth, ' ');
  std::fprintf(stream_, "\r[%s] %llu/%llu %s  %.1fs  %.0f %s/s ", bar.c_str(),
               static_cast<unsigned long long>(done), static_cast<unsigned long long>(total_), unit_,
               seconds, seconds > 0 ? done / seconds : 0.0, unit_);
  std::fflush(stream_);
}

}  // namespace varnel
