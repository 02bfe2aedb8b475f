#pragma once

#include <cmath>

/// A damped pendulum whose pivot is driven back and forth along a horizontal
/// rail: x_p(t) = A(t) sin φ(t), with φ' = 2π f.
///
/// In the pivot's accelerating frame the bob feels an inertial force, so
///   θ'' = −(g/L) sin θ − γ θ' − (x_p''/L) cos θ.
/// Switching the drive off or on does not jerk the pivot: the amplitude A(t)
/// relaxes towards its target with a time constant of half a second, and the
/// pivot's acceleration includes the terms of that relaxation.
class Pendulum {
public:
    enum class Integrator { Euler, SemiImplicitEuler, RungeKutta4 };

    double length = 1.0;          ///< m
    double damping = 0.35;        ///< γ, 1/s
    double gravity = 9.81;        ///< m/s²
    double driveAmplitude = 0.06; ///< target of A, m
    double driveFrequency = 0.45; ///< Hz
    bool driveOn = true;
    Integrator integrator = Integrator::RungeKutta4;

    /// Advances by `seconds` in equal substeps of at most `maxStep`.
    void advance(double seconds, double maxStep = 1.0 / 240.0);

    double time() const { return t; }
    double angle() const { return theta; }           ///< rad, unbounded (it counts turns)
    double wrappedAngle() const;                     ///< rad, in (−π, π]
    double angularVelocity() const { return omega; } ///< rad/s
    double pivotX() const { return amplitude * std::sin(phase); }
    /// Kinetic plus potential energy per kilogram of bob, in the pivot's frame.
    double energy() const;
    /// Period of small free swings, s.
    double smallSwingPeriod() const;

private:
    struct Rates {
        double dTheta, dOmega;
    };
    Rates rates(double th, double om, double amp, double ph) const;
    double pivotAcceleration(double amp, double ph) const;
    void step(double h);

    double t = 0.0;
    double theta = 0.9; // released from rest, about 50° out
    double omega = 0.0;
    double amplitude = 0.0; // A(t), m: the drive starts gently
    double phase = 0.0;     // φ(t), rad
};
