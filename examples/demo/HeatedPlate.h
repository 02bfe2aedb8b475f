#pragma once

#include <vector>

/// A thin rectangular plate on nx × ny cells, warmed by a movable heater and
/// losing heat slowly to its surroundings:
///   ∂T/∂t = α ∇²T + P exp(−r² / 2σ²) − λ (T − T_edge),
/// with r the distance to the heater. Explicit finite differences on the
/// five-point Laplacian, in substeps within the scheme's stability limit.
/// The edges are either held at T_edge or insulated (no flux through them).
class HeatedPlate {
public:
    HeatedPlate(int nx, int ny, double width, double height, double startTemperature);

    double heaterX = 0.35;       ///< m, from the plate's first corner
    double heaterY = 0.45;       ///< m
    double power = 120;          ///< P, K/s at the heater's centre
    double heaterWidth = 0.06;   ///< σ, m
    double diffusivity = 0.01;   ///< α, m²/s
    double edgeTemperature = 20; ///< T_edge, °C
    double loss = 0.05;          ///< λ, 1/s
    bool insulated = false;

    void advance(double seconds);

    int nx() const { return m_nx; }
    int ny() const { return m_ny; }
    double dx() const { return m_dx; }
    double dy() const { return m_dy; }
    /// Temperature of cell (i, j), °C.
    double at(int i, int j) const { return m_t[std::size_t(j * m_nx + i)]; }
    /// Every cell, x fastest.
    const std::vector<double>& cells() const { return m_t; }
    /// −∇T (K/m) at the grid node shared by cells i−1 and i along x and j−1
    /// and j along y, for 1 ≤ i < nx and 1 ≤ j < ny: the direction in which
    /// heat flows there.
    void heatFlow(int i, int j, double* fx, double* fy) const;
    double hottest() const;
    double mean() const;

private:
    double neighbour(int i, int j, int ci, int cj) const;

    int m_nx, m_ny;
    double m_dx, m_dy;
    std::vector<double> m_t, m_next;
};
