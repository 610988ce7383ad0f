// varnel nvram set NAME VALUE: writes the firmware variable NAME, under the
// library's vendor GUID, with VALUE's UTF-8 bytes (docs/task-runner.md).
#include <cstdio>
#include <cstdlib>

#include "Command.h"
#include "common/VNGeneralUtilities.h"
#include "foundation/VNValue.h"
#include "platform/VNFirmwareVariables.h"

namespace varnel {
namespace {

struct NvramOptions {
  std::string name;
  std::string value;
};

int runSet(const NvramOptions& options) {
  if (!VNFirmwareVariables::makeDefault()->isAvailable()) {
    std::fprintf(stderr,
                 "varnel: this machine has no firmware variables "
                 "(/sys/firmware/efi/efivars is missing)\n");
    return kExitFailed;
  }
  ::setenv("VARNEL_LOG_STDERR", "1", 1);
  return VNUtilities::writeNVRAMVariable(options.name, VNValue(options.value)) ? kExitOK
                                                                               : kExitFailed;
}

CommandRegistration registration("nvram set", [](CLI::App& app, int& status) {
  auto* command = commandGroup(app, "nvram", "Firmware variables")
                      ->add_subcommand("set", "Write a firmware variable under the library's vendor GUID");
  auto options = std::make_shared<NvramOptions>();
  command->add_option("NAME", options->name, "Variable name (no \"/\")")->required();
  command->add_option("VALUE", options->value, "Value, stored as its UTF-8 bytes")->required();
  command->callback([options, &status] { status = runSet(*options); });
});

}  // namespace
}  // namespace varnel
