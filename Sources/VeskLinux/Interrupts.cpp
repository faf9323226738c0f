#include "VeskLinux/Interrupts.h"

#include <pthread.h>
#include <unistd.h>

#include <csignal>

namespace vesk {
namespace {

sigset_t watchedSignals() {
    sigset_t set;
    sigemptyset(&set);
    for (int signal : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&set, signal);
    return set;
}

}  // namespace

Interrupts::Interrupts() {
    auto set = watchedSignals();
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    waiter_ = std::jthread([this](const std::stop_token& ending) {
        auto signals = watchedSignals();
        for (;;) {
            int signal = 0;
            if (sigwait(&signals, &signal) != 0) continue;
            if (ending.stop_requested()) return;
            if (stop_.stop_requested()) _exit(128 + signal);
            stop_.request_stop();
        }
    });
}

Interrupts::~Interrupts() {
    waiter_.request_stop();
    // Sent to the waiting thread alone: wakes it up to end.
    pthread_kill(waiter_.native_handle(), SIGTERM);
}

}  // namespace vesk
