#include "HeatedPlate.h"

#include <algorithm>
#include <cmath>
#include <numeric>

HeatedPlate::HeatedPlate(int nx, int ny, double width, double height, double startTemperature)
    : m_nx(nx), m_ny(ny), m_dx(width / nx), m_dy(height / ny),
      m_t(std::size_t(nx * ny), startTemperature), m_next(m_t) {}

// The value beyond the edge that gives the edge its condition: mirrored about
// T_edge when the edge is held (so the edge itself, halfway, is at T_edge),
// the cell's own value when it is insulated.
double HeatedPlate::neighbour(int i, int j, int ci, int cj) const {
    if (i >= 0 && i < m_nx && j >= 0 && j < m_ny)
        return at(i, j);
    const double inside = at(ci, cj);
    return insulated ? inside : 2 * edgeTemperature - inside;
}

void HeatedPlate::advance(double seconds) {
    const double limit = 0.8 / (2 * diffusivity * (1 / (m_dx * m_dx) + 1 / (m_dy * m_dy)) + loss);
    const int steps = std::max(1, int(std::ceil(seconds / limit)));
    const double h = seconds / steps;
    const double twoSigma2 = 2 * heaterWidth * heaterWidth;
    for (int s = 0; s < steps; ++s) {
        for (int j = 0; j < m_ny; ++j)
            for (int i = 0; i < m_nx; ++i) {
                const double t = at(i, j);
                const double laplacian =
                    (neighbour(i - 1, j, i, j) - 2 * t + neighbour(i + 1, j, i, j)) /
                        (m_dx * m_dx) +
                    (neighbour(i, j - 1, i, j) - 2 * t + neighbour(i, j + 1, i, j)) / (m_dy * m_dy);
                const double x = (i + 0.5) * m_dx - heaterX, y = (j + 0.5) * m_dy - heaterY;
                const double heating = power * std::exp(-(x * x + y * y) / twoSigma2);
                m_next[std::size_t(j * m_nx + i)] =
                    t + h * (diffusivity * laplacian + heating - loss * (t - edgeTemperature));
            }
        m_t.swap(m_next);
    }
}

void HeatedPlate::heatFlow(int i, int j, double* fx, double* fy) const {
    *fx = -((at(i, j - 1) + at(i, j)) - (at(i - 1, j - 1) + at(i - 1, j))) / (2 * m_dx);
    *fy = -((at(i - 1, j) + at(i, j)) - (at(i - 1, j - 1) + at(i, j - 1))) / (2 * m_dy);
}

double HeatedPlate::hottest() const {
    return *std::max_element(m_t.begin(), m_t.end());
}

double HeatedPlate::mean() const {
    return std::accumulate(m_t.begin(), m_t.end(), 0.0) / double(m_t.size());
}
