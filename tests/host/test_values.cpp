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

TEST(KSValue, KindsAccessorsAndEquality) {
    auto f = KSValue::numberWithFloat(0.5f);
    EXPECT_TRUE(f->isNumber());
    EXPECT_EQ(f->kind(), KSValue::Kind::Float);
    EXPECT_DOUBLE_EQ(f->doubleValue(), 0.5);
    EXPECT_EQ(KSValue::numberWithShort(-2)->longLongValue(), -2);
    EXPECT_EQ(KSValue::numberWithDouble(1e30)->unsignedLongValue(), UINT64_MAX);  // saturates
    EXPECT_THROW(KSValue::stringWithString("x")->doubleValue(), cd_exception);
    EXPECT_THROW(f->arrayValue(), cd_exception);

    auto a = KSValue::arrayWithArray({KSValue::numberWithUnsignedShort(1), KSValue::numberWithUnsignedShort(2)});
    EXPECT_EQ(a->count(), 2u);
    EXPECT_EQ(a->floatVector(), (std::vector<float>{1, 2}));
    EXPECT_THROW(a->objectAtIndex(2), cd_exception);

    // Equality compares kind and contents: an unsigned short 1 is not an unsigned long 1.
    EXPECT_TRUE(a->isEqual(*KSValue::arrayWithArray({KSValue::numberWithUnsignedShort(1),
                                                     KSValue::numberWithUnsignedShort(2)})));
    EXPECT_FALSE(KSValue::numberWithUnsignedShort(1)->isEqual(*KSValue::numberWithUnsignedLong(1)));
    const unsigned char bytes[3] = {1, 2, 3};
    EXPECT_TRUE(KSValue::valueWithData(KSData::dataWithBytes(bytes, 3))
                    ->isEqual(*KSValue::valueWithData(KSData::dataWithBytes(bytes, 3))));
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

TEST(KSDataTypeConverter, ArraysKeepTheNamedNumberKinds) {
    using C = KSDataTypeConverter;
    auto bytes = C::byteArrayFromVector({1, 4, 0, 0});
    ASSERT_EQ(bytes->count(), 4u);
    EXPECT_EQ(bytes->objectAtIndex(1)->kind(), KSValue::Kind::UnsignedShort);
    EXPECT_EQ(bytes->objectAtIndex(1)->unsignedShortValue(), 4);
    EXPECT_EQ(C::longArrayFromVector({4294967295u})->objectAtIndex(0)->kind(), KSValue::Kind::UnsignedLong);
    EXPECT_EQ(C::longArrayFromVector({4294967295u})->objectAtIndex(0)->unsignedLongValue(), 4294967295u);
    EXPECT_EQ(C::shortArrayFromVector({65535})->objectAtIndex(0)->unsignedShortValue(), 65535);
    auto ss = C::signedShortArrayFromVector({-32768, 5});
    EXPECT_EQ(ss->objectAtIndex(0)->kind(), KSValue::Kind::Short);
    EXPECT_EQ(ss->objectAtIndex(0)->shortValue(), -32768);
    EXPECT_EQ(C::floatArrayFromVector({0.25f, 3})->floatVector(), (std::vector<float>{0.25f, 3}));
    std::valarray<float> va{1.5f, -2.0f, 0.0f};
    auto fv = C::floatArrayFromValarray(va);
    EXPECT_EQ(fv->objectAtIndex(0)->kind(), KSValue::Kind::Float);
    EXPECT_EQ(fv->floatVector(), (std::vector<float>{1.5f, -2.0f, 0.0f}));
    EXPECT_EQ(C::floatArrayFromVector({})->count(), 0u);

    auto d = C::dataFromVector({0xde, 0xad, 0x00, 0xef});
    ASSERT_EQ(d->length(), 4u);
    EXPECT_EQ(d->bytes()[3], 0xef);
    EXPECT_EQ(C::dataFromVector({})->length(), 0u);

    EXPECT_EQ(C::pointFromVector({8, 4, 99})->pointValue().x, 8.0);
    EXPECT_EQ(C::pointFromVector({8, 4})->pointValue().y, 4.0);
    EXPECT_EQ(C::sizeFromVector({1734, 1156})->sizeValue().width, 1734.0);
    EXPECT_EQ(C::sizeFromVector({1734, 1156})->sizeValue().height, 1156.0);
    // A point or size needs two values; fewer are refused instead of read past the end.
    EXPECT_THROW(C::sizeFromVector({1}), cd_exception);
    try {
        C::pointFromVector({});
        FAIL();
    } catch (const cd_exception& e) {
        EXPECT_STREQ(e.what(), "KSDataTypeConverter - the vector needs two values");
    }
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
