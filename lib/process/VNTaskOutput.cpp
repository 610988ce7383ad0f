#include <cstring>

#include <utf8proc.h>

#include "process/internal/VNProcessLog.h"

bool VNTaskIsUTF8(std::string_view bytes) {
  const auto* data = reinterpret_cast<const utf8proc_uint8_t*>(bytes.data());
  const size_t size = bytes.size();
  size_t i = 0;
  while (i < size) {
    // ASCII, eight bytes at a time: the common case of tool output.
    if (i + 8 <= size) {
      std::uint64_t word;
      std::memcpy(&word, data + i, sizeof word);
      if ((word & 0x8080808080808080ULL) == 0) {
        i += 8;
        continue;
      }
    }
    if (data[i] < 0x80) {
      ++i;
      continue;
    }
    utf8proc_int32_t codepoint;
    const utf8proc_ssize_t length = utf8proc_iterate(
        data + i, static_cast<utf8proc_ssize_t>(size - i), &codepoint);
    if (length <= 0) return false;
    i += static_cast<size_t>(length);
  }
  return true;
}

void VNTaskRelayChunk(std::string_view bytes, std::string_view prefix,
                      const std::function<std::string()>& launchPath) {
  if (!VNTaskIsUTF8(bytes)) {
    VNProcessLog(VNLogTypeFault, "Unable to process output from %@", launchPath());
    return;
  }
  std::string line(prefix);
  for (size_t start = 0;;) {
    const size_t end = bytes.find('\n', start);
    line.resize(prefix.size());
    line.append(bytes.substr(start, end == std::string_view::npos ? end : end - start));
    VNLogging::logType(VNLogTypeDefault, "VNTask", 0, line);
    if (end == std::string_view::npos) return;
    start = end + 1;
  }
}
