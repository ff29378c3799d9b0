#pragma once
// SMPTE 12M time code packed in 64 bits (low word: time and flags, high word: binary groups), with
// the SMPTE 309 date and time zone that the binary groups may carry. Decodes the packed value for
// a frame rate, validates it and formats it as text. The packed value itself is never altered.
#include <array>
#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>

#include "cinedng/cd_ymd.h"

namespace cinedng {

// The 8 bytes of one packed time code in memory order (little-endian: byte 0 holds bits 0-7).
struct smpte_timeCode {
    unsigned char bytes[8] = {0, 0, 0, 0, 0, 0, 0, 0};
};

// SMPTE 309 time zone offsets indexed by the 6-bit zone code; empty entries are unknown codes.
extern const std::array<std::string_view, 64> smpte309_timeZone_strings;

class cd_timeCode {
public:
    uint64_t smpte_ = 0;         // the packed value (read it with smpte())
    float frameRate = 0.0f;
    bool isPAL = false;          // rate is exactly 25 or 50
    bool highRate = false;       // rate above 30
    bool dropFrameRate = false;  // 29.96 <= rate <= 29.98, or half the rate is
    int intRate = 0;             // rate rounded to the nearest integer
    int hours = 0;
    int minutes = 0;
    int seconds = 0;
    int frames = 0;
    int bgf = 0;                 // binary group flags 0..7
    int fieldFlag = 0;
    bool userBitsDefined = false;       // bgf 2, 6 or 7
    bool charactersInUserBits = false;  // bgf 1
    bool dateAndTimeZone = false;       // bgf 4 or 6: binary groups hold a date and time zone
    cd_ymd date;                        // today unless the binary groups carry a date

    // The 8 packed bytes (little-endian) at the given rate; decoded at once.
    cd_timeCode(const smpte_timeCode* tc, float rate);
    cd_timeCode(const unsigned char* bytes, float rate);
    // A time code for a running frame count at the given rate rounded to an integer (hours wrap at
    // 24). A non-zero dropFrame sets the drop-frame flag; the count itself is always converted at
    // the nominal integer rate. A rate that rounds to less than 1 raises a cd_exception.
    cd_timeCode(int frameCount, float rate, int dropFrame);

    // From the two 32-bit words of an EXR time code attribute.
    static cd_timeCode fromWords(uint32_t timeAndFlags, uint32_t userData, float rate);

    // Sets intRate, isPAL, highRate and dropFrameRate from frameRate; returns dropFrameRate.
    bool decodeFrameRate();
    // Unpacks every field from the packed value.
    void decode();
    // Both return the packed value unchanged (next does not advance).
    uint64_t next() const;
    uint64_t smpte() const;
    // Empty when valid, else the first applicable "ERROR: ..." or "WARNING: ..." message.
    std::string validate() const;
    // HH:MM:SS:FF (";" before the frames with drop frame), ".1" with the field flag, else ".0" at
    // high rates.
    std::string str() const;
    // str(), then with a date and time zone: " YYYY-MM-DD" and " <zone offset>".
    std::string strExt() const;

    bool dropFrameFlag() const { return (smpte_ >> 6) & 1u; }
    unsigned timeZoneCode() const { return static_cast<unsigned>((smpte_ >> 56) & 0x3Fu); }
};

std::ostream& operator<<(std::ostream& os, const cd_timeCode& tc);

}  // namespace cinedng
