// Header model and attribute serialisation: exact header bytes, the fixed attribute order, the
// write conditions of the optional attributes, the stream handling, the print forms.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "cinedng/cd_exception.h"
#include "cinedng/cd_exrStructs.h"
#include "cinedng/cd_writeOpenEXRattributes.h"
#include "test_exrSupport.h"

using namespace cinedng;
using exrtest::Bytes;

namespace {

// Magic, version and header of hi with a 2 x 2 data and display window.
exrtest::Bytes headerBytes(openEXRHeaderInfo hi) {
    hi.dataWindow = hi.displayWindow = box2i(0, 0, 1, 1);
    cd_writeOpenEXRattributes w;
    w.writeMagicNumberAndVersion();
    w.writeHeader(hi);
    Bytes out(w.StreamPosition());
    w.copyToBuffer(reinterpret_cast<char*>(out.data()), out.size());
    return out;
}

const std::vector<std::string> kAlways = {"channels", "compression", "dataWindow", "displayWindow", "lineOrder",
    "pixelAspectRatio", "screenWindowCenter", "screenWindowWidth", "uuid", "acesFlag", "originalImageFlag",
    "chromaticities"};

std::vector<std::string> plus(std::vector<std::string> v, std::initializer_list<const char*> more) {
    v.insert(v.end(), more.begin(), more.end());
    return v;
}

}  // namespace

TEST(ExrHeader, DefaultHeaderBytes) {
    const Bytes b = headerBytes(openEXRHeaderInfo());
    EXPECT_EQ(Bytes(b.begin(), b.begin() + 8), (Bytes{0x76, 0x2F, 0x31, 0x01, 2, 0, 0, 0}));
    EXPECT_EQ(std::string(b.begin() + 8, b.begin() + 28), std::string("channels\0chlist\0\x37\0\0\0", 20));
    // R, G, B in vector order: name, pixel type 1 (half), pLinear word 0, sampling 1 x 1; then a null.
    Bytes chlist;
    for (unsigned char c : {'R', 'G', 'B'})
        chlist.insert(chlist.end(), {c, 0, 1, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0});
    chlist.push_back(0);
    EXPECT_EQ(Bytes(b.begin() + 28, b.begin() + 28 + 55), chlist);

    // Of the optional attributes only adoptedNeutral (x = 0.32168) is written; the ACES defaults.
    const exrtest::Header h = exrtest::parseHeader(b);
    EXPECT_EQ(h.end, b.size());
    EXPECT_EQ(h.order, plus(kAlways, {"adoptedNeutral"}));
    const float aces[8] = {0.7347f, 0.2653f, 0.0f, 1.0f, 0.0001f, -0.077f, 0.32168f, 0.33767f};
    for (int i = 0; i < 8; ++i) EXPECT_EQ(exrtest::lef32(h.at("chromaticities") + 4 * i), aces[i]) << i;
    EXPECT_EQ(exrtest::lef32(h.at("pixelAspectRatio")), 1.0f);
    EXPECT_EQ(exrtest::lef32(h.at("screenWindowWidth")), 1.0f);
    EXPECT_EQ(h.a.at("dataWindow").second, (Bytes{0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0}));
}

