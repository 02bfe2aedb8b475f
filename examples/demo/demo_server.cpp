// The laboratory's simulation server: a driven, damped pendulum and a heated
// plate, computed here cycle by cycle and sent to the demo front-end
// (demo_client). Every control of the front-end changes the simulation.
//
//   demo_server [--port P] [--unpaced] [--verbose] [--keep-serving]
//
// --port P    port to listen on (4848; 0 picks a free one); the port is printed
// --unpaced   run cycles as fast as the front-end takes them, instead of
//             keeping simulated time in step with the clock
// --verbose   print every data message that carries changes
// --keep-serving  when the front-end leaves or loses its link, wait for the
//             next one (or the same one reconnecting) and go on with the
//             same simulation, instead of ending
#include "HeatedPlate.h"
#include "LabProtocol.h"
#include "Pendulum.h"

#include <Orlavex/server/SimulationServer.h>

#include <QCoreApplication>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <thread>
#include <vector>

namespace {

constexpr double pi = 3.14159265358979323846;
constexpr double degrees = 180.0 / pi;

/// The front-end reads numbers in single precision; rounding to a step it can
/// show keeps the record strings short ("0.1234" rather than 17 digits).
double rounded(double v, double step) {
    return std::round(v / step) * step;
}

/// Rotations in a record are increments that the front-end adds up in single
/// precision. Keeping the sum of what was actually sent makes the object's
/// orientation follow the target angle without drifting.
class Turn {
public:
    double towards(double targetDegrees) {
        const float increment = float(targetDegrees - m_sent);
        m_sent += double(increment);
        return double(increment);
    }

private:
    double m_sent = 0.0; // the client's objects start unturned
};

struct Options {
    int port = 4848;
    bool paced = true;
    bool verbose = false;
    bool keepServing = false;
};

Options parse(int argc, char** argv) {
    Options o;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--port") == 0 && i + 1 < argc)
            o.port = std::atoi(argv[++i]);
        else if (std::strcmp(argv[i], "--unpaced") == 0)
            o.paced = false;
        else if (std::strcmp(argv[i], "--verbose") == 0)
            o.verbose = true;
        else if (std::strcmp(argv[i], "--keep-serving") == 0)
            o.keepServing = true;
        else {
            std::printf("usage: demo_server [--port P] [--unpaced] [--verbose] [--keep-serving]\n");
            std::exit(std::strcmp(argv[i], "--help") == 0 ? 0 : 2);
        }
    }
    return o;
}

/// The simulation and its records.
class Laboratory {
public:
    Laboratory()
        : plate(lab::plateNx, lab::plateNy, lab::plateWidth, lab::plateHeight,
                lab::field(lab::EdgeTemperature).value) {
        for (const lab::FieldSetup& f : lab::kFields)
            set(f.index, f.value);
        set(lab::DriveOn, lab::kDriveOnAtStart ? 1 : 0);
        set(lab::kIntegratorAtStart, 1);
        set(lab::kEdgesAtStart, 1);
    }

    /// One value from the front-end.
    void set(int index, double v) {
        switch (index) {
        case lab::Length:
            pendulum.length = v;
            break;
        case lab::Damping:
            pendulum.damping = v;
            break;
        case lab::DriveAmplitude:
            pendulum.driveAmplitude = v;
            break;
        case lab::DriveFrequency:
            pendulum.driveFrequency = v;
            break;
        case lab::Gravity:
            pendulum.gravity = v;
            break;
        case lab::DriveOn:
            pendulum.driveOn = v > 0.5;
            break;
        // A radio button reports 1 when chosen and 0 when it gives way to
        // another: only the choice matters.
        case lab::Euler:
            if (v > 0.5)
                pendulum.integrator = Pendulum::Integrator::Euler;
            break;
        case lab::SemiImplicitEuler:
            if (v > 0.5)
                pendulum.integrator = Pendulum::Integrator::SemiImplicitEuler;
            break;
        case lab::RungeKutta:
            if (v > 0.5)
                pendulum.integrator = Pendulum::Integrator::RungeKutta4;
            break;
        case lab::SourceX:
            plate.heaterX = v;
            break;
        case lab::SourceY:
            plate.heaterY = v;
            break;
        case lab::SourcePower:
            plate.power = v;
            break;
        case lab::Diffusivity:
            plate.diffusivity = v;
            break;
        case lab::EdgeTemperature:
            plate.edgeTemperature = v;
            break;
        case lab::EdgesHeld:
            if (v > 0.5)
                plate.insulated = false;
            break;
        case lab::EdgesInsulated:
            if (v > 0.5)
                plate.insulated = true;
            break;
        default:
            std::fprintf(stderr, "unknown control %d\n", index);
        }
    }

