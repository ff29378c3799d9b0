// TIFF parser: header checks, main-image selection, the type-conversion table and its failure
// texts, string and scalar rules, statuses, the rational repair, and the bounds checks that keep
// every read inside the frame buffer.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <functional>
#include <cstring>
#include <sstream>

#include "tiff_test_util.h"

using namespace cinedng;
using namespace cinedng::framebuilder;
using namespace tifftest;

namespace {

tiffTagCodes code(int c) { return static_cast<tiffTagCodes>(c); }

// One tag of every numeric field type, plus strings, in a frame of the given byte order.
// Tag numbers 1000 + type.
std::vector<uint8_t> allTypesFrame(ByteOrder order) {
    TiffBuilder b(order);
    b.addLongs(0, 254, {0});
    b.addBytes(0, 1001, {200, 7});
    b.addBytes(0, 1002, {'H', 'i', 0}, ASCII);
    b.addShorts(0, 1003, {40000, 3});
    b.addLongs(0, 1004, {3000000000u, 5});
    b.addRationals(0, 1005, {{1, 3}, {10, 4}});
    b.addBytes(0, 1006, {static_cast<uint8_t>(-5), 9}, SBYTE);
    b.addBytes(0, 1007, {1, 2, 3}, UNDEFINED);
    b.addShorts(0, 1008, {static_cast<uint16_t>(-3), 4}, SSHORT);
    b.addLongs(0, 1009, {static_cast<uint32_t>(-7), 8}, SLONG);
    b.addRationals(0, 1010, {{static_cast<uint32_t>(-1), 4}, {3, 2}}, SRATIONAL);
    b.addFloats(0, 1011, {2.0f, -0.5f});
    b.addDoubles(0, 1012, {0.1, -1e300});
    b.addLongs(0, 1013, {8, 9}, IFDTYPE);
    return buildPadded(b);
}

}  // namespace

// ---- header ----------------------------------------------------------------------------------

TEST(ParseTiffHeader, RefusesNullShortAndMalformedBuffers) {
    cd_parseTiff p;
    EXPECT_CD_THROW(p.configure(nullptr, 1000), "cd_parseTiff - the imageBuffer may not be null");
    // 99 bytes fail on their size before the (bad) byte order is looked at.
    std::vector<char> junk(99, 'X');
    EXPECT_CD_THROW(p.configure(junk.data(), junk.size()), "cd_parseTiff - the imageBufferSize may not be < 100");
    junk.resize(100);
    EXPECT_CD_THROW(p.configure(junk.data(), junk.size()), "cd_parseTiff - illegal byte order tag");

    TiffBuilder b;
    b.addLongs(0, 256, {1});
    std::vector<uint8_t> f = buildPadded(b);
    f[2] = 43;
    EXPECT_CD_THROW(p.configure(reinterpret_cast<const char*>(f.data()), f.size()), "cd_parseTiff - illegal TIFF version");
    f[2] = 42;
    f[4] = 0xF0;  // IFD 0 offset far past the end
    EXPECT_CD_THROW(p.configure(reinterpret_cast<const char*>(f.data()), f.size()),
                    "cd_parseTiff - IFD 0 lies outside the frame buffer");
}

TEST(ParseTiffHeader, QueriesBeforeConfigureRaise) {
    cd_parseTiff p;
    unsigned int v = 0;
    EXPECT_CD_THROW(p.locateTag(256), "ifd0 != NULL");
    EXPECT_CD_THROW(p.getTag(tiffTagCodes::ImageWidth, &v), "ifd0 != NULL");
}

TEST(ParseTiffHeader, ByteOrderAndSwapFlag) {
    for (ByteOrder order : {ByteOrder::II, ByteOrder::MM}) {
        auto f = parse(allTypesFrame(order));
        EXPECT_EQ(f->p.byteOrder, order == ByteOrder::II ? 0x4949 : 0x4D4D);
        EXPECT_EQ(f->p.swapBytes, f->p.byteOrder != cd_parseTiff::getNativeByteOrder());
    }
    EXPECT_EQ(cd_parseTiff::getNativeByteOrder(), 0x4949);  // every machine we build for
    cd_parseTiff p;
    p.swapBytes = true;
    EXPECT_EQ(p.byteSwap(static_cast<unsigned short>(0x1234)), 0x3412);
    EXPECT_EQ(p.byteSwap(0x12345678u), 0x78563412u);
    p.swapBytes = false;
    EXPECT_EQ(p.byteSwap(0x12345678u), 0x12345678u);
}

