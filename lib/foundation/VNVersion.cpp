#include "foundation/VNVersion.h"

extern "C" {
const double VarnelUtilsVersionNumber = 1.0;
const unsigned char VarnelUtilsVersionString[] = "@(#)PROGRAM:VarnelUtils  PROJECT:VarnelUtils-1.0\n";
}
