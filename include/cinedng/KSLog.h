#pragma once
// Formatted log lines for the host-facing classes.
//
// KSFormat(format, args...) follows printf, plus "%@" for an object: a std::string or C string prints
// as itself, an object with a description() member (or a shared_ptr to one) prints its description,
// a number prints in its shortest form. Length modifiers (l, ll, h, z) are accepted and ignored: the
// argument's own C++ type decides how it is read. A floating argument of an integer conversion is
// truncated and saturated. A width or precision from the arguments ("*") is not supported.
// KSLog(format, args...) writes the formatted text and one line end to standard error, no prefix.
#include <concepts>
#include <cstdint>
#include <iostream>
#include <memory>
#include <string>
#include <type_traits>
#include <variant>
#include <vector>

namespace cinedng {

namespace logdetail {

struct Arg {
    enum Kind { Signed, Unsigned, Floating, Text, Pointer } kind = Text;
    long long i = 0;
    unsigned long long u = 0;
    double f = 0.0;
    std::string s;
    const void* p = nullptr;
};

template <typename T>
concept Describable = requires(const T& t) {
    { t.description() } -> std::convertible_to<std::string>;
};

std::string shortestNumber(double v);
std::string shortestNumber(float v);

template <typename T>
Arg makeArg(const T& v) {
    Arg a;
    using U = std::decay_t<T>;
    if constexpr (std::is_same_v<U, bool>) {
        a.kind = Arg::Signed;
        a.i = v ? 1 : 0;
        a.s = v ? "1" : "0";
    } else if constexpr (std::is_integral_v<U> && std::is_signed_v<U>) {
        a.kind = Arg::Signed;
        a.i = v;
        a.s = std::to_string(v);
    } else if constexpr (std::is_integral_v<U>) {
        a.kind = Arg::Unsigned;
        a.u = v;
        a.s = std::to_string(v);
    } else if constexpr (std::is_floating_point_v<U>) {
        a.kind = Arg::Floating;
        a.f = v;
        if constexpr (std::is_same_v<U, float>)
            a.s = shortestNumber(static_cast<float>(v));
        else
            a.s = shortestNumber(static_cast<double>(v));
    } else if constexpr (std::is_convertible_v<U, std::string>) {
        a.s = std::string(v);
    } else if constexpr (Describable<U>) {
        a.s = v.description();
    } else if constexpr (requires { v.get(); *v; }) {
        if (v) {
            a = makeArg(*v);
        } else {
            a.s = "(null)";
        }
    } else if constexpr (std::is_pointer_v<U>) {
        a.kind = Arg::Pointer;
        a.p = static_cast<const void*>(v);
    } else {
        static_assert(sizeof(U) == 0, "KSFormat: unsupported argument type");
    }
    return a;
}

std::string format(const std::string& fmt, const std::vector<Arg>& args);

}  // namespace logdetail

template <typename... Args>
std::string KSFormat(const std::string& fmt, const Args&... args) {
    return logdetail::format(fmt, std::vector<logdetail::Arg>{logdetail::makeArg(args)...});
}

template <typename... Args>
void KSLog(const std::string& fmt, const Args&... args) {
    std::string line = KSFormat(fmt, args...);
    line += '\n';
    std::cerr << line << std::flush;
}

}  // namespace cinedng