    void advance() {
        pendulum.advance(lab::frameSeconds);
        plate.advance(lab::frameSeconds);
    }

    /// Sends one record per registered object; false once the front-end has gone.
    bool send(SimulationServer& s) {
        const double L = pendulum.length, theta = pendulum.angle(),
                     omega = pendulum.angularVelocity();
        const double px = pendulum.pivotX();
        const double bx = px + L * std::sin(theta), by = -L * std::cos(theta);
        const double speed = L * std::abs(omega);

        // The bob glows from blue to red with its speed, against the speed it
        // would have after falling from level with the pivot.
        const double fastest = std::sqrt(2 * std::max(pendulum.gravity, 0.1) * L);
        const double f = std::min(speed / fastest, 1.0);
        const double bobRadius = 0.09;
        const double bob[] = {bx,
                              by,
                              0,
                              0,
                              0,
                              0,
                              0,
                              0,
                              0,
                              bobRadius,
                              rounded(0.15 + 0.85 * f, 1e-3),
                              0.25,
                              rounded(1.0 - 0.85 * f, 1e-3),
                              0.8,
                              0.6,
                              40,
                              1,
                              0,
                              0,
                              0,
                              0};
        // The rod hangs from its top end (its origin), which sits on the pivot.
        const double rod[] = {px,    -L / 2, 0, 0, L / 2, 0, 0, 0, rodTurn.towards(theta * degrees),
                              0.012, L};
        const double carriage[] = {px, 0, 0, 0, 0, 0, 0, 0, 0, 0.24, 0.1, 0.16};
        const double protractor[] = {px, 0, -0.04, 0, 0, 0, 0, 0, 0};
        // The velocity arrow starts on the bob's surface and points along the
        // path; it is as long as the distance covered in 0.3 s.
        const double heading = theta + (omega < 0 ? pi : 0);
        const double ax = bx + bobRadius * std::cos(heading),
                     ay = by + bobRadius * std::sin(heading);
        const double arrow[] = {ax,
                                ay,
                                0,
                                0,
                                0,
                                0,
                                0,
                                0,
                                arrowTurn.towards(heading * degrees),
                                std::max(0.3 * speed, 0.01)};
        const double t = pendulum.time();

        if (!s.addRecord(lab::Bob, bob, 21) || !s.addRecord(lab::Rod, rod, 11) ||
            !s.addRecord(lab::Carriage, carriage, 12) ||
            !s.addRecord(lab::Protractor, protractor, 9) ||
            !s.addRecord(lab::Velocity, arrow, 10) || !s.addRecord(lab::Clock, {t}) ||
            !s.addRecord(lab::Plate, plateRecord()) ||
            !s.addRecord(lab::Heater,
                          {plate.heaterX, plate.heaterY, 0.07, 0, 0, 0, 0, 0, 0, 0.045, 0.12}) ||
            !s.addRecord(lab::AngleTrail, {t, rounded(pendulum.wrappedAngle(), 1e-5)}) ||
            !s.addRecord(lab::SpeedTrail, {t, rounded(omega, 1e-5)}) ||
            !s.addRecord(lab::RowProfile, profile(true)) ||
            !s.addRecord(lab::ColumnProfile, profile(false)) ||
            !s.addRecord(lab::AngleReadout, {rounded(pendulum.wrappedAngle() * degrees, 0.01)}) ||
            !s.addRecord(lab::SpeedReadout, {rounded(omega, 1e-3)}) ||
            !s.addRecord(lab::EnergyReadout, {rounded(pendulum.energy(), 1e-3)}) ||
            !s.addRecord(lab::PeriodReadout, {rounded(pendulum.smallSwingPeriod(), 1e-3)}) ||
            !s.addRecord(lab::HottestReadout, {rounded(plate.hottest(), 0.01)}) ||
            !s.addRecord(lab::MeanReadout, {rounded(plate.mean(), 0.01)}))
            return false;
        // The drive's fields mean nothing while the drive is off.
        const double driveFields = pendulum.driveOn ? 1 : 0;
        return s.addRecord(lab::AmplitudeField, {driveFields}) &&
               s.addRecord(lab::FrequencyField, {driveFields});
    }

private:
    /// Heat-flow arrows at the grid's interior nodes (in the grid's glyph
    /// order: x slowest), then the cell temperatures (x fastest).
    QVector<double> plateRecord() const {
        const int n = lab::plateCells;
        const int gx = lab::plateNx - 1, gy = lab::plateNy - 1;
        QVector<double> r(5 * n + 1, 0.0);
        double strongest = 1e-9;
        std::vector<double> fx(std::size_t(gx * gy)), fy(fx.size());
        for (int i = 0; i < gx; ++i)
            for (int j = 0; j < gy; ++j) {
                const std::size_t k = std::size_t(i * gy + j);
                plate.heatFlow(i + 1, j + 1, &fx[k], &fy[k]);
                strongest = std::max(strongest, std::hypot(fx[k], fy[k]));
            }
        for (std::size_t k = 0; k < fx.size(); ++k) {
            const double m = std::hypot(fx[k], fy[k]);
            // Lengths grow with the square root of the flow, so that the weak
            // flow far from the heater still shows; colours follow the same.
            r[int(k)] = rounded(std::sqrt(m / strongest), 1e-3);
            r[n + 3 * int(k)] = m > 0 ? rounded(fx[k] / m, 1e-3) : 0;
            r[n + 3 * int(k) + 1] = m > 0 ? rounded(fy[k] / m, 1e-3) : 0;
        }
        r[4 * n] = 1.4 * plate.dx(); // the longest arrows reach into the next cell
        for (int c = 0; c < n; ++c)
            r[4 * n + 1 + c] = rounded(plate.cells()[std::size_t(c)], 0.01);
        return r;
    }

