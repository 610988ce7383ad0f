// Replays a fuzz target without libFuzzer: every regular file directly in
// each folder named on the command line goes to the target's
// LLVMFuzzerTestOneInput once, in name order. A target's check fails by
// aborting, so the last "Running:" line names the input that broke it.
// A missing or empty folder is an error: it means a seed corpus or a
// regression folder was not found where the build looked.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <system_error>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

namespace fs = std::filesystem;

std::vector<fs::path> inputsIn(const fs::path& folder) {
  std::vector<fs::path> inputs;
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(folder, error))
    if (entry.is_regular_file()) inputs.push_back(entry.path());
  if (error) std::fprintf(stderr, "cannot list '%s': %s\n", folder.c_str(), error.message().c_str());
  std::sort(inputs.begin(), inputs.end());
  return inputs;
}

bool replay(const fs::path& input) {
  std::fprintf(stderr, "Running: %s\n", input.c_str());
  std::error_code error;
  // Exactly the input's size, so that the sanitizers see any read past it.
  std::vector<std::uint8_t> data(fs::file_size(input, error));
  std::ifstream file(input, std::ios::binary);
  if (error || !file.read(reinterpret_cast<char*>(data.data()), static_cast<std::streamsize>(data.size()))) {
    std::fprintf(stderr, "cannot read '%s'\n", input.c_str());
    return false;
  }
  LLVMFuzzerTestOneInput(data.data(), data.size());
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: %s FOLDER...\n", argv[0]);
    return 2;
  }
  bool ok = true;
  for (int i = 1; i < argc; ++i) {
    const std::vector<fs::path> inputs = inputsIn(argv[i]);
    if (inputs.empty()) {
      std::fprintf(stderr, "no inputs in '%s'\n", argv[i]);
      ok = false;
      continue;
    }
    for (const fs::path& input : inputs) ok = replay(input) && ok;
    std::fprintf(stderr, "replayed %zu inputs of '%s'\n", inputs.size(), argv[i]);
  }
  return ok ? 0 : 1;
}
