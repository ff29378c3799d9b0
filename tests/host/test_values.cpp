// Host value objects, the ordered dictionary, the tag-to-host conversions and the processing info.
#include <gtest/gtest.h>

#include <cstring>

#include "cinedng/KSDataTypeConverter.h"
#include "cinedng/KSDictionary.h"
#include "cinedng/KSImageProcessingInfo.h"
#include "cinedng/KSLog.h"
#include "cinedng/KSValue.h"
#include "cinedng/cd_exception.h"

using namespace cinedng;

TEST(KSValue, DescriptionsAreTheHostTexts) {
    EXPECT_EQ(KSValue::stringWithString("Canon EOS 550D")->description(), "Canon EOS 550D");
    EXPECT_EQ(KSValue::numberWithUnsignedShort(12)->description(), "12");
    EXPECT_EQ(KSValue::numberWithUnsignedLong(4294967295u)->description(), "4294967295");
    EXPECT_EQ(KSValue::numberWithShort(-7)->description(), "-7");
    EXPECT_EQ(KSValue::numberWithFloat(0.1f)->description(), "0.1");
    EXPECT_EQ(KSValue::numberWithFloat(2.477f)->description(), "2.477");
    EXPECT_EQ(KSValue::numberWithDouble(5450.0)->description(), "5450");
    EXPECT_EQ(KSValue::numberWithDouble(-3.25)->description(), "-3.25");
    EXPECT_EQ(KSValue::valueWithPoint({8, 4})->description(), "{8, 4}");
    EXPECT_EQ(KSValue::valueWithSize({1734, 1156.5})->description(), "{1734, 1156.5}");

    auto arr = KSValue::arrayWithArray({KSValue::numberWithFloat(1.0f), KSValue::stringWithString("1/50")});
    EXPECT_EQ(arr->description(), "(\n    1,\n    1/50\n)");
    EXPECT_EQ(KSValue::arrayWithArray({})->description(), "(\n)");
    auto nested = KSValue::arrayWithArray({arr, KSValue::numberWithShort(3)});
    EXPECT_EQ(nested->description(), "(\n    (\n        1,\n        1/50\n    ),\n    3\n)");
    // %@ prints the same text.
    EXPECT_EQ(KSFormat("x=%@", arr), "x=(\n    1,\n    1/50\n)");
}

TEST(KSDictionary, KeepsInsertionOrderAndFirstPositionOnReset) {
    KSDictionary d;
    d.setObject("asShotNeutral", KSValue::numberWithFloat(1));
    d.setObject("asShotWhiteBalance", KSValue::numberWithDouble(5450));
    d.setObject("make", KSValue::stringWithString("cam"));
    d.setObject("asShotNeutral", KSValue::stringWithString("replaced"));
    EXPECT_EQ(d.allKeys(), (std::vector<std::string>{"asShotNeutral", "asShotWhiteBalance", "make"}));
    EXPECT_EQ(d.objectForKey("asShotNeutral")->stringValue(), "replaced");
    EXPECT_EQ(d.objectForKey("missing"), nullptr);

    d.removeObjectForKey("asShotWhiteBalance");
    d.setObject("model", KSValue::stringWithString("m"));
    EXPECT_EQ(d.allKeys(), (std::vector<std::string>{"asShotNeutral", "make", "model"}));
    EXPECT_EQ(d.objectForKey("model")->stringValue(), "m");
    d.setObject("make", nullptr);  // none removes
    EXPECT_FALSE(d.containsKey("make"));
    EXPECT_EQ(d.description(), "{\n    asShotNeutral = replaced;\n    model = m;\n}");

    KSDictionary n;
    n.setObject("blackLevel", KSValue::arrayWithArray({KSValue::numberWithFloat(30)}));
    EXPECT_EQ(n.description(), "{\n    blackLevel = (\n        30\n    );\n}");
}