TEST(ExrHeader, EverySetFieldIsWrittenInTheFixedOrderWithItsEncoding) {
    openEXRHeaderInfo hi;
    hi.whiteLuminance = hi.utcOffset = hi.longitude = hi.latitude = hi.altitude = hi.expTime = hi.isoSpeed = 1.5f;
    hi.focus = std::numeric_limits<float>::quiet_NaN();  // NaN counts as set
    hi.adoptedNeutral = v2f(0.25f, 0.0f);                // only x decides
    hi.aperture = 2.8f;
    hi.lookModTransform = hi.owner = hi.comments = hi.capDate = hi.artist = hi.make = hi.model = hi.software =
        hi.dateTime = hi.copyright = "s";
    hi.timeCode = timecode(0x10203015u, 0xAABBCCDDu);
    hi.keyCode = keycode(1, 2, 3, 4, 5, 6, 7);
    hi.framesPerSecond = srational(24000, 1001);
    hi.orientation = 1;
    hi.imagenumber = 4711;
    const exrtest::Header h = exrtest::parseHeader(headerBytes(hi));
    EXPECT_EQ(h.order, plus(kAlways, {"whiteLuminance", "adoptedNeutral", "lookModTransform", "owner", "comments",
                                      "capDate", "utcOffset", "longitude", "latitude", "altitude", "focus", "expTime",
                                      "aperture", "isoSpeed", "timeCode", "keyCode", "framesPerSecond", "orientation",
                                      "artist", "make", "model", "software", "dateTime", "copyright", "imagenumber"}));
    const std::map<std::string, std::pair<std::string, Bytes>> encoded = {
        {"timeCode", {"timecode", {0x15, 0x30, 0x20, 0x10, 0xDD, 0xCC, 0xBB, 0xAA}}},
        {"keyCode", {"keycode", {1, 0, 0, 0, 2, 0, 0, 0, 3, 0, 0, 0, 4, 0, 0, 0, 5, 0, 0, 0, 6, 0, 0, 0, 7, 0, 0, 0}}},
        {"framesPerSecond", {"rational", {0xC0, 0x5D, 0, 0, 0xE9, 3, 0, 0}}},
        {"imagenumber", {"int", {0x67, 0x12, 0, 0}}},
        {"aperture", {"float", {0x33, 0x33, 0x33, 0x40}}},
        {"owner", {"string", {'s'}}}};
    for (const auto& [name, value] : encoded) EXPECT_EQ(h.a.at(name), value) << name;
    EXPECT_TRUE(std::isnan(exrtest::lef32(h.at("focus"))));
}

TEST(ExrHeader, WriteConditions) {
    // Single fields decide for a whole record: y of adoptedNeutral, userData of the time code and
    // every key code field but perfsPerFrame do not count; -0.0 is not set; empty strings are skipped,
    // but uuid is always written.
    openEXRHeaderInfo hi;
    hi.adoptedNeutral = v2f(-0.0f, 0.5f);
    hi.timeCode = timecode(0, 0x12345678u);
    hi.keyCode = keycode(1, 2, 3, 4, 5, 0, 7);
    hi.framesPerSecond = srational(0, 5);
    hi.focus = -0.0f;
    hi.uuid = "";
    EXPECT_EQ(exrtest::parseHeader(headerBytes(hi)).order, kAlways);
    EXPECT_TRUE(exrtest::parseHeader(headerBytes(hi)).a.at("uuid").second.empty());  // written with size 0
}

TEST(ExrHeader, StreamRewindsOverwritesAndRefusesToCopyUnwrittenBytes) {
    cd_writeOpenEXRattributes w;
    w.writeStringNZ("abcdef");
    w.SetStreamPosition(2);
    w.writeStringZ("X");
    EXPECT_EQ(w.StreamPosition(), 4u);
    char out[6];
    w.copyToBuffer(out, 6);
    EXPECT_EQ(std::string(out, 6), std::string("abX\0ef", 6));
    EXPECT_THROW(w.copyToBuffer(out, 7), cd_exception);
    w.SetStreamPosition(1000);
    EXPECT_EQ(w.StreamPosition(), std::numeric_limits<uint64_t>::max());
}

TEST(ExrHeader, PrintForms) {
    HeaderInfo h;
    h.owner = "me";
    h.framesPerSecond = srational(25, 1);
    h.timeCode = timecode(0x10203015u, 0);
    h.keyCode = keycode(1, 2, 3, 4, 5, 6, 7);
    h.imagenumber = 99;
    std::ostringstream s;
    s << h;
    EXPECT_EQ(s.str(),
              "HeaderInfo< whiteLuminance:0, adoptedNeutral:(0,0), owner:me, comments:, capDate:, utcOffset:0, "
              "longitude:0, latitude:0, altitude:0, focus:0, expTime:0, aperture:0, isoSpeed:0, 10:20:30:15, "
              "keycode< filmMfcCode:1, filmType:2, prefix:3, count:4, perfOffset:5, perfsPerFrame:6, "
              "perfsPerCount:7 >, framesPerSecond:25/1, orientation:0, artist:, make:, model:, software:, "
              "dateTime:, copyright: >");
}
