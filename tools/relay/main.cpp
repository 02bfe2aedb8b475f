// A delay relay for trying a front-end and a simulation server on one machine
// at the round-trip time of a real network.
//
//   orlavex-relay --to PORT [--listen PORT] --delay MS
//
// --to PORT      the simulation server's port on 127.0.0.1
// --listen PORT  the port the front-end connects to (0, the default, picks a
//                free one); the port is printed
// --delay MS     one-way delay in milliseconds (fractions allowed): the round
//                trip grows by twice this
//
// It serves one front-end and ends when that session ends.
#include "DelayRelay.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

#include <pthread.h>

namespace {

void usage(FILE* to) {
    std::fprintf(to, "usage: orlavex-relay --to PORT [--listen PORT] --delay MS\n");
}

bool number(const char* text, double* out) {
    char* end = nullptr;
    *out = std::strtod(text, &end);
    return end != text && *end == '\0';
}

} // namespace

int main(int argc, char** argv) {
    double to = -1, listen = 0, delay = -1;
    for (int i = 1; i < argc; ++i) {
        const bool hasValue = i + 1 < argc;
        double* target = nullptr;
        if (std::strcmp(argv[i], "--to") == 0)
            target = &to;
        else if (std::strcmp(argv[i], "--listen") == 0)
            target = &listen;
        else if (std::strcmp(argv[i], "--delay") == 0)
            target = &delay;
        else if (std::strcmp(argv[i], "--help") == 0) {
            usage(stdout);
            return 0;
        }
        if (!target || !hasValue || !number(argv[++i], target)) {
            usage(stderr);
            return 2;
        }
    }
    if (to < 1 || to > 65535 || listen < 0 || listen > 65535 || delay < 0) {
        usage(stderr);
        return 2;
    }

    // Ctrl-C and kill end the session cleanly: the relay closes both sides.
    sigset_t ending;
    sigemptyset(&ending);
    sigaddset(&ending, SIGINT);
    sigaddset(&ending, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &ending, nullptr); // before the relay's thread exists

    Orlavex::DelayRelay relay(uint16_t(to), delay, uint16_t(listen));
    if (!relay.start()) {
        std::fprintf(stderr, "orlavex-relay: %s\n", relay.errorString().c_str());
        return 1;
    }
    std::printf("listening on port %d\n", int(relay.port()));
    std::fflush(stdout); // whoever started us reads the port from this line

    // A small thread turns a signal into the relay's end; the main thread
    // waits for the session to end either way.
    std::thread signals([&] {
        int signal = 0;
        sigwait(&ending, &signal);
        if (signal != 0 && !relay.isFinished())
            relay.stop();
    });
    relay.wait();
    const std::string error = relay.errorString();
    // Wakes the signal thread if no signal came.
    pthread_kill(signals.native_handle(), SIGTERM);
    signals.join();
    relay.stop();
    std::printf("session ended: %llu bytes to the server, %llu bytes to the front-end\n",
                static_cast<unsigned long long>(relay.bytesToServer()),
                static_cast<unsigned long long>(relay.bytesToFrontEnd()));
    if (!error.empty())
        std::fprintf(stderr, "orlavex-relay: %s\n", error.c_str());
    return error.rfind("cannot connect", 0) == 0 ? 1 : 0;
}
