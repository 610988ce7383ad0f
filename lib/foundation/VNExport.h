#pragma once

// Marks a symbol as part of libVarnelUtils.so's interface; everything else is
// hidden (-fvisibility=hidden).
#define VN_EXPORT __attribute__((visibility("default")))

#ifdef __cplusplus
#define VN_EXTERN_C extern "C"
#else
#define VN_EXTERN_C
#endif