// ---- main image selection ----------------------------------------------------------------------

TEST(ParseTiffMainImage, NoNewSubFileTypeMeansIfd0) {
    TiffBuilder b;
    b.addLongs(0, 256, {11});
    auto f = parse(b);
    EXPECT_EQ(f->configureStatus, 0);
    EXPECT_EQ(f->configureStderr, "No newSubFileType in ifd 0. Assuming ifd 0 is main image\n");
    EXPECT_EQ(f->p.subIFD, nullptr);
}

TEST(ParseTiffMainImage, SecondSubIfdWithTypeZeroIsChosen) {
    for (ByteOrder order : {ByteOrder::II, ByteOrder::MM}) {
        TiffBuilder b(order);
        b.addLongs(0, 254, {1});
        b.addLongs(0, 256, {16});
        const int preview = b.addSubIFD(0);
        const int raw = b.addSubIFD(0);
        b.addLongs(preview, 254, {1});
        b.addLongs(preview, 256, {320});
        b.addLongs(raw, 254, {0});
        b.addLongs(raw, 256, {4096});
        auto f = parse(b);
        EXPECT_EQ(f->configureStatus, 0);
        EXPECT_EQ(f->configureStderr, "Looking in subIFDs\nnewSubFileType 0 found in a subIFD\n");
        unsigned int width = 0;
        EXPECT_EQ(f->p.getTag(tiffTagCodes::ImageWidth, &width), 0);
        EXPECT_EQ(width, 4096u);  // the sub-IFD is searched before IFD 0
    }
}

TEST(ParseTiffMainImage, SubIfdWithoutItsOwnTypeInheritsIfd0sAndFails) {
    TiffBuilder b;
    b.addLongs(0, 254, {1});
    const int sub = b.addSubIFD(0);
    b.addLongs(sub, 256, {64});
    EXPECT_CD_THROW(parse(b), "cd_parseTiff - newSubFileType must be 0 at the end of parsing");

    TiffBuilder noSubs;
    noSubs.addLongs(0, 254, {1});
    EXPECT_CD_THROW(parse(noSubs), "cd_parseTiff - newSubFileType must be 0 at the end of parsing");
}

TEST(ParseTiffMainImage, SubIfdListOutsideTheBufferOrOfTypeIfdIsRefused) {
    TiffBuilder b;
    b.addLongs(0, 254, {1});
    b.addLongs(0, 330, {100000});
    EXPECT_CD_THROW(parse(b), "cd_parseTiff - sub-IFD lies outside the frame buffer");

    // SubIFDs typed IFD (13) is not among the types the unsigned query takes.
    TiffBuilder t;
    t.addLongs(0, 254, {1});
    const int sub = t.addSubIFD(0, IFDTYPE);
    t.addLongs(sub, 254, {0});
    EXPECT_CD_THROW(parse(t), "cd_parseTiff - type of unrecognized tag is not LONG");
    EXPECT_EQ(lastConfigureStderr(), "Looking in subIFDs\n" + typeLines(330, 13, 1));
}

// ---- the type table ------------------------------------------------------------------------------