    /// The temperatures along the row (or column) of cells through the heater:
    /// the positions of the cell centres, then their temperatures.
    QVector<double> profile(bool row) const {
        const int count = row ? plate.nx() : plate.ny();
        const int across = row ? std::clamp(int(plate.heaterY / plate.dy()), 0, plate.ny() - 1)
                               : std::clamp(int(plate.heaterX / plate.dx()), 0, plate.nx() - 1);
        QVector<double> r(2 * count);
        for (int k = 0; k < count; ++k) {
            r[k] = rounded((k + 0.5) * (row ? plate.dx() : plate.dy()), 1e-4);
            r[count + k] = rounded(row ? plate.at(k, across) : plate.at(across, k), 0.01);
        }
        return r;
    }

    Pendulum pendulum;
    HeatedPlate plate;
    Turn rodTurn, arrowTurn;
};

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    const Options options = parse(argc, argv);

    SimulationServer server;
    // A paused front-end keeps the server waiting as long as the user likes.
    server.setTimeout(-1);
    if (!server.listen(QHostAddress::LocalHost, quint16(options.port))) {
        std::fprintf(stderr, "demo_server: cannot listen on port %d\n", options.port);
        return 1;
    }
    std::printf("listening on port %d\n", int(server.port()));
    std::fflush(stdout);
    if (!server.waitForClient())
        return 1;

    Laboratory laboratory;
    const auto start = std::chrono::steady_clock::now();
    int cycle = 0;
    // With --keep-serving a front-end that leaves (or loses its link) is
    // waited for again, and the same simulation goes on for the next one.
    server.setTakeBack(options.keepServing);
    const auto takeNext = [&] {
        if (!options.keepServing)
            return false;
        std::printf("front-end left after %d cycles (%s); waiting for the next\n", cycle,
                    qPrintable(server.errorString()));
        std::fflush(stdout);
        return server.waitForClient();
    };
    for (;; ++cycle) {
        QVector<SimulationServer::Entry> changes;
        if (!server.nextCycle(&changes)) {
            if (takeNext()) {
                --cycle;
                continue;
            }
            break;
        }
        if (options.verbose && !changes.isEmpty())
            std::printf("cycle %d: %s\n", cycle, server.lastDataMessage().constData());
        for (const SimulationServer::Entry& change : changes)
            laboratory.set(change.first, change.second);
        laboratory.advance();
        // Pipelined: the chalk string, every record and the next ack go out
        // in one write, so a cycle costs one round trip however many records.
        if (!laboratory.send(server) || !server.finishCycle(cycle)) {
            if (takeNext())
                continue;
            break;
        }
        if (options.paced) // simulated time never runs ahead of the clock
            std::this_thread::sleep_until(
                start + std::chrono::duration<double>((cycle + 1) * lab::frameSeconds));
    }
    std::printf("front-end closed after %d cycles\n", cycle);
    return 0;
}
