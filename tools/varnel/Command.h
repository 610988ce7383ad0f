#pragma once

#include <CLI/CLI.hpp>

#include <functional>
#include <string>

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

// The "template" subcommand group, made by whichever of its subcommands
// registers first.
CLI::App* templateCommand(CLI::App& app);

// Prints "varnel: <description>" and the error's domain, code and path to
// stderr.
void printError(const VNError& error);
// Prints a usage-level complaint to stderr; returns kExitUsage.
int usageError(const std::string& message);
// Prints `value` as pretty JSON on stdout, one document.
void printJSON(const VNValue& value);

}  // namespace varnel
