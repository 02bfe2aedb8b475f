#pragma once

// What the laboratory's front-end and its server must agree on: the num field
// of every record the server sends, the index of every control the front-end
// sends, the controls' ranges and starting values, and the plate's grid.
// Both programs are built from this one file, so they cannot drift apart.

namespace lab {

/// Num fields of the records, one per registered receiving object, each with
/// the kind and flags that decide its layout.
enum Record : int {
    Bob = 1,        ///< Sphere, p = 1, c = 1: 10 + 11 numbers
    Rod,            ///< Cylinder, p = 1: 11
    Carriage,       ///< Cube, p = 1: 12
    Protractor,     ///< PolygonC, p = 1: 9
    Velocity,       ///< Arrow, p = 1: 10
    Clock,          ///< VectorText, t = 1: 1
    Plate,          ///< PlanarGrid, v = 1, c = 1: (4n + 1) + n
    Heater,         ///< Cone, p = 1: 11
    AngleTrail,     ///< TrailQwt, one point per cycle: 2
    SpeedTrail,     ///< TrailQwt, one point per cycle: 2
    RowProfile,     ///< TrailQwt, a whole row per cycle: 2 × plateNx
    ColumnProfile,  ///< TrailQwt, a whole column per cycle: 2 × plateNy
    AngleReadout,   ///< DisplayDouble: 1
    SpeedReadout,   ///< DisplayDouble: 1
    EnergyReadout,  ///< DisplayDouble: 1
    PeriodReadout,  ///< DisplayDouble: 1
    HottestReadout, ///< DisplayDouble: 1
    MeanReadout,    ///< DisplayDouble: 1
    AmplitudeField, ///< NumberField with e = 1: its enabled state, 1
    FrequencyField, ///< NumberField with e = 1: its enabled state, 1
    RecordCount = FrequencyField
};

/// Control indices of the values the front-end sends.
enum Control : int {
    Length = 1,
    Damping,
    DriveAmplitude,
    DriveFrequency,
    Gravity,
    SourceX,
    SourceY,
    SourcePower,
    Diffusivity,
    EdgeTemperature,
    DriveOn,           ///< the check box, 1 or 0
    Euler,             ///< radio buttons: 1 when chosen, 0 when left
    SemiImplicitEuler, ///<
    RungeKutta,        ///<
    EdgesHeld,         ///< radio buttons: the plate's edges held at a temperature
    EdgesInsulated     ///< or insulated
};

/// A number field's range and starting value; the server starts from the
/// same values, so the first picture matches the fields.
struct FieldSetup {
    Control index;
    const char* label;
    double minimum, maximum, value, step;
    int decimals;
};

inline constexpr FieldSetup kFields[] = {
    {Length, "Length (m)", 0.2, 1.5, 1.0, 0.05, 2},
    {Damping, "Damping (1/s)", 0.0, 5.0, 0.35, 0.05, 2},
    {DriveAmplitude, "Drive amplitude (m)", 0.0, 0.5, 0.08, 0.01, 2},
    {DriveFrequency, "Drive frequency (Hz)", 0.05, 3.0, 0.45, 0.01, 2},
    {Gravity, "Gravity (m/s²)", 0.0, 30.0, 9.81, 0.1, 2},
    {SourceX, "Heater x (m)", 0.0, 1.2, 0.35, 0.01, 2},
    {SourceY, "Heater y (m)", 0.0, 0.8, 0.45, 0.01, 2},
    {SourcePower, "Heater power (K/s)", 0.0, 400.0, 120.0, 5.0, 0},
    {Diffusivity, "Diffusivity (m²/s)", 0.001, 0.05, 0.01, 0.001, 3},
    {EdgeTemperature, "Edge temperature (°C)", 0.0, 60.0, 20.0, 1.0, 1},
};

inline constexpr const FieldSetup& field(Control index) {
    for (const FieldSetup& f : kFields)
        if (f.index == index)
            return f;
    return kFields[0];
}

inline constexpr bool kDriveOnAtStart = true;
inline constexpr Control kIntegratorAtStart = RungeKutta;
inline constexpr Control kEdgesAtStart = EdgesHeld;

/// The heated plate: nx × ny cells over width × height metres, its first
/// corner at the origin of the plate's canvas.
inline constexpr int plateNx = 24;
inline constexpr int plateNy = 16;
inline constexpr double plateWidth = 1.2;
inline constexpr double plateHeight = 0.8;
inline constexpr int plateCells = plateNx * plateNy;

/// Colour range of the temperature, shared by the grid and its legend (°C).
inline constexpr double coldest = 0.0;
inline constexpr double hottest = 100.0;

/// Simulated seconds per exchange cycle.
inline constexpr double frameSeconds = 1.0 / 30.0;

} // namespace lab
