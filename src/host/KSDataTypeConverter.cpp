#include "cinedng/KSDataTypeConverter.h"

#include <cstdio>

#include "cinedng/cd_exception.h"

namespace cinedng {

namespace {
template <typename Vec, typename Make>
KSValuePtr arrayOf(const Vec& v, Make make) {
    KSArray a;
    a.reserve(v.size());
    for (const auto& e : v) a.push_back(make(e));
    return KSValue::arrayWithArray(std::move(a));
}

void requireTwo(const std::vector<float>& v) {
    if (v.size() < 2) throw cd_exception("KSDataTypeConverter - the vector needs two values");
}
}  // namespace

KSValuePtr KSDataTypeConverter::sizeFromVector(const std::vector<float>& v) {
    requireTwo(v);
    return KSValue::valueWithSize(KSSize{static_cast<double>(v[0]), static_cast<double>(v[1])});
}

KSValuePtr KSDataTypeConverter::pointFromVector(const std::vector<float>& v) {
    requireTwo(v);
    return KSValue::valueWithPoint(KSPoint{static_cast<double>(v[0]), static_cast<double>(v[1])});
}

KSValuePtr KSDataTypeConverter::floatArrayFromVector(const std::vector<float>& v) {
    return arrayOf(v, [](float f) { return KSValue::numberWithFloat(f); });
}

KSValuePtr KSDataTypeConverter::floatArrayFromValarray(const std::valarray<float>& v) {
    KSArray a;
    a.reserve(v.size());
    for (size_t i = 0; i < v.size(); ++i) a.push_back(KSValue::numberWithFloat(v[i]));
    return KSValue::arrayWithArray(std::move(a));
}

KSValuePtr KSDataTypeConverter::longArrayFromVector(const std::vector<uint32_t>& v) {
    return arrayOf(v, [](uint32_t n) { return KSValue::numberWithUnsignedLong(n); });
}

KSValuePtr KSDataTypeConverter::shortArrayFromVector(const std::vector<uint16_t>& v) {
    return arrayOf(v, [](uint16_t n) { return KSValue::numberWithUnsignedShort(n); });
}

KSValuePtr KSDataTypeConverter::signedShortArrayFromVector(const std::vector<int16_t>& v) {
    return arrayOf(v, [](int16_t n) { return KSValue::numberWithShort(n); });
}

KSValuePtr KSDataTypeConverter::byteArrayFromVector(const std::vector<uint8_t>& v) {
    return arrayOf(v, [](uint8_t n) { return KSValue::numberWithUnsignedShort(n); });
}

std::shared_ptr<KSData> KSDataTypeConverter::dataFromVector(const std::vector<uint8_t>& v) {
    auto d = KSData::dataWithLength(0);
    d->reserve(v.size());
    if (!v.empty()) d->appendBytes(v.data(), v.size());
    return d;
}

KSValuePtr KSDataTypeConverter::signedRationalArrayFromVector(const std::vector<srational>& v) {
    return arrayOf(v, [](const srational& r) { return KSValue::stringWithString(stringFromSignedRational(r)); });
}

KSValuePtr KSDataTypeConverter::rationalArrayFromVector(const std::vector<urational>& v) {
    return arrayOf(v, [](const urational& r) { return KSValue::stringWithString(stringFromUnsignedRational(r)); });
}

std::string KSDataTypeConverter::stringFromSignedRational(srational r) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%i/%i", static_cast<int>(r.n), static_cast<int>(r.d));
    return buf;
}

std::string KSDataTypeConverter::stringFromUnsignedRational(urational r) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%i/%i", static_cast<int>(static_cast<int32_t>(r.n)),
                  static_cast<int>(static_cast<int32_t>(r.d)));
    return buf;
}

std::string KSDataTypeConverter::parameterNameFromCall(const std::string& call) {
    const size_t pos = call.rfind("->");
    return pos == std::string::npos ? call : call.substr(pos + 2);
}

}  // namespace cinedng
