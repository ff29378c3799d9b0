#pragma once
// Small helpers shared by the operation tests.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "cinedng/KSError.h"
#include "cinedng/KSValue.h"
#include "cinedng/PatchImageBuffer.h"

namespace opstest {

// Takes a returned record (and its samples) into ownership.
using Owned = std::unique_ptr<cinedng::PatchImageBuffer, decltype(&cinedng::freePatchImageBuffer)>;
inline Owned own(cinedng::PatchImageBuffer* p) { return Owned(p, &cinedng::freePatchImageBuffer); }

// An array of numbers, as hosts pass matrices.
inline cinedng::KSValuePtr matrix(const std::vector<float>& m) {
    cinedng::KSArray a;
    for (float v : m) a.push_back(cinedng::KSValue::numberWithFloat(v));
    return cinedng::KSValue::arrayWithArray(a);
}

inline void expectError(const std::shared_ptr<cinedng::KSError>& err, const std::string& domain, const std::string& text) {
    ASSERT_TRUE(err);
    EXPECT_EQ(err->domain() + " " + std::to_string(err->code()) + " " + err->localizedDescription(), domain + " -1 " + text);
}

}  // namespace opstest
