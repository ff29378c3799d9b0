#pragma once
// Serialises an OpenEXR header into an in-memory binary stream: magic number and version, the
// attribute list in its fixed order, the terminating null byte and the line offset table. Every
// value is written little-endian, whatever the host's byte order. Nothing here touches a file: the
// owner copies the bytes out with copyToBuffer and rewinds with SetStreamPosition(0).
#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

#include "cinedng/cd_exrStructs.h"
#include "cinedng/cd_genericStructs.h"

namespace cinedng {

class cd_writeOpenEXRattributes {
public:
    cd_writeOpenEXRattributes();
    ~cd_writeOpenEXRattributes();
    cd_writeOpenEXRattributes(const cd_writeOpenEXRattributes&) = delete;
    cd_writeOpenEXRattributes& operator=(const cd_writeOpenEXRattributes&) = delete;

    // Current write position; all ones when the stream is in a failed or bad state.
    uint64_t StreamPosition();
    // Moves the write position. A position beyond the bytes written so far puts the stream in the
    // failed state, which StreamPosition() then reports.
    void SetStreamPosition(uint64_t pos);
    // Copies the first n bytes of the stream's contents to dst. Fails when fewer than n bytes have
    // ever been written.
    void copyToBuffer(char* dst, uint64_t n);

    void writeChar(char c);
    void writeBasicType(char v);
    void writeBasicType(double v);
    void writeBasicType(float v);
    void writeBasicType(int v);
    void writeBasicType(unsigned int v);
    void writeBasicType(uint64_t v);
    void writeStringNZ(const std::string& s);
    void writeStringZ(const std::string& s);

    void writeAttributeHeader(const std::string& name, const std::string& typeName, uint32_t size);

    void writeAttribute(const std::string& name, const box2i& v);
    void writeAttribute(const std::string& name, const std::vector<channelInfo>& v);
    void writeAttribute(const std::string& name, const chromaticities& v);
    void writeAttribute(const std::string& name, const compression& v);
    void writeAttribute(const std::string& name, double v);
    void writeAttribute(const std::string& name, float v);
    void writeAttribute(const std::string& name, int v);
    void writeAttribute(const std::string& name, const lineOrder& v);
    void writeAttribute(const std::string& name, const keycode& v);
    void writeAttribute(const std::string& name, const srational& v);
    void writeAttribute(const std::string& name, const std::string& v);
    void writeAttribute(const std::string& name, const timecode& v);
    void writeAttribute(const std::string& name, const v2f& v);

    // int32 20000630 and int32 2: a single-part scan-line file with short attribute names.
    void writeMagicNumberAndVersion();
    // The attribute list in its fixed order, each optional attribute only when set, then the null
    // byte that ends the header.
    void writeHeader(openEXRHeaderInfo& hi);
    void writeLineOffsetTable(const std::vector<uint64_t>& offsets);

private:
    void writeBytes(const void* p, std::size_t n);
    template <typename U>
    void writeLittleEndian(U v);

    std::stringstream stream_;
};

}  // namespace cinedng
