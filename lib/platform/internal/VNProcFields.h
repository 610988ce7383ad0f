#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>

// Readers of the /proc values the process lookup uses. They take whatever
// the files hold and never fail loudly.

// A /proc entry's name as a process identifier: decimal digits only, no sign
// or leading zero, within pid_t; 0 for anything else.
pid_t VNParseProcessIdentifier(std::string_view entry);
// The content of /proc/<pid>/comm less its one trailing newline; empty when
// it holds a NUL (never a valid name).
std::string VNParseCommandName(std::string_view content);
// The last component of /proc/<pid>/exe's target, less the " (deleted)" the
// kernel appends once the file is gone.
std::string VNExecutableBaseName(std::string_view target);
