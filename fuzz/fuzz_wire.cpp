// The wire reader, against a server on the loopback interface that sends the
// input cut into chunks. Each chunk reaches the client on its own: the server
// sends the next one only once the client has taken the previous one out of
// the kernel, so a string split across chunks is read in several pieces, as
// from a slow or distant server. The client runs cycles as the link thread
// does: data message after the server ack, chalk string, then the records,
// each parsed. After the last chunk the server ends the connection, so every
// wait of the client ends and an input runs for a time bounded by its length.
//
// Input:
//   byte 0  bits 0-1: records per cycle; bits 2-4: string length limit of
//           32 << k bytes; bit 5: keep copies of the strings; bit 6: parse
//           records in double precision; bit 7: verbose client
//   byte 1  bits 0-2: entries of each data message (7: a negative count);
//           bits 3-7: where the entries' values start in a table of values
//   byte 2  k = byte % 16 chunk sizes follow (none: the stream is one chunk),
//           each byte + 1, used in turn
//   rest    the bytes the server sends: server acks and server strings
//
// The client writes its log to info.txt in the working directory; run it
// where that file may grow (scripts/fuzz links it to /dev/null).
#include "FuzzSupport.h"

#include <Orlavex/link/SocketClass.h>

#include <QVector>

#include <arpa/inet.h>
#include <fcntl.h>
#include <linux/tcp.h> // tcp_info with the received byte count
#include <netinet/in.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <mutex>
#include <thread>
#include <vector>

using Orlavex::SocketClass;

