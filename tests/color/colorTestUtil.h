#pragma once
// Headers and small helpers shared by the colour tests.
#include <gtest/gtest.h>

#include <cmath>
#include <sstream>

#include "cinedng/cd_DNGTags.h"
#include "cinedng/cd_exception.h"
#include "cinedng/cd_exrStructs.h"
#include "cinedng/matrixOps.h"

namespace colortest {

// What f prints on the error stream.
template <class F>
std::string stderrOf(F f) {
    testing::internal::CaptureStderr();
    f();
    return testing::internal::GetCapturedStderr();
}

// The text of the cd_exception that f raises, or "(no failure)"; anything printed is swallowed.
template <class F>
std::string failureText(F f) {
    std::string text = "(no failure)";
    testing::internal::CaptureStderr();
    try { f(); } catch (const cinedng::cd_exception& e) { text = e.what(); }
    testing::internal::GetCapturedStderr();
    return text;
}

inline void expectNear(const std::valarray<float>& got, const std::valarray<float>& want, float tol) {
    ASSERT_EQ(got.size(), want.size());
    for (size_t i = 0; i < want.size(); ++i) EXPECT_NEAR(got[i], want[i], tol) << "element " << i;
}

inline std::valarray<float> asValarray(const std::vector<double>& v) {
    std::valarray<float> r(v.size());
    for (size_t i = 0; i < v.size(); ++i) r[i] = static_cast<float>(v[i]);
    return r;
}

// (x, y, 1 - x - y), computed in double.
inline std::valarray<float> xyz(double x, double y) { return asValarray({x, y, 1.0 - x - y}); }

}  // namespace colortest

using namespace cinedng;
using namespace colortest;
