// Header model and attribute serialisation: exact bytes of the header, the fixed attribute order,
// the write conditions of the optional attributes, and the stream handling of the writer.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

#include "cinedng/cd_exception.h"
#include "cinedng/cd_exrStructs.h"
#include "cinedng/cd_writeOpenEXRattributes.h"
#include "test_exrSupport.h"

using namespace cinedng;
using exrtest::Attribute;

namespace {

std::vector<unsigned char> headerBytes(openEXRHeaderInfo& hi) {
    cd_writeOpenEXRattributes w;
    w.writeMagicNumberAndVersion();
    w.writeHeader(hi);
    const uint64_t n = w.StreamPosition();
    std::vector<unsigned char> out(n);
    w.copyToBuffer(reinterpret_cast<char*>(out.data()), n);
    return out;
}

openEXRHeaderInfo window(int cols, int rows) {
    openEXRHeaderInfo hi;
    hi.dataWindow = box2i(0, 0, cols - 1, rows - 1);
    hi.displayWindow = hi.dataWindow;
    return hi;
}

const std::vector<std::string> kAlways = {"channels",  "compression",       "dataWindow",       "displayWindow",
                                          "lineOrder", "pixelAspectRatio",  "screenWindowCenter",
                                          "screenWindowWidth", "uuid",      "acesFlag",         "originalImageFlag",
                                          "chromaticities"};

std::vector<unsigned char> bytesOf(std::initializer_list<int> v) {
    std::vector<unsigned char> out;
    for (int b : v) out.push_back(static_cast<unsigned char>(b));
    return out;
}

}  // namespace

TEST(ExrHeader, DefaultHeaderBytesStartWithMagicVersionAndChannelList) {
    openEXRHeaderInfo hi = window(2, 2);
    const std::vector<unsigned char> b = headerBytes(hi);
    ASSERT_GT(b.size(), 100u);
    EXPECT_EQ(std::vector<unsigned char>(b.begin(), b.begin() + 8), bytesOf({0x76, 0x2F, 0x31, 0x01, 2, 0, 0, 0}));
    const std::string expectedStart = std::string("channels\0chlist\0", 16) + std::string("\x37\0\0\0", 4);
    EXPECT_EQ(std::string(b.begin() + 8, b.begin() + 8 + 20), expectedStart);

    // R, G, B in vector order: name, pixel type 1 (half), pLinear word 0, sampling 1 x 1; then a null.
    std::vector<unsigned char> chlist;
    for (char c : std::string("RGB")) {
        const std::vector<unsigned char> one =
            bytesOf({c, 0, 1, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0});
        chlist.insert(chlist.end(), one.begin(), one.end());
    }
    chlist.push_back(0);
    ASSERT_EQ(chlist.size(), 55u);
    EXPECT_EQ(std::vector<unsigned char>(b.begin() + 28, b.begin() + 28 + 55), chlist);
}

TEST(ExrHeader, DefaultHeaderHoldsTheAcesDefaultsAndOnlyAdoptedNeutralOfTheOptionalOnes) {
    openEXRHeaderInfo hi = window(2, 2);
    std::size_t end = 0;
    const std::vector<unsigned char> b = headerBytes(hi);
    const std::vector<Attribute> attrs = exrtest::parseHeader(b, &end);
    EXPECT_EQ(end, b.size());
    std::vector<std::string> expected = kAlways;
    expected.push_back("adoptedNeutral");
    EXPECT_EQ(exrtest::names(attrs), expected);

    const Attribute* chroma = exrtest::find(attrs, "chromaticities");
    ASSERT_NE(chroma, nullptr);
    EXPECT_EQ(chroma->type, "chromaticities");
    ASSERT_EQ(chroma->value.size(), 32u);
    const float aces[8] = {0.7347f, 0.2653f, 0.0f, 1.0f, 0.0001f, -0.077f, 0.32168f, 0.33767f};
    for (int i = 0; i < 8; ++i) EXPECT_EQ(exrtest::lef32(&chroma->value[4 * i]), aces[i]) << i;

    const Attribute* neutral = exrtest::find(attrs, "adoptedNeutral");
    EXPECT_EQ(neutral->type, "v2f");
    EXPECT_EQ(exrtest::lef32(&neutral->value[0]), 0.32168f);
    EXPECT_EQ(exrtest::lef32(&neutral->value[4]), 0.33767f);

    const Attribute* uuid = exrtest::find(attrs, "uuid");
    EXPECT_EQ(uuid->type, "string");
    EXPECT_EQ(std::string(uuid->value.begin(), uuid->value.end()), "undefined");
    EXPECT_EQ(exrtest::find(attrs, "compression")->value, bytesOf({0}));
    EXPECT_EQ(exrtest::find(attrs, "lineOrder")->value, bytesOf({0}));
    EXPECT_EQ(exrtest::les32(exrtest::find(attrs, "acesFlag")->value.data()), 1);
    EXPECT_EQ(exrtest::les32(exrtest::find(attrs, "originalImageFlag")->value.data()), 0);
    EXPECT_EQ(exrtest::lef32(exrtest::find(attrs, "pixelAspectRatio")->value.data()), 1.0f);
    EXPECT_EQ(exrtest::lef32(exrtest::find(attrs, "screenWindowWidth")->value.data()), 1.0f);
    EXPECT_EQ(exrtest::find(attrs, "dataWindow")->value, bytesOf({0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0}));
}

