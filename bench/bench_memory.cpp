// What one huge record costs the front-end in memory, and whether it is
// given back: a server in a child process (so that its buffers do not count)
// sends one record of 200 MiB to a read-out, then small cycles. Printed: the
// idle resident size, the peak above it per byte of the record (target at
// most 3), and what stays resident after the next cycle (target: back near
// the idle size).
#include <Orlavex/Orlavex.h>

#include <QApplication>
#include <QFile>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <thread>

namespace {

constexpr long long kRecordBytes = 200LL * 1024 * 1024;

long long statusKb(const char* key) {
    QFile f(QStringLiteral("/proc/self/status"));
    if (!f.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray& line : f.readAll().split('\n'))
        if (line.startsWith(key))
            return line.mid(int(std::strlen(key))).trimmed().split(' ').value(0).toLongLong();
    return -1;
}

bool sendAll(int fd, const char* p, size_t n) {
    while (n > 0) {
        const ssize_t w = ::send(fd, p, n, MSG_NOSIGNAL);
        if (w <= 0)
            return false;
        p += w;
        n -= size_t(w);
    }
    return true;
}

// Reads up to and including `terminal`, or one byte when terminal is 0.
bool readTo(int fd, char terminal) {
    char c;
    do {
        if (::recv(fd, &c, 1, 0) != 1)
            return false;
    } while (terminal != 0 && c != terminal);
    return true;
}

// The child: lock-step cycles; cycle 1 carries the huge record.
void serve(int listener, int cycles) {
    const int fd = ::accept(listener, nullptr, nullptr);
    // Numbers, as a huge grid record carries them (the read-out reads the first).
    std::string chunk;
    while (chunk.size() < (1u << 20))
        chunk += "0.123456,";
    for (int c = 0; c < cycles; ++c) {
        if (!sendAll(fd, "\x01", 1) || !readTo(fd, '#'))
            break;
        const std::string chalk = std::to_string(c) + "#";
        if (!sendAll(fd, chalk.data(), chalk.size()) || !readTo(fd, 0))
            break;
        if (c == 1) {
            sendAll(fd, "1,", 2);
            for (long long sent = 2; sent < kRecordBytes - 1; sent += (long long)chunk.size())
                sendAll(fd, chunk.data(), size_t(std::min<long long>(chunk.size(), kRecordBytes - 1 - sent)));
            sendAll(fd, "#", 1);
        } else {
            sendAll(fd, "1,2.5#", 6);
        }
        if (!readTo(fd, 0))
            break;
    }
    ::close(fd);
}

} // namespace

int main(int argc, char** argv) {
    const int listener = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in at{};
    at.sin_family = AF_INET;
    at.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof at;
    ::bind(listener, reinterpret_cast<sockaddr*>(&at), sizeof at);
    ::listen(listener, 1);
    ::getsockname(listener, reinterpret_cast<sockaddr*>(&at), &length);
    const int cycles = 6;
    const pid_t child = ::fork();
    if (child == 0) {
        serve(listener, cycles);
        ::_exit(0);
    }
    ::close(listener);

    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    Orlavex::CommThread link;
    Orlavex::DisplayDouble readOut;
    link.setSendingObjI(1, &readOut);
    link.setServerAddress("local");
    link.setServerPort(ntohs(at.sin_port));
    std::atomic<int> done{0};
    std::atomic<long long> afterHuge{0}, afterNext{0};
    const long long idle = statusKb("VmRSS:");
    QObject::connect(
        &link, &Orlavex::CommThread::cycleFinished, &link,
        [&](const Orlavex::CycleStats& s) {
            if (s.cycle == 2)
                afterHuge = statusKb("VmRSS:");
            if (s.cycle == 3)
                afterNext = statusKb("VmRSS:");
            done = int(s.cycle);
        },
        Qt::DirectConnection);
    link.start();
    while (done.load() < cycles - 1)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
    const long long peak = statusKb("VmHWM:");
    link.shutdown();
    ::waitpid(child, nullptr, 0);

    const double mib = 1024.0;
    const double perByte = double(peak - idle) * 1024.0 / double(kRecordBytes);
    std::printf("one record of %lld MiB: idle %.0f MiB, peak %.0f MiB above idle = %.2f bytes per "
                "byte (target <= 3)\n",
                kRecordBytes >> 20, idle / mib, (peak - idle) / mib, perByte);
    std::printf("resident above idle: after the huge record %.0f MiB, after the next cycle %.0f "
                "MiB (target: a few MiB)\n",
                (afterHuge - idle) / mib, (afterNext - idle) / mib);
    return perByte <= 3.0 && (afterNext - idle) / mib < 16 ? 0 : 1;
}
