// TIFF parser: header checks, main-image selection, the type-conversion table and its failure
// texts, string and scalar rules, statuses, the rational repair, and the bounds checks that keep
// every read inside the frame buffer.
#include <bit>
#include <sstream>
#include <type_traits>

#include "tiff_test_util.h"

using namespace cinedng;
using namespace cinedng::framebuilder;
using namespace tifftest;

namespace {

tiffTagCodes code(int c) { return static_cast<tiffTagCodes>(c); }

// One tag of every field type, tag number 1000 + type (rationals in twelfths).
std::vector<uint8_t> allTypesFrame(ByteOrder order) {
    const std::vector<std::vector<double>> values = {{200, 7}, {'H', 'i', 0}, {40000, 3}, {3e9, 5}, {1.0 / 3, 2.5},
                                                     {-5, 9}, {1, 2, 3}, {-3, 4}, {-7, 8}, {-0.25, 1.5}, {2, -0.5},
                                                     {0.1, -1e300}, {8, 9}};
    TiffBuilder b(order);
    b.addLongs(0, 254, {0});
    for (uint16_t type = 1; type <= 13; ++type) b.addNumbers(0, 1000 + type, type, values[type - 1u], 12);
    return b.build();
}

template <typename T>
std::vector<T> get(cd_parseTiff& p, int tag) {
    std::vector<T> v;
    EXPECT_EQ(p.getTag(code(tag), &v), 0) << tag;
    return v;
}
template <typename R>
std::string str(const std::vector<R>& v) {
    std::ostringstream os;
    for (size_t i = 0; i < v.size(); ++i) {
        os << (i ? " " : "");
        if constexpr (std::is_arithmetic_v<R>) os << +v[i];
        else os << v[i];
    }
    return os.str();
}

// A tag read through the byte query and the eight numeric vector overloads, " | " between them: the
// values, "5" for the byte query's refusal, "-" for a refusal whose message and diagnostics are checked.
template <typename T>
std::string through(cd_parseTiff& p, int tag, const char* message) {
    std::vector<T> v;
    std::string result = "-";
    testing::internal::CaptureStderr();
    try {
        result = p.getTag(code(tag), &v) == 5 ? "5" : str(v);
    } catch (const cd_exception& e) {
        EXPECT_STREQ(e.what(), message);
    }
    const std::string lines = typeLines(tag, tag - 1000, tag == 1002 || tag == 1007 ? 3 : 2);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), result == "-" ? lines : result == "5" ? lines + kNotBytes : "") << message;
    return result;
}
std::string row(cd_parseTiff& p, int tag) {
    return through<unsigned char>(p, tag, "") + " | " + through<unsigned short>(p, tag, "tag.Type == TIFF_SHORT") + " | " +
           through<unsigned int>(p, tag, "cd_parseTiff - type of unrecognized tag is not LONG") + " | " +
           through<short>(p, tag, "cd_parseTiff - type of unrecognized tag is not SSHORT") + " | " +
           through<int>(p, tag, "cd_parseTiff - type of unrecognized tag is not SLONG") + " | " +
           through<urational>(p, tag, "cd_parseTiff - type of unrecognized tag is not RATIONAL") + " | " +
           through<srational>(p, tag, "cd_parseTiff - type of unrecognized tag is not SRATIONAL") + " | " +
           through<float>(p, tag, "cd_parseTiff - type of unrecognized tag is not FLOAT") + " | " +
           through<double>(p, tag, "cd_parseTiff - type of unrecognized tag is not DOUBLE");
}

}  // namespace

