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
  run.err = VNReadTestFile(dir / "err");
  return run;
}

// Whether Python accepts `text` as JSON and `check` (Python statements on
// the parsed value `d`, with `raw` turning an escaped name back into its
// bytes) raises nothing.
inline bool VNJSONPasses(const std::string& text, const std::string& check = "") {
  VNTestDir dir;
  VNWriteTestFile(dir / "out.json", text);
  VNWriteTestFile(dir / "check.py", "import json, os, sys\nraw = lambda s: s.encode('utf-8', 'surrogateescape')\n"
                                    "d = json.load(open(sys.argv[1], 'rb'))\n" + check + "\n");
  return VNRunCommand("python3 " + dir / "check.py " + dir / "out.json") == 0;
}
