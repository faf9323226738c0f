#include "Program.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <stdexcept>

namespace vesk::test {
namespace {

/// `words` begin with the program's path.
Child startWords(const Program& program, std::vector<std::string> words,
                 const std::vector<std::string>& environment, const std::filesystem::path& folder) {
    int in[2], out[2], err[2];
    if (pipe2(in, O_CLOEXEC) || pipe2(out, O_CLOEXEC) || pipe2(err, O_CLOEXEC))
        throw std::runtime_error("pipe");
    // Of a variable that occurs twice the first holds.
    std::vector<std::string> variables = environment;
    variables.insert(variables.end(), {"HOME=" + program.home.path().string(),
                                       "XDG_DATA_HOME=" + (program.home / "data").string(),
                                       "XDG_CONFIG_HOME=" + (program.home / "config").string(),
                                       "DBUS_SESSION_BUS_ADDRESS=unix:path=/nonexistent", "TZ=UTC",
                                       "LC_ALL=C.UTF-8", "PATH=/usr/bin:/bin"});
    std::vector<char*> argv, envp;
    for (auto& word : words) argv.push_back(word.data());
    for (auto& variable : variables) envp.push_back(variable.data());
    argv.push_back(nullptr);
    envp.push_back(nullptr);
    const pid_t pid = fork();
    if (pid == 0) {
        dup2(in[0], 0);
        dup2(out[1], 1);
        dup2(err[1], 2);
        if (chdir(folder.c_str()) != 0) _exit(126);
        execve(argv[0], argv.data(), envp.data());
        _exit(127);
    }
    close(in[0]);
    close(out[1]);
    close(err[1]);
    return {pid, in[1], out[0], err[0]};
}

void feed(int descriptor, const std::string& text) {
    for (std::size_t at = 0; at < text.size();) {
        const auto wrote = write(descriptor, text.data() + at, text.size() - at);
        if (wrote <= 0) break;
        at += static_cast<std::size_t>(wrote);
    }
    close(descriptor);
}

/// Reads both streams to their ends; sends the signal when `words` first stand in the error stream.
void drain(const Child& child, Ran& ran, const std::string& words = {}, int signalNumber = 0) {
    pollfd ends[] = {{child.out, POLLIN, 0}, {child.err, POLLIN, 0}};
    std::string* texts[] = {&ran.out, &ran.err};
    for (int open = 2; open > 0;) {
        poll(ends, 2, -1);
        for (int i = 0; i < 2; ++i) {
            if (ends[i].fd < 0 || !ends[i].revents) continue;
            char buffer[4096];
            const auto got = read(ends[i].fd, buffer, sizeof buffer);
            if (got > 0) {
                texts[i]->append(buffer, static_cast<std::size_t>(got));
            } else {
                close(ends[i].fd);
                ends[i].fd = -1;
                --open;
            }
        }
        if (signalNumber != 0 && ran.err.find(words) != std::string::npos) {
            kill(child.pid, signalNumber);
            signalNumber = 0;
        }
    }
}

int wait(pid_t pid) {
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

Ran toItsEnd(const Program& program, const std::vector<std::string>& words, const std::string& input,
             const std::vector<std::string>& environment, const std::filesystem::path& folder) {
    signal(SIGPIPE, SIG_IGN);
    const auto child = startWords(program, words, environment, folder);
    feed(child.in, input);
    Ran ran;
    drain(child, ran);
    ran.status = wait(child.pid);
    return ran;
}

}  // namespace

Child Program::start(const std::vector<std::string>& arguments, const std::vector<std::string>& environment,
                     const std::filesystem::path& folder) const {
    std::vector<std::string> words{VESK_PROGRAM};
    words.insert(words.end(), arguments.begin(), arguments.end());
    return startWords(*this, words, environment, folder);
}

Ran Program::run(const std::vector<std::string>& arguments, const std::string& input) const {
    std::vector<std::string> words{"--vault", vault.path().string()};
    words.insert(words.end(), arguments.begin(), arguments.end());
    return runPlain(words, input);
}

Ran Program::runPlain(const std::vector<std::string>& arguments, const std::string& input,
                      const std::vector<std::string>& environment,
                      const std::filesystem::path& folder) const {
    std::vector<std::string> words{VESK_PROGRAM};
    words.insert(words.end(), arguments.begin(), arguments.end());
    return toItsEnd(*this, words, input, environment, folder);
}

Ran Program::runTraced(const std::string& calls, const std::filesystem::path& trace,
                       const std::vector<std::string>& arguments,
                       const std::vector<std::string>& environment) const {
    std::vector<std::string> words{"/usr/bin/strace", "-f", "-qq",          "-e",
                                   "trace=" + calls,  "-o", trace.string(), VESK_PROGRAM};
    words.insert(words.end(), arguments.begin(), arguments.end());
    return toItsEnd(*this, words, "", environment, "/");
}

void Program::runAndKill(const std::vector<std::string>& arguments, const std::string& input,
                         int microseconds) const {
    signal(SIGPIPE, SIG_IGN);
    std::vector<std::string> words{VESK_PROGRAM, "--vault", vault.path().string()};
    words.insert(words.end(), arguments.begin(), arguments.end());
    const auto child = startWords(*this, words, {}, "/");
    feed(child.in, input);
    usleep(static_cast<useconds_t>(microseconds));
    kill(child.pid, SIGKILL);
    wait(child.pid);
    close(child.out);
    close(child.err);
}

Ran Program::runAndSignal(const std::vector<std::string>& arguments, const std::string& words,
                          int signalNumber) const {
    std::vector<std::string> all{"--vault", vault.path().string()};
    all.insert(all.end(), arguments.begin(), arguments.end());
    const auto child = start(all);
    close(child.in);
    Ran ran;
    drain(child, ran, words, signalNumber);
    ran.status = wait(child.pid);
    return ran;
}

std::filesystem::path Program::indexFile() const {
    for (const auto& entry : std::filesystem::recursive_directory_iterator(home / "data")) {
        if (entry.path().filename() == "index.sqlite") return entry.path();
    }
    throw std::runtime_error("no index");
}

}  // namespace vesk::test