TEST(ParseTiffHeader, FailuresInTheirOrder) {
    cd_parseTiff p;
    unsigned int v = 0;
    EXPECT_CD_THROW(p.getTag(tiffTagCodes::ImageWidth, &v), "ifd0 != NULL");
    EXPECT_CD_THROW(p.configure(nullptr, 1000), "cd_parseTiff - the imageBuffer may not be null");
    std::vector<char> junk(99, 'X');  // too short: fails before its byte order is looked at
    EXPECT_CD_THROW(p.configure(junk.data(), junk.size()), "cd_parseTiff - the imageBufferSize may not be < 100");
    junk.resize(100);
    EXPECT_CD_THROW(p.configure(junk.data(), junk.size()), "cd_parseTiff - illegal byte order tag");
    std::vector<uint8_t> f = allTypesFrame(ByteOrder::II);
    f[2] = 43;
    EXPECT_CD_THROW(parse(f), "cd_parseTiff - illegal TIFF version");
    f[2] = 42;
    f[5] = 0xF0;  // IFD 0 far past the end
    EXPECT_CD_THROW(parse(f), "cd_parseTiff - IFD 0 lies outside the frame buffer");
    p.swapBytes = true;  // (16 and 32 bits: every "MM" read)
    EXPECT_EQ(p.byteSwap(std::bit_cast<double>(0x0102030405060708ull)), std::bit_cast<double>(0x0807060504030201ull));
}

TEST(ParseTiffMainImage, SubIfdSelectionAndMessages) {
    TiffBuilder none;
    none.addLongs(0, 256, {11});
    auto f = parse(none);
    EXPECT_EQ(lastConfigureErr(), "No newSubFileType in ifd 0. Assuming ifd 0 is main image\n");
    EXPECT_EQ(f->p.subIFD, nullptr);

    TiffBuilder two;  // the raw image in the second sub-IFD
    two.addLongs(0, 254, {1});
    const int preview = two.addSubIFD(0), raw = two.addSubIFD(0);
    two.addLongs(preview, 254, {1});
    two.addLongs(raw, 254, {0});
    two.addLongs(raw, 256, {4096});
    auto g = parse(two);
    EXPECT_EQ(lastConfigureErr(), "Looking in subIFDs\nnewSubFileType 0 found in a subIFD\n");
    EXPECT_EQ(get<unsigned int>(g->p, 256), std::vector<unsigned int>{4096});  // sub-IFD first
    // IFD 0 not the main image, and: no SubIFDs; a sub-IFD without its own NewSubFileType (it answers
    // with IFD 0's 1); a sub-IFD outside the buffer; SubIFDs typed IFD (13), which the unsigned query refuses.
    TiffBuilder b[4];
    for (TiffBuilder& x : b) x.addLongs(0, 254, {1});
    b[1].addLongs(b[1].addSubIFD(0), 256, {64});
    b[2].addLongs(0, 330, {100000});
    b[3].addLongs(b[3].addSubIFD(0, IFDTYPE), 254, {0});
    EXPECT_CD_THROW(parse(b[0]), "cd_parseTiff - newSubFileType must be 0 at the end of parsing");
    EXPECT_CD_THROW(parse(b[1]), "cd_parseTiff - newSubFileType must be 0 at the end of parsing");
    EXPECT_CD_THROW(parse(b[2]), "cd_parseTiff - sub-IFD lies outside the frame buffer");
    EXPECT_CD_THROW(parse(b[3]), "cd_parseTiff - type of unrecognized tag is not LONG");
    EXPECT_EQ(lastConfigureErr(), "Looking in subIFDs\n" + typeLines(330, 13, 1));
}

