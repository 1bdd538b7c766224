#pragma once

namespace geo {

/// A place on the earth: latitude (north positive) and longitude (east positive), in radians.
class Position_t {
  public:
    Position_t() = default;  ///< latitude and longitude 0
    /// @plain
    /// @{
    Position_t(double latitude, double longitude) : mLatitude(latitude), mLongitude(longitude) {}
    double Latitude() const { return mLatitude; }
    double Longitude() const { return mLongitude; }
    bool operator==(const Position_t&) const = default;
    /// @}

  private:
    double mLatitude = 0;
    double mLongitude = 0;
};

}  // namespace geo
