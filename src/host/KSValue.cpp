#include "cinedng/KSValue.h"

#include <cstring>

#include "cinedng/KSLog.h"
#include "cinedng/cd_exception.h"

namespace cinedng {

KSValuePtr KSValue::stringWithString(std::string s) {
    std::shared_ptr<KSValue> v(new KSValue(Kind::String));
    v->string_ = std::move(s);
    return v;
}

KSValuePtr KSValue::numberWithUnsignedShort(uint16_t n) {
    std::shared_ptr<KSValue> v(new KSValue(Kind::UnsignedShort));
    v->unsigned_ = n;
    return v;
}

KSValuePtr KSValue::numberWithUnsignedLong(uint64_t n) {
    std::shared_ptr<KSValue> v(new KSValue(Kind::UnsignedLong));
    v->unsigned_ = n;
    return v;
}

KSValuePtr KSValue::numberWithShort(int16_t n) {
    std::shared_ptr<KSValue> v(new KSValue(Kind::Short));
    v->signed_ = n;
    return v;
}

KSValuePtr KSValue::numberWithFloat(float f) {
    std::shared_ptr<KSValue> v(new KSValue(Kind::Float));
    v->float_ = f;
    return v;
}

KSValuePtr KSValue::numberWithDouble(double d) {
    std::shared_ptr<KSValue> v(new KSValue(Kind::Double));
    v->double_ = d;
    return v;
}

KSValuePtr KSValue::arrayWithArray(KSArray elements) {
    std::shared_ptr<KSValue> v(new KSValue(Kind::Array));
    v->array_ = std::move(elements);
    return v;
}

KSValuePtr KSValue::valueWithData(std::shared_ptr<KSData> data) {
    std::shared_ptr<KSValue> v(new KSValue(Kind::Data));
    v->data_ = data ? std::move(data) : KSData::dataWithLength(0);
    return v;
}

KSValuePtr KSValue::valueWithPoint(KSPoint p) {
    std::shared_ptr<KSValue> v(new KSValue(Kind::Point));
    v->point_ = p;
    return v;
}

KSValuePtr KSValue::valueWithSize(KSSize s) {
    std::shared_ptr<KSValue> v(new KSValue(Kind::Size));
    v->size_ = s;
    return v;
}

bool KSValue::isNumber() const {
    switch (kind_) {
        case Kind::UnsignedShort:
        case Kind::UnsignedLong:
        case Kind::Short:
        case Kind::Float:
        case Kind::Double:
            return true;
        default:
            return false;
    }
}

std::string KSValue::stringValue() const { return kind_ == Kind::String ? string_ : description(); }

double KSValue::doubleValue() const {
    switch (kind_) {
        case Kind::UnsignedShort:
        case Kind::UnsignedLong:
            return static_cast<double>(unsigned_);
        case Kind::Short:
            return static_cast<double>(signed_);
        case Kind::Float:
            return static_cast<double>(float_);
        case Kind::Double:
            return double_;
        default:
            throw cd_exception("KSValue - not a number");
    }
}

float KSValue::floatValue() const {
    if (kind_ == Kind::Float) return float_;
    return static_cast<float>(doubleValue());
}

uint64_t KSValue::unsignedLongValue() const {
    switch (kind_) {
        case Kind::UnsignedShort:
        case Kind::UnsignedLong:
            return unsigned_;
        case Kind::Short:
            return static_cast<uint64_t>(signed_);
        default: {
            // Out-of-range floating values saturate instead of converting undefinedly.
            const double d = doubleValue();
            if (!(d > 0.0)) return 0;
            if (d >= 18446744073709551615.0) return UINT64_MAX;
            return static_cast<uint64_t>(d);
        }
    }
}

uint16_t KSValue::unsignedShortValue() const { return static_cast<uint16_t>(unsignedLongValue()); }

int16_t KSValue::shortValue() const { return static_cast<int16_t>(longLongValue()); }

long long KSValue::longLongValue() const {
    switch (kind_) {
        case Kind::UnsignedShort:
        case Kind::UnsignedLong:
            return static_cast<long long>(unsigned_);
        case Kind::Short:
            return signed_;
        default: {
            const double d = doubleValue();
            if (d != d) return 0;
            if (d >= 9223372036854775807.0) return INT64_MAX;
            if (d <= -9223372036854775808.0) return INT64_MIN;
            return static_cast<long long>(d);
        }
    }
}

const KSArray& KSValue::arrayValue() const {
    if (kind_ != Kind::Array) throw cd_exception("KSValue - not an array");
    return array_;
}

size_t KSValue::count() const { return kind_ == Kind::Array ? array_.size() : 0; }

KSValuePtr KSValue::objectAtIndex(size_t i) const {
    const KSArray& a = arrayValue();
    if (i >= a.size()) throw cd_exception("KSValue - index out of range");
    return a[i];
}

std::vector<float> KSValue::floatVector() const {
    const KSArray& a = arrayValue();
    std::vector<float> out;
    out.reserve(a.size());
    for (const auto& e : a) {
        if (!e) throw cd_exception("KSValue - not a number");
        out.push_back(e->floatValue());
    }
    return out;
}

std::vector<double> KSValue::doubleVector() const {
    const KSArray& a = arrayValue();
    std::vector<double> out;
    out.reserve(a.size());
    for (const auto& e : a) {
        if (!e) throw cd_exception("KSValue - not a number");
        out.push_back(e->doubleValue());
    }
    return out;
}

std::string KSValue::componentsJoinedByString(const std::string& separator) const {
    const KSArray& a = arrayValue();
    std::string s;
    for (size_t i = 0; i < a.size(); ++i) {
        if (i) s += separator;
        s += a[i] ? a[i]->description() : std::string("(null)");
    }
    return s;
}

std::shared_ptr<KSData> KSValue::dataValue() const {
    if (kind_ != Kind::Data) throw cd_exception("KSValue - not data");
    return data_;
}

KSPoint KSValue::pointValue() const {
    if (kind_ != Kind::Point) throw cd_exception("KSValue - not a point");
    return point_;
}

KSSize KSValue::sizeValue() const {
    if (kind_ != Kind::Size) throw cd_exception("KSValue - not a size");
    return size_;
}

std::string KSValue::description() const { return descriptionWithIndent(0); }

namespace {
// "{a, b}", the printed form of a point or a size.
std::string pairDescription(const std::string& a, const std::string& b) {
    std::string s;
    s.reserve(a.size() + b.size() + 4);
    s += '{';
    s += a;
    s += ", ";
    s += b;
    s += '}';
    return s;
}
}  // namespace

std::string KSValue::descriptionWithIndent(int indent) const {
    switch (kind_) {
        case Kind::String:
            return string_;
        case Kind::UnsignedShort:
        case Kind::UnsignedLong:
            return std::to_string(unsigned_);
        case Kind::Short:
            return std::to_string(signed_);
        case Kind::Float:
            return logdetail::shortestNumber(float_);
        case Kind::Double:
            return logdetail::shortestNumber(double_);
        case Kind::Data:
            return data_->description();
        case Kind::Point:
            return pairDescription(logdetail::shortestNumber(point_.x), logdetail::shortestNumber(point_.y));
        case Kind::Size:
            return pairDescription(logdetail::shortestNumber(size_.width), logdetail::shortestNumber(size_.height));
        case Kind::Array: {
            const std::string outer(static_cast<size_t>(indent) * 4, ' ');
            const std::string inner = outer + "    ";
            std::string s = "(\n";
            for (size_t i = 0; i < array_.size(); ++i) {
                s += inner;
                s += array_[i] ? array_[i]->descriptionWithIndent(indent + 1) : std::string("(null)");
                if (i + 1 < array_.size()) s += ",";
                s += "\n";
            }
            return s + outer + ")";
        }
    }
    return std::string();
}

bool KSValue::isEqual(const KSValue& other) const {
    if (kind_ != other.kind_) return false;
    switch (kind_) {
        case Kind::String:
            return string_ == other.string_;
        case Kind::UnsignedShort:
        case Kind::UnsignedLong:
            return unsigned_ == other.unsigned_;
        case Kind::Short:
            return signed_ == other.signed_;
        case Kind::Float:
            return float_ == other.float_;
        case Kind::Double:
            return double_ == other.double_;
        case Kind::Data:
            return data_->length() == other.data_->length() &&
                   (data_->length() == 0 || std::memcmp(data_->bytes(), other.data_->bytes(), data_->length()) == 0);
        case Kind::Point:
            return point_.x == other.point_.x && point_.y == other.point_.y;
        case Kind::Size:
            return size_.width == other.size_.width && size_.height == other.size_.height;
        case Kind::Array:
            if (array_.size() != other.array_.size()) return false;
            for (size_t i = 0; i < array_.size(); ++i) {
                const auto& a = array_[i];
                const auto& b = other.array_[i];
                if (!a || !b) {
                    if (a != b) return false;
                    continue;
                }
                if (!a->isEqual(*b)) return false;
            }
            return true;
    }
    return false;
}

}  // namespace cinedng
