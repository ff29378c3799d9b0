#include "cinedng/cd_assert.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace cinedng {

void assertionFailed(const char* condition, const char* function, const char* file, int line) {
    // Name the source file without its directory, as the assertion reports of the platform do.
    const char* base = std::strrchr(file, '/');
    base = base ? base + 1 : file;
#if defined(CINEDNG_ASSERT_THROWS) && CINEDNG_ASSERT_THROWS
    (void)function;
    (void)base;
    (void)line;
    throw cd_exception(condition);
#else
    std::fprintf(stderr, "Assertion failed: (%s), function %s, file %s, line %d.\n", condition, function, base, line);
    std::fflush(stderr);
    std::abort();
#endif
}

}  // namespace cinedng