TEST(ExrHeader, EverySetFieldIsWrittenInTheFixedOrderWithItsEncoding) {
    openEXRHeaderInfo hi = window(7, 3);
    hi.whiteLuminance = 100.0f;
    hi.lookModTransform = "look";
    hi.owner = "owner";
    hi.comments = "comments";
    hi.capDate = "2024:05:06 07:08:09";
    hi.utcOffset = -3600.0f;
    hi.longitude = 13.4f;
    hi.latitude = 52.5f;
    hi.altitude = 34.0f;
    hi.focus = 2.5f;
    hi.expTime = 0.02f;
    hi.aperture = 2.8f;
    hi.isoSpeed = 800.0f;
    hi.timeCode = timecode(0x10203015u, 0xAABBCCDDu);
    hi.keyCode = keycode(1, 2, 3, 4, 5, 6, 7);
    hi.framesPerSecond = srational(24000, 1001);
    hi.orientation = 1;
    hi.artist = "artist";
    hi.make = "make";
    hi.model = "model";
    hi.software = "DNGprocessor";
    hi.dateTime = "2024-05-06T07:08:09UTC";
    hi.copyright = "(c)";
    hi.imagenumber = 4711;
    const std::vector<Attribute> attrs = exrtest::parseHeader(headerBytes(hi));

    std::vector<std::string> expected = kAlways;
    for (const char* n : {"whiteLuminance", "adoptedNeutral", "lookModTransform", "owner", "comments", "capDate",
                          "utcOffset", "longitude", "latitude", "altitude", "focus", "expTime", "aperture",
                          "isoSpeed", "timeCode", "keyCode", "framesPerSecond", "orientation", "artist", "make",
                          "model", "software", "dateTime", "copyright", "imagenumber"})
        expected.push_back(n);
    ASSERT_EQ(expected.size(), 37u);
    EXPECT_EQ(exrtest::names(attrs), expected);

    const Attribute* tc = exrtest::find(attrs, "timeCode");
    EXPECT_EQ(tc->type, "timecode");
    EXPECT_EQ(tc->value, bytesOf({0x15, 0x30, 0x20, 0x10, 0xDD, 0xCC, 0xBB, 0xAA}));
    const Attribute* kc = exrtest::find(attrs, "keyCode");
    EXPECT_EQ(kc->type, "keycode");
    ASSERT_EQ(kc->value.size(), 28u);
    for (int i = 0; i < 7; ++i) EXPECT_EQ(exrtest::les32(&kc->value[4 * i]), i + 1);
    const Attribute* fps = exrtest::find(attrs, "framesPerSecond");
    EXPECT_EQ(fps->type, "rational");
    EXPECT_EQ(fps->value, bytesOf({0xC0, 0x5D, 0, 0, 0xE9, 0x03, 0, 0}));
    const Attribute* num = exrtest::find(attrs, "imagenumber");
    EXPECT_EQ(num->type, "int");
    EXPECT_EQ(exrtest::les32(num->value.data()), 4711);
    const Attribute* cap = exrtest::find(attrs, "capDate");
    EXPECT_EQ(std::string(cap->value.begin(), cap->value.end()), "2024:05:06 07:08:09");
    EXPECT_EQ(exrtest::lef32(exrtest::find(attrs, "utcOffset")->value.data()), -3600.0f);
    EXPECT_EQ(exrtest::find(attrs, "dataWindow")->value,
              bytesOf({0, 0, 0, 0, 0, 0, 0, 0, 6, 0, 0, 0, 2, 0, 0, 0}));
}

