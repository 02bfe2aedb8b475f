#pragma once

// What mpi_plate_server and plate_client agree on: the num field of every
// record, the index of every control with its range and starting value, and
// the plate's grid. Both are built from this file, so they cannot drift apart.

namespace plate {

/// Num fields of the records, one per registered receiving object.
enum Record : int {
    Grid = 1,       ///< PlanarGrid, c = 1: one temperature per cell
    Heater,         ///< Cone, p = 1: 11 numbers
    HottestReadout, ///< DisplayDouble: 1
    MeanReadout,    ///< DisplayDouble: 1
    RanksReadout,   ///< DisplayDouble: the number of processes computing the plate
    RecordCount = RanksReadout
};

/// Control indices of the values the front-end sends.
enum Control : int { HeaterX = 1, HeaterY, HeaterPower };

struct FieldSetup {
    Control index;
    const char* label;
    double minimum, maximum, value, step;
    int decimals;
};

inline constexpr FieldSetup kFields[] = {
    {HeaterX, "Heater x (m)", 0.0, 1.2, 0.35, 0.01, 2},
    {HeaterY, "Heater y (m)", 0.0, 0.8, 0.45, 0.01, 2},
    {HeaterPower, "Heater power (K/s)", 0.0, 400.0, 120.0, 5.0, 0},
};

inline constexpr const FieldSetup& field(Control index) {
    for (const FieldSetup& f : kFields)
        if (f.index == index)
            return f;
    return kFields[0];
}

/// The plate: nx × ny cells over width × height metres, its first corner at
/// the origin of the canvas. The row count does not divide evenly by four, so
/// that four processes get strips of different heights.
inline constexpr int nx = 75;
inline constexpr int ny = 50;
inline constexpr double width = 1.2;
inline constexpr double height = 0.8;
inline constexpr int cells = nx * ny;

/// Material and surroundings, as in the demo laboratory's plate.
inline constexpr double diffusivity = 0.01;   ///< m²/s
inline constexpr double heaterWidth = 0.06;   ///< σ of the heater's Gaussian, m
inline constexpr double loss = 0.05;          ///< 1/s
inline constexpr double edgeTemperature = 20; ///< °C, held at all four edges

/// Colour range of the temperature, shared by the grid and its legend (°C).
inline constexpr double coldest = 0.0;
inline constexpr double hottest = 100.0;

/// Simulated seconds per exchange cycle.
inline constexpr double frameSeconds = 1.0 / 30.0;

} // namespace plate
