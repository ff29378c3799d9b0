// Host value objects, log formatting and the tag-to-host conversions. (The ordered dictionary is
// checked through the metadata, its description through the example program's output.)
#include <gtest/gtest.h>

#include "cinedng/KSDataTypeConverter.h"
#include "cinedng/KSError.h"
#include "cinedng/KSLog.h"
#include "cinedng/cd_exception.h"

using namespace cinedng;
using C = KSDataTypeConverter;

TEST(KSValue, DescriptionsAndFormatting) {
    const std::pair<KSValuePtr, const char*> cases[] = {
        {KSValue::numberWithUnsignedLong(4294967295u), "4294967295"}, {KSValue::numberWithShort(-7), "-7"},
        {KSValue::numberWithFloat(2.477f), "2.477"}, {KSValue::numberWithDouble(-3.25), "-3.25"},
        {C::sizeFromVector({1734, 1156.5f}), "{1734, 1156.5}"}, {C::pointFromVector({8, 4, 99}), "{8, 4}"},
        {KSValue::arrayWithArray({C::floatArrayFromVector({1}), C::rationalArrayFromVector({{1, 50}})}),
         "(\n    (\n        1\n    ),\n    (\n        1/50\n    )\n)"}};
    for (const auto& [v, text] : cases) EXPECT_EQ(v->description(), text);
    const auto error = KSError::errorWithDomain("DNGDecode", -1, "no file");
    EXPECT_EQ(KSFormat("%@|%4.1f|%d|%@", C::floatArrayFromVector({0.1f}), 3.5, 1e30, error),
              "(\n    0.1\n)| 3.5|9223372036854775807|Error Domain=DNGDecode Code=-1 \"no file\"");
}

TEST(KSDataTypeConverter, RationalsNamesPointsAndSizes) {
    EXPECT_EQ(C::rationalArrayFromVector({{1, 50}, {4294967295u, 1}, {2147483648u, 3}})->componentsJoinedByString(","),
              "1/50,-1/1,-2147483648/3");  // the signed format, on purpose
    EXPECT_EQ(C::signedRationalArrayFromVector({{-1, 3}})->componentsJoinedByString(","), "-1/3");
    EXPECT_EQ(C::parameterNameFromCall("dngTags->make"), "make");
    EXPECT_EQ(C::parameterNameFromCall("imageWidth"), "imageWidth");
    // A point or size needs two values; fewer are refused instead of read past the end.
    EXPECT_THROW(C::sizeFromVector({1}), cd_exception);
    EXPECT_THROW(C::pointFromVector({}), cd_exception);
}
