#include "cinedng/cd_writeOpenEXRattributes.h"

#include <bit>
#include <ios>

#include "cinedng/cd_exception.h"

namespace cinedng {

cd_writeOpenEXRattributes::cd_writeOpenEXRattributes()
    : stream_(std::ios::in | std::ios::out | std::ios::binary) {}

cd_writeOpenEXRattributes::~cd_writeOpenEXRattributes() = default;

uint64_t cd_writeOpenEXRattributes::StreamPosition() {
    if (!stream_.good()) return ~uint64_t{0};
    const std::streampos pos = stream_.tellp();
    if (pos < 0) return ~uint64_t{0};
    return static_cast<uint64_t>(static_cast<std::streamoff>(pos));
}

void cd_writeOpenEXRattributes::SetStreamPosition(uint64_t pos) {
    stream_.seekp(static_cast<std::streamoff>(pos), std::ios::beg);
}

void cd_writeOpenEXRattributes::copyToBuffer(char* dst, uint64_t n) {
    std::stringbuf* sb = stream_.rdbuf();
    // The readable area of the buffer reaches up to the furthest byte ever written.
    const std::streamoff available = sb->pubseekoff(0, std::ios::end, std::ios::in);
    if (available < 0 || static_cast<uint64_t>(available) < n) {
        throw cd_exception("cd_writeOpenEXRattributes - copy beyond the written header");
    }
    sb->pubseekpos(0, std::ios::in);
    if (n > 0 && static_cast<uint64_t>(sb->sgetn(dst, static_cast<std::streamsize>(n))) != n) {
        throw cd_exception("cd_writeOpenEXRattributes - header copy incomplete");
    }
}

void cd_writeOpenEXRattributes::writeBytes(const void* p, std::size_t n) {
    stream_.write(static_cast<const char*>(p), static_cast<std::streamsize>(n));
}

template <typename U>
void cd_writeOpenEXRattributes::writeLittleEndian(U v) {
    unsigned char bytes[sizeof(U)];
    for (std::size_t i = 0; i < sizeof(U); ++i) bytes[i] = static_cast<unsigned char>(v >> (8 * i));
    writeBytes(bytes, sizeof(U));
}

void cd_writeOpenEXRattributes::writeChar(char c) { writeBytes(&c, 1); }
void cd_writeOpenEXRattributes::writeBasicType(char v) { writeBytes(&v, 1); }
void cd_writeOpenEXRattributes::writeBasicType(double v) { writeLittleEndian(std::bit_cast<uint64_t>(v)); }
void cd_writeOpenEXRattributes::writeBasicType(float v) { writeLittleEndian(std::bit_cast<uint32_t>(v)); }
void cd_writeOpenEXRattributes::writeBasicType(int v) { writeLittleEndian(static_cast<uint32_t>(v)); }
void cd_writeOpenEXRattributes::writeBasicType(unsigned int v) { writeLittleEndian(static_cast<uint32_t>(v)); }
void cd_writeOpenEXRattributes::writeBasicType(uint64_t v) { writeLittleEndian(v); }

void cd_writeOpenEXRattributes::writeStringNZ(const std::string& s) { writeBytes(s.data(), s.size()); }

void cd_writeOpenEXRattributes::writeStringZ(const std::string& s) {
    writeStringNZ(s);
    writeChar('\0');
}

void cd_writeOpenEXRattributes::writeAttributeHeader(const std::string& name, const std::string& typeName,
                                                     uint32_t size) {
    writeStringZ(name);
    writeStringZ(typeName);
    writeBasicType(static_cast<unsigned int>(size));
}

// ---- one overload per attribute type ----

void cd_writeOpenEXRattributes::writeAttribute(const std::string& name, const box2i& v) {
    writeAttributeHeader(name, "box2i", 16);
    writeBasicType(static_cast<int>(v.xMin));
    writeBasicType(static_cast<int>(v.yMin));
    writeBasicType(static_cast<int>(v.xMax));
    writeBasicType(static_cast<int>(v.yMax));
}

void cd_writeOpenEXRattributes::writeAttribute(const std::string& name, const std::vector<channelInfo>& v) {
    uint32_t size = 1;
    for (const channelInfo& c : v) size += static_cast<uint32_t>(c.name.size()) + 17;
    writeAttributeHeader(name, "chlist", size);
    // Vector order, deliberately not sorted by name.
    for (const channelInfo& c : v) {
        writeStringZ(c.name);
        writeBasicType(static_cast<int>(c.pixelType));
        writeBasicType(static_cast<unsigned int>(c.pLinear));
        writeBasicType(static_cast<int>(c.xSampling));
        writeBasicType(static_cast<int>(c.ySampling));
    }
    writeChar('\0');
}

void cd_writeOpenEXRattributes::writeAttribute(const std::string& name, const chromaticities& v) {
    writeAttributeHeader(name, "chromaticities", 32);
    writeBasicType(v.redX);
    writeBasicType(v.redY);
    writeBasicType(v.greenX);
    writeBasicType(v.greenY);
    writeBasicType(v.blueX);
    writeBasicType(v.blueY);
    writeBasicType(v.whiteX);
    writeBasicType(v.whiteY);
}

void cd_writeOpenEXRattributes::writeAttribute(const std::string& name, const compression& v) {
    writeAttributeHeader(name, "compression", 1);
    writeBasicType(static_cast<char>(v.value));
}

void cd_writeOpenEXRattributes::writeAttribute(const std::string& name, double v) {
    writeAttributeHeader(name, "double", 8);
    writeBasicType(v);
}

void cd_writeOpenEXRattributes::writeAttribute(const std::string& name, float v) {
    writeAttributeHeader(name, "float", 4);
    writeBasicType(v);
}

void cd_writeOpenEXRattributes::writeAttribute(const std::string& name, int v) {
    writeAttributeHeader(name, "int", 4);
    writeBasicType(v);
}

void cd_writeOpenEXRattributes::writeAttribute(const std::string& name, const lineOrder& v) {
    writeAttributeHeader(name, "lineOrder", 1);
    writeBasicType(static_cast<char>(v.value));
}

void cd_writeOpenEXRattributes::writeAttribute(const std::string& name, const keycode& v) {
    writeAttributeHeader(name, "keycode", 28);
    writeBasicType(static_cast<int>(v.filmMfcCode));
    writeBasicType(static_cast<int>(v.filmType));
    writeBasicType(static_cast<int>(v.prefix));
    writeBasicType(static_cast<int>(v.count));
    writeBasicType(static_cast<int>(v.perfOffset));
    writeBasicType(static_cast<int>(v.perfsPerFrame));
    writeBasicType(static_cast<int>(v.perfsPerCount));
}

void cd_writeOpenEXRattributes::writeAttribute(const std::string& name, const srational& v) {
    writeAttributeHeader(name, "rational", 8);
    writeBasicType(static_cast<int>(v.n));
    writeBasicType(static_cast<int>(v.d));
}

void cd_writeOpenEXRattributes::writeAttribute(const std::string& name, const std::string& v) {
    writeAttributeHeader(name, "string", static_cast<uint32_t>(v.size()));
    writeStringNZ(v);
}

void cd_writeOpenEXRattributes::writeAttribute(const std::string& name, const timecode& v) {
    writeAttributeHeader(name, "timecode", 8);
    writeBasicType(static_cast<unsigned int>(v.timeAndFlags));
    writeBasicType(static_cast<unsigned int>(v.userData));
}

void cd_writeOpenEXRattributes::writeAttribute(const std::string& name, const v2f& v) {
    writeAttributeHeader(name, "v2f", 8);
    writeBasicType(v.x);
    writeBasicType(v.y);
}

// ---- file structure ----

void cd_writeOpenEXRattributes::writeMagicNumberAndVersion() {
    writeBasicType(static_cast<int>(20000630));
    writeBasicType(static_cast<int>(2));
}

void cd_writeOpenEXRattributes::writeHeader(openEXRHeaderInfo& hi) {
    // A float counts as set when it is not equal to 0 (so NaN is written and -0.0 is not); a string
    // when it is not empty. Single fields decide for some records: the x of adoptedNeutral, the
    // time-and-flags word of the time code and perfsPerFrame of the key code.
    writeAttribute("channels", hi.channels);
    writeAttribute("compression", hi.compression);
    writeAttribute("dataWindow", hi.dataWindow);
    writeAttribute("displayWindow", hi.displayWindow);
    writeAttribute("lineOrder", hi.lineOrder);
    writeAttribute("pixelAspectRatio", hi.pixelAspectRatio);
    writeAttribute("screenWindowCenter", hi.screenWindowCenter);
    writeAttribute("screenWindowWidth", hi.screenWindowWidth);
    writeAttribute("uuid", hi.uuid);
    writeAttribute("acesFlag", static_cast<int>(hi.acesFlag));
    writeAttribute("originalImageFlag", static_cast<int>(hi.originalImageFlag));
    writeAttribute("chromaticities", hi.chromaticities);
    if (hi.whiteLuminance != 0.0f) writeAttribute("whiteLuminance", hi.whiteLuminance);
    if (hi.adoptedNeutral.x != 0.0f) writeAttribute("adoptedNeutral", hi.adoptedNeutral);
    if (!hi.lookModTransform.empty()) writeAttribute("lookModTransform", hi.lookModTransform);
    if (!hi.owner.empty()) writeAttribute("owner", hi.owner);
    if (!hi.comments.empty()) writeAttribute("comments", hi.comments);
    if (!hi.capDate.empty()) writeAttribute("capDate", hi.capDate);
    if (hi.utcOffset != 0.0f) writeAttribute("utcOffset", hi.utcOffset);
    if (hi.longitude != 0.0f) writeAttribute("longitude", hi.longitude);
    if (hi.latitude != 0.0f) writeAttribute("latitude", hi.latitude);
    if (hi.altitude != 0.0f) writeAttribute("altitude", hi.altitude);
    if (hi.focus != 0.0f) writeAttribute("focus", hi.focus);
    if (hi.expTime != 0.0f) writeAttribute("expTime", hi.expTime);
    if (hi.aperture != 0.0f) writeAttribute("aperture", hi.aperture);
    if (hi.isoSpeed != 0.0f) writeAttribute("isoSpeed", hi.isoSpeed);
    if (hi.timeCode.timeAndFlags != 0) writeAttribute("timeCode", hi.timeCode);
    if (hi.keyCode.perfsPerFrame != 0) writeAttribute("keyCode", hi.keyCode);
    if (hi.framesPerSecond.n != 0) writeAttribute("framesPerSecond", hi.framesPerSecond);
    if (hi.orientation != 0) writeAttribute("orientation", static_cast<int>(hi.orientation));
    if (!hi.artist.empty()) writeAttribute("artist", hi.artist);
    if (!hi.make.empty()) writeAttribute("make", hi.make);
    if (!hi.model.empty()) writeAttribute("model", hi.model);
    if (!hi.software.empty()) writeAttribute("software", hi.software);
    if (!hi.dateTime.empty()) writeAttribute("dateTime", hi.dateTime);
    if (!hi.copyright.empty()) writeAttribute("copyright", hi.copyright);
    if (hi.imagenumber != 0) writeAttribute("imagenumber", static_cast<int>(hi.imagenumber));
    writeChar('\0');
}

void cd_writeOpenEXRattributes::writeLineOffsetTable(const std::vector<uint64_t>& offsets) {
    for (uint64_t o : offsets) writeBasicType(o);
}

}  // namespace cinedng
