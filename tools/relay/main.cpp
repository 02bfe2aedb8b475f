// A delay relay for trying a front-end and a simulation server on one machine
// at the round-trip time of a real network.
//
//   orlavex-relay --to PORT [--listen PORT] [--delay MS]
//                 [--drop-after N [--outage S] [--fault close|reset|silent]]
//
// --to PORT       the simulation server's port on 127.0.0.1
// --listen PORT   the port the front-end connects to (0, the default, picks a
//                 free one); the port is printed
// --delay MS      one-way delay in milliseconds (fractions allowed): the round
//                 trip grows by twice this (0 by default)
// --drop-after N  a network drop: once the front-end has sent N data
//                 messages, the fault strikes (close: both sides see a close;
//                 reset: both see a reset; silent: nothing passes any more,
//                 both stay open; close by default); then for S seconds
//                 (--outage, 2 by default) nothing listens, and after that
//                 the relay takes the next front-end (a reconnecting one) to
//                 the server anew. One line on standard output per event.
//
// It ends when a front-end's session ends by itself.
#include "DelayRelay.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>

#include <pthread.h>

namespace {

void usage(FILE* to) {
    std::fprintf(to, "usage: orlavex-relay --to PORT [--listen PORT] [--delay MS]\n"
                     "                     [--drop-after N [--outage S] [--fault close|reset|silent]]\n");
}

bool number(const char* text, double* out) {
    char* end = nullptr;
    *out = std::strtod(text, &end);
    return end != text && *end == '\0';
}

} // namespace

int main(int argc, char** argv) {
    double to = -1, listen = 0, delay = 0, dropAfter = -1, outage = 2;
    using Fault = Orlavex::DelayRelay::Fault;
    Fault fault = Fault::Close;
    const char* faultName = "close";
    for (int i = 1; i < argc; ++i) {
        const bool hasValue = i + 1 < argc;
        double* target = nullptr;
        if (std::strcmp(argv[i], "--to") == 0)
            target = &to;
        else if (std::strcmp(argv[i], "--listen") == 0)
            target = &listen;
        else if (std::strcmp(argv[i], "--delay") == 0)
            target = &delay;
        else if (std::strcmp(argv[i], "--drop-after") == 0)
            target = &dropAfter;
        else if (std::strcmp(argv[i], "--outage") == 0)
            target = &outage;
        else if (std::strcmp(argv[i], "--fault") == 0 && hasValue) {
            faultName = argv[++i];
            if (std::strcmp(faultName, "close") == 0)
                fault = Fault::Close;
            else if (std::strcmp(faultName, "reset") == 0)
                fault = Fault::Reset;
            else if (std::strcmp(faultName, "silent") == 0)
                fault = Fault::Silent;
            else {
                usage(stderr);
                return 2;
            }
            continue;
        } else if (std::strcmp(argv[i], "--help") == 0) {
            usage(stdout);
            return 0;
        }
        if (!target || !hasValue || !number(argv[++i], target)) {
            usage(stderr);
            return 2;
        }
    }
    if (to < 1 || to > 65535 || listen < 0 || listen > 65535 || delay < 0 || outage < 0) {
        usage(stderr);
        return 2;
    }

    // Ctrl-C and kill end the session cleanly: the relay closes both sides.
    sigset_t ending;
    sigemptyset(&ending);
    sigaddset(&ending, SIGINT);
    sigaddset(&ending, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &ending, nullptr); // before the relay's thread exists

    auto relay = std::make_unique<Orlavex::DelayRelay>(uint16_t(to), delay, uint16_t(listen));
    if (dropAfter >= 0)
        relay->setFault(fault, uint64_t(dropAfter));
    if (!relay->start()) {
        std::fprintf(stderr, "orlavex-relay: %s\n", relay->errorString().c_str());
        return 1;
    }
    const uint16_t port = relay->port();
    std::printf("listening on port %d\n", int(port));
    std::fflush(stdout); // whoever started us reads the port from this line

    // A small thread turns a signal into the relay's end; the main thread
    // waits for the session to end either way.
    std::atomic<bool> signalled{false};
    std::mutex current;
    std::thread signals([&] {
        int signal = 0;
        sigwait(&ending, &signal);
        if (signal != 0) {
            signalled = true;
            std::lock_guard<std::mutex> guard(current);
            relay->stop();
        }
    });
    relay->wait();
    if (relay->hasFaulted() && !signalled) {
        std::printf("fault: %s after cycle %d\n", faultName, int(dropAfter));
        std::fflush(stdout);
        {
            std::lock_guard<std::mutex> guard(current);
            relay->stop(); // the outage: nothing listens now
        }
        std::this_thread::sleep_for(std::chrono::duration<double>(outage));
        if (!signalled) {
            auto next = std::make_unique<Orlavex::DelayRelay>(uint16_t(to), delay, port);
            if (!next->start()) {
                std::fprintf(stderr, "orlavex-relay: %s\n", next->errorString().c_str());
                return 1;
            }
            {
                std::lock_guard<std::mutex> guard(current);
                relay = std::move(next);
            }
            std::printf("outage over: accepting again\n");
            std::fflush(stdout);
        }
    }
    relay->wait();
    const std::string error = relay->errorString();
    // Wakes the signal thread if no signal came.
    pthread_kill(signals.native_handle(), SIGTERM);
    signals.join();
    relay->stop();
    std::printf("session ended: %llu bytes to the server, %llu bytes to the front-end\n",
                static_cast<unsigned long long>(relay->bytesToServer()),
                static_cast<unsigned long long>(relay->bytesToFrontEnd()));
    if (!error.empty())
        std::fprintf(stderr, "orlavex-relay: %s\n", error.c_str());
    return error.rfind("cannot connect", 0) == 0 ? 1 : 0;
}
