#pragma once
// A colour temperature (kelvin) with a tint, computable from a CIE 1931 xy chromaticity by
// Robertson's method in double precision. The tint is the signed distance from the Planckian locus
// in CIE 1960 uv, scaled by -3000 (positive towards magenta, negative towards green).
namespace cinedng {

struct KRXYCoordinate {
    double x;
    double y;
};

KRXYCoordinate KRXYCoordinateMake(double x, double y);

class KRColorTemperature {
public:
    KRColorTemperature() = default;
    // initWithTemperature:tint:
    KRColorTemperature(double temperature, double tint);
    // initWithXYCoordinate:
    explicit KRColorTemperature(KRXYCoordinate xy);

    void updateTemperatureAndTintWithXYCoordinate(KRXYCoordinate xy);

    double temperature() const { return fTemperature; }
    void setTemperature(double temperature) { fTemperature = temperature; }
    double tint() const { return fTint; }
    void setTint(double tint) { fTint = tint; }

private:
    double fTemperature = 0.0;
    double fTint = 0.0;
};

}  // namespace cinedng
