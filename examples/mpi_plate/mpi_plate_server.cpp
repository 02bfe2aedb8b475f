// The heated plate of the demo laboratory, computed by several MPI processes
// and served to one front-end (plate_client).
//
// The plate is cut into horizontal strips of rows, one per process. Every
// time step each process swaps its edge rows with the processes above and
// below (MPI_Sendrecv) and updates its own cells. Process 0 alone talks to
// the front-end: each cycle it reads the control changes and broadcasts them
// (MPI_Bcast), gathers the strips into the whole field (MPI_Gatherv) and
// sends the records. When the front-end goes, process 0 broadcasts a stop and
// every process ends.
//
// The field is the same, bit for bit, on any number of processes: a cell's
// update reads the same neighbour values and does the same arithmetic in the
// same order wherever the strip boundaries fall, and the read-outs are
// computed by process 0 from the gathered field.
//
//   mpirun -n P mpi_plate_server [--port N] [--address A] [--cycles N] [--unpaced]
//                                [--dump-cycle K FILE]
//
// --port N             port to listen on (4848; 0 picks a free one); the port is printed
// --address A          address to listen on (127.0.0.1); 0.0.0.0 for front-ends elsewhere
// --cycles N           stop after N cycles (0, the default: run until the front-end goes)
// --unpaced            run cycles as fast as the front-end takes them, instead of
//                      keeping simulated time in step with the clock
// --dump-cycle K FILE  write the grid record of cycle K, exactly as sent, to FILE
#include "PlateProtocol.h"

#include <Orlavex/server/SimulationServer.h>

#include <QCoreApplication>
#include <QFile>

#include <mpi.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <thread>
#include <vector>

namespace {

struct Options {
    int port = 4848;
    QString address = QStringLiteral("127.0.0.1");
    int cycles = 0;
    bool paced = true;
    int dumpCycle = -1;
    QString dumpFile;
};

bool parse(int argc, char** argv, Options* o) {
    for (int i = 1; i < argc; ++i) {
        const bool hasValue = i + 1 < argc;
        if (std::strcmp(argv[i], "--port") == 0 && hasValue)
            o->port = std::atoi(argv[++i]);
        else if (std::strcmp(argv[i], "--address") == 0 && hasValue)
            o->address = QString::fromLocal8Bit(argv[++i]);
        else if (std::strcmp(argv[i], "--cycles") == 0 && hasValue)
            o->cycles = std::atoi(argv[++i]);
        else if (std::strcmp(argv[i], "--unpaced") == 0)
            o->paced = false;
        else if (std::strcmp(argv[i], "--dump-cycle") == 0 && i + 2 < argc) {
            o->dumpCycle = std::atoi(argv[++i]);
            o->dumpFile = QString::fromLocal8Bit(argv[++i]);
        } else
            return false;
    }
    return true;
}

/// What the front-end steers, sent from process 0 to all others every cycle.
/// Doubles only, so that it travels as one MPI_DOUBLE array.
struct Controls {
    double running = 1;
    double heaterX = plate::field(plate::HeaterX).value;
    double heaterY = plate::field(plate::HeaterY).value;
    double power = plate::field(plate::HeaterPower).value;