TEST(ParseTiffTypes, EachOverloadAcceptsItsTypesAndNamesTheOthers) {
    auto f = parse(allTypesFrame(ByteOrder::II));
    cd_parseTiff& p = f->p;
    struct Overload {
        const char* message;
        std::vector<int> accepted;
        std::function<int(tiffTagCodes)> query;
    };
    const std::vector<Overload> overloads = {
        {"tag.Type == TIFF_SHORT", {1, 3}, [&](tiffTagCodes c) { std::vector<unsigned short> v; return p.getTag(c, &v); }},
        {"cd_parseTiff - type of unrecognized tag is not LONG", {1, 3, 4},
         [&](tiffTagCodes c) { std::vector<unsigned int> v; return p.getTag(c, &v); }},
        {"cd_parseTiff - type of unrecognized tag is not SSHORT", {1, 8},
         [&](tiffTagCodes c) { std::vector<short> v; return p.getTag(c, &v); }},
        {"cd_parseTiff - type of unrecognized tag is not SLONG", {1, 3, 8, 9},
         [&](tiffTagCodes c) { std::vector<int> v; return p.getTag(c, &v); }},
        {"cd_parseTiff - type of unrecognized tag is not RATIONAL", {1, 3, 4, 5},
         [&](tiffTagCodes c) { std::vector<urational> v; return p.getTag(c, &v); }},
        {"cd_parseTiff - type of unrecognized tag is not SRATIONAL", {1, 3, 4, 5, 6, 8, 9, 10, 11},
         [&](tiffTagCodes c) { std::vector<srational> v; return p.getTag(c, &v); }},
        {"cd_parseTiff - type of unrecognized tag is not FLOAT", {1, 3, 4, 5, 6, 8, 9, 10, 11, 12},
         [&](tiffTagCodes c) { std::vector<float> v; return p.getTag(c, &v); }},
        {"cd_parseTiff - type of unrecognized tag is not DOUBLE", {1, 3, 4, 5, 6, 8, 9, 10, 11, 12},
         [&](tiffTagCodes c) { std::vector<double> v; return p.getTag(c, &v); }},
        {"tag.Type == TIFF_ASCII", {1, 2}, [&](tiffTagCodes c) { std::string s; return p.getTag(c, &s); }},
    };
    for (const Overload& o : overloads) {
        for (int type = 1; type <= 13; ++type) {
            const bool accepted = std::find(o.accepted.begin(), o.accepted.end(), type) != o.accepted.end();
            testing::internal::CaptureStderr();
            if (accepted) {
                EXPECT_EQ(o.query(code(1000 + type)), 0) << o.message << " type " << type;
                testing::internal::GetCapturedStderr();
            } else {
                EXPECT_CD_THROW(o.query(code(1000 + type)), o.message);
                const unsigned count = (type == 2 || type == 7) ? 3 : 2;
                EXPECT_EQ(testing::internal::GetCapturedStderr(), typeLines(1000 + type, type, count))
                    << o.message << " type " << type;
            }
        }
    }
}

TEST(ParseTiffTypes, ByteVectorQueryReturnsFiveForOtherTypesWithoutRaising) {
    auto f = parse(allTypesFrame(ByteOrder::II));
    std::vector<unsigned char> v = {1, 2, 3};
    testing::internal::CaptureStderr();
    EXPECT_EQ(f->p.getTag(code(1003), &v), 5);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              typeLines(1003, 3, 2) +
                  "\"Could not read tag, it's not in byte format\"   = Could not read tag, it's not in byte format\n");
    EXPECT_EQ(f->p.status, 0);  // returned, not stored
    EXPECT_TRUE(v.empty());
    EXPECT_EQ(f->p.getTag(code(1001), &v), 0);
    EXPECT_EQ(v, (std::vector<unsigned char>{200, 7}));
    EXPECT_EQ(f->p.getTag(code(1002), &v), 0);
    EXPECT_EQ(v, (std::vector<unsigned char>{'H', 'i', 0}));
}

