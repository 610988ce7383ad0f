#pragma once

#include "foundation/VNExport.h"

// The library's version, 1.0, as a number and as a string.
VN_EXTERN_C VN_EXPORT const double VarnelUtilsVersionNumber;
VN_EXTERN_C VN_EXPORT const unsigned char VarnelUtilsVersionString[];
