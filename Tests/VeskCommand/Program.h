// Runs the program as a person's shell would, with a home of its own.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "Support/Scratch.h"

namespace vesk::test {

struct Ran {
    int status = 0;  ///< exit status, or 128 + the signal that ended it
    std::string out, err;
};

/// A process that was started, with the other ends of its standard streams; the caller closes and awaits.
struct Child {
    pid_t pid = 0;
    int in = -1, out = -1, err = -1;
};

/// A scratch home (data, settings) and a scratch vault.
class Program {
public:
    ScratchFolder home, vault;

    /// Runs `vesk --vault <vault> arguments…` to its end with `input` on standard input.
    Ran run(const std::vector<std::string>& arguments, const std::string& input = "") const;
    /// The same without --vault, with more of the environment ("NAME=value") and another current folder.
    Ran runPlain(const std::vector<std::string>& arguments, const std::string& input = "",
                 const std::vector<std::string>& environment = {},
                 const std::filesystem::path& folder = "/") const;
    /// The same under strace, which writes the named system calls of all its threads into `trace`.
    Ran runTraced(const std::string& calls, const std::filesystem::path& trace,
                  const std::vector<std::string>& arguments,
                  const std::vector<std::string>& environment = {}) const;
    /// Starts `vesk arguments…` without waiting.
    Child start(const std::vector<std::string>& arguments, const std::vector<std::string>& environment = {},
                const std::filesystem::path& folder = "/") const;
    /// Starts it and kills it after so many microseconds, as a power cut would.
    void runAndKill(const std::vector<std::string>& arguments, const std::string& input,
                    int microseconds) const;
    /// Sends a signal as soon as `words` stand in what it says on standard error; runs it to its end.
    Ran runAndSignal(const std::vector<std::string>& arguments, const std::string& words,
                     int signalNumber) const;
    std::filesystem::path indexFile() const;
};

}  // namespace vesk::test
