#include "cinedng/cd_exrStructs.h"

#include "cinedng/cd_timeCode.h"

namespace cinedng {

std::ostream& operator<<(std::ostream& os, const box2i& b) {
    return os << "box2i<" << " xMin:" << b.xMin << ", yMin:" << b.yMin << ", xMax:" << b.xMax
              << ", yMax:" << b.yMax << " >";
}

std::ostream& operator<<(std::ostream& os, const chromaticities& c) {
    return os << "chromaticities<" << " red:(" << c.redX << "," << c.redY << "), green:(" << c.greenX << ","
              << c.greenY << "), blue:(" << c.blueX << "," << c.blueY << "), white:(" << c.whiteX << ","
              << c.whiteY << ") >";
}

std::ostream& operator<<(std::ostream& os, const channelInfo& c) {
    return os << "channelInfo<" << " name:" << c.name << ", pixelType:" << c.pixelType
              << ", pLinear:" << c.pLinear << ", xSampling:" << c.xSampling << ", ySampling:" << c.ySampling
              << " >";
}

// ---- keycode ----

keycode::keycode()
    : filmMfcCode(0), filmType(0), prefix(0), count(0), perfOffset(0), perfsPerFrame(0), perfsPerCount(0) {}

keycode::keycode(int filmMfcCode_, int filmType_, int prefix_, int count_, int perfOffset_, int perfsPerFrame_,
                 int perfsPerCount_)
    : filmMfcCode(filmMfcCode_),
      filmType(filmType_),
      prefix(prefix_),
      count(count_),
      perfOffset(perfOffset_),
      perfsPerFrame(perfsPerFrame_),
      perfsPerCount(perfsPerCount_) {}

std::ostream& operator<<(std::ostream& os, const keycode& k) {
    return os << "keycode<" << " filmMfcCode:" << k.filmMfcCode << ", filmType:" << k.filmType
              << ", prefix:" << k.prefix << ", count:" << k.count << ", perfOffset:" << k.perfOffset
              << ", perfsPerFrame:" << k.perfsPerFrame << ", perfsPerCount:" << k.perfsPerCount << " >";
}

// ---- timecode ----

std::ostream& operator<<(std::ostream& os, const timecode& t) {
    return os << cd_timeCode::fromWords(t.timeAndFlags, t.userData, 24.0f);
}

// ---- HeaderInfo ----

HeaderInfo::HeaderInfo()
    : whiteLuminance(0.0f),
      adoptedNeutral(0.0f, 0.0f),
      utcOffset(0.0f),
      longitude(0.0f),
      latitude(0.0f),
      altitude(0.0f),
      focus(0.0f),
      expTime(0.0f),
      aperture(0.0f),
      isoSpeed(0.0f),
      timeCode(0, 0),
      keyCode(),
      framesPerSecond(0, 1),
      orientation(0),
      imagenumber(0) {}

std::ostream& operator<<(std::ostream& os, const HeaderInfo& h) {
    return os << "HeaderInfo<" << " whiteLuminance:" << h.whiteLuminance << ", adoptedNeutral:" << h.adoptedNeutral
              << ", owner:" << h.owner << ", comments:" << h.comments << ", capDate:" << h.capDate
              << ", utcOffset:" << h.utcOffset << ", longitude:" << h.longitude << ", latitude:" << h.latitude
              << ", altitude:" << h.altitude << ", focus:" << h.focus << ", expTime:" << h.expTime
              << ", aperture:" << h.aperture << ", isoSpeed:" << h.isoSpeed << ", " << h.timeCode << ", "
              << h.keyCode << ", framesPerSecond:" << h.framesPerSecond << ", orientation:" << h.orientation
              << ", artist:" << h.artist << ", make:" << h.make << ", model:" << h.model
              << ", software:" << h.software << ", dateTime:" << h.dateTime << ", copyright:" << h.copyright
              << " >";
}

// ---- openEXRHeaderInfo ----

openEXRHeaderInfo::openEXRHeaderInfo()
    : HeaderInfo(),
      compression(0),
      dataWindow(),
      displayWindow(),
      lineOrder(0),
      pixelAspectRatio(1.0f),
      screenWindowCenter(0.0f, 0.0f),
      screenWindowWidth(1.0f),
      uuid("undefined"),
      acesFlag(1),
      originalImageFlag(0),
      // ACES primaries and white point.
      chromaticities(0.7347f, 0.2653f, 0.0f, 1.0f, 0.0001f, -0.077f, 0.32168f, 0.33767f) {
    // One half channel per letter, in this order.
    const std::string names = "RGB";
    for (char c : names) channels.emplace_back(std::string(1, c));
    // The ACES white point replaces the descriptive default.
    adoptedNeutral = v2f(0.32168f, 0.33767f);
}

}  // namespace cinedng
