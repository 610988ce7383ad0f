// varnel size: bytes and file count of paths, counting hard links and clones
// once across all of them. Ctrl-C cancels the walk and prints what was
// counted so far, marked as partial.
#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <cstdio>
#include <filesystem>
#include <thread>
#include <vector>

#include <fmt/format.h>

#include "Command.h"
#include "foundation/VNFileURL.h"
#include "foundation/VNValue.h"
#include "sizing/VNPathSizer.h"

namespace varnel {
namespace {

struct Measure {
  std::string path;
  std::uint64_t bytes = 0;
  std::uint64_t files = 0;
  bool partial = false;
};

// "12.35 MB (12,345,678 bytes)": decimal units, as the library's log lines
// count megabytes, then the exact figure; below 1 kB the exact figure alone.
std::string describeBytes(std::uint64_t bytes) {
  static const char* const units[] = {"kB", "MB", "GB", "TB", "PB", "EB"};
  if (bytes < 1000) return fmt::format("{} {}", bytes, bytes == 1 ? "byte" : "bytes");
  double value = static_cast<double>(bytes) / 1000;
  size_t unit = 0;
  while (value >= 1000 && unit + 1 < std::size(units)) {
    value /= 1000;
    ++unit;
  }
  return fmt::format("{:.2f} {} ({} bytes)", value, units[unit], fmt::group_digits(bytes));
}

std::string describe(const Measure& measure) {
  return fmt::format("{}, {} {}{}", describeBytes(measure.bytes), fmt::group_digits(measure.files),
                     measure.files == 1 ? "file" : "files",
                     measure.partial ? " (partial: interrupted)" : "");
}

VNValue toValue(const Measure& measure) {
  VNValue entry = VNValue::dictionary();
  if (!measure.path.empty()) entry.set("path", measure.path);
  entry.set("bytes", measure.bytes);
  entry.set("files", measure.files);
  entry.set("partial", measure.partial);
  return entry;
}

// Turns SIGINT into a cancel of the running walk. SIGINT is blocked in the
// calling thread (and in threads started later) and taken by a thread of its
// own with sigwait, since cancel takes locks and cannot run in a handler.
class InterruptWatch {
 public:
  explicit InterruptWatch(std::shared_ptr<VNPathSizer> sizer) : sizer_(std::move(sizer)) {
    sigemptyset(&signals_);
    sigaddset(&signals_, SIGINT);
    pthread_sigmask(SIG_BLOCK, &signals_, &previous_);
    thread_ = std::thread([this] { watch(); });
  }
  ~InterruptWatch() {
    finished_ = true;
    pthread_kill(thread_.native_handle(), SIGINT);
    thread_.join();
    pthread_sigmask(SIG_SETMASK, &previous_, nullptr);
  }
  InterruptWatch(const InterruptWatch&) = delete;
  InterruptWatch& operator=(const InterruptWatch&) = delete;

  bool interrupted() const { return interrupted_; }

 private:
  void watch() {
    for (;;) {
      int signal = 0;
      sigwait(&signals_, &signal);
      if (finished_) return;
      interrupted_ = true;
      sizer_->cancel();
    }
  }

  std::shared_ptr<VNPathSizer> sizer_;
  sigset_t signals_{};
  sigset_t previous_{};
  std::atomic<bool> finished_{false};
  std::atomic<bool> interrupted_{false};
  std::thread thread_;
};

int runSize(const std::vector<std::string>& paths, bool json) {
  auto sizer = VNPathSizer::init();
  std::vector<Measure> measures;
  Measure total;
  {
    InterruptWatch watch(sizer);
    for (const std::string& path : paths) {
      if (watch.interrupted()) break;
      std::error_code ec;
      if (std::filesystem::symlink_status(path, ec).type() == std::filesystem::file_type::not_found)
        std::fprintf(stderr, "varnel: %s does not exist; it counts as one file of 0 bytes\n",
                     quotedName(path).c_str());
      Measure measure{path};
      measure.bytes = sizer->directorySizeAndCount(&measure.files, VNFileURL::fileURLWithPath(path));
      // A walk that ran to its end just as Ctrl-C came is marked partial too:
      // the sizer cannot tell the two apart.
      measure.partial = watch.interrupted();
      total.bytes += measure.bytes;
      total.files += measure.files;
      measures.push_back(measure);
    }
    total.partial = watch.interrupted();
  }
  if (json) {
    VNValue::Array entries;
    for (const Measure& measure : measures) entries.push_back(toValue(measure));
    VNValue result = VNValue::dictionary();
    result.set("paths", VNValue(std::move(entries)));
    result.set("total", toValue(total));
    printJSON(result);
  } else {
    for (const Measure& measure : measures)
      std::printf("%s: %s\n", quotedName(measure.path).c_str(), describe(measure).c_str());
    if (measures.size() > 1 || total.partial) std::printf("total: %s\n", describe(total).c_str());
  }
  return total.partial ? kExitFailed : kExitOK;
}

CommandRegistration registration("size", [](CLI::App& app, int& status) {
  auto* command = app.add_subcommand(
      "size", "Measure paths: bytes and files, counting hard links and clones once");
  auto paths = std::make_shared<std::vector<std::string>>();
  auto json = std::make_shared<bool>(false);
  command->add_option("PATH", *paths, "Files or folders to measure")->required();
  command->add_flag("--json", *json, "Print the result as JSON");
  command->footer(
      "Sizes are allocated bytes; a file with several names or sharing its content with a clone\n"
      "is counted once across all PATHs. Ctrl-C stops and prints the partial totals (exit 1).");
  command->callback([paths, json, &status] { status = runSize(*paths, *json); });
});

}  // namespace
}  // namespace varnel
