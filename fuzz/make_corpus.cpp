// Writes synthetic frames into a folder for the fuzzer's starting corpus, to cover what the sample
// frames lack: big-endian frames, a raw image in a sub-IFD, every field type, several strips, time
// codes and the colour tags. Usage: make_corpus <folder>
#include <cstdio>
#include <string>

#include "framebuilder/DngFrameBuilder.h"

using namespace cinedng::framebuilder;

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s <folder>\n", argv[0]);
        return 2;
    }
    const std::string dir = argv[1];
    int n = 0;
    for (ByteOrder order : {ByteOrder::II, ByteOrder::MM}) {
        for (bool sub : {false, true}) {
            for (int bits : {12, 16}) {
                RawFrameDesc desc;
                desc.width = 32;
                desc.height = 16;
                desc.bits = bits;
                desc.byteOrder = order;
                desc.useSubIFD = sub;
                desc.rowsPerStrip = 5;
                desc.blackLevelRepeatDim = {2, 2};
                desc.blackLevel = {64, 64, 64, 64};
                desc.whiteLevel = {(1u << bits) - 1};
                desc.linearizationTable = {0, 1, 2, 3, 4, 5, 6, 7};
                desc.activeArea = {0, 0, 16, 32};
                desc.defaultCropOrigin = {1, 1};
                desc.defaultCropSize = {30, 14};
                desc.colorMatrix1 = {0.6461, -0.1164, -0.0857, -0.3825, 1.1597, 0.2534, -0.0416, 0.154, 0.6039};
                desc.colorMatrix2 = {1, 0, 0, 0, 1, 0, 0, 0, 1};
                desc.calibrationIlluminant1 = 17;
                desc.calibrationIlluminant2 = 21;
                desc.asShotNeutral = {0.5, 1, 0.7};
                desc.baselineExposure = 0.5;
                desc.timeCodes = {0x15, 0x30, 0x20, 0x10, 0x00, 0x00, 0x00, 0x00};
                desc.frameRate = std::make_pair(24000, 1001);
                desc.imageNumber = 7;
                desc.dateTimeOriginal = "2024:01:02 03:04:05";
                desc.blackLevelDeltaH.assign(32, 0.5);
                desc.blackLevelDeltaV.assign(16, 0.25);
                int raw = 0;
                TiffBuilder b = makeRawFrameBuilder(desc, {}, &raw);
                // One tag of every field type, in the range the tag reader queries.
                b.addBytes(raw, 50710, {0, 1, 2});
                b.addShorts(raw, 34858, {static_cast<uint16_t>(-5)}, SSHORT);
                b.addRationals(raw, 37377, {{static_cast<uint32_t>(-7), 3}}, SRATIONAL);
                b.addRationals(raw, 33434, {{1, 48}});
                b.addFloats(raw, 51058, {2.8f});
                b.addDoubles(raw, 50723, {1, 0, 0, 0, 1, 0, 0, 0, 1});
                b.addLongs(raw, 37393, {static_cast<uint32_t>(-1)}, SLONG);
                b.addBytes(raw, 50740, {static_cast<uint8_t>(-2), 7}, SBYTE);
                b.addBytes(raw, 37510, {'h', 'i', 0}, UNDEFINED);
                b.addLongs(raw, 50733, {0}, IFDTYPE);
                b.writeFile(dir + "/built_" + std::to_string(n++) + ".dng");
            }
        }
    }
    return 0;
}