    void set(int index, double v) {
        switch (index) {
        case plate::HeaterX:
            heaterX = v;
            break;
        case plate::HeaterY:
            heaterY = v;
            break;
        case plate::HeaterPower:
            power = v;
            break;
        default:
            std::fprintf(stderr, "mpi_plate_server: unknown control %d\n", index);
        }
    }
};
constexpr int kControlCount = int(sizeof(Controls) / sizeof(double));
static_assert(sizeof(Controls) == kControlCount * sizeof(double), "Controls must be doubles only");

/// Process 0 waits on the front-end, which may be paused for minutes. A
/// blocking MPI call would keep every other process spinning on a core all
/// that time; polling with a short sleep leaves the cores to the front-end.
void broadcast(Controls* controls, int rank) {
    MPI_Request request;
    MPI_Ibcast(controls, kControlCount, MPI_DOUBLE, 0, MPI_COMM_WORLD, &request);
    if (rank == 0) {
        MPI_Wait(&request, MPI_STATUS_IGNORE);
        return;
    }
    int done = 0;
    for (MPI_Test(&request, &done, MPI_STATUS_IGNORE); !done;
         MPI_Test(&request, &done, MPI_STATUS_IGNORE))
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

/// The first row of process `rank`'s strip; the rows share out as evenly as
/// they can, the first processes taking one more when they do not divide.
int firstRow(int rank, int size) {
    const int base = plate::ny / size, extra = plate::ny % size;
    return rank * base + std::min(rank, extra);
}

/// Rows [first, first + rows) of the plate, owned by one process, with a
/// ghost row below and above and a ghost column on either side.
///
/// The physics is that of the demo's HeatedPlate with its edges held:
///   ∂T/∂t = α ∇²T + P exp(−r² / 2σ²) − λ (T − T_edge)
/// on the five-point Laplacian, in substeps within the stability limit. A
/// ghost cell holds what HeatedPlate's neighbour() gives for it: the
/// neighbouring process's cell, or the cell mirrored about T_edge at the
/// plate's edge. The update of a cell is written exactly as there, so each
/// cell gets the same bits as in a single process.
class Strip {
public:
    Strip(int rank, int size)
        : m_rank(rank), m_size(size), m_first(firstRow(rank, size)),
          m_rows(firstRow(rank + 1, size) - m_first) {
        m_t.assign(std::size_t((m_rows + 2) * (plate::nx + 2)), plate::edgeTemperature);
        m_next = m_t;
        m_heating.resize(std::size_t(m_rows * plate::nx));
    }

    int rows() const { return m_rows; }

    void advance(double seconds, const Controls& c) {
        const double dx = m_dx, dy = m_dy;
        const double limit =
            0.8 / (2 * plate::diffusivity * (1 / (dx * dx) + 1 / (dy * dy)) + plate::loss);
        const int steps = std::max(1, int(std::ceil(seconds / limit)));
        const double h = seconds / steps;

        // The heater stands still within a cycle: its term is worked out once.
        const double twoSigma2 = 2 * plate::heaterWidth * plate::heaterWidth;
        for (int r = 0; r < m_rows; ++r)
            for (int i = 0; i < plate::nx; ++i) {
                const double x = (i + 0.5) * dx - c.heaterX,
                             y = (m_first + r + 0.5) * dy - c.heaterY;
                m_heating[std::size_t(r * plate::nx + i)] =
                    c.power * std::exp(-(x * x + y * y) / twoSigma2);
            }

        for (int s = 0; s < steps; ++s) {
            fillGhosts();
            for (int r = 1; r <= m_rows; ++r)
                for (int i = 1; i <= plate::nx; ++i) {
                    const double t = at(r, i);
                    const double laplacian = (at(r, i - 1) - 2 * t + at(r, i + 1)) / (dx * dx) +
                                             (at(r - 1, i) - 2 * t + at(r + 1, i)) / (dy * dy);
                    const double heating = m_heating[std::size_t((r - 1) * plate::nx + i - 1)];
                    m_next[index(r, i)] = t + h * (plate::diffusivity * laplacian + heating -
                                                   plate::loss * (t - plate::edgeTemperature));
                }
            m_t.swap(m_next);
        }
    }

    /// The strip's own cells, x fastest, into `out` (rows × nx values).
    void copyCells(double* out) const {
        for (int r = 1; r <= m_rows; ++r)
            std::copy_n(&m_t[index(r, 1)], plate::nx, out + (r - 1) * plate::nx);
    }

private:
    std::size_t index(int r, int i) const { return std::size_t(r * (plate::nx + 2) + i); }
    double at(int r, int i) const { return m_t[index(r, i)]; }

    void fillGhosts() {
        const int below = m_rank > 0 ? m_rank - 1 : MPI_PROC_NULL;
        const int above = m_rank + 1 < m_size ? m_rank + 1 : MPI_PROC_NULL;
        // Lowest row down, the ghost row above from the process above; then
        // the highest row up, the ghost row below from below.
        MPI_Sendrecv(&m_t[index(1, 1)], plate::nx, MPI_DOUBLE, below, 0, &m_t[index(m_rows + 1, 1)],
                     plate::nx, MPI_DOUBLE, above, 0, MPI_COMM_WORLD, MPI_STATUS_IGNORE);
        MPI_Sendrecv(&m_t[index(m_rows, 1)], plate::nx, MPI_DOUBLE, above, 1, &m_t[index(0, 1)],
                     plate::nx, MPI_DOUBLE, below, 1, MPI_COMM_WORLD, MPI_STATUS_IGNORE);
        const double edge2 = 2 * plate::edgeTemperature;
        if (below == MPI_PROC_NULL)
            for (int i = 1; i <= plate::nx; ++i)
                m_t[index(0, i)] = edge2 - at(1, i);
        if (above == MPI_PROC_NULL)
            for (int i = 1; i <= plate::nx; ++i)
                m_t[index(m_rows + 1, i)] = edge2 - at(m_rows, i);
        for (int r = 1; r <= m_rows; ++r) {
            m_t[index(r, 0)] = edge2 - at(r, 1);
            m_t[index(r, plate::nx + 1)] = edge2 - at(r, plate::nx);
        }
    }

    int m_rank, m_size;
    int m_first, m_rows;
    // As HeatedPlate works them out, so that they hold the same bits.
    double m_dx = plate::width / plate::nx, m_dy = plate::height / plate::ny;
    std::vector<double> m_t, m_next, m_heating;
};

/// Gathers every strip into `field` on process 0 (x fastest, row 0 first).
void gather(const Strip& strip, int size, std::vector<double>* field) {
    std::vector<double> mine(std::size_t(strip.rows() * plate::nx));
    strip.copyCells(mine.data());
    std::vector<int> counts, offsets;
    for (int r = 0; r < size; ++r) {
        offsets.push_back(firstRow(r, size) * plate::nx);
        counts.push_back((firstRow(r + 1, size) - firstRow(r, size)) * plate::nx);
    }
    MPI_Gatherv(mine.data(), int(mine.size()), MPI_DOUBLE, field->data(), counts.data(),
                offsets.data(), MPI_DOUBLE, 0, MPI_COMM_WORLD);
}

/// The front-end reads numbers in single precision; rounding a read-out to
/// the step it shows keeps its record short.
double rounded(double v, double step) {
    return std::round(v / step) * step;
}

/// Process 0's side: the front-end, the records and the dump.
class Front {
public:
    Front(const Options& options, int size) : m_options(options), m_size(size) {}

    bool start() {
        m_server.setTimeout(-1); // a paused front-end keeps us waiting as long as the user likes
        if (!m_server.listen(QHostAddress(m_options.address), quint16(m_options.port))) {
            std::fprintf(stderr, "mpi_plate_server: cannot listen on %s port %d\n",
                         qPrintable(m_options.address), m_options.port);
            return false;
        }
        std::printf("listening on port %d\n", int(m_server.port()));
        std::printf("the plate's %d rows are computed by %d process%s\n", plate::ny, m_size,
                    m_size == 1 ? "" : "es");
        std::fflush(stdout); // whoever started us reads the port from this output
        if (!m_server.waitForClient())
            return false;
        m_start = std::chrono::steady_clock::now();
        return true;
    }

    /// Reads the front-end's changes into `controls`; false once it has gone.
    bool next(int cycle, Controls* controls) {
        if (m_options.cycles > 0 && cycle >= m_options.cycles)
            return false;
        QVector<SimulationServer::Entry> changes;
        if (!m_server.nextCycle(&changes))
            return false;
        for (const SimulationServer::Entry& change : changes)
            controls->set(change.first, change.second);
        return true;
    }

    /// Sends the cycle's records; false once the front-end has gone.
    bool send(int cycle, const Controls& c, const std::vector<double>& field) {
        // Full precision: the front-end reads single precision anyway, but
        // the record then carries the field bit for bit, which lets a run on
        // P processes be compared with a run on one.
        if (cycle == m_options.dumpCycle) {
            QFile dump(m_options.dumpFile);
            const QByteArray text =
                SimulationServer::record(plate::Grid, field.data(), int(field.size()));
            if (!dump.open(QIODevice::WriteOnly) || dump.write(text) != text.size()) {
                std::fprintf(stderr, "mpi_plate_server: cannot write %s\n",
                             qPrintable(m_options.dumpFile));
                return false;
            }
            m_dumped = true;
        }
        // Summed in cell order, so that the mean does not depend on the strips.
        double sum = 0, hottest = field.front();
        for (double t : field) {
            sum += t;
            hottest = std::max(hottest, t);
        }
        const bool queued =
            m_server.addRecord(plate::Grid, field.data(), int(field.size())) &&
            m_server.addRecord(plate::Heater,
                               {c.heaterX, c.heaterY, 0.07, 0, 0, 0, 0, 0, 0, 0.045, 0.12}) &&
            m_server.addRecord(plate::HottestReadout, {rounded(hottest, 0.01)}) &&
            m_server.addRecord(plate::MeanReadout, {rounded(sum / double(field.size()), 0.01)}) &&
            m_server.addRecord(plate::RanksReadout, {double(m_size)});
        // Pipelined: the chalk string, every record and the next ack go out
        // in one write.
        if (!queued || !m_server.finishCycle(cycle))
            return false;
        if (m_options.paced) // simulated time never runs ahead of the clock
            std::this_thread::sleep_until(
                m_start + std::chrono::duration<double>((cycle + 1) * plate::frameSeconds));
        return true;
    }

    bool dumpMissing() const { return m_options.dumpCycle >= 0 && !m_dumped; }

private:
    const Options& m_options;
    int m_size;
    SimulationServer m_server;
    bool m_dumped = false;
    std::chrono::steady_clock::time_point m_start;
};

} // namespace

int main(int argc, char** argv) {
    MPI_Init(&argc, &argv);
    int rank = 0, size = 1;
    MPI_Comm_rank(MPI_COMM_WORLD, &rank);
    MPI_Comm_size(MPI_COMM_WORLD, &size);

    Options options;
    const bool parsed = parse(argc, argv, &options);
    if (!parsed || size > plate::ny) {
        if (rank == 0 && !parsed)
            std::fprintf(stderr, "usage: mpirun -n P mpi_plate_server [--port N] [--address A] "
                                 "[--cycles N] [--unpaced] [--dump-cycle K FILE]\n");
        else if (rank == 0)
            std::fprintf(stderr, "mpi_plate_server: at most %d processes, one row each\n",
                         plate::ny);
        MPI_Finalize();
        return 2;
    }

    // Only process 0 serves, so only it needs Qt.
    std::unique_ptr<QCoreApplication> app;
    std::unique_ptr<Front> front;
    int rc = 0;
    Controls controls;
    if (rank == 0) {
        app = std::make_unique<QCoreApplication>(argc, argv);
        front = std::make_unique<Front>(options, size);
        if (!front->start()) {
            controls.running = 0;
            rc = 1;
        }
    }

    Strip strip(rank, size);
    std::vector<double> field(rank == 0 ? std::size_t(plate::cells) : 0);
    int cycle = 0;
    for (;; ++cycle) {
        if (rank == 0 && controls.running > 0 && !front->next(cycle, &controls))
            controls.running = 0;
        broadcast(&controls, rank);
        if (controls.running <= 0)
            break;
        strip.advance(plate::frameSeconds, controls);
        gather(strip, size, &field);
        // A front-end that has gone is noticed at the next cycle's start.
        if (rank == 0 && !front->send(cycle, controls, field))
            controls.running = 0;
    }

    if (rank == 0 && rc == 0) {
        std::printf("front-end closed after %d cycles\n", cycle);
        std::fflush(stdout);
        if (front->dumpMissing()) {
            std::fprintf(stderr, "mpi_plate_server: cycle %d was never reached\n",
                         options.dumpCycle);
            rc = 1;
        }
    }
    front.reset();
    app.reset();
    MPI_Finalize();
    return rc;
}
