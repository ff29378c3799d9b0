#include "framebuilder/DngFrameBuilder.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <fstream>
#include <stdexcept>

namespace cinedng::framebuilder {

int fieldTypeSize(uint16_t type) {
    static constexpr int sizes[14] = {0, 1, 1, 2, 4, 8, 1, 1, 2, 4, 8, 4, 8, 4};
    return type < 14 ? sizes[type] : 0;
}

TiffBuilder::TiffBuilder(ByteOrder order) : order_(order) {
    ifds_.emplace_back();
    ifds_[0].topLevel = true;
}

TiffBuilder::Ifd& TiffBuilder::at(int ifd) {
    if (ifd < 0 || static_cast<size_t>(ifd) >= ifds_.size()) throw std::out_of_range("TiffBuilder: no such IFD");
    return ifds_[static_cast<size_t>(ifd)];
}

int TiffBuilder::addChainedIFD() {
    ifds_.emplace_back();
    ifds_.back().topLevel = true;
    return static_cast<int>(ifds_.size() - 1);
}

int TiffBuilder::addSubIFD(int parent, uint16_t subIfdType) {
    at(parent);
    ifds_.emplace_back();
    const int index = static_cast<int>(ifds_.size() - 1);
    Ifd& p = at(parent);
    if (p.children.empty()) {
        Entry e;
        e.tag = 330;
        e.type = subIfdType;
        e.deferred = Deferred::SubIFDs;
        p.entries.push_back(e);
    }
    p.children.push_back(index);
    return index;
}

void TiffBuilder::put16(std::vector<uint8_t>& out, uint16_t v) const {
    if (order_ == ByteOrder::II) {
        out.push_back(static_cast<uint8_t>(v));
        out.push_back(static_cast<uint8_t>(v >> 8));
    } else {
        out.push_back(static_cast<uint8_t>(v >> 8));
        out.push_back(static_cast<uint8_t>(v));
    }
}

void TiffBuilder::put32(std::vector<uint8_t>& out, uint32_t v) const {
    if (order_ == ByteOrder::II) {
        for (int i = 0; i < 4; ++i) out.push_back(static_cast<uint8_t>(v >> (8 * i)));
    } else {
        for (int i = 3; i >= 0; --i) out.push_back(static_cast<uint8_t>(v >> (8 * i)));
    }
}

void TiffBuilder::put64(std::vector<uint8_t>& out, uint64_t v) const {
    if (order_ == ByteOrder::II) {
        for (int i = 0; i < 8; ++i) out.push_back(static_cast<uint8_t>(v >> (8 * i)));
    } else {
        for (int i = 7; i >= 0; --i) out.push_back(static_cast<uint8_t>(v >> (8 * i)));
    }
}

void TiffBuilder::addEntry(int ifd, Entry e) { at(ifd).entries.push_back(std::move(e)); }

void TiffBuilder::addBytes(int ifd, uint16_t tag, const std::vector<uint8_t>& v, uint16_t type) {
    Entry e{tag, type, static_cast<uint32_t>(v.size()), v};
    addEntry(ifd, std::move(e));
}

void TiffBuilder::addAscii(int ifd, uint16_t tag, const std::string& s) {
    std::vector<uint8_t> bytes(s.begin(), s.end());
    bytes.push_back(0);
    addBytes(ifd, tag, bytes, ASCII);
}

void TiffBuilder::addShorts(int ifd, uint16_t tag, const std::vector<uint16_t>& v, uint16_t type) {
    Entry e{tag, type, static_cast<uint32_t>(v.size()), {}};
    for (uint16_t x : v) put16(e.payload, x);
    addEntry(ifd, std::move(e));
}

void TiffBuilder::addLongs(int ifd, uint16_t tag, const std::vector<uint32_t>& v, uint16_t type) {
    Entry e{tag, type, static_cast<uint32_t>(v.size()), {}};
    for (uint32_t x : v) put32(e.payload, x);
    addEntry(ifd, std::move(e));
}

void TiffBuilder::addRationals(int ifd, uint16_t tag, const std::vector<std::pair<uint32_t, uint32_t>>& v,
                               uint16_t type) {
    Entry e{tag, type, static_cast<uint32_t>(v.size()), {}};
    for (const auto& [n, d] : v) {
        put32(e.payload, n);
        put32(e.payload, d);
    }
    addEntry(ifd, std::move(e));
}

void TiffBuilder::addFloats(int ifd, uint16_t tag, const std::vector<float>& v) {
    Entry e{tag, FLOAT, static_cast<uint32_t>(v.size()), {}};
    for (float x : v) put32(e.payload, std::bit_cast<uint32_t>(x));
    addEntry(ifd, std::move(e));
}

void TiffBuilder::addDoubles(int ifd, uint16_t tag, const std::vector<double>& v) {
    Entry e{tag, DOUBLE, static_cast<uint32_t>(v.size()), {}};
    for (double x : v) put64(e.payload, std::bit_cast<uint64_t>(x));
    addEntry(ifd, std::move(e));
}

void TiffBuilder::addNumbers(int ifd, uint16_t tag, uint16_t type, const std::vector<double>& v,
                             int32_t rationalDenominator) {
    Entry e{tag, type, static_cast<uint32_t>(v.size()), {}};
    for (double x : v) {
        switch (type) {
            case BYTE: case ASCII: case SBYTE: case UNDEFINED:
                e.payload.push_back(static_cast<uint8_t>(static_cast<int64_t>(x)));
                break;
            case SHORT: case SSHORT:
                put16(e.payload, static_cast<uint16_t>(static_cast<int64_t>(x)));
                break;
            case LONG: case SLONG: case IFDTYPE:
                put32(e.payload, static_cast<uint32_t>(static_cast<int64_t>(x)));
                break;
            case RATIONAL: case SRATIONAL:
                put32(e.payload, static_cast<uint32_t>(std::llround(x * rationalDenominator)));
                put32(e.payload, static_cast<uint32_t>(rationalDenominator));
                break;
            case FLOAT:
                put32(e.payload, std::bit_cast<uint32_t>(static_cast<float>(x)));
                break;
            case DOUBLE:
                put64(e.payload, std::bit_cast<uint64_t>(x));
                break;
            default:
                throw std::invalid_argument("TiffBuilder::addNumbers: unknown field type");
        }
    }
    addEntry(ifd, std::move(e));
}

void TiffBuilder::addRawEntry(int ifd, uint16_t tag, uint16_t type, uint32_t count,
                              const std::vector<uint8_t>& payload) {
    addEntry(ifd, Entry{tag, type, count, payload});
}

void TiffBuilder::addLiteralEntry(int ifd, uint16_t tag, uint16_t type, uint32_t count, uint32_t valueField) {
    Entry e{tag, type, count, {}};
    e.literal = true;
    e.valueField = valueField;
    addEntry(ifd, std::move(e));
}

void TiffBuilder::removeTag(int ifd, uint16_t tag) {
    auto& entries = at(ifd).entries;
    entries.erase(std::remove_if(entries.begin(), entries.end(),
                                 [tag](const Entry& e) { return e.tag == tag && e.deferred != Deferred::SubIFDs; }),
                  entries.end());
}

std::vector<uint8_t> TiffBuilder::packRows(const std::vector<uint32_t>& samples, uint32_t width, uint32_t height,
                                           int bits, ByteOrder order) {
    if (bits < 1 || bits > 32) throw std::invalid_argument("TiffBuilder::packRows: bits must be 1..32");
    if (samples.size() != static_cast<size_t>(width) * height)
        throw std::invalid_argument("TiffBuilder::packRows: raster size must be width*height");
    const uint64_t stride = rowBytes(width, bits);
    std::vector<uint8_t> out(stride * height, 0);
    const uint64_t mask = (bits == 32) ? 0xFFFFFFFFull : ((1ull << bits) - 1);
    for (uint32_t y = 0; y < height; ++y) {
        uint8_t* row = out.data() + stride * y;
        const uint32_t* src = samples.data() + static_cast<size_t>(width) * y;
        if (bits == 8) {
            for (uint32_t x = 0; x < width; ++x) row[x] = static_cast<uint8_t>(src[x]);
        } else if (bits == 16) {
            for (uint32_t x = 0; x < width; ++x) {
                const uint16_t v = static_cast<uint16_t>(src[x]);
                row[2 * x] = static_cast<uint8_t>(order == ByteOrder::II ? v : v >> 8);
                row[2 * x + 1] = static_cast<uint8_t>(order == ByteOrder::II ? v >> 8 : v);
            }
        } else {
            // MSB-first bit stream: a 64-bit accumulator, flushed a byte at a time.
            uint64_t acc = 0;
            int nbits = 0;
            uint8_t* dst = row;
            for (uint32_t x = 0; x < width; ++x) {
                acc = (acc << bits) | (src[x] & mask);
                nbits += bits;
                while (nbits >= 8) {
                    *dst++ = static_cast<uint8_t>(acc >> (nbits - 8));
                    nbits -= 8;
                }
            }
            if (nbits > 0) *dst = static_cast<uint8_t>(acc << (8 - nbits));
        }
    }
    return out;
}

void TiffBuilder::setStrips(int ifd, const std::vector<std::vector<uint8_t>>& strips, uint16_t offsetsType) {
    Ifd& d = at(ifd);
    removeTag(ifd, 273);
    removeTag(ifd, 279);
    d.strips = strips;
    d.offsetsType = offsetsType;
    Entry offsets;
    offsets.tag = 273;
    offsets.type = offsetsType;
    offsets.count = static_cast<uint32_t>(strips.size());
    offsets.deferred = Deferred::StripOffsets;
    d.entries.push_back(offsets);
    std::vector<uint32_t> counts;
    for (const auto& s : strips) counts.push_back(static_cast<uint32_t>(s.size()));
    addLongs(ifd, 279, counts);
}

void TiffBuilder::setImage(int ifd, const std::vector<uint32_t>& samples, uint32_t width, uint32_t height, int bits,
                           uint32_t rowsPerStrip, bool writeRowsPerStrip, uint16_t offsetsType) {
    const std::vector<uint8_t> packed = packRows(samples, width, height, bits, order_);
    const uint64_t stride = rowBytes(width, bits);
    const uint32_t rps = (rowsPerStrip == 0 || rowsPerStrip > height) ? height : rowsPerStrip;
    std::vector<std::vector<uint8_t>> strips;
    for (uint32_t y = 0; y < height; y += rps) {
        const uint32_t rows = std::min(rps, height - y);
        strips.emplace_back(packed.begin() + static_cast<std::ptrdiff_t>(stride * y),
                            packed.begin() + static_cast<std::ptrdiff_t>(stride * (y + rows)));
    }
    if (height == 0) strips.emplace_back();
    setStrips(ifd, strips, offsetsType);
    removeTag(ifd, 278);
    if (writeRowsPerStrip) addLongs(ifd, 278, {rowsPerStrip == 0 ? height : rowsPerStrip});
}

std::vector<uint8_t> TiffBuilder::build() const {
    // Working copies of the entries with deferred payloads sized (values filled in below).
    std::vector<std::vector<Entry>> entries(ifds_.size());
    for (size_t i = 0; i < ifds_.size(); ++i) {
        entries[i] = ifds_[i].entries;
        for (Entry& e : entries[i]) {
            if (e.deferred == Deferred::SubIFDs) e.count = static_cast<uint32_t>(ifds_[i].children.size());
            if (e.deferred != Deferred::None) e.payload.assign(static_cast<size_t>(e.count) * fieldTypeSize(e.type), 0);
        }
        if (sortTags_)
            std::stable_sort(entries[i].begin(), entries[i].end(),
                             [](const Entry& a, const Entry& b) { return a.tag < b.tag; });
    }

    // Layout: header, then each IFD followed by its out-of-line values, then the strips.
    auto align2 = [](uint64_t x) { return (x + 1) & ~uint64_t(1); };
    std::vector<uint64_t> ifdOffset(ifds_.size());
    std::vector<std::vector<uint64_t>> valueOffset(ifds_.size());
    uint64_t pos = 8;
    for (size_t i = 0; i < ifds_.size(); ++i) {
        pos = align2(pos);
        ifdOffset[i] = pos;
        pos += 2 + 12 * entries[i].size() + 4;
        valueOffset[i].resize(entries[i].size(), 0);
        for (size_t k = 0; k < entries[i].size(); ++k) {
            const Entry& e = entries[i][k];
            if (!e.literal && e.payload.size() > 4) {
                pos = align2(pos);
                valueOffset[i][k] = pos;
                pos += e.payload.size();
            }
        }
    }
    std::vector<std::vector<uint64_t>> stripOffset(ifds_.size());
    for (size_t i = 0; i < ifds_.size(); ++i) {
        for (const auto& s : ifds_[i].strips) {
            pos = align2(pos);
            stripOffset[i].push_back(pos);
            pos += s.size();
        }
    }
    if (pos > 0xFFFFFFFFull) throw std::length_error("TiffBuilder: frame larger than 4 GiB");

    // Fill the deferred values.
    for (size_t i = 0; i < ifds_.size(); ++i) {
        for (Entry& e : entries[i]) {
            if (e.deferred == Deferred::None) continue;
            std::vector<uint64_t> values;
            if (e.deferred == Deferred::SubIFDs)
                for (int c : ifds_[i].children) values.push_back(ifdOffset[static_cast<size_t>(c)]);
            else
                values = stripOffset[i];
            e.payload.clear();
            for (uint64_t v : values) {
                if (fieldTypeSize(e.type) == 2) put16(e.payload, static_cast<uint16_t>(v));
                else put32(e.payload, static_cast<uint32_t>(v));
            }
        }
    }

    std::vector<uint8_t> out;
    out.reserve(pos);
    if (order_ == ByteOrder::II) {
        out.push_back('I');
        out.push_back('I');
    } else {
        out.push_back('M');
        out.push_back('M');
    }
    put16(out, 42);
    put32(out, 8);
    // Next-IFD links between top-level IFDs.
    std::vector<uint64_t> next(ifds_.size(), 0);
    {
        size_t prev = 0;
        for (size_t i = 1; i < ifds_.size(); ++i) {
            if (ifds_[i].topLevel) {
                next[prev] = ifdOffset[i];
                prev = i;
            }
        }
    }
    for (size_t i = 0; i < ifds_.size(); ++i) {
        out.resize(ifdOffset[i], 0);
        put16(out, static_cast<uint16_t>(entries[i].size()));
        for (size_t k = 0; k < entries[i].size(); ++k) {
            const Entry& e = entries[i][k];
            put16(out, e.tag);
            put16(out, e.type);
            put32(out, e.count);
            if (e.literal) {
                put32(out, e.valueField);
            } else if (e.payload.size() > 4) {
                put32(out, static_cast<uint32_t>(valueOffset[i][k]));
            } else {
                std::vector<uint8_t> field = e.payload;
                field.resize(4, 0);
                out.insert(out.end(), field.begin(), field.end());
            }
        }
        put32(out, static_cast<uint32_t>(next[i]));
        for (size_t k = 0; k < entries[i].size(); ++k) {
            const Entry& e = entries[i][k];
            if (!e.literal && e.payload.size() > 4) {
                out.resize(valueOffset[i][k], 0);
                out.insert(out.end(), e.payload.begin(), e.payload.end());
            }
        }
    }
    for (size_t i = 0; i < ifds_.size(); ++i) {
        for (size_t s = 0; s < ifds_[i].strips.size(); ++s) {
            out.resize(stripOffset[i][s], 0);
            out.insert(out.end(), ifds_[i].strips[s].begin(), ifds_[i].strips[s].end());
        }
    }
    out.resize(pos, 0);
    return out;
}

void TiffBuilder::writeFile(const std::string& path) const {
    const std::vector<uint8_t> bytes = build();
    std::ofstream f(path, std::ios::binary | std::ios::trunc);
    if (!f) throw std::runtime_error("TiffBuilder: cannot open " + path);
    f.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    if (!f) throw std::runtime_error("TiffBuilder: cannot write " + path);
}

// ---- high level -----------------------------------------------------------------------------------

std::vector<uint32_t> makeTestRaster(uint32_t width, uint32_t height, int bits, uint32_t salt) {
    const uint64_t mask = bits >= 32 ? 0xFFFFFFFFull : ((1ull << bits) - 1);
    std::vector<uint32_t> r(static_cast<size_t>(width) * height);
    for (uint32_t y = 0; y < height; ++y)
        for (uint32_t x = 0; x < width; ++x) {
            const uint64_t v = (static_cast<uint64_t>(x) * 37 + static_cast<uint64_t>(y) * 101 + salt * 7919ull +
                                (static_cast<uint64_t>(x ^ y) << 3)) * 2654435761ull >> 7;
            r[static_cast<size_t>(y) * width + x] = static_cast<uint32_t>(v & mask);
        }
    return r;
}

namespace {
bool allFitShort(const std::vector<uint32_t>& v) {
    return std::all_of(v.begin(), v.end(), [](uint32_t x) { return x <= 0xFFFF; });
}
std::vector<std::pair<uint32_t, uint32_t>> toRationals(const std::vector<double>& v, int32_t den) {
    std::vector<std::pair<uint32_t, uint32_t>> r;
    for (double x : v)
        r.emplace_back(static_cast<uint32_t>(static_cast<int32_t>(std::lround(x * den))), static_cast<uint32_t>(den));
    return r;
}
void addUint(TiffBuilder& b, int ifd, uint16_t tag, const std::vector<uint32_t>& v) {
    if (allFitShort(v)) {
        std::vector<uint16_t> s(v.begin(), v.end());
        b.addShorts(ifd, tag, s);
    } else {
        b.addLongs(ifd, tag, v);
    }
}
}  // namespace

TiffBuilder makeRawFrameBuilder(const RawFrameDesc& desc, const std::vector<uint32_t>& samplesIn, int* rawIfdOut) {
    TiffBuilder b(desc.byteOrder);
    const std::vector<uint32_t> samples =
        samplesIn.empty() ? makeTestRaster(desc.width, desc.height, desc.bits) : samplesIn;

    int raw = 0;
    if (desc.useSubIFD) {
        raw = b.addSubIFD(0);
        // IFD 0: a small 8-bit RGB thumbnail.
        const uint32_t tw = 16, th = 8;
        b.addLongs(0, 254, {1});
        b.addLongs(0, 256, {tw});
        b.addLongs(0, 257, {th});
        b.addShorts(0, 258, {8, 8, 8});
        b.addShorts(0, 259, {1});
        b.addShorts(0, 262, {2});
        b.addShorts(0, 277, {3});
        b.addShorts(0, 284, {1});
        std::vector<uint8_t> thumb(tw * th * 3);
        for (size_t i = 0; i < thumb.size(); ++i) thumb[i] = static_cast<uint8_t>(i * 5);
        b.setStrips(0, {thumb});
        b.addLongs(0, 278, {th});
    }
    // Tags that describe the clip live in IFD 0 in either layout.
    if (!desc.make.empty()) b.addAscii(0, 271, desc.make);
    if (!desc.model.empty()) b.addAscii(0, 272, desc.model);
    b.addShorts(0, 274, {1});
    if (!desc.dateTimeOriginal.empty()) b.addAscii(0, 36867, desc.dateTimeOriginal);
    if (desc.imageNumber) b.addLongs(0, 37393, {*desc.imageNumber});
    if (!desc.dngVersion.empty()) b.addBytes(0, 50706, desc.dngVersion);
    if (!desc.uniqueCameraModel.empty()) b.addAscii(0, 50708, desc.uniqueCameraModel);
    if (!desc.colorMatrix1.empty()) b.addRationals(0, 50721, toRationals(desc.colorMatrix1, 10000), SRATIONAL);
    if (!desc.colorMatrix2.empty()) b.addRationals(0, 50722, toRationals(desc.colorMatrix2, 10000), SRATIONAL);
    if (!desc.cameraCalibration1.empty())
        b.addRationals(0, 50723, toRationals(desc.cameraCalibration1, 10000), SRATIONAL);
    if (!desc.cameraCalibration2.empty())
        b.addRationals(0, 50724, toRationals(desc.cameraCalibration2, 10000), SRATIONAL);
    if (!desc.asShotNeutral.empty()) b.addRationals(0, 50728, toRationals(desc.asShotNeutral, 10000));
    if (desc.baselineExposure) b.addRationals(0, 50730, toRationals({*desc.baselineExposure}, 100), SRATIONAL);
    if (desc.calibrationIlluminant1) b.addShorts(0, 50778, {*desc.calibrationIlluminant1});
    if (desc.calibrationIlluminant2) b.addShorts(0, 50779, {*desc.calibrationIlluminant2});
    if (!desc.timeCodes.empty()) b.addBytes(0, 51043, desc.timeCodes);
    if (desc.frameRate)
        b.addRationals(0, 51044,
                       {{static_cast<uint32_t>(desc.frameRate->first), static_cast<uint32_t>(desc.frameRate->second)}},
                       SRATIONAL);

    // The raw image.
    if (desc.writeNewSubFileType) b.addLongs(raw, 254, {0});
    b.addLongs(raw, 256, {desc.width});
    b.addLongs(raw, 257, {desc.height});
    b.addShorts(raw, 258, {static_cast<uint16_t>(desc.bits)});
    b.addShorts(raw, 259, {desc.compression});
    b.addShorts(raw, 262, {desc.photometric});
    b.addShorts(raw, 277, {1});
    b.addShorts(raw, 284, {1});
    if (!desc.cfaRepeatPatternDim.empty()) b.addShorts(raw, 33421, desc.cfaRepeatPatternDim);
    if (!desc.cfaPattern.empty()) b.addBytes(raw, 33422, desc.cfaPattern);
    if (!desc.linearizationTable.empty()) b.addShorts(raw, 50712, desc.linearizationTable);
    if (!desc.blackLevelRepeatDim.empty()) b.addShorts(raw, 50713, desc.blackLevelRepeatDim);
    if (!desc.blackLevel.empty()) addUint(b, raw, 50714, desc.blackLevel);
    if (!desc.blackLevelDeltaH.empty()) b.addRationals(raw, 50715, toRationals(desc.blackLevelDeltaH, 10000), SRATIONAL);
    if (!desc.blackLevelDeltaV.empty()) b.addRationals(raw, 50716, toRationals(desc.blackLevelDeltaV, 10000), SRATIONAL);
    if (!desc.whiteLevel.empty()) addUint(b, raw, 50717, desc.whiteLevel);
    if (!desc.defaultCropOrigin.empty()) b.addLongs(raw, 50719, desc.defaultCropOrigin);
    if (!desc.defaultCropSize.empty()) b.addLongs(raw, 50720, desc.defaultCropSize);
    if (!desc.activeArea.empty()) b.addLongs(raw, 50829, desc.activeArea);
    b.setImage(raw, samples, desc.width, desc.height, desc.bits, desc.rowsPerStrip, desc.writeRowsPerStrip);

    if (rawIfdOut) *rawIfdOut = raw;
    return b;
}

std::vector<uint8_t> buildRawFrame(const RawFrameDesc& desc, const std::vector<uint32_t>& samples) {
    return makeRawFrameBuilder(desc, samples).build();
}

void writeRawFrame(const std::string& path, const RawFrameDesc& desc, const std::vector<uint32_t>& samples) {
    makeRawFrameBuilder(desc, samples).writeFile(path);
}

}  // namespace cinedng::framebuilder
