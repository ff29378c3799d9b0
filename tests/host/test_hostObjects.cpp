#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

#include "cinedng/KSData.h"
#include "cinedng/KSError.h"
#include "cinedng/KSException.h"
#include "cinedng/KSLog.h"

using namespace cinedng;

TEST(KSData, WrapsWithoutCopyingOrOwnsACopy) {
    unsigned char bytes[4] = {1, 2, 3, 4};
    auto wrapped = KSData::dataWithBytesNoCopy(bytes, 4, false);
    EXPECT_EQ(wrapped->bytes(), bytes);
    auto copy = KSData::dataWithBytes(bytes, 4);
    EXPECT_NE(copy->bytes(), bytes);
    EXPECT_EQ(std::memcmp(copy->bytes(), bytes, 4), 0);
    // Released with free() when the object goes.
    void* owned = std::malloc(16);
    { auto d = KSData::dataWithBytesNoCopy(owned, 16, true); EXPECT_EQ(d->length(), 16u); }
}

TEST(KSFormat, ObjectsNumbersAndPrintfConversions) {
    EXPECT_EQ(KSFormat("### %@::%@ ###", std::string("KSCinemaDNGFileSequence"), "initWithFilenames:"),
              "### KSCinemaDNGFileSequence::initWithFilenames: ###");
    EXPECT_EQ(KSFormat("ERROR: %d", 1005), "ERROR: 1005");
    EXPECT_EQ(KSFormat("%@ %@", 0.1f, 5000.0), "0.1 5000");
    EXPECT_EQ(KSFormat("%5.2f|%ld|%s|%%", 3.14159, 7L, "x"), " 3.14|7|x|%");
    auto err = KSError::errorWithDomain("DNGDecode", 1, "no file");
    EXPECT_EQ(KSFormat("%@", err), "Error Domain=DNGDecode Code=1 \"no file\"");
}

TEST(KSException, IsALibraryFailureWithNameAndReason) {
    try {
        throw KSException("KSCinemaDNGContextBadInit", "Init the context with filenames!");
    } catch (const cd_exception& e) {
        EXPECT_STREQ(e.what(), "Init the context with filenames!");
        EXPECT_EQ(dynamic_cast<const KSException&>(e).name(), "KSCinemaDNGContextBadInit");
    }
}
