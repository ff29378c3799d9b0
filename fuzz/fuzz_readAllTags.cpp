// libFuzzer target: any byte sequence handed to the TIFF parser and the DNG tag reader (and the
// per-frame re-reads and tag dumps) must either read or fail with a cd_exception, never crash or
// read outside the input.
#include <cstddef>
#include <cstdint>
#include <iostream>
#include <sstream>
#include <streambuf>
#include <vector>

#include "cinedng/cd_DNGTags.h"
#include "cinedng/cd_exception.h"
#include "cinedng/cd_parseTiff.h"

namespace {
// The parser's diagnostics go to std::cerr; keep them out of the fuzzer's output.
class NullBuffer : public std::streambuf {
protected:
    int overflow(int c) override { return c == traits_type::eof() ? 0 : c; }
    std::streamsize xsputn(const char*, std::streamsize n) override { return n; }
};
}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    static NullBuffer nullBuffer;
    std::cerr.rdbuf(&nullBuffer);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // An exactly sized copy, so that AddressSanitizer sees any read past the end of the frame.
    std::vector<char> frame(data, data + size);
    cinedng::cd_parseTiff parser;
    cinedng::cd_DNGTags tags;
    try {
        parser.configure(frame.data(), frame.size());
        tags.readAllTags(parser, false);
        std::ostringstream dump;
        tags.debugPrintTags(dump);
        tags.debugImageTags(dump);
        tags.readCoreTags(parser);
        tags.readDynamicMetadataTags(parser);
        tags.readStorageTags(parser);
    } catch (const cinedng::cd_exception&) {
        // A clean refusal (assertion texts too: the target is built with CINEDNG_ASSERT_THROWS).
    }
    return 0;
}
