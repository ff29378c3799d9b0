// Robertson's method in double precision: temperature from the two isotemperature lines that
// bracket the chromaticity, tint from the offset along the interpolated line direction.
#include "cinedng/KRColorTemperature.h"

#include <cmath>

namespace cinedng {

namespace {

struct RobertsonLine {
    double mired;
    double u;
    double v;
    double t;
};

// Robertson (1968) as published by Wyszecki and Stiles; here the first line is at exactly 0 mired.
constexpr RobertsonLine kLines[31] = {
    {0, 0.18006, 0.26352, -0.24341},   {10, 0.18066, 0.26589, -0.25479},
    {20, 0.18133, 0.26846, -0.26876},  {30, 0.18208, 0.27119, -0.28539},
    {40, 0.18293, 0.27407, -0.30470},  {50, 0.18388, 0.27709, -0.32675},
    {60, 0.18494, 0.28021, -0.35156},  {70, 0.18611, 0.28342, -0.37915},
    {80, 0.18740, 0.28668, -0.40955},  {90, 0.18880, 0.28997, -0.44278},
    {100, 0.19032, 0.29326, -0.47888}, {125, 0.19462, 0.30141, -0.58204},
    {150, 0.19962, 0.30921, -0.70471}, {175, 0.20525, 0.31647, -0.84901},
    {200, 0.21142, 0.32312, -1.0182},  {225, 0.21807, 0.32909, -1.2168},
    {250, 0.22511, 0.33439, -1.4512},  {275, 0.23247, 0.33904, -1.7298},
    {300, 0.24010, 0.34308, -2.0637},  {325, 0.24702, 0.34655, -2.4681},
    {350, 0.25591, 0.34951, -2.9641},  {375, 0.26400, 0.35200, -3.5814},
    {400, 0.27218, 0.35407, -4.3633},  {425, 0.28039, 0.35577, -5.3762},
    {450, 0.28863, 0.35714, -6.7262},  {475, 0.29685, 0.35823, -8.5955},
    {500, 0.30505, 0.35907, -11.324},  {525, 0.31320, 0.35968, -15.628},
    {550, 0.32129, 0.36011, -23.325},  {575, 0.32931, 0.36038, -40.770},
    {600, 0.33724, 0.36051, -116.45}};

}  // namespace

KRXYCoordinate KRXYCoordinateMake(double x, double y) { return KRXYCoordinate{x, y}; }

KRColorTemperature::KRColorTemperature(double temperature, double tint) {
    setTemperature(temperature);
    setTint(tint);
}

KRColorTemperature::KRColorTemperature(KRXYCoordinate xy) { updateTemperatureAndTintWithXYCoordinate(xy); }

void KRColorTemperature::updateTemperatureAndTintWithXYCoordinate(KRXYCoordinate xy) {
    // CIE 1960 uv.
    const double d = 1.5 - xy.x + 6.0 * xy.y;
    const double u = 2.0 * xy.x / d;
    const double v = 3.0 * xy.y / d;

    double lastDt = 0.0, lastDu = 0.0, lastDv = 0.0;
    double dt = 0.0, du = 0.0, dv = 0.0;
    int i = 1;
    for (;; ++i) {
        const double len = std::sqrt(1.0 + kLines[i].t * kLines[i].t);
        du = 1.0 / len;
        dv = kLines[i].t / len;
        dt = (v - kLines[i].v) * du - (u - kLines[i].u) * dv;
        if (dt <= 0.0 || i == 30) {
            break;
        }
        lastDt = dt;
        lastDu = du;
        lastDv = dv;
    }
    if (dt > 0.0) {
        dt = 0.0;  // redder than the last line: take the last line itself
    }
    const double f = (i == 1) ? 0.0 : -dt / (lastDt - dt);

    setTemperature(1.0e6 / (kLines[i - 1].mired * f + kLines[i].mired * (1.0 - f)));

    const double uu = u - (kLines[i - 1].u * f + kLines[i].u * (1.0 - f));
    const double vv = v - (kLines[i - 1].v * f + kLines[i].v * (1.0 - f));
    double dirU = du * (1.0 - f) + lastDu * f;
    double dirV = dv * (1.0 - f) + lastDv * f;
    const double dirLen = std::sqrt(dirU * dirU + dirV * dirV);
    dirU /= dirLen;
    dirV /= dirLen;
    setTint((uu * dirU + vv * dirV) * -3000.0);
}

}  // namespace cinedng