TEST(ExrHeader, SingleFieldsDecideWhetherARecordIsWritten) {
    openEXRHeaderInfo hi = window(2, 2);
    hi.adoptedNeutral = v2f(0.0f, 0.5f);              // y alone does not count
    hi.timeCode = timecode(0, 0x12345678u);           // user data alone does not count
    hi.keyCode = keycode(1, 2, 3, 4, 5, 0, 7);        // every field but perfsPerFrame
    hi.framesPerSecond = srational(0, 1);
    EXPECT_EQ(exrtest::names(exrtest::parseHeader(headerBytes(hi))), kAlways);

    hi.adoptedNeutral = v2f(0.25f, 0.0f);
    hi.timeCode = timecode(1, 0);
    hi.keyCode = keycode(0, 0, 0, 0, 0, 1, 0);
    const std::vector<std::string> n = exrtest::names(exrtest::parseHeader(headerBytes(hi)));
    EXPECT_NE(std::find(n.begin(), n.end(), "adoptedNeutral"), n.end());
    EXPECT_NE(std::find(n.begin(), n.end(), "timeCode"), n.end());
    EXPECT_NE(std::find(n.begin(), n.end(), "keyCode"), n.end());
}

TEST(ExrHeader, NaNCountsAsSetAndNegativeZeroDoesNot) {
    openEXRHeaderInfo hi = window(2, 2);
    hi.whiteLuminance = std::numeric_limits<float>::quiet_NaN();
    hi.focus = -0.0f;
    hi.adoptedNeutral = v2f(-0.0f, 1.0f);
    const std::vector<Attribute> attrs = exrtest::parseHeader(headerBytes(hi));
    const Attribute* wl = exrtest::find(attrs, "whiteLuminance");
    ASSERT_NE(wl, nullptr);
    EXPECT_TRUE(std::isnan(exrtest::lef32(wl->value.data())));
    EXPECT_EQ(exrtest::find(attrs, "focus"), nullptr);
    EXPECT_EQ(exrtest::find(attrs, "adoptedNeutral"), nullptr);
}

TEST(ExrHeader, EmptyStringsAreSkippedButUuidIsAlwaysWritten) {
    openEXRHeaderInfo hi = window(2, 2);
    hi.uuid = "";
    hi.owner = "";
    hi.software = "x";
    const std::vector<Attribute> attrs = exrtest::parseHeader(headerBytes(hi));
    const Attribute* uuid = exrtest::find(attrs, "uuid");
    ASSERT_NE(uuid, nullptr);
    EXPECT_EQ(uuid->type, "string");
    EXPECT_TRUE(uuid->value.empty());
    EXPECT_EQ(exrtest::find(attrs, "owner"), nullptr);
    const Attribute* sw = exrtest::find(attrs, "software");
    ASSERT_NE(sw, nullptr);
    EXPECT_EQ(sw->value, bytesOf({'x'}));
}

TEST(ExrHeader, StreamRewindsOverwritesAndRefusesToCopyUnwrittenBytes) {
    cd_writeOpenEXRattributes w;
    EXPECT_EQ(w.StreamPosition(), 0u);
    w.writeStringNZ("abcdef");
    w.SetStreamPosition(2);
    w.writeStringNZ("XY");
    EXPECT_EQ(w.StreamPosition(), 4u);
    char out[6];
    w.copyToBuffer(out, 6);
    EXPECT_EQ(std::string(out, 6), "abXYef");
    // Copying does not move the write position.
    w.writeChar('!');
    w.copyToBuffer(out, 6);
    EXPECT_EQ(std::string(out, 6), "abXY!f");
    EXPECT_THROW(w.copyToBuffer(out, 7), cd_exception);

    w.SetStreamPosition(1000);
    EXPECT_EQ(w.StreamPosition(), std::numeric_limits<uint64_t>::max());
}

TEST(ExrHeader, PrintForms) {
    std::ostringstream k;
    k << keycode(1, 2, 3, 4, 5, 6, 7);
    EXPECT_EQ(k.str(), "keycode< filmMfcCode:1, filmType:2, prefix:3, count:4, perfOffset:5, perfsPerFrame:6, "
                       "perfsPerCount:7 >");

    HeaderInfo h;
    h.owner = "me";
    h.framesPerSecond = srational(25, 1);
    h.timeCode = timecode(0x10203015u, 0);
    h.imagenumber = 99;
    std::ostringstream s;
    s << h;
    EXPECT_EQ(s.str(),
              "HeaderInfo< whiteLuminance:0, adoptedNeutral:(0,0), owner:me, comments:, capDate:, utcOffset:0, "
              "longitude:0, latitude:0, altitude:0, focus:0, expTime:0, aperture:0, isoSpeed:0, 10:20:30:15, "
              "keycode< filmMfcCode:0, filmType:0, prefix:0, count:0, perfOffset:0, perfsPerFrame:0, "
              "perfsPerCount:0 >, framesPerSecond:25/1, orientation:0, artist:, make:, model:, software:, "
              "dateTime:, copyright: >");

    // The complete header prints its descriptive part the same way, with the ACES neutral.
    openEXRHeaderInfo full;
    std::ostringstream f;
    f << full;
    EXPECT_NE(f.str().find("adoptedNeutral:(0.32168,0.33767)"), std::string::npos);
}
