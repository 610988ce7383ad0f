// The readers of /proc values behind the process lookup, on any bytes:
// an identifier is positive only for a canonical decimal entry, a command
// name never holds a NUL or its newline, a base name never holds "/".
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "platform/internal/VNProcFields.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size > 8192) return 0;
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  const pid_t pid = VNParseProcessIdentifier(bytes);
  if (pid < 0) std::abort();
  if (pid > 0 && std::to_string(pid) != bytes) std::abort();
  const std::string name = VNParseCommandName(bytes);
  if (name.find('\0') != std::string::npos || name.size() > bytes.size()) std::abort();
  if (!name.empty() && name + (bytes.ends_with('\n') ? "\n" : "") != bytes) std::abort();
  const std::string base = VNExecutableBaseName(bytes);
  if (base.find('/') != std::string::npos || bytes.find(base) == std::string_view::npos) std::abort();
  return 0;
}
