#include "cinedng/cd_genericStructs.h"

#include <sys/time.h>

#include <cctype>
#include <climits>
#include <cmath>
#include <iomanip>
#include <iostream>

#include "cinedng/cd_assert.h"

namespace cinedng {

namespace {

// Float to 32-bit signed integer by truncation; a value outside the 32-bit range (or NaN) gives
// INT32_MIN, the result x86's cvttss2si produces. Written out so it holds on every processor.
int32_t truncToInt32(float v) {
    if (!(v > -2147483649.0f && v < 2147483648.0f)) return INT32_MIN;
    return static_cast<int32_t>(v);
}

// Float to 64-bit signed integer by truncation, out-of-range values giving INT64_MIN (x86).
int64_t truncToInt64(float v) {
    if (!(v >= -9223372036854775808.0f && v < 9223372036854775808.0f)) return INT64_MIN;
    return static_cast<int64_t>(v);
}

}  // namespace

// ---- srational ----

srational::srational() : n(0), d(1) {}
srational::srational(int n_) : n(n_), d(1) {}
srational::srational(unsigned int n1) : n(static_cast<int32_t>(n1)), d(1) {
    // Compared in 64 bits, so this always holds.
    CD_ASSERT(n1 <= LONG_MAX);
}
srational::srational(int n_, int d_) : n(n_), d(d_) {
    if (n == 0) d = 1;
    CD_ASSERT(d != 0);
}
srational::srational(unsigned int n_, unsigned int d_)
    : n(static_cast<int32_t>(n_)), d(static_cast<int32_t>(d_)) {
    if (n == 0) d = 1;
    CD_ASSERT(d != 0);
}
srational::srational(urational u) : srational(u.n, u.d) {}

srational::srational(float F) {
    const float hi = 9223372036854775808.0f;  // 2^63, LONG_MAX as a float
    CD_ASSERT(LONG_MIN <= F && F <= LONG_MAX);
    if (F == 0.0f) {
        d = 1;
    } else if (std::fabs(F) <= 1.0f) {
        d = -1;
    } else {
        d = truncToInt32(hi / std::fabs(F));
    }
    n = truncToInt32(F * static_cast<float>(d));
}

srational::operator float() const { return static_cast<float>(n) / static_cast<float>(d); }

// ---- urational ----

urational::urational() : n(0), d(1) {}
urational::urational(unsigned int n_) : n(n_), d(1) {}
urational::urational(unsigned int n_, unsigned int d_) : n(n_), d(d_) {
    if (n == 0) d = 1;
    CD_ASSERT(d != 0);
}
urational::urational(srational s) : urational(static_cast<uint32_t>(s.n), static_cast<uint32_t>(s.d)) {}

urational::urational(float F) {
    const float hi = 18446744073709551616.0f;  // 2^64, ULONG_MAX as a float
    CD_ASSERT(0 <= F && F <= ULONG_MAX);
    if (F == 0.0f) {
        d = 1;
    } else if (F <= 1.0f) {
        d = 4294967295u;
    } else {
        d = static_cast<uint32_t>(static_cast<uint64_t>(truncToInt64(hi / F)));
    }
    n = static_cast<uint32_t>(static_cast<uint64_t>(truncToInt64(F * static_cast<float>(d))));
}

urational::operator float() const { return static_cast<float>(n) / static_cast<float>(d); }

std::ostream& operator<<(std::ostream& os, const srational& r) { return os << r.n << "/" << r.d; }
std::ostream& operator<<(std::ostream& os, const urational& r) { return os << r.n << "/" << r.d; }

// ---- IOstats ----

IOstats::IOstats()
    : bytesProcessed(0), timeConfigure(0.0f), timeOpen(0.0f), timeDataProcessing(0.0f), timeClose(0.0f) {}

std::ostream& operator<<(std::ostream& os, const IOstats& s) {
    return os << "IOstats<" << " bytesProcessed:" << s.bytesProcessed << ", timeConfigure:" << s.timeConfigure
              << ", timeOpen:" << s.timeOpen << ", timeDataProcessing:" << s.timeDataProcessing
              << ", timeClose:" << s.timeClose << " >";
}

// ---- cd_timing ----

cd_timing::cd_timing() : mark_(current_time()) {}

double cd_timing::current_time() {
    struct timeval tv;
    gettimeofday(&tv, nullptr);
    return static_cast<double>(tv.tv_sec) + static_cast<double>(tv.tv_usec) / 1e6;
}

float cd_timing::time() {
    const double now = current_time();
    const float lap = static_cast<float>(now - mark_);
    mark_ = now;
    return lap;
}

float cd_timing::time(const std::string& label) {
    const float lap = time();
    std::cout << "   Duration = " << std::setw(8) << 1000.0f * lap << " ms for " << label << std::endl;
    return lap;
}

// ---- v2f, localIFDEntry ----

std::ostream& operator<<(std::ostream& os, const v2f& v) { return os << "(" << v.x << "," << v.y << ")"; }

std::ostream& operator<<(std::ostream& os, const localIFDEntry& e) {
    os << "localIFDEntry<" << " Tag: " << e.Tag << ", Type: " << e.Type << ", Count: " << e.Count
       << ", FieldSize: " << e.FieldSize << ", pValue: " << static_cast<const void*>(e.pValue)
       << ", first 32 bytes : ";
    for (int i = 0; i < 32; ++i) {
        if (i) os << ",";
        const int8_t b = (e.pValue && static_cast<uint64_t>(i) < e.validBytes) ? static_cast<int8_t>(e.pValue[i]) : 0;
        os << static_cast<int>(b);
    }
    return os << " >";
}

// ---- cd_changeCase ----

std::string cd_changeCase::toLowerCase(const std::string& s) {
    std::string out(s);
    for (char& c : out) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return out;
}

// ---- cd_CommandLineOptions ----

cd_CommandLineOptions::cd_CommandLineOptions()
    : VerboseMode(false),
      PreferredWidth(-1),
      SkipFrames(0),
      Threads(8),
      MaxDuration(999999),
      OutputFormat("openexr"),
      OutputFilenameTemplate("frame%06d"),
      BenchmarkRuns(0) {}

std::ostream& operator<<(std::ostream& os, const cd_CommandLineOptions& o) {
    return os << "CommandLineOptions<" << " VerboseMode:" << (o.VerboseMode ? "true" : "false")
              << ", PreferredWidth:" << o.PreferredWidth << ", SkipFrames:" << o.SkipFrames
              << ", MaxDuration:" << o.MaxDuration << ", Threads:" << o.Threads << ", OutputFormat:" << o.OutputFormat
              << ", OutputFilenameTemplate:\"" << o.OutputFilenameTemplate << "\", InputFolder:\"" << o.InputFolder
              << "\", OutputFolder:\"" << o.OutputFolder << "\", LookFilename:\"" << o.LookFilename
              << "\", Benchmark Runs:\"" << o.BenchmarkRuns << "\" >";
}

}  // namespace cinedng