TEST(KSDataTypeConverter, RationalsPrintWithTheSignedFormat) {
    using C = KSDataTypeConverter;
    urational big;
    big.n = 4294967295u;
    big.d = 1;
    EXPECT_EQ(C::stringFromUnsignedRational(big), "-1/1");
    urational u;
    u.n = 2147483648u;
    u.d = 3;
    EXPECT_EQ(C::stringFromUnsignedRational(u), "-2147483648/3");
    srational s;
    s.n = -1;
    s.d = 3;
    EXPECT_EQ(C::stringFromSignedRational(s), "-1/3");
    s.n = 0;
    s.d = 0;  // printed as stored
    EXPECT_EQ(C::stringFromSignedRational(s), "0/0");

    urational a, b;
    a.n = 1;
    a.d = 50;
    b.n = 28;
    b.d = 10;
    auto arr = C::rationalArrayFromVector({a, b});
    ASSERT_EQ(arr->count(), 2u);
    EXPECT_EQ(arr->objectAtIndex(0)->stringValue(), "1/50");
    EXPECT_EQ(arr->objectAtIndex(1)->stringValue(), "28/10");
    srational sv;
    sv.n = -5;
    sv.d = 1;
    EXPECT_EQ(C::signedRationalArrayFromVector({sv})->objectAtIndex(0)->stringValue(), "-5/1");
}

TEST(KSDataTypeConverter, ParameterNameIsTheTextAfterTheLastArrow) {
    using C = KSDataTypeConverter;
    EXPECT_EQ(C::parameterNameFromCall("dngTags->make"), "make");
    EXPECT_EQ(C::parameterNameFromCall("ctx->dngTags->CFAPattern"), "CFAPattern");
    EXPECT_EQ(C::parameterNameFromCall("imageWidth"), "imageWidth");
    EXPECT_EQ(C::parameterNameFromCall("a->"), "");
    EXPECT_EQ(C::parameterNameFromCall(""), "");
}

TEST(KSDataTypeConverter, BytesPointsAndSizes) {
    using C = KSDataTypeConverter;
    auto bytes = C::byteArrayFromVector({1, 4, 0, 255});
    EXPECT_EQ(bytes->objectAtIndex(3)->kind(), KSValue::Kind::UnsignedShort);
    EXPECT_EQ(bytes->objectAtIndex(3)->unsignedShortValue(), 255);
    auto d = C::dataFromVector({0xde, 0xad, 0x00, 0xef});
    ASSERT_EQ(d->length(), 4u);
    EXPECT_EQ(std::memcmp(d->bytes(), "\xde\xad\x00\xef", 4), 0);
    EXPECT_EQ(C::dataFromVector({})->length(), 0u);

    EXPECT_EQ(C::pointFromVector({8, 4, 99})->description(), "{8, 4}");
    EXPECT_EQ(C::sizeFromVector({1734, 1156})->description(), "{1734, 1156}");
    // A point or size needs two values; fewer are refused instead of read past the end.
    try {
        C::sizeFromVector({1});
        FAIL();
    } catch (const cd_exception& e) {
        EXPECT_STREQ(e.what(), "KSDataTypeConverter - the vector needs two values");
    }
    EXPECT_THROW(C::pointFromVector({}), cd_exception);
}

TEST(KSImageProcessingInfo, DescriptionListsTheThreeArrays) {
    using C = KSDataTypeConverter;
    auto info = KSImageProcessingInfo::initWithCamToOutRGBMatrix(C::floatArrayFromVector({1, 0}),
                                                                 C::floatArrayFromVector({2}),
                                                                 C::floatArrayFromVector({0.5f}));
    const std::string d = info->description();
    const std::string tail =
        "\ncamToOutRGBMatrix: (\n    1,\n    0\n) \n\n camToXYZMatrix: (\n    2\n) \n\n cameraMaxValuesRGB: (\n    "
        "0.5\n)";
    ASSERT_GE(d.size(), tail.size());
    EXPECT_EQ(d.substr(d.size() - tail.size()), tail);
    EXPECT_EQ(d.rfind("<KSImageProcessingInfo: 0x", 0), 0u);
    info->setCameraMaxValuesRGB(C::floatArrayFromVector({1, 1, 1}));
    EXPECT_EQ(info->cameraMaxValuesRGB()->count(), 3u);
}
