#pragma once

#include <string>

#include "support/VNLoopImage.h"
#include "support/VNTestDir.h"

// One run of the built varnel tool: its exit status, stdout and stderr.
struct VNToolRun {
  int status;
  std::string out;
  std::string err;
};

// Runs varnel with `arguments`, a shell-quoted argument list.
inline VNToolRun VNRunVarnel(const std::string& arguments) {
  VNTestDir dir;
  VNToolRun run;
  run.status = VNRunCommand("(" VARNEL_BINARY_DIR "/tools/varnel/varnel " + arguments + " 2>" + dir / "err)", &run.out);
  VNRunCommand("cat " + dir / "err", &run.err);
  return run;
}