TEST(ParseTiffTypes, ConversionsIncludingByteSignExtension) {
    for (ByteOrder order : {ByteOrder::II, ByteOrder::MM}) {
        auto f = parse(allTypesFrame(order));
        cd_parseTiff& p = f->p;
        // A BYTE of 200 is read as -56 and widened.
        std::vector<unsigned short> us;
        std::vector<unsigned int> ui;
        std::vector<short> ss;
        std::vector<int> si;
        std::vector<urational> ur;
        std::vector<srational> sr;
        std::vector<float> fl;
        std::vector<double> db;
        ASSERT_EQ(p.getTag(code(1001), &us), 0);
        EXPECT_EQ(us[0], 65480);
        ASSERT_EQ(p.getTag(code(1001), &ui), 0);
        EXPECT_EQ(ui[0], 4294967240u);
        ASSERT_EQ(p.getTag(code(1001), &ss), 0);
        EXPECT_EQ(ss[0], -56);
        ASSERT_EQ(p.getTag(code(1001), &si), 0);
        EXPECT_EQ(si[0], -56);
        EXPECT_EQ(si[1], 7);
        ASSERT_EQ(p.getTag(code(1001), &ur), 0);
        EXPECT_EQ(ur[0].n, 4294967240u);
        EXPECT_EQ(ur[0].d, 1u);
        ASSERT_EQ(p.getTag(code(1001), &sr), 0);
        EXPECT_EQ(sr[0].n, -56);
        ASSERT_EQ(p.getTag(code(1001), &fl), 0);
        EXPECT_EQ(fl[0], -56.0f);

        ASSERT_EQ(p.getTag(code(1003), &si), 0);  // SHORT into int
        EXPECT_EQ(si[0], 40000);
        ASSERT_EQ(p.getTag(code(1004), &sr), 0);  // LONG into srational wraps
        EXPECT_EQ(sr[0].n, static_cast<int32_t>(3000000000u));
        EXPECT_LT(static_cast<float>(sr[0]), 0.0f);
        ASSERT_EQ(p.getTag(code(1004), &db), 0);
        EXPECT_EQ(db[0], 3000000000.0);
        ASSERT_EQ(p.getTag(code(1005), &fl), 0);  // RATIONAL as its quotient
        EXPECT_FLOAT_EQ(fl[0], 1.0f / 3.0f);
        EXPECT_FLOAT_EQ(fl[1], 2.5f);
        ASSERT_EQ(p.getTag(code(1005), &sr), 0);
        EXPECT_EQ(sr[1].n, 10);
        EXPECT_EQ(sr[1].d, 4);
        ASSERT_EQ(p.getTag(code(1006), &db), 0);  // SBYTE
        EXPECT_EQ(db[0], -5.0);
        ASSERT_EQ(p.getTag(code(1006), &sr), 0);
        EXPECT_EQ(sr[0].n, -5);
        ASSERT_EQ(p.getTag(code(1008), &ss), 0);  // SSHORT
        EXPECT_EQ(ss[0], -3);
        ASSERT_EQ(p.getTag(code(1009), &si), 0);  // SLONG
        EXPECT_EQ(si[0], -7);
        ASSERT_EQ(p.getTag(code(1010), &sr), 0);  // SRATIONAL
        EXPECT_EQ(sr[0].n, -1);
        EXPECT_EQ(sr[0].d, 4);
        ASSERT_EQ(p.getTag(code(1010), &fl), 0);
        EXPECT_FLOAT_EQ(fl[0], -0.25f);
        ASSERT_EQ(p.getTag(code(1011), &sr), 0);  // FLOAT through the float-to-rational spread
        EXPECT_EQ(sr[0].n, INT32_MIN);
        EXPECT_EQ(sr[0].d, INT32_MIN);
        EXPECT_EQ(sr[1].n, 0);  // -0.5 gives 0/-1
        EXPECT_EQ(sr[1].d, -1);
        ASSERT_EQ(p.getTag(code(1011), &fl), 0);
        EXPECT_EQ(fl[1], -0.5f);
        ASSERT_EQ(p.getTag(code(1012), &db), 0);  // DOUBLE
        EXPECT_EQ(db[0], 0.1);
        ASSERT_EQ(p.getTag(code(1012), &fl), 0);
        EXPECT_EQ(fl[0], 0.1f);
        EXPECT_TRUE(std::isinf(fl[1]) && fl[1] < 0);  // out of float range: -inf, defined
    }
}

TEST(ParseTiffTypesDeathTest, FloatOutsideTheRationalRangeReachesTheRationalAssertion) {
    TiffBuilder b;
    b.addFloats(0, 51044, {std::nanf("")});
    b.addFloats(0, 1000, {1e30f});
    auto f = parse(b);
    srational r;
    EXPECT_DEATH(f->p.getTag(tiffTagCodes::FrameRate, &r), "LONG_MIN <= F && F <= LONG_MAX");
    EXPECT_DEATH(f->p.getTag(code(1000), &r), "LONG_MIN <= F && F <= LONG_MAX");
}

// ---- strings -------------------------------------------------------------------------------------