TEST(ParseTiffTypes, EachOverloadsTypesAndConversionsInBothByteOrders) {
    // Columns: bytes, unsigned short, unsigned int, short, int, urational, srational, float, double.
    // A BYTE is read as a signed number and widened (200 -> -56, 65480, 4294967240); a LONG wraps into
    // srational; a FLOAT goes through srational(float); a DOUBLE beyond the float range becomes -inf.
    const std::vector<std::string> expected = {
        "200 7 | 65480 7 | 4294967240 7 | -56 7 | -56 7 | 4294967240/1 7/1 | -56/1 7/1 | -56 7 | -56 7",
        "72 105 0 | - | - | - | - | - | - | - | -",
        "5 | 40000 3 | 40000 3 | - | 40000 3 | 40000/1 3/1 | 40000/1 3/1 | 40000 3 | 40000 3",
        "5 | - | 3000000000 5 | - | - | 3000000000/1 5/1 | -1294967296/1 5/1 | 3e+09 5 | 3e+09 5",
        "5 | - | - | - | - | 4/12 30/12 | 4/12 30/12 | 0.333333 2.5 | 0.333333 2.5",
        "5 | - | - | - | - | - | -5/1 9/1 | -5 9 | -5 9",
        "5 | - | - | - | - | - | - | - | -",
        "5 | - | - | -3 4 | -3 4 | - | -3/1 4/1 | -3 4 | -3 4",
        "5 | - | - | - | -7 8 | - | -7/1 8/1 | -7 8 | -7 8",
        "5 | - | - | - | - | - | -3/12 18/12 | -0.25 1.5 | -0.25 1.5",
        "5 | - | - | - | - | - | -2147483648/-2147483648 0/-1 | 2 -0.5 | 2 -0.5",
        "5 | - | - | - | - | - | - | 0.1 -inf | 0.1 -1e+300",
        "5 | - | - | - | - | - | - | - | -"};
    for (ByteOrder order : {ByteOrder::II, ByteOrder::MM}) {
        auto f = parse(allTypesFrame(order));
        for (int type = 1; type <= 13; ++type) EXPECT_EQ(row(f->p, 1000 + type), expected[type - 1]) << "type " << type;
        EXPECT_EQ(f->p.status, 0);  // the byte query's 5 is returned, not stored
        EXPECT_EQ(std::make_pair(f->p.byteOrder, f->p.swapBytes), order == ByteOrder::MM ? std::make_pair(uint16_t{0x4D4D}, true)
                                                                                         : std::make_pair(uint16_t{0x4949}, false));
    }
}

TEST(ParseTiffValues, StringsScalarsStatusesAndRepairedRationals) {
    TiffBuilder b;
    b.addBytes(0, 271, {'A', 'B', 0, 'C', 'D', 0}, ASCII);  // ASCII ends at the first zero byte
    b.addBytes(0, 272, {'A', 'B', 0, 'C', 'D'}, BYTE);      // BYTE keeps every byte
    b.addBytes(0, 305, {'X', 'Y', 'Z'}, ASCII);             // no terminator: Count bytes
    b.addAscii(0, 306, "A");                                // "A" and its zero: inside the entry
    b.addAscii(0, 315, "ABCD");                             // five bytes: out of line
    b.addBytes(0, 37510, {'A', 'S', 'C', 'I', 'I', 0, 0, 0, 'h', 'i'}, UNDEFINED);  // as EXIF allows
    b.addShorts(0, 256, {4096});
    b.addShorts(0, 258, {12, 12, 12});                 // multi-valued
    b.addRawEntry(0, 257, SHORT, 0, {});               // count 0
    b.addRawEntry(0, 259, 42, 1, {1, 0, 0, 0});        // a type outside the table: size 0
    b.addLiteralEntry(0, 262, SHORT, 0x80000000u, 0);  // count * 2 wraps to 0
    b.addRationals(0, 51044, {{24000, 1001}, {1, 1}});
    b.addRationals(0, 50728, {{5, 0}, {0, 0}, {1, 2}});
    auto f = parse(b);
    cd_parseTiff& p = f->p;
    std::string s[5];
    const int strings[5] = {271, 272, 305, 306, 315};
    for (int i = 0; i < 5; ++i) EXPECT_EQ(p.getTag(code(strings[i]), &s[i]), 0);
    EXPECT_EQ(s[0] + "|" + s[1] + "|" + s[2] + "|" + s[3] + "|" + s[4], std::string("AB|AB\0CD|XYZ|A|ABCD", 19));
    EXPECT_EQ(p.stats().bytesProcessed, 2u + 5 + 3 + 1 + 4);  // string lengths
    testing::internal::CaptureStderr();
    EXPECT_CD_THROW(p.getTag(tiffTagCodes::UserComment, &s[0]), "tag.Type == TIFF_ASCII");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), typeLines(37510, 7, 10));

    // Scalars: exactly one value, else zero (0/1) with 1011 unless the lookup failed; absent vectors
    // and strings are emptied.
    unsigned int u[5] = {9, 9, 9, 9, 9};
    srational r(5, 7);
    urational ur(5u, 7u);
    std::vector<float> v = {1.0f};
    const int tags[5] = {256, 258, 257, 259, 262}, expected[5] = {0, 1011, 1003, 1003, 1003};
    for (int i = 0; i < 5; ++i) EXPECT_EQ(p.getTag(code(tags[i]), &u[i]), expected[i]) << tags[i];
    EXPECT_EQ(std::vector<unsigned>(u, u + 5), (std::vector<unsigned>{4096, 0, 0, 0, 0}));
    EXPECT_EQ(p.getTag(tiffTagCodes::FrameRate, &r), 1011);
    EXPECT_EQ(p.status, 1011);  // stored as well as returned
    EXPECT_EQ(p.getTag(tiffTagCodes::ExposureIndex, &ur), 1010);
    EXPECT_EQ(str(std::vector<srational>{r}) + " " + str(std::vector<urational>{ur}), "0/1 0/1");
    EXPECT_EQ(p.getTag(tiffTagCodes::TStop, &v), 1010);
    EXPECT_EQ(p.getTag(tiffTagCodes::Copyright, &s[0]), 1010);
    EXPECT_TRUE(v.empty() && s[0].empty());

    // A zero denominator is repaired to 1 with a warning that shows the entry.
    testing::internal::CaptureStderr();
    EXPECT_EQ(str(get<urational>(p, 50728)), "5/1 0/1 1/2");
    const std::string err = testing::internal::GetCapturedStderr();
    std::ostringstream head;
    head << "\n\n WARNING: \n" << std::string(21, ' ') << "tag   = " << p.tag << "\n has Malformed Rational Number \n"
         << std::string(23, ' ') << "n   = ";
    const std::string tail = "\n" + std::string(23, ' ') + "d   = 0\nSetting d to 1... \n";
    EXPECT_EQ(err, head.str() + "5" + tail + head.str() + "0" + tail);
}

