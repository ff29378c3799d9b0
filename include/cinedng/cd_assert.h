#pragma once
// CD_ASSERT: the library's always-on assertion (active in Release builds too).
//
// A failed assertion is a programming error. By default it prints
//   Assertion failed: (<condition>), function <function>, file <file>, line <line>.
// on standard error and aborts the process. A build configured with -DCINEDNG_ASSERT_THROWS=ON
// instead raises a cd_exception whose what() is the condition text, so that a host that must never
// stop (or the fuzz targets) can survive inputs that reach an assertion.
#include "cinedng/cd_exception.h"

namespace cinedng {

[[noreturn]] void assertionFailed(const char* condition, const char* function, const char* file, int line);

}  // namespace cinedng

#define CD_ASSERT(condition)                                                                     \
    ((condition) ? static_cast<void>(0)                                                          \
                 : ::cinedng::assertionFailed(#condition, __func__, __FILE__, __LINE__))