namespace {

constexpr int kMaxCycles = 64;

[[noreturn]] void fail(const char* what) {
    std::fprintf(stderr, "fuzz_wire: %s\n", what);
    std::abort();
}

void nap() {
    const timespec t{0, 20 * 1000};
    nanosleep(&t, nullptr);
}

quint16 localPort(int fd, bool peer) {
    sockaddr_in a{};
    socklen_t len = sizeof a;
    const int r = peer ? getpeername(fd, reinterpret_cast<sockaddr*>(&a), &len)
                       : getsockname(fd, reinterpret_cast<sockaddr*>(&a), &len);
    return r == 0 && a.sin_family == AF_INET ? ntohs(a.sin_port) : 0;
}

// Listens on 127.0.0.1 at a free port for the whole run.
int listener() {
    static const int fd = [] {
        const int s = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (s < 0 || bind(s, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0 || listen(s, 4) != 0)
            fail("cannot listen on the loopback interface");
        return s;
    }();
    return fd;
}

// The client's end of the connection, found among this process's
// descriptors: its local port is the server side's peer port.
int clientDescriptor(int conn) {
    const quint16 clientPort = localPort(conn, true);
    const quint16 serverPort = localPort(conn, false);
    for (int fd = 3; fd < 4096; ++fd)
        if (fd != conn && localPort(fd, false) == clientPort && localPort(fd, true) == serverPort)
            return fd;
    return -1;
}

// Reads and drops what the client sent (acks, data messages); false once the
// client has closed its end.
bool drain(int conn) {
    char sink[4096];
    for (;;) {
        const ssize_t got = recv(conn, sink, sizeof sink, MSG_DONTWAIT);
        if (got > 0)
            continue;
        return got < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR);
    }
}

class Server {
public:
    explicit Server(std::vector<QByteArray> chunks)
        : m_chunks(std::move(chunks)), m_thread([this] { run(); }) {}
    ~Server() {
        m_done = true;
        m_thread.join();
    }

private:
    void run() {
        int conn = -1;
        while (conn < 0 && !m_done) {
            pollfd p{listener(), POLLIN, 0};
            if (poll(&p, 1, 10) > 0)
                conn = accept4(listener(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
        }
        if (conn < 0)
            return;
        const int one = 1;
        setsockopt(conn, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
        const int client = clientDescriptor(conn);
        if (serve(conn, client)) {
            // A FIN, not a reset: what the client has not read yet stays readable.
            shutdown(conn, SHUT_WR);
            while (!m_done && drain(conn))
                nap();
        }
        close(conn);
    }

    bool serve(int conn, int client) {
        quint64 total = 0;
        for (const QByteArray& chunk : m_chunks) {
            for (int sent = 0; sent < chunk.size();) {
                if (m_done || !drain(conn))
                    return false;
                const ssize_t n =
                    send(conn, chunk.constData() + sent, size_t(chunk.size() - sent), MSG_NOSIGNAL);
                if (n > 0)
                    sent += int(n);
                else if (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR)
                    nap();
                else
                    return false; // the client closed the connection
            }
            total += quint64(chunk.size());
            // Until the client has taken the chunk in: all of it arrived at
            // the client's socket and nothing left in its receive queue. A
            // client that has finished its calls ends the wait.
            while (!takenIn(client, total)) {
                if (m_done || !drain(conn))
                    return false;
                nap();
            }
        }
        return true;
    }

    static bool takenIn(int client, quint64 total) {
        if (client < 0)
            return true; // not found: chunks may merge, nothing worse
        tcp_info info{};
        socklen_t len = sizeof info;
        if (getsockopt(client, IPPROTO_TCP, TCP_INFO, &info, &len) != 0)
            return true; // closed by the client
        int queued = 0;
        ioctl(client, FIONREAD, &queued);
        return info.tcpi_bytes_received >= total && queued == 0;
    }

    std::vector<QByteArray> m_chunks;
    std::atomic<bool> m_done{false};
    std::thread m_thread;
};

const double kValues[] = {0,
                          2.5,
                          -12.25,
                          1e20,
                          -0.0000004,
                          0.5,
                          -0.0,
                          std::numeric_limits<double>::quiet_NaN(),
                          std::numeric_limits<double>::infinity(),
                          -std::numeric_limits<double>::infinity(),
                          std::numeric_limits<double>::max(),
                          std::numeric_limits<double>::lowest(),
                          std::numeric_limits<double>::denorm_min(),
                          123456.7890625,
                          1e-7,
                          9.9999995e-7};
constexpr int kValueCount = int(sizeof kValues / sizeof kValues[0]);

struct Options {
    int records;
    qint64 limit;
    bool keep;
    bool doubles;
    bool verbose;
    int entries;
    int firstValue;
};

void runCycles(SocketClass& socket, const Options& o) {
    QVector<int> indices;
    QVector<double> values;
    for (int k = 0; k < std::max(o.entries, 0); ++k) {
        indices.append(3 * k - 1);
        values.append(kValues[(o.firstValue + k) % kValueCount]);
    }
    std::mutex lock;
    QString message;
    QVector<float> floats;
    QVector<double> doubles;
    QVector<int> ints;
    for (int cycle = 0; cycle < kMaxCycles; ++cycle) {
        int count = o.entries;
        int sent = -2;
        const int ok = cycle % 2 ? socket.sendData(&count, &indices, &values, &lock, &sent)
                                 : socket.sendData(&count, &indices, &values);
        if (!ok)
            return;
        if (!socket.lastDataMessage().endsWith('#') || (cycle % 2 && sent != count))
            fail("data message not as documented");
        socket.getChalk();
        if (!socket.lastStringComplete())
            return;
        for (int r = 0; r < o.records; ++r) {
            const int num = socket.getNumValue(&message);
            if (!socket.lastStringComplete())
                return;
            if (!message.endsWith(QLatin1Char('#')))
                fail("a complete record's payload does not end with its terminal");
            if (o.keep &&
                (!socket.lastString().endsWith('#') || socket.lastString().size() > o.limit))
                fail("a kept string is not a whole string within the limit");
            const int n = std::abs(num % 32);
            if (o.doubles)
                socket.processInput(&message, &doubles, n, &ints, num & 3);
            else
                socket.processInput(&message, &floats, n, &ints, num & 3);
        }
        socket.takeParseAnomalies();
        socket.takeReceivedBytes();
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzz::makeApplication<QCoreApplication>();
    listener();
    return 0;
}

namespace {
void runInput(const uint8_t* data, size_t size) {
    if (size < 3)
        return;
    Options o;
    o.records = data[0] & 3;
    o.limit = qint64(32) << ((data[0] >> 2) & 7);
    o.keep = data[0] & 0x20;
    o.doubles = data[0] & 0x40;
    o.verbose = data[0] & 0x80;
    o.entries = (data[1] & 7) == 7 ? -1 : data[1] & 7;
    o.firstValue = data[1] >> 3;
    size_t pos = 3;
    std::vector<int> sizes;
    for (int k = 0; k < data[2] % 16 && pos < size; ++k)
        sizes.push_back(data[pos++] + 1);

    std::vector<QByteArray> chunks;
    for (size_t k = 0; pos < size; ++k) {
        const size_t n =
            sizes.empty() ? size - pos : std::min<size_t>(sizes[k % sizes.size()], size - pos);
        chunks.emplace_back(reinterpret_cast<const char*>(data + pos), int(n));
        pos += n;
    }

    SocketClass socket;
    socket.setServerAddress(QStringLiteral("127.0.0.1"));
    socket.setServerPort(localPort(listener(), false));
    socket.setMaxStringLength(o.limit);
    socket.setKeepStrings(o.keep);
    socket.setVerbose(o.verbose);
    {
        Server server(std::move(chunks));
        socket.connectToServer();
        if (!socket.isConnected())
            fail("cannot connect to the loopback server");
        runCycles(socket, o);
    } // the server goes first: it sees the client still connected, or closed by itself
    socket.closeConnection();
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    runInput(data, size);
    fuzz::settleOutput();
    return 0;
}
