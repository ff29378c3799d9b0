#pragma once
// The host's value objects: one immutable, typed value as it appears in a metadata dictionary or an
// image-processing info. A value is a string, a number of a named kind (unsigned short, unsigned
// long, short, float, double), an ordered array of values, a byte-data object, a point or a size.
// Values are shared with std::shared_ptr; "none" is nullptr.
//
// description() is the text that KSFormat's %@ prints: a string as itself, a number in its shortest
// form ("5", "0.1", "5450"), an array as "(\n    v1,\n    v2\n)" (nested arrays indented by four
// more spaces per level), a point as "{x, y}", a size as "{width, height}", data as KSData prints it.
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "cinedng/KSData.h"

namespace cinedng {

struct KSPoint {
    double x = 0.0;
    double y = 0.0;
};

struct KSSize {
    double width = 0.0;
    double height = 0.0;
};

class KSValue;
using KSValuePtr = std::shared_ptr<const KSValue>;
using KSArray = std::vector<KSValuePtr>;

class KSValue {
public:
    enum class Kind { String, UnsignedShort, UnsignedLong, Short, Float, Double, Array, Data, Point, Size };

    static KSValuePtr stringWithString(std::string s);
    static KSValuePtr numberWithUnsignedShort(uint16_t v);
    static KSValuePtr numberWithUnsignedLong(uint64_t v);
    static KSValuePtr numberWithShort(int16_t v);
    static KSValuePtr numberWithFloat(float v);
    static KSValuePtr numberWithDouble(double v);
    // The elements are shared, not copied; a null element is kept and prints as "(null)".
    static KSValuePtr arrayWithArray(KSArray elements);
    static KSValuePtr valueWithData(std::shared_ptr<KSData> data);
    static KSValuePtr valueWithPoint(KSPoint p);
    static KSValuePtr valueWithSize(KSSize s);

    Kind kind() const { return kind_; }
    bool isNumber() const;
    bool isString() const { return kind_ == Kind::String; }
    bool isArray() const { return kind_ == Kind::Array; }

    // Strings: the text; any other kind gives its description.
    std::string stringValue() const;
    // Numbers converted as C++ converts them; non-numbers raise "KSValue - not a number".
    double doubleValue() const;
    float floatValue() const;
    uint64_t unsignedLongValue() const;
    uint16_t unsignedShortValue() const;
    int16_t shortValue() const;
    long long longLongValue() const;

    // Arrays: the elements; any other kind raises "KSValue - not an array".
    const KSArray& arrayValue() const;
    size_t count() const;  // number of elements of an array, 0 for every other kind
    // Element i of an array; an index past the end raises "KSValue - index out of range".
    KSValuePtr objectAtIndex(size_t i) const;
    // The elements of an array of numbers as floats (raises for a non-number element).
    std::vector<float> floatVector() const;
    std::vector<double> doubleVector() const;
    // The descriptions of an array's elements joined by the separator ("0,1,1,2"); raises for
    // other kinds.
    std::string componentsJoinedByString(const std::string& separator) const;

    // Data: the byte object (raises "KSValue - not data" for other kinds).
    std::shared_ptr<KSData> dataValue() const;
    // Point and size (raise "KSValue - not a point" / "KSValue - not a size").
    KSPoint pointValue() const;
    KSSize sizeValue() const;

    std::string description() const;
    // The description with every line after the first indented by `indent` levels of four spaces.
    std::string descriptionWithIndent(int indent) const;

    // Same kind and same contents (arrays element by element, data byte by byte).
    bool isEqual(const KSValue& other) const;

private:
    explicit KSValue(Kind k) : kind_(k) {}

    Kind kind_;
    std::string string_;
    uint64_t unsigned_ = 0;
    int64_t signed_ = 0;
    double double_ = 0.0;
    float float_ = 0.0f;
    KSArray array_;
    std::shared_ptr<KSData> data_;
    KSPoint point_;
    KSSize size_;
};

}  // namespace cinedng
