// SPDX-License-Identifier: Apache-2.0
// A program a test starts and owns: its standard output is read line by line, its standard
// input stays open until the test lets it go, it dies with the test (PR_SET_PDEATHSIG), and
// it is killed and reaped on every exit path.
#ifndef ARA_TEST_CHILD_PROCESS_H
#define ARA_TEST_CHILD_PROCESS_H

#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <string>
#include <vector>

namespace ara_test {

class ChildProcess {
public:
    /// Runs `argv` with the test's environment plus `env` ("NAME=VALUE" each).
    explicit ChildProcess(const std::vector<std::string>& argv, const std::vector<std::string>& env = {}) {
        int out[2] = {-1, -1};
        int in[2] = {-1, -1};
        if (pipe(out) != 0 || pipe(in) != 0) {
            return;
        }
        const pid_t parent = getpid();
        pid_ = fork();
        if (pid_ == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            if (getppid() != parent) {
                _exit(127);
            }
            dup2(out[1], STDOUT_FILENO);
            dup2(in[0], STDIN_FILENO);
            for (const int fd : {out[0], out[1], in[0], in[1]}) {
                close(fd);
            }
            for (const std::string& entry : env) {
                putenv(const_cast<char*>(entry.c_str()));
            }
            std::vector<char*> args;
            for (const std::string& arg : argv) {
                args.push_back(const_cast<char*>(arg.c_str()));
            }
            args.push_back(nullptr);
            execv(args[0], args.data());
            _exit(127);
        }
        close(out[1]);
        close(in[0]);
        out_ = out[0];
        in_ = in[1];
    }
    ~ChildProcess() {
        Kill(SIGKILL);
        for (const int fd : {out_, in_}) {
            if (fd >= 0) {
                close(fd);
            }
        }
    }
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    /// Waits for an output line that starts with `prefix`; false after `timeout`.
    bool WaitForLine(const std::string& prefix, std::chrono::milliseconds timeout = std::chrono::seconds(20)) {
        return WaitFor([&prefix](const std::string& line) { return line.rfind(prefix, 0) == 0; }, timeout);
    }
    /// Waits for an output line that holds `text` anywhere (a log line after its time stamp).
    bool WaitForText(const std::string& text, std::chrono::milliseconds timeout = std::chrono::seconds(20)) {
        return WaitFor([&text](const std::string& line) { return line.find(text) != std::string::npos; }, timeout);
    }
    template <typename Match>
    bool WaitFor(Match match, std::chrono::milliseconds timeout) {
        const auto deadline = std::chrono::steady_clock::now() + timeout;
        while (true) {
            for (std::size_t end = buffer_.find('\n'); end != std::string::npos; end = buffer_.find('\n')) {
                const std::string line = buffer_.substr(0, end);
                buffer_.erase(0, end + 1U);
                lines_.push_back(line);
                if (match(line)) {
                    return true;
                }
            }
            const auto left =
                std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
            pollfd input{out_, POLLIN, 0};
            if (left.count() <= 0 || poll(&input, 1, static_cast<int>(left.count())) <= 0) {
                return false;
            }
            char chunk[512];
            const ssize_t got = read(out_, chunk, sizeof(chunk));
            if (got <= 0) {
                return false;
            }
            buffer_.append(chunk, static_cast<std::size_t>(got));
        }
    }
    /// Every line read so far.
    const std::vector<std::string>& Lines() const { return lines_; }

    void Kill(int signal) {
        if (pid_ > 0 && status_ < 0) {
            ::kill(pid_, signal);
            Wait();
        }
    }
    /// Reaps the child: its exit code, or 128 + the signal that ended it.
    int Wait() {
        if (pid_ > 0 && status_ < 0) {
            int status = 0;
            waitpid(pid_, &status, 0);
            status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        }
        return status_;
    }
    pid_t Pid() const { return pid_; }

private:
    pid_t pid_{-1};
    int out_{-1};
    int in_{-1};
    int status_{-1};
    std::string buffer_;
    std::vector<std::string> lines_;
};

}  // namespace ara_test

#endif