TEST(ParseTiffBounds, ReadsOutsideTheBufferRaiseOnlyWhenTheyHappen) {
    TiffBuilder b;
    b.addLongs(0, 254, {0});
    b.addLiteralEntry(0, 272, ASCII, 20, 5000);         // out-of-line value past the end
    b.addLiteralEntry(0, 273, LONG, 0x40000001u, 0);    // count*4 wraps to 4: in the entry, real extent huge
    b.addLiteralEntry(0, 279, LONG, 30, 0xFFFFFFF0u);   // offset near 4 GiB
    b.addLiteralEntry(0, 280, SHORT, 30, 96);           // starts inside, runs past the end
    b.addLiteralEntry(0, 33422, SHORT, 30, 5000);       // wrong type for the byte query, never read
    auto f = parse(b);
    cd_parseTiff& p = f->p;
    std::string s;
    std::vector<unsigned char> bytes;
    EXPECT_CD_THROW(p.getTag(tiffTagCodes::Model, &s), "cd_parseTiff - tag value lies outside the frame buffer");
    EXPECT_CD_THROW(get<unsigned>(p, 279), "cd_parseTiff - tag value lies outside the frame buffer");
    EXPECT_CD_THROW(get<unsigned>(p, 273), "cd_parseTiff - tag value runs past the end of the frame buffer");
    EXPECT_EQ(p.tag.FieldSize, 4u);
    EXPECT_CD_THROW(get<unsigned>(p, 280), "cd_parseTiff - tag value runs past the end of the frame buffer");
    // The type is refused before any value would be read.
    testing::internal::CaptureStderr();
    EXPECT_EQ(p.getTag(tiffTagCodes::CFAPattern, &bytes), 5);
    EXPECT_CD_THROW(p.getTag(code(279), &s), "tag.Type == TIFF_ASCII");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), typeLines(33422, 3, 30) + kNotBytes + typeLines(279, 4, 30));

    // An IFD cut short: entries before the cut still read, a scan that reaches it raises.
    std::vector<uint8_t> cut = allTypesFrame(ByteOrder::II);
    cut[8] = 0xFF;  // 255 entries claimed
    auto g = parse(cut);
    EXPECT_EQ(get<int>(g->p, 1003), (std::vector<int>{40000, 3}));
    EXPECT_CD_THROW(get<int>(g->p, 999), "cd_parseTiff - IFD entries run past the end of the frame buffer");
}
