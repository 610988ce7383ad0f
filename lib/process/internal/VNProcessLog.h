#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "common/VNLogging.h"
#include "foundation/VNFormat.h"

// Logs one of the task runner's or the signaller's messages.
template <class... Args>
void VNProcessLog(VNLogType type, std::string_view format, const Args&... args) {
  VNLogging::logType(type, "process", 0, VNFormat(format, args...));
}

// True when `bytes` is well-formed UTF-8.
bool VNTaskIsUTF8(std::string_view bytes);

// Relays one chunk of a program's output: every piece between newlines,
// empty ones and the one after a final newline included, logged at the
// default type behind `prefix`. A chunk that is not UTF-8 is dropped with
// one fault naming the program (`launchPath` is asked only then).
void VNTaskRelayChunk(std::string_view bytes, std::string_view prefix,
                      const std::function<std::string()>& launchPath);
