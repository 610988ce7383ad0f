#pragma once

#include <CLI/CLI.hpp>

#include <functional>
#include <string>
#include <string_view>

class VNError;
class VNValue;

namespace varnel {

// Exit statuses of every subcommand.
enum ExitStatus { kExitOK = 0, kExitFailed = 1, kExitUsage = 2 };

// Each subcommand lives in its own file and registers a function that adds it
// to the application; its callback stores the subcommand's exit status.
using CommandSetup = std::function<void(CLI::App& app, int& exitStatus)>;

struct CommandRegistration {
  CommandRegistration(const char* name, CommandSetup setup);
};

// A subcommand group such as "template" or "system": made, with this
// description, by whichever of its subcommands registers first, and returned
// as it is to the others. A group requires one of its subcommands.
CLI::App* commandGroup(CLI::App& app, const char* name, const char* description);
// The "template" group.
CLI::App* templateCommand(CLI::App& app);

// Prints "varnel: <description>", the error's domain, code and path, and
// one "because:" line per underlying error, with its path where its
// description does not name it, to stderr.
void printError(const VNError& error);
// Prints a usage-level complaint to stderr; returns kExitUsage.
int usageError(const std::string& message);
// Accepts a path that names a folder; otherwise says why not with the
// system's own reason ("File name too long", "Permission denied", ...), not
// a guess that it does not exist.
extern const CLI::Validator kExistingFolder;
// A file name as one line of text output: unchanged when it is UTF-8 without
// control characters, otherwise in the shell's $'...' form with C escapes
// (\n, \t, \r, \\, \', and \ooo for other control bytes and bytes that are
// not UTF-8), as ls and stat quote such names. Every name printed as text
// goes through it; --json output needs no such step.
std::string quotedName(std::string_view name);
// Prints `value` as pretty JSON on stdout, one document.
void printJSON(const VNValue& value);

}  // namespace varnel
