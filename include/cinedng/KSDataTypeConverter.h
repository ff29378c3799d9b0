#pragma once
// Conversions from the tag record's vectors and values to host value objects, as used by the
// metadata dictionary. All operations are static and return new shared objects.
#include <cstdint>
#include <memory>
#include <string>
#include <valarray>
#include <vector>

#include "cinedng/KSData.h"
#include "cinedng/KSValue.h"
#include "cinedng/cd_genericStructs.h"

namespace cinedng {

class KSDataTypeConverter {
public:
    // Size (width = element 0, height = element 1) and point (x = element 0, y = element 1). A
    // vector with fewer than two elements raises "KSDataTypeConverter - the vector needs two values".
    static KSValuePtr sizeFromVector(const std::vector<float>& v);
    static KSValuePtr pointFromVector(const std::vector<float>& v);

    // Arrays of numbers of the named kind, one per element, in order.
    static KSValuePtr floatArrayFromVector(const std::vector<float>& v);
    static KSValuePtr floatArrayFromValarray(const std::valarray<float>& v);
    static KSValuePtr longArrayFromVector(const std::vector<uint32_t>& v);           // unsigned long
    static KSValuePtr shortArrayFromVector(const std::vector<uint16_t>& v);          // unsigned short
    static KSValuePtr signedShortArrayFromVector(const std::vector<int16_t>& v);     // short
    static KSValuePtr byteArrayFromVector(const std::vector<uint8_t>& v);            // unsigned short per byte

    // A data object holding a copy of the bytes.
    static std::shared_ptr<KSData> dataFromVector(const std::vector<uint8_t>& v);

    // Arrays of rational strings.
    static KSValuePtr signedRationalArrayFromVector(const std::vector<srational>& v);
    static KSValuePtr rationalArrayFromVector(const std::vector<urational>& v);

    // "%i/%i" of numerator and denominator. The unsigned rational is printed with the signed format
    // as well, so values above 2147483647 print negative (4294967295/1 prints "-1/1").
    static std::string stringFromSignedRational(srational r);
    static std::string stringFromUnsignedRational(urational r);

    // The text after the last "->" ("dngTags->make" gives "make"); the whole text when it holds none.
    static std::string parameterNameFromCall(const std::string& call);
};

}  // namespace cinedng