TEST(ParseTiffStrings, AsciiStopsAtZeroByteKeepsEveryByte) {
    TiffBuilder b;
    b.addBytes(0, 271, {'A', 'B', 0, 'C', 'D', 0}, ASCII);
    b.addBytes(0, 272, {'A', 'B', 0, 'C', 'D'}, BYTE);
    b.addBytes(0, 305, {'X', 'Y', 'Z'}, ASCII);  // no terminator
    b.addAscii(0, 306, "A");                     // "A" and its zero: inside the entry
    b.addAscii(0, 315, "ABCD");                  // five bytes: out of line
    b.addBytes(0, 37510, {'A', 'S', 'C', 'I', 'I', 0, 0, 0, 'h', 'i'}, UNDEFINED);
    auto f = parse(b);
    cd_parseTiff& p = f->p;
    std::string s = "old";
    EXPECT_EQ(p.getTag(tiffTagCodes::Make, &s), 0);
    EXPECT_EQ(s, "AB");
    EXPECT_EQ(p.getTag(tiffTagCodes::Model, &s), 0);
    EXPECT_EQ(s, std::string("AB\0CD", 5));
    EXPECT_EQ(p.getTag(tiffTagCodes::Software, &s), 0);
    EXPECT_EQ(s, "XYZ");
    EXPECT_EQ(p.getTag(tiffTagCodes::DateTime, &s), 0);
    EXPECT_EQ(s, "A");
    EXPECT_EQ(p.tag.pValue, p.searchIFD(306, p.ifd0) + 8);
    EXPECT_EQ(p.getTag(tiffTagCodes::Artist, &s), 0);
    EXPECT_EQ(s, "ABCD");
    EXPECT_NE(p.tag.pValue, p.searchIFD(315, p.ifd0) + 8);
    EXPECT_EQ(p.stats().bytesProcessed, 2u + 5u + 3u + 1u + 4u);
    // A UserComment typed UNDEFINED, as EXIF allows, is refused by the string query.
    testing::internal::CaptureStderr();
    EXPECT_CD_THROW(p.getTag(tiffTagCodes::UserComment, &s), "tag.Type == TIFF_ASCII");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), typeLines(37510, 7, 10));
    // Absent: emptied, 1010.
    s = "old";
    EXPECT_EQ(p.getTag(tiffTagCodes::Copyright, &s), 1010);
    EXPECT_EQ(s, "");
}

// ---- statuses and scalars ---------------------------------------------------------------------------

TEST(ParseTiffStatus, ScalarQueriesAndTheirStatuses) {
    TiffBuilder b;
    b.addShorts(0, 258, {12, 12, 12});               // multi-valued
    b.addShorts(0, 256, {4096});
    b.addRawEntry(0, 257, SHORT, 0, {});            // count 0
    b.addRawEntry(0, 259, 42, 1, {1, 0, 0, 0});     // unknown field type
    b.addLiteralEntry(0, 262, SHORT, 0x80000000u, 0);  // count * 2 wraps to 0
    b.addRationals(0, 51044, {{24000, 1001}, {1, 1}});
    auto f = parse(b);
    cd_parseTiff& p = f->p;

    unsigned int u = 99;
    EXPECT_EQ(p.getTag(tiffTagCodes::ImageWidth, &u), 0);
    EXPECT_EQ(u, 4096u);
    unsigned short bits = 99;
    EXPECT_EQ(p.getTag(tiffTagCodes::BitsPerSample, &bits), 1011);
    EXPECT_EQ(p.status, 1011);
    EXPECT_EQ(bits, 0);
    std::vector<unsigned short> all;
    EXPECT_EQ(p.getTag(tiffTagCodes::BitsPerSample, &all), 0);
    EXPECT_EQ(all.size(), 3u);

    u = 99;
    EXPECT_EQ(p.getTag(tiffTagCodes::ImageLength, &u), 1003);
    EXPECT_EQ(u, 0u);
    EXPECT_EQ(p.getTag(tiffTagCodes::Compression, &u), 1003);  // a type outside the table has size 0
    EXPECT_EQ(p.tag.Type, 42);
    EXPECT_EQ(p.getTag(tiffTagCodes::PhotometricInterpretation, &u), 1003);
    EXPECT_EQ(p.tag.FieldSize, 0u);
    EXPECT_EQ(p.getTag(tiffTagCodes::Orientation, &u), 1010);

    srational r(5, 7);
    EXPECT_EQ(p.getTag(tiffTagCodes::FrameRate, &r), 1011);
    EXPECT_EQ(r.n, 0);
    EXPECT_EQ(r.d, 1);
    urational ur(5u, 7u);
    EXPECT_EQ(p.getTag(tiffTagCodes::ExposureIndex, &ur), 1010);
    EXPECT_EQ(ur.n, 0u);
    EXPECT_EQ(ur.d, 1u);
    std::vector<float> v = {1.0f};
    EXPECT_EQ(p.getTag(tiffTagCodes::TStop, &v), 1010);
    EXPECT_TRUE(v.empty());
}

