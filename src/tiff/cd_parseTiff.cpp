#include "cinedng/cd_parseTiff.h"

#include <algorithm>
#include <bit>
#include <cfloat>
#include <cmath>
#include <cstring>
#include <iomanip>
#include <iostream>

#include "cinedng/cd_exception.h"

namespace cinedng {

namespace {

constexpr std::array<int, TIFF_TYPE_COUNT> kTypeSizes = {0, 1, 1, 2, 4, 8, 1, 1, 2, 4, 8, 4, 8, 4};

template <typename T>
T loadRaw(const unsigned char* p) {
    T v;
    std::memcpy(&v, p, sizeof(T));
    return v;
}

uint16_t swap16(uint16_t v) { return static_cast<uint16_t>((v >> 8) | (v << 8)); }
uint32_t swap32(uint32_t v) {
    return (v >> 24) | ((v >> 8) & 0x0000FF00u) | ((v << 8) & 0x00FF0000u) | (v << 24);
}
uint64_t swap64(uint64_t v) {
    return (static_cast<uint64_t>(swap32(static_cast<uint32_t>(v))) << 32) | swap32(static_cast<uint32_t>(v >> 32));
}

// double -> float without the undefined overflow of a plain conversion: out-of-range values
// become infinities, as IEEE rounding would give them.
float narrowToFloat(double v) {
    if (v > static_cast<double>(FLT_MAX)) return HUGE_VALF;
    if (v < -static_cast<double>(FLT_MAX)) return -HUGE_VALF;
    return static_cast<float>(v);
}

}  // namespace

cd_parseTiff::cd_parseTiff() { typeSize = kTypeSizes; }

uint16_t cd_parseTiff::getNativeByteOrder() {
    return std::endian::native == std::endian::little ? 0x4949 : 0x4D4D;
}

unsigned short cd_parseTiff::byteSwap(unsigned short v) const { return swapBytes ? swap16(v) : v; }
unsigned int cd_parseTiff::byteSwap(unsigned int v) const { return swapBytes ? swap32(v) : v; }
double cd_parseTiff::byteSwap(double v) const {
    if (!swapBytes) return v;
    return std::bit_cast<double>(swap64(std::bit_cast<uint64_t>(v)));
}

// ---- value readers ----

unsigned char cd_parseTiff::getBYTE(const unsigned char* p) const { return *p; }
unsigned char cd_parseTiff::getASCII(const unsigned char* p) const { return *p; }
unsigned char cd_parseTiff::getSBYTE(const unsigned char* p) const { return *p; }
unsigned char cd_parseTiff::getUNDEFINED(const unsigned char* p) const { return *p; }
unsigned short cd_parseTiff::getSHORT(const unsigned char* p) const { return byteSwap(loadRaw<unsigned short>(p)); }
unsigned int cd_parseTiff::getLONG(const unsigned char* p) const { return byteSwap(loadRaw<unsigned int>(p)); }
unsigned int cd_parseTiff::getOFFSET(const unsigned char* p) const { return byteSwap(loadRaw<unsigned int>(p)); }
short cd_parseTiff::getSSHORT(const unsigned char* p) const { return static_cast<short>(getSHORT(p)); }
int cd_parseTiff::getSLONG(const unsigned char* p) const { return static_cast<int>(getLONG(p)); }
float cd_parseTiff::getFLOAT(const unsigned char* p) const { return std::bit_cast<float>(getLONG(p)); }
double cd_parseTiff::getDOUBLE(const unsigned char* p) const { return byteSwap(loadRaw<double>(p)); }

urational cd_parseTiff::getRATIONAL(const unsigned char* p) const {
    const unsigned int n = getLONG(p);
    unsigned int d = getLONG(p + 4);
    if (d == 0) {
        std::cerr << "\n\n WARNING: " << std::endl
                  << std::setw(24) << "tag" << "   = " << tag << std::endl
                  << " has Malformed Rational Number " << std::endl
                  << std::setw(24) << "n" << "   = " << n << std::endl
                  << std::setw(24) << "d" << "   = " << d << std::endl
                  << "Setting d to 1... " << std::endl;
        d = 1;
    }
    return urational(n, d);
}

srational cd_parseTiff::getSRATIONAL(const unsigned char* p) const {
    const int n = getSLONG(p);
    int d = getSLONG(p + 4);
    if (d == 0) {
        std::cerr << "\n\n WARNING: " << std::endl
                  << std::setw(24) << "tag" << "   = " << tag << std::endl
                  << " has Malformed Rational Number " << std::endl
                  << std::setw(24) << "n" << "   = " << n << std::endl
                  << std::setw(24) << "d" << "   = " << d << std::endl
                  << "Setting d to 1... " << std::endl;
        d = 1;
    }
    return srational(n, d);
}

// ---- configure ----

const IFD* cd_parseTiff::ifdAt(uint64_t offset, const char* what) const {
    // The entry count must at least be readable; the entries are checked when the IFD is searched.
    if (offset > imageBufferSize || imageBufferSize - offset < 2) throw cd_exception(what);
    return buf() + offset;
}

int cd_parseTiff::configure(const char* buffer, unsigned long long size) {
    cd_timing timer;
    status = 0;
    typeSize = kTypeSizes;

    imageBuffer = buffer;
    imageBufferSize = size;
    ifd0 = nullptr;
    subIFD = nullptr;
    tag = localIFDEntry();
    if (buffer == nullptr) throw cd_exception("cd_parseTiff - the imageBuffer may not be null");
    if (size < 100) throw cd_exception("cd_parseTiff - the imageBufferSize may not be < 100");

    byteOrder = loadRaw<uint16_t>(buf());
    if (byteOrder != 0x4D4D && byteOrder != 0x4949) throw cd_exception("cd_parseTiff - illegal byte order tag");
    swapBytes = byteOrder != getNativeByteOrder();

    const unsigned short version = getSHORT(buf() + 2);
    const unsigned int offset = getOFFSET(buf() + 4);
    if (version != 42) throw cd_exception("cd_parseTiff - illegal TIFF version");

    ifd0 = ifdAt(offset, "cd_parseTiff - IFD 0 lies outside the frame buffer");
    subIFD = nullptr;
    unsigned int newSubFileType = 0;

    getTag(tiffTagCodes::NewSubFileType, &newSubFileType);
    if (status == TIFF_STATUS_NOT_FOUND) {
        std::cerr << "No newSubFileType in ifd 0. Assuming ifd 0 is main image" << std::endl;
        status = 0;
    } else if (newSubFileType != 0) {
        std::cerr << "Looking in subIFDs" << std::endl;
        std::vector<unsigned int> subIFDs;
        if (getTag(tiffTagCodes::SubIFDs, &subIFDs) == 0) {
            for (unsigned int subOffset : subIFDs) {
                subIFD = ifdAt(subOffset, "cd_parseTiff - sub-IFD lies outside the frame buffer");
                // A sub-IFD without its own NewSubFileType answers with IFD 0's value.
                getTag(tiffTagCodes::NewSubFileType, &newSubFileType);
                status = 0;
                if (newSubFileType == 0) {
                    std::cerr << "newSubFileType 0 found in a subIFD" << std::endl;
                    break;
                }
            }
        }
    }
    if (newSubFileType != 0) throw cd_exception("cd_parseTiff - newSubFileType must be 0 at the end of parsing");

    stats_.timeOpen += timer.time();
    return status;
}

// ---- locating entries ----

const unsigned char* cd_parseTiff::searchIFD(int tagCode, const IFD* ifd) const {
    if (ifd == nullptr) return nullptr;
    const uint64_t start = static_cast<uint64_t>(ifd - buf());
    if (start > imageBufferSize || imageBufferSize - start < 2)
        throw cd_exception("cd_parseTiff - IFD lies outside the frame buffer");
    const unsigned short count = getSHORT(ifd);
    // Entries are checked one by one as the scan reaches them: a tag found before the point where a
    // cut IFD ends still reads.
    const uint64_t room = imageBufferSize - start - 2;
    for (unsigned i = 0; i < count; ++i) {
        if (room < 12ull * (i + 1ull))
            throw cd_exception("cd_parseTiff - IFD entries run past the end of the frame buffer");
        const unsigned char* entry = ifd + 2 + 12ull * i;
        if (getSHORT(entry) == static_cast<unsigned short>(tagCode) && tagCode >= 0 && tagCode <= 0xFFFF) return entry;
    }
    return nullptr;
}

const unsigned char* cd_parseTiff::locateTag(int tagCode) {
    if (ifd0 == nullptr) throw cd_exception("ifd0 != NULL");
    status = 0;
    const unsigned char* entry = searchIFD(tagCode, subIFD);
    if (entry == nullptr) entry = searchIFD(tagCode, ifd0);
    if (entry == nullptr) status = TIFF_STATUS_NOT_FOUND;
    return entry;
}

int cd_parseTiff::getlocalIFDEntry(int tagCode) {
    const unsigned char* entry = locateTag(tagCode);
    if (status != 0) return status;
    tag.Tag = getSHORT(entry);
    tag.Type = getSHORT(entry + 2);
    tag.Count = getLONG(entry + 4);
    // A field type outside the table has no known size: treated as size 0.
    const uint32_t size = tag.Type < TIFF_TYPE_COUNT ? static_cast<uint32_t>(typeSize[tag.Type]) : 0u;
    tag.FieldSize = tag.Count * size;  // 32-bit product, as the entry declares it
    const unsigned char* valueField = entry + 8;
    if (tag.FieldSize >= 5) {
        const unsigned int offset = getOFFSET(valueField);
        if (offset >= imageBufferSize) {
            // Nothing is read here: the entry is still handed out (its type and count may be all the
            // caller looks at), and any read of its value raises. A value that starts inside the
            // buffer but runs past its end is caught by the reads (checkValueRange).
            tag.pValue = nullptr;
            tag.validBytes = 0;
            return status;
        }
        tag.pValue = buf() + offset;
    } else {
        tag.pValue = valueField;
        if (tag.FieldSize == 0) status = TIFF_STATUS_ZERO_SIZE;
    }
    tag.validBytes = imageBufferSize - static_cast<uint64_t>(tag.pValue - buf());
    return status;
}

// ---- typed queries ----

void cd_parseTiff::printTypeDiagnostics() const {
    std::cerr << std::setw(24) << "tag.Tag" << "   = " << tag.Tag << std::endl
              << std::setw(24) << "tag.Type" << "   = " << tag.Type << std::endl
              << std::setw(24) << "tag.Count" << "   = " << tag.Count << std::endl;
}

void cd_parseTiff::checkValueRange() const {
    // Count values of the declared type must be readable from pValue. The 32-bit FieldSize may have
    // wrapped, so the real extent is computed in 64 bits.
    if (tag.pValue == nullptr) throw cd_exception("cd_parseTiff - tag value lies outside the frame buffer");
    const uint64_t need = static_cast<uint64_t>(tag.Count) * static_cast<uint64_t>(typeSize[tag.Type]);
    if (need > tag.validBytes) throw cd_exception("cd_parseTiff - tag value runs past the end of the frame buffer");
}

// Shared frame of the vector queries. conv(type, p, T& out) converts one value at p and returns
// false for a type the overload does not accept.
template <typename T, typename Conv>
int cd_parseTiff::readVector(tiffTagCodes code, std::vector<T>* out, const char* typeMessage,
                             const char* sizeMessage, Conv&& conv) {
    cd_timing timer;
    if (getlocalIFDEntry(static_cast<int>(code)) != 0) {
        out->clear();
        return status;
    }
    T probe{};
    if (!conv(tag.Type, tag.pValue, probe, true)) {
        printTypeDiagnostics();
        throw cd_exception(typeMessage);
    }
    checkValueRange();
    out->resize(tag.Count);
    const int step = typeSize[tag.Type];
    const unsigned char* p = tag.pValue;
    for (uint32_t i = 0; i < tag.Count; ++i, p += step) conv(tag.Type, p, (*out)[i], false);
    if (out->size() != tag.Count) throw cd_exception(sizeMessage);
    stats_.timeDataProcessing += timer.time();
    stats_.bytesProcessed += out->size();
    return status;
}

// The numeric conversions. A BYTE is read as a signed 8-bit number in every numeric overload and
// then widened (200 becomes -56, 65480 or 4294967240).
#define CD_BYTE_SIGNED(p) static_cast<int8_t>(getBYTE(p))

int cd_parseTiff::getTag(tiffTagCodes code, std::vector<unsigned char>* out) {
    cd_timing timer;
    if (getlocalIFDEntry(static_cast<int>(code)) != 0) {
        out->clear();
        return status;
    }
    if (tag.Type != TIFF_BYTE && tag.Type != TIFF_ASCII) {
        printTypeDiagnostics();
        std::cerr << std::setw(24) << "\"Could not read tag, it's not in byte format\"" << "   = "
                  << "Could not read tag, it's not in byte format" << std::endl;
        out->clear();
        return TIFF_STATUS_NOT_BYTES;
    }
    checkValueRange();
    out->assign(tag.pValue, tag.pValue + tag.Count);
    if (out->size() != tag.Count) throw cd_exception("tagValue -> size() == tag.Count");
    stats_.timeDataProcessing += timer.time();
    stats_.bytesProcessed += out->size();
    return status;
}

int cd_parseTiff::getTag(tiffTagCodes code, std::vector<unsigned short>* out) {
    return readVector(code, out, "tag.Type == TIFF_SHORT", "tagValue -> size() == tag.Count",
                      [this](uint16_t type, const unsigned char* p, unsigned short& v, bool probe) {
                          switch (type) {
                              case TIFF_BYTE: if (!probe) v = static_cast<unsigned short>(CD_BYTE_SIGNED(p)); return true;
                              case TIFF_SHORT: if (!probe) v = getSHORT(p); return true;
                              default: return false;
                          }
                      });
}

int cd_parseTiff::getTag(tiffTagCodes code, std::vector<unsigned int>* out) {
    return readVector(code, out, "cd_parseTiff - type of unrecognized tag is not LONG",
                      "cd_parseTiff - TIFF tag size doesn't match",
                      [this](uint16_t type, const unsigned char* p, unsigned int& v, bool probe) {
                          switch (type) {
                              case TIFF_BYTE: if (!probe) v = static_cast<unsigned int>(CD_BYTE_SIGNED(p)); return true;
                              case TIFF_SHORT: if (!probe) v = getSHORT(p); return true;
                              case TIFF_LONG: if (!probe) v = getLONG(p); return true;
                              default: return false;
                          }
                      });
}

int cd_parseTiff::getTag(tiffTagCodes code, std::vector<short>* out) {
    return readVector(code, out, "cd_parseTiff - type of unrecognized tag is not SSHORT",
                      "cd_parseTiff - TIFF tag size doesn't match",
                      [this](uint16_t type, const unsigned char* p, short& v, bool probe) {
                          switch (type) {
                              case TIFF_BYTE: if (!probe) v = CD_BYTE_SIGNED(p); return true;
                              case TIFF_SSHORT: if (!probe) v = getSSHORT(p); return true;
                              default: return false;
                          }
                      });
}

int cd_parseTiff::getTag(tiffTagCodes code, std::vector<int>* out) {
    return readVector(code, out, "cd_parseTiff - type of unrecognized tag is not SLONG",
                      "cd_parseTiff - TIFF tag size doesn't match",
                      [this](uint16_t type, const unsigned char* p, int& v, bool probe) {
                          switch (type) {
                              case TIFF_BYTE: if (!probe) v = CD_BYTE_SIGNED(p); return true;
                              case TIFF_SHORT: if (!probe) v = getSHORT(p); return true;
                              case TIFF_SSHORT: if (!probe) v = getSSHORT(p); return true;
                              case TIFF_SLONG: if (!probe) v = getSLONG(p); return true;
                              default: return false;
                          }
                      });
}

int cd_parseTiff::getTag(tiffTagCodes code, std::vector<urational>* out) {
    return readVector(code, out, "cd_parseTiff - type of unrecognized tag is not RATIONAL",
                      "cd_parseTiff - TIFF tag size doesn't match",
                      [this](uint16_t type, const unsigned char* p, urational& v, bool probe) {
                          switch (type) {
                              case TIFF_BYTE: if (!probe) v = urational(static_cast<unsigned int>(CD_BYTE_SIGNED(p))); return true;
                              case TIFF_SHORT: if (!probe) v = urational(static_cast<unsigned int>(getSHORT(p))); return true;
                              case TIFF_LONG: if (!probe) v = urational(getLONG(p)); return true;
                              case TIFF_RATIONAL: if (!probe) v = getRATIONAL(p); return true;
                              default: return false;
                          }
                      });
}

int cd_parseTiff::getTag(tiffTagCodes code, std::vector<srational>* out) {
    return readVector(code, out, "cd_parseTiff - type of unrecognized tag is not SRATIONAL",
                      "cd_parseTiff - TIFF tag size doesn't match",
                      [this](uint16_t type, const unsigned char* p, srational& v, bool probe) {
                          switch (type) {
                              case TIFF_BYTE: if (!probe) v = srational(static_cast<int>(CD_BYTE_SIGNED(p))); return true;
                              case TIFF_SHORT: if (!probe) v = srational(static_cast<int>(getSHORT(p))); return true;
                              case TIFF_LONG: if (!probe) v = srational(getLONG(p)); return true;
                              case TIFF_SBYTE: if (!probe) v = srational(static_cast<int>(static_cast<int8_t>(getSBYTE(p)))); return true;
                              case TIFF_SSHORT: if (!probe) v = srational(static_cast<int>(getSSHORT(p))); return true;
                              case TIFF_SLONG: if (!probe) v = srational(getSLONG(p)); return true;
                              case TIFF_RATIONAL: if (!probe) v = srational(getRATIONAL(p)); return true;
                              case TIFF_SRATIONAL: if (!probe) v = getSRATIONAL(p); return true;
                              case TIFF_FLOAT:
                                  // The float-to-rational spread asserts its range: a NaN or a value
                                  // beyond +-2^63 stops the process (or raises, in a build whose
                                  // assertions raise).
                                  if (!probe) v = srational(getFLOAT(p));
                                  return true;
                              default: return false;
                          }
                      });
}

namespace {
// The ten numeric types a float or double query accepts; rationals as their quotient.
template <typename R, typename P>
bool toReal(const P& parser, uint16_t type, const unsigned char* p, R& v, bool probe) {
    switch (type) {
        case TIFF_BYTE: if (!probe) v = static_cast<R>(static_cast<int8_t>(parser.getBYTE(p))); return true;
        case TIFF_SHORT: if (!probe) v = static_cast<R>(parser.getSHORT(p)); return true;
        case TIFF_LONG: if (!probe) v = static_cast<R>(parser.getLONG(p)); return true;
        case TIFF_RATIONAL:
            if (!probe) {
                const urational r = parser.getRATIONAL(p);
                v = static_cast<R>(static_cast<R>(r.n) / static_cast<R>(r.d));
            }
            return true;
        case TIFF_SBYTE: if (!probe) v = static_cast<R>(static_cast<int8_t>(parser.getSBYTE(p))); return true;
        case TIFF_SSHORT: if (!probe) v = static_cast<R>(parser.getSSHORT(p)); return true;
        case TIFF_SLONG: if (!probe) v = static_cast<R>(parser.getSLONG(p)); return true;
        case TIFF_SRATIONAL:
            if (!probe) {
                const srational r = parser.getSRATIONAL(p);
                v = static_cast<R>(static_cast<R>(r.n) / static_cast<R>(r.d));
            }
            return true;
        case TIFF_FLOAT: if (!probe) v = static_cast<R>(parser.getFLOAT(p)); return true;
        case TIFF_DOUBLE:
            if (!probe) {
                if constexpr (std::is_same_v<R, float>) v = narrowToFloat(parser.getDOUBLE(p));
                else v = parser.getDOUBLE(p);
            }
            return true;
        default: return false;
    }
}
}  // namespace

int cd_parseTiff::getTag(tiffTagCodes code, std::vector<float>* out) {
    return readVector(code, out, "cd_parseTiff - type of unrecognized tag is not FLOAT",
                      "cd_parseTiff - TIFF tag size doesn't match",
                      [this](uint16_t type, const unsigned char* p, float& v, bool probe) {
                          return toReal<float>(*this, type, p, v, probe);
                      });
}

int cd_parseTiff::getTag(tiffTagCodes code, std::vector<double>* out) {
    return readVector(code, out, "cd_parseTiff - type of unrecognized tag is not DOUBLE",
                      "cd_parseTiff - TIFF tag size doesn't match",
                      [this](uint16_t type, const unsigned char* p, double& v, bool probe) {
                          return toReal<double>(*this, type, p, v, probe);
                      });
}

#undef CD_BYTE_SIGNED

int cd_parseTiff::getTag(tiffTagCodes code, std::string* out) {
    cd_timing timer;
    if (getlocalIFDEntry(static_cast<int>(code)) != 0) {
        out->clear();
        return status;
    }
    if (tag.Type == TIFF_BYTE) {
        checkValueRange();
        out->assign(reinterpret_cast<const char*>(tag.pValue), tag.Count);
    } else if (tag.Type == TIFF_ASCII) {
        // The text ends at the first zero byte (at the latest after Count bytes); only the bytes up
        // to there must lie in the buffer.
        const void* nul = tag.pValue ? std::memchr(tag.pValue, 0, std::min<uint64_t>(tag.Count, tag.validBytes)) : nullptr;
        if (nul == nullptr) checkValueRange();
        const size_t len = nul ? static_cast<size_t>(static_cast<const unsigned char*>(nul) - tag.pValue) : tag.Count;
        out->assign(reinterpret_cast<const char*>(tag.pValue), len);
    } else {
        printTypeDiagnostics();
        throw cd_exception("tag.Type == TIFF_ASCII");
    }
    stats_.timeDataProcessing += timer.time();
    stats_.bytesProcessed += out->size();
    return status;
}

// Scalar queries: the vector query of the same type, then exactly one element or zero and 1011.
template <typename T>
int cd_parseTiff::readScalar(tiffTagCodes code, T* out, T zero) {
    std::vector<T> values;
    const int result = getTag(code, &values);
    if (result == 0 && values.size() == 1) {
        *out = values[0];
        return 0;
    }
    *out = zero;
    if (status == 0) status = TIFF_STATUS_NOT_SCALAR;
    return status;
}

int cd_parseTiff::getTag(tiffTagCodes code, unsigned short* out) { return readScalar<unsigned short>(code, out, 0); }
int cd_parseTiff::getTag(tiffTagCodes code, unsigned int* out) { return readScalar<unsigned int>(code, out, 0u); }
int cd_parseTiff::getTag(tiffTagCodes code, short* out) { return readScalar<short>(code, out, 0); }
int cd_parseTiff::getTag(tiffTagCodes code, int* out) { return readScalar<int>(code, out, 0); }
int cd_parseTiff::getTag(tiffTagCodes code, urational* out) { return readScalar<urational>(code, out, urational()); }
int cd_parseTiff::getTag(tiffTagCodes code, srational* out) { return readScalar<srational>(code, out, srational()); }
int cd_parseTiff::getTag(tiffTagCodes code, float* out) { return readScalar<float>(code, out, 0.0f); }
int cd_parseTiff::getTag(tiffTagCodes code, double* out) { return readScalar<double>(code, out, 0.0); }

}  // namespace cinedng
