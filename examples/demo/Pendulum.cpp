#include "Pendulum.h"

#include <algorithm>

namespace {
constexpr double pi = 3.14159265358979323846;
constexpr double relaxation = 0.5; // s, how fast the drive amplitude follows its target
} // namespace

double Pendulum::wrappedAngle() const {
    return theta - 2 * pi * std::floor((theta + pi) / (2 * pi));
}

double Pendulum::energy() const {
    return 0.5 * length * length * omega * omega + gravity * length * (1 - std::cos(theta));
}

double Pendulum::smallSwingPeriod() const {
    return gravity > 0 ? 2 * pi * std::sqrt(length / gravity) : 0.0;
}

double Pendulum::pivotAcceleration(double amp, double ph) const {
    const double target = driveOn ? driveAmplitude : 0.0;
    const double w = 2 * pi * driveFrequency;
    const double rate = (target - amp) / relaxation; // A'
    const double curvature = -rate / relaxation;     // A''
    return curvature * std::sin(ph) + 2 * rate * w * std::cos(ph) - amp * w * w * std::sin(ph);
}

Pendulum::Rates Pendulum::rates(double th, double om, double amp, double ph) const {
    const double a = pivotAcceleration(amp, ph);
    return {om, -(gravity / length) * std::sin(th) - damping * om - (a / length) * std::cos(th)};
}

void Pendulum::step(double h) {
    // The drive is a known function of time: A and φ at any moment of the
    // step follow in closed form from their values at its start.
    const double target = driveOn ? driveAmplitude : 0.0;
    const double w = 2 * pi * driveFrequency;
    auto amplitudeAt = [&](double s) {
        return target + (amplitude - target) * std::exp(-s / relaxation);
    };
    auto phaseAt = [&](double s) { return phase + w * s; };

    switch (integrator) {
    case Integrator::Euler: {
        const Rates k = rates(theta, omega, amplitude, phase);
        theta += h * k.dTheta;
        omega += h * k.dOmega;
        break;
    }
    case Integrator::SemiImplicitEuler: {
        omega += h * rates(theta, omega, amplitude, phase).dOmega;
        theta += h * omega;
        break;
    }
    case Integrator::RungeKutta4: {
        const double a0 = amplitude, a1 = amplitudeAt(h / 2), a2 = amplitudeAt(h);
        const double p0 = phase, p1 = phaseAt(h / 2), p2 = phaseAt(h);
        const Rates k1 = rates(theta, omega, a0, p0);
        const Rates k2 = rates(theta + h / 2 * k1.dTheta, omega + h / 2 * k1.dOmega, a1, p1);
        const Rates k3 = rates(theta + h / 2 * k2.dTheta, omega + h / 2 * k2.dOmega, a1, p1);
        const Rates k4 = rates(theta + h * k3.dTheta, omega + h * k3.dOmega, a2, p2);
        theta += h / 6 * (k1.dTheta + 2 * k2.dTheta + 2 * k3.dTheta + k4.dTheta);
        omega += h / 6 * (k1.dOmega + 2 * k2.dOmega + 2 * k3.dOmega + k4.dOmega);
        break;
    }
    }
    amplitude = amplitudeAt(h);
    // Kept small so that sin φ stays exact over hours of running.
    phase = std::fmod(phaseAt(h), 2 * pi);
    t += h;
}

void Pendulum::advance(double seconds, double maxStep) {
    const int steps = std::max(1, int(std::ceil(seconds / maxStep)));
    for (int i = 0; i < steps; ++i)
        step(seconds / steps);
}
