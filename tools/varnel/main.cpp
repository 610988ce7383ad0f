// varnel: the command-line tool over libVarnelUtils.
#include <fmt/format.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>

#include "Command.h"
#include "foundation/VNError.h"
#include "foundation/VNValue.h"
#include "foundation/VNVersion.h"

namespace varnel {
namespace {

std::map<std::string, CommandSetup>& registry() {
  static std::map<std::string, CommandSetup> commands;
  return commands;
}

}  // namespace

CommandRegistration::CommandRegistration(const char* name, CommandSetup setup) {
  registry().emplace(name, std::move(setup));
}

void printError(const VNError& error) {
  std::fprintf(stderr, "varnel: %s\n", error.localizedDescription().c_str());
  std::fprintf(stderr, "  domain: %s, code: %lld", error.domain().c_str(),
               static_cast<long long>(error.code()));
  if (!error.filePath().empty()) std::fprintf(stderr, ", path: %s", quotedName(error.filePath()).c_str());
  std::fputc('\n', stderr);
  // The cause, and its cause: a code alone says which step failed, not why.
  for (const VNError* cause = error.underlyingError().get(); cause; cause = cause->underlyingError().get()) {
    std::string text = cause->localizedDescription();
    const std::string path = cause->filePath();
    if (!path.empty() && text.find(path) == std::string::npos) text += " (path: " + quotedName(path) + ")";
    std::fprintf(stderr, "  because: %s\n", text.c_str());
  }
}

const CLI::Validator kExistingFolder(
    [](std::string& path) -> std::string {
      struct stat status;
      if (::stat(path.c_str(), &status) != 0) return quotedName(path) + ": " + std::strerror(errno);
      if (!S_ISDIR(status.st_mode)) return quotedName(path) + ": " + std::strerror(ENOTDIR);
      return {};
    },
    "DIR");

int usageError(const std::string& message) {
  std::fprintf(stderr, "varnel: %s\n", message.c_str());
  return kExitUsage;
}

CLI::App* commandGroup(CLI::App& app, const char* name, const char* description) {
  std::function<bool(CLI::App*)> named = [name](CLI::App* sub) { return sub->get_name() == name; };
  for (CLI::App* existing : app.get_subcommands(named)) return existing;
  auto* group = app.add_subcommand(name, description);
  group->require_subcommand(1);
  return group;
}

void printJSON(const VNValue& value) { std::printf("%s\n", value.jsonString(true).c_str()); }

}  // namespace varnel

int main(int argc, char** argv) {
  CLI::App app{"varnel: populate data volumes from system templates, and related tools"};
  app.require_subcommand(0, 1);
  app.set_version_flag("--version", fmt::format("varnel {:.1f}", VarnelUtilsVersionNumber));
  int status = varnel::kExitOK;
  for (auto& [name, setup] : varnel::registry()) setup(app, status);
  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp& e) {
    return app.exit(e);
  } catch (const CLI::CallForAllHelp& e) {
    return app.exit(e);
  } catch (const CLI::CallForVersion& e) {
    return app.exit(e);
  } catch (const CLI::ParseError& e) {
    app.exit(e);
    return varnel::kExitUsage;
  }
  if (app.get_subcommands().empty()) {
    // A missing subcommand is a usage error: the help goes with it to stderr.
    std::fputs(app.help().c_str(), stderr);
    return varnel::kExitUsage;
  }
  return status;
}
