#include "cinedng/KR_CinemaDNGAutoWBIterative.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <valarray>
#include <vector>

#include "cinedng/matrixOps.h"

namespace cinedng {

namespace {

constexpr const char* kDomain = "KR_CinemaDNGAutoWBIterative";
constexpr int kBorder = 20;
constexpr int kBlock = 8;
constexpr int kStep = 3;
constexpr int kMaxRounds = 20;

// Dark pixels are always usable; brighter ones only when their saturation is at most 0.9. Both
// bounds are compared in double precision: the float nearest 0.01 lies below 0.01 and is dark.
inline bool usablePixel(const float* p) {
    const float mx = std::min(std::max(std::max(p[0], p[1]), p[2]), 1.0f);
    const float mn = std::max(std::min(std::min(p[0], p[1]), p[2]), 0.0f);
    if (mx < 0.01) return true;
    return (mx - mn) / mx <= 0.9;
}

std::valarray<float> triple(float a, float b, float c) {
    return std::valarray<float>{a, b, c};
}

}  // namespace

float KR_CinemaDNGAutoWBIterative::computeAutoWBForInputImage(const PatchImageBuffer* input,
                                                               std::shared_ptr<KSError>* error) {
    if (!input || input->bufferType != 0 || input->bitsPerChannel != 32) {
        KSSetError(error, KSError::errorWithDomain(kDomain, -1, "This patch needs a 32 bit float buffer as input."));
        return -1.0f;
    }
    const int W = input->width, H = input->height;
    if (W < 0 || H < 0 || (W > 0 && H > 0 && (!input->imageBuffer || input->numChannels < 4))) {
        // Four floats per pixel are read: a smaller (or missing) buffer is refused rather than overrun.
        KSSetError(error, KSError::errorWithDomain(kDomain, -1,
                                                   "KR_CinemaDNGAutoWBIterative - the input needs four samples per pixel"));
        return -1.0f;
    }
    const size_t pixels = static_cast<size_t>(W) * static_cast<size_t>(H);

    // Working copy: the first width * height * 4 floats of the buffer, whatever numChannels says.
    std::vector<float> work(pixels * 4);
    if (pixels) std::memcpy(work.data(), input->imageBuffer, pixels * 4 * sizeof(float));

    const int gridX = static_cast<int>((W - 40) / 8.0);
    const int gridY = static_cast<int>((H - 40) / 8.0);
    const bool haveGrid = gridX > 0 && gridY > 0;
    std::vector<unsigned char> mask(haveGrid ? static_cast<size_t>(gridX) * gridY : 0, 1);

    const std::valarray<float> M = matrixAppleGenericRGBToXYZ();
    const std::valarray<float> Minv = invertMatrix(M);
    const std::valarray<float> Wrgb = multiplyMatrix(M, unitTriple, 3);
    std::valarray<float> T = diagonalMatrix(triple(1.0f, 1.0f, 1.0f));
    std::valarray<float> P = diagonalMatrix(triple(1.0f, 1.0f, 1.0f));

    double sumR = 0.0, sumG = 0.0, sumB = 0.0;
    double meanR = 0.0, meanG = 0.0, meanB = 0.0;
    double temperature = 5000.0;

    for (int round = 0; round < kMaxRounds; ++round) {
        if (round >= 1) {
            const std::valarray<float> m = triple(static_cast<float>(meanR), static_cast<float>(meanG),
                                                  static_cast<float>(meanB));
            const std::valarray<float> XYZm = multiplyMatrix(M, m, 3);
            const std::valarray<float> xy = XYZToxy(XYZm);
            const std::valarray<float> S = triple(xy[0] / xy[1], 1.0f, (1.0f - xy[0] - xy[1]) / xy[1]);
            temperature = XYZToColorTemperature(S);
            std::valarray<float> A = matrixChromaticAdaptation(S, Wrgb);
            const std::valarray<float> g = multiplyMatrix(A, unitTriple, 3);
            const float gmax = std::max(std::max(g[0], g[1]), g[2]);
            if (gmax > 1.0f) A /= gmax;
            T = multiplyMatrix(T, A, 3);
            P = multiplyMatrix(multiplyMatrix(Minv, A, 3), M, 3);
            if (meanR / meanG > 0.95 && meanG / meanR > 0.95 && meanG / meanB > 0.95 && meanB / meanG > 0.95 &&
                meanR / meanB > 0.95 && meanB / meanR > 0.95) {
                std::printf("\nRGB values converged");
                std::printf("\nFinal mean values after approximation with color temp %lf : %8.2lf, %lf, %lf\n",
                            temperature, meanR, meanG, meanB);
                break;
            }
        }
        sumR = sumG = sumB = 0.0;

        // Block exclusion; a block once excluded stays excluded.
        for (int by = 0; by < gridY; ++by) {
            for (int bx = 0; bx < gridX; ++bx) {
                unsigned char& usable = mask[static_cast<size_t>(by) * gridX + bx];
                if (!usable) continue;
                for (int y = kBorder + kBlock * by; y < kBorder + kBlock * by + kBlock && usable; ++y)
                    for (int x = kBorder + kBlock * bx; x < kBorder + kBlock * bx + kBlock; ++x)
                        if (!usablePixel(&work[(static_cast<size_t>(y) * W + x) * 4])) {
                            usable = 0;
                            break;
                        }
            }
        }

        // Sampling: correct every sampled pixel, count those of usable blocks.
        const float p0 = P[0], p1 = P[1], p2 = P[2], p3 = P[3], p4 = P[4], p5 = P[5], p6 = P[6], p7 = P[7], p8 = P[8];
        for (int y = kBorder; y < H - kBorder; y += kStep) {
            const int by = static_cast<int>((y - kBorder) / 8.0);
            for (int x = kBorder; x < W - kBorder; x += kStep) {
                float* p = &work[(static_cast<size_t>(y) * W + x) * 4];
                const float r = p[0], g = p[1], b = p[2];
                p[0] = p0 * r + p1 * g + p2 * b;
                p[1] = p3 * r + p4 * g + p5 * b;
                p[2] = p6 * r + p7 * g + p8 * b;
                const int bx = static_cast<int>((x - kBorder) / 8.0);
                if (bx < gridX && by < gridY && mask[static_cast<size_t>(by) * gridX + bx]) {
                    sumR += p[0];
                    sumG += p[1];
                    sumB += p[2];
                }
            }
        }
        const double count = static_cast<double>(W) * H;
        meanR = sumR / count;
        meanG = sumG / count;
        meanB = sumB / count;
        std::printf("\nMean values after approximation with color temp %lf for RGB : %lf, %lf, %lf\n", temperature,
                    meanR, meanG, meanB);
    }

    // Scene white from the total adaptation combined with the one already applied.
    const std::valarray<float> Wa = ColorTemperatureToXYZ(alreadyAppliedWBTemperature_);
    const std::valarray<float> Aa = matrixChromaticAdaptation(Wa, Wrgb);
    const std::valarray<float> Sum = multiplyMatrix(Aa, T, 3);
    const std::valarray<float> B = matrixBradford();
    const std::valarray<float> Binv = invertMatrix(B);
    const std::valarray<float> Kc = multiplyMatrix(multiplyMatrix(B, Sum, 3), Binv, 3);
    std::printf("\nChromatic Adaptation matrix summed :");
    for (int i = 0; i < 9; ++i) {
        if (i % 3 == 0) std::printf("\n");
        std::printf("   %10.4f   ", Kc[i]);
    }
    const std::valarray<float> rhoW = multiplyMatrix(B, Wrgb, 3);
    const std::valarray<float> rhoS = triple(rhoW[0] / Kc[0], rhoW[1] / Kc[4], rhoW[2] / Kc[8]);
    const std::valarray<float> XYZS = multiplyMatrix(Binv, rhoS, 3);
    std::fflush(stdout);
    return XYZToColorTemperature(XYZS);
}

// ---- diagnostic TIFF -----------------------------------------------------------------------------

namespace {

void put16(std::vector<unsigned char>& o, uint16_t v) {
    o.push_back(static_cast<unsigned char>(v & 0xff));
    o.push_back(static_cast<unsigned char>(v >> 8));
}
void put32(std::vector<unsigned char>& o, uint32_t v) {
    for (int i = 0; i < 4; ++i) o.push_back(static_cast<unsigned char>((v >> (8 * i)) & 0xff));
}

std::string expandTilde(const std::string& path) {
    if (path.empty() || path[0] != '~') return path;
    if (path.size() > 1 && path[1] != '/') return path;  // "~user" is left as it is
    const char* home = std::getenv("HOME");
    return std::string(home ? home : "") + path.substr(1);
}

}  // namespace

bool KR_CinemaDNGAutoWBIterative::debug_WriteImage(PatchImageBuffer image, const std::string& path) {
    if (!image.imageBuffer || image.width <= 0 || image.height <= 0 || image.numChannels < 4) return false;
    const uint64_t rowBytes = static_cast<uint64_t>(image.width) * 16;
    const uint64_t dataBytes = rowBytes * static_cast<uint64_t>(image.height);
    if (dataBytes > 0xF0000000ull) return false;  // beyond what a classic TIFF can address

    // Header, then the IFD, then the out-of-line values, then the samples.
    const uint16_t entries = 12;
    const uint32_t ifdOffset = 8;
    const uint32_t ifdSize = 2 + entries * 12 + 4;
    const uint32_t bitsOffset = ifdOffset + ifdSize;       // 4 SHORTs
    const uint32_t formatOffset = bitsOffset + 8;          // 4 SHORTs
    const uint32_t dataOffset = formatOffset + 8;
    std::vector<unsigned char> head;
    head.reserve(dataOffset);
    head.push_back('I');
    head.push_back('I');
    put16(head, 42);
    put32(head, ifdOffset);
    put16(head, entries);
    auto entry = [&](uint16_t tag, uint16_t type, uint32_t count, uint32_t value) {
        put16(head, tag);
        put16(head, type);
        put32(head, count);
        if (type == 3 && count == 1) {
            put16(head, static_cast<uint16_t>(value));
            put16(head, 0);
        } else {
            put32(head, value);
        }
    };
    entry(256, 4, 1, static_cast<uint32_t>(image.width));    // ImageWidth
    entry(257, 4, 1, static_cast<uint32_t>(image.height));   // ImageLength
    entry(258, 3, 4, bitsOffset);                            // BitsPerSample 32 x4
    entry(259, 3, 1, 1);                                     // no compression
    entry(262, 3, 1, 2);                                     // RGB
    entry(273, 4, 1, dataOffset);                            // one strip
    entry(277, 3, 1, 4);                                     // SamplesPerPixel
    entry(278, 4, 1, static_cast<uint32_t>(image.height));   // RowsPerStrip
    entry(279, 4, 1, static_cast<uint32_t>(dataBytes));      // StripByteCounts
    entry(284, 3, 1, 1);                                     // interleaved
    entry(338, 3, 1, 1);                                     // ExtraSamples: associated alpha
    entry(339, 3, 4, formatOffset);                          // SampleFormat IEEE float x4
    put32(head, 0);                                          // no next IFD
    for (int i = 0; i < 4; ++i) put16(head, 32);
    for (int i = 0; i < 4; ++i) put16(head, 3);

    const std::string file = expandTilde(path);
    std::remove(file.c_str());
    FILE* f = std::fopen(file.c_str(), "wb");
    if (!f) return false;
    bool ok = std::fwrite(head.data(), 1, head.size(), f) == head.size();
    // Samples as little-endian floats; the buffer is read as four floats per pixel, whatever
    // numChannels says (a record with more channels is not de-interleaved).
    std::vector<unsigned char> row(rowBytes);
    const float* src = static_cast<const float*>(image.imageBuffer);
    for (int y = 0; ok && y < image.height; ++y) {
        for (int x = 0; x < image.width; ++x) {
            const float* p = src + (static_cast<size_t>(y) * image.width + x) * 4;
            for (int c = 0; c < 4; ++c) {
                uint32_t bits;
                std::memcpy(&bits, &p[c], 4);
                unsigned char* d = &row[(static_cast<size_t>(x) * 4 + c) * 4];
                d[0] = bits & 0xff;
                d[1] = (bits >> 8) & 0xff;
                d[2] = (bits >> 16) & 0xff;
                d[3] = (bits >> 24) & 0xff;
            }
        }
        ok = std::fwrite(row.data(), 1, row.size(), f) == row.size();
    }
    ok = (std::fclose(f) == 0) && ok;
    return ok;
}

}  // namespace cinedng
