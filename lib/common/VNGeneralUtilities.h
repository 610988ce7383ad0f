#pragma once

#include "foundation/VNError.h"
#include "foundation/VNExport.h"
#include "foundation/VNValue.h"

// User-information key of the compact trace of an error chain.
VN_EXTERN_C VN_EXPORT const char* const VNMessageTracerErrorStringKey;
// The directory service's error domain, whose records the trace also
// describes: "org.varnel.Lattice".
VN_EXTERN_C VN_EXPORT const char* const VNLatticeErrorDomain;

namespace VNUtilities {

// The innermost error of `error`'s chain of underlying errors, with the
// trace "domain:code-domain:code..." of the whole chain (records of the
// directory service's domain add ":description") as its only user
// information. An innermost error that already carries a trace is returned
// as it is.
VN_EXPORT VNError originalUnderlyingErrorForError(const VNError& error);

// True when the caller runs on the main queue, or on a queue that targets it.
VN_EXPORT bool isMainQueue();

// Writes the firmware variable `name` (VNFirmwareVariables) with the bytes
// of `value`: a string its UTF-8 bytes, data its bytes, a boolean one byte
// 1 or 0, an integer 8 bytes and a real an IEEE 754 double of 8 bytes (both
// little-endian), a date, array or dictionary its binary property list; a
// null value is refused. False, after one error line, when the store is
// missing or the write fails.
VN_EXPORT bool writeNVRAMVariable(const std::string& name, const VNValue& value);

}  // namespace VNUtilities