TEST(ParseTiffStatus, EntryFieldsAndSearchOrder) {
    TiffBuilder b;
    b.setSortTags(false);
    b.addShorts(0, 256, {1});
    b.addShorts(0, 256, {2});  // duplicate: the first entry wins
    b.addShorts(0, 258, {16});
    auto f = parse(b);
    cd_parseTiff& p = f->p;
    unsigned short w = 0;
    EXPECT_EQ(p.getTag(tiffTagCodes::ImageWidth, &w), 0);
    EXPECT_EQ(w, 1);
    EXPECT_EQ(p.searchIFD(256, nullptr), nullptr);
    EXPECT_EQ(p.searchIFD(999, p.ifd0), nullptr);
    ASSERT_EQ(p.getlocalIFDEntry(258), 0);
    EXPECT_EQ(p.tag.Tag, 258);
    EXPECT_EQ(p.tag.Type, SHORT);
    EXPECT_EQ(p.tag.Count, 1u);
    EXPECT_EQ(p.tag.FieldSize, 2u);
    EXPECT_EQ(p.tag.validBytes, f->bytes.size() - static_cast<size_t>(p.tag.pValue - f->bytes.data()));
}

TEST(ParseTiffStatus, ZeroDenominatorIsRepairedWithAWarning) {
    TiffBuilder b;
    b.addRationals(0, 50728, {{5, 0}, {0, 0}, {1, 2}});
    auto f = parse(b);
    std::vector<urational> v;
    testing::internal::CaptureStderr();
    ASSERT_EQ(f->p.getTag(tiffTagCodes::AsShotNeutral, &v), 0);
    const std::string err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(v[0].n, 5u);
    EXPECT_EQ(v[0].d, 1u);
    EXPECT_EQ(v[1].n, 0u);
    EXPECT_EQ(v[1].d, 1u);
    EXPECT_EQ(v[2].d, 2u);
    std::ostringstream one;
    one << "\n\n WARNING: \n" << std::string(21, ' ') << "tag   = " << f->p.tag << "\n has Malformed Rational Number \n"
        << std::string(23, ' ') << "n   = ";
    const std::string tail = "\n" + std::string(23, ' ') + "d   = 0\nSetting d to 1... \n";
    EXPECT_EQ(err, one.str() + "5" + tail + one.str() + "0" + tail);
}

TEST(ParseTiffStatus, StatisticsCountElements) {
    auto f = parse(allTypesFrame(ByteOrder::II));
    const uint64_t before = f->p.stats().bytesProcessed;
    std::vector<double> d;
    f->p.getTag(code(1012), &d);
    EXPECT_EQ(f->p.stats().bytesProcessed - before, 2u);
    EXPECT_GE(f->p.stats().timeOpen, 0.0f);
}

// ---- bounds ----------------------------------------------------------------------------------------

TEST(ParseTiffBounds, ValuesAndIfdsOutsideTheBufferRaise) {
    TiffBuilder b;
    b.addShorts(0, 256, {1});
    b.addLiteralEntry(0, 272, ASCII, 20, 5000);            // out-of-line value past the end
    b.addLiteralEntry(0, 273, LONG, 0x40000001u, 0);      // count*4 wraps to 4: in the entry, but
                                                          // the real extent runs far past the end
    b.addLiteralEntry(0, 279, LONG, 30, 0xFFFFFFF0u);     // offset near 4 GiB
    auto f = parse(b);
    cd_parseTiff& p = f->p;
    std::string s;
    EXPECT_CD_THROW(p.getTag(tiffTagCodes::Model, &s), "cd_parseTiff - tag value lies outside the frame buffer");
    std::vector<unsigned int> v;
    EXPECT_EQ(p.getlocalIFDEntry(273), 0);
    EXPECT_EQ(p.tag.FieldSize, 4u);
    EXPECT_CD_THROW(p.getTag(tiffTagCodes::StripOffsets, &v), "cd_parseTiff - tag value runs past the end of the frame buffer");
    EXPECT_CD_THROW(p.getTag(tiffTagCodes::StripByteCounts, &v), "cd_parseTiff - tag value lies outside the frame buffer");

    // An IFD whose entry count runs past the end of the buffer.
    TiffBuilder c;
    c.addShorts(0, 256, {1});
    std::vector<uint8_t> frame = buildPadded(c);
    frame[8] = 0xFF;  // 255 entries claimed
    EXPECT_CD_THROW(parse(frame), "cd_parseTiff - IFD entries run past the end of the frame buffer");
}
