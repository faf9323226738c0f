// Ctrl-C and a polite kill as a request to stop.
#pragma once

#include <stop_token>
#include <thread>

namespace vesk {

/// Made by a program's main before any other thread. SIGINT, SIGTERM and SIGHUP request a stop; a second one
/// ends the process at once.
class Interrupts {
public:
    Interrupts();
    ~Interrupts();
    std::stop_token token() const { return stop_.get_token(); }

private:
    std::stop_source stop_;
    std::jthread waiter_;
};

}  // namespace vesk
