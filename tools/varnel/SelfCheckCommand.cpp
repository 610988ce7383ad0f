// varnel self-check: a quick proof that the library loads and its
// property-list and file layers work on this machine.
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>

#include "Command.h"
#include "foundation/VNError.h"
#include "foundation/VNFileURL.h"
#include "foundation/VNValue.h"

namespace varnel {
namespace {

int runSelfCheck(bool json) {
  char dir[] = "/tmp/varnel-self-check.XXXXXX";
  if (!::mkdtemp(dir)) {
    printError(VNError::posix(errno, dir, "create folder"));
    return kExitFailed;
  }
  std::string path = std::string(dir) + "/check.plist";
  VNValue written = VNValue::dictionary();
  written.set("Name", "varnel");
  written.set("Items", VNValue(VNValue::Array{VNValue(1), VNValue(true), VNValue("é")}));
  VNError error;
  bool ok = written.writePropertyListFile(path, VNValue::Format::Binary, &error);
  std::optional<VNValue> read = ok ? VNValue::fromPropertyListFile(path, &error) : std::nullopt;
  ::unlink(path.c_str());
  ::rmdir(dir);
  if (!read || *read != written) {
    printError(ok && read ? VNError::posix(EIO, path, "read back") : error);
    return kExitFailed;
  }
  VNValue summary = VNValue::dictionary();
  summary.set("propertyListRoundTrip", true);
  summary.set("scratchFolder", VNFileURL::fileURLWithPath(dir, true).absoluteString());
  if (json)
    printJSON(summary);
  else
    std::printf("self-check passed: property lists round-trip through %s\n", dir);
  return kExitOK;
}

CommandRegistration registration("self-check", [](CLI::App& app, int& status) {
  auto* command = app.add_subcommand("self-check", "Check that the library works on this machine");
  auto json = std::make_shared<bool>(false);
  command->add_flag("--json", *json, "Print the result as JSON");
  command->callback([json, &status] { status = runSelfCheck(*json); });
});

}  // namespace
}  // namespace varnel
