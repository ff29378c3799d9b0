#include "cinedng/KSLog.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>

namespace cinedng::logdetail {

namespace {
// The shortest decimal text that reads back as the same value; plain digits for everyday
// magnitudes, exponent form only for very small or very large ones.
template <typename T>
std::string shortest(T v) {
    char buf[128];
    const T mag = std::fabs(v);
    const bool fixed = v == 0 || (mag >= T(1e-5) && mag < T(1e16));
    auto res = fixed ? std::to_chars(buf, buf + sizeof buf, v, std::chars_format::fixed)
                     : std::to_chars(buf, buf + sizeof buf, v);
    return std::string(buf, res.ptr);
}

// A floating value printed with an integer conversion: truncated, saturated at the type's limits,
// NaN as 0 (a plain conversion of an out-of-range value is undefined).
template <typename I>
I saturatingInteger(double v) {
    if (!(v == v)) return 0;
    if (v <= static_cast<double>(std::numeric_limits<I>::min())) return std::numeric_limits<I>::min();
    if (v >= static_cast<double>(std::numeric_limits<I>::max())) return std::numeric_limits<I>::max();
    return static_cast<I>(v);
}
}  // namespace

std::string shortestNumber(double v) { return shortest(v); }
std::string shortestNumber(float v) { return shortest(v); }

std::string format(const std::string& fmt, const std::vector<Arg>& args) {
    std::string out;
    size_t next = 0;
    char buf[512];
    for (size_t i = 0; i < fmt.size(); ++i) {
        const char c = fmt[i];
        if (c != '%') {
            out += c;
            continue;
        }
        if (i + 1 < fmt.size() && fmt[i + 1] == '%') {
            out += '%';
            ++i;
            continue;
        }
        // Collect flags, width and precision; skip length modifiers. A width or precision taken from
        // the arguments ("*") is not supported: the conversion is then printed as text.
        size_t j = i + 1;
        std::string flags = "%";
        while (j < fmt.size() && std::strchr("-+ #0123456789.", fmt[j])) flags += fmt[j++];
        while (j < fmt.size() && std::strchr("hlqLzjt", fmt[j])) ++j;
        if (j >= fmt.size()) {
            out += fmt.substr(i);
            break;
        }
        const char conv = fmt[j];
        i = j;
        if (next >= args.size()) continue;  // missing argument: prints nothing
        const Arg& a = args[next++];
        switch (conv) {
            case '@':
                if (flags.size() > 1) {
                    std::snprintf(buf, sizeof buf, (flags + "s").c_str(), a.s.c_str());
                    out += buf;
                } else {
                    out += a.s;
                }
                break;
            case 'd':
            case 'i':
            case 'c': {
                const long long v = a.kind == Arg::Signed ? a.i
                                    : a.kind == Arg::Unsigned ? static_cast<long long>(a.u)
                                    : a.kind == Arg::Floating ? saturatingInteger<long long>(a.f) : 0;
                if (conv == 'c')
                    std::snprintf(buf, sizeof buf, (flags + "c").c_str(), static_cast<int>(v));
                else
                    std::snprintf(buf, sizeof buf, (flags + "lld").c_str(), v);
                out += buf;
                break;
            }
            case 'u':
            case 'x':
            case 'X':
            case 'o': {
                const unsigned long long v = a.kind == Arg::Unsigned ? a.u
                                             : a.kind == Arg::Signed ? static_cast<unsigned long long>(a.i)
                                             : a.kind == Arg::Floating ? saturatingInteger<unsigned long long>(a.f) : 0;
                std::snprintf(buf, sizeof buf, (flags + "ll" + conv).c_str(), v);
                out += buf;
                break;
            }
            case 'f':
            case 'F':
            case 'e':
            case 'E':
            case 'g':
            case 'G':
            case 'a':
            case 'A': {
                const double v = a.kind == Arg::Floating ? a.f
                                 : a.kind == Arg::Signed ? static_cast<double>(a.i)
                                 : a.kind == Arg::Unsigned ? static_cast<double>(a.u) : 0.0;
                std::snprintf(buf, sizeof buf, (flags + conv).c_str(), v);
                out += buf;
                break;
            }
            case 's':
                std::snprintf(buf, sizeof buf, (flags + "s").c_str(), a.s.c_str());
                out += (a.s.size() < sizeof buf - 64) ? std::string(buf) : a.s;
                break;
            case 'p':
                std::snprintf(buf, sizeof buf, "%p", a.p);
                out += buf;
                break;
            default:
                out += flags + conv;
                break;
        }
    }
    return out;
}

}  // namespace cinedng::logdetail
