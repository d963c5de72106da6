// fork/exec of test helper programs with output captured in temporary files.
#include "child_process.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <thread>

extern char** environ;

namespace ara_test {
namespace {

std::string ReadAndRemove(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    ::unlink(path.c_str());
    return text.str();
}

int MakeTempFile(std::string& path) {
    const char* dir = std::getenv("TMPDIR");
    std::string pattern = std::string(dir != nullptr ? dir : "/tmp") + "/ara_log_child_XXXXXX";
    std::vector<char> name(pattern.begin(), pattern.end());
    name.push_back('\0');
    const int fd = ::mkstemp(name.data());
    path = name.data();
    return fd;
}

}  // namespace

ChildResult RunChild(const std::vector<std::string>& argv, const std::map<std::string, std::string>& env,
                     std::chrono::seconds timeout) {
    ChildResult result;
    std::vector<std::string> envStrings;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        if (std::strncmp(*entry, "ARA_LOG_", 8U) != 0) {
            envStrings.emplace_back(*entry);
        }
    }
    for (const auto& [name, value] : env) {
        envStrings.push_back(name + "=" + value);
    }
    std::vector<char*> envp;
    for (auto& entry : envStrings) {
        envp.push_back(entry.data());
    }
    envp.push_back(nullptr);
    std::vector<std::string> args = argv;
    std::vector<char*> argp;
    for (auto& arg : args) {
        argp.push_back(arg.data());
    }
    argp.push_back(nullptr);

    std::string outPath;
    std::string errPath;
    const int outFd = MakeTempFile(outPath);
    const int errFd = MakeTempFile(errPath);
    if (outFd < 0 || errFd < 0 || argp.size() < 2U) {
        return result;
    }

    const auto start = std::chrono::steady_clock::now();
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::dup2(outFd, STDOUT_FILENO);
        ::dup2(errFd, STDERR_FILENO);
        ::execve(argp[0], argp.data(), envp.data());
        ::_exit(127);
    }
    ::close(outFd);
    ::close(errFd);
    if (pid > 0) {
        result.started = true;
        int status = 0;
        while (true) {
            const pid_t done = ::waitpid(pid, &status, WNOHANG);
            if (done == pid) {
                break;
            }
            if (std::chrono::steady_clock::now() - start > timeout) {
                result.timedOut = true;
                ::kill(pid, SIGKILL);
                ::waitpid(pid, &status, 0);
                break;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        result.wallTime =
            std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
        if (WIFEXITED(status)) {
            result.exitCode = WEXITSTATUS(status);
        } else if (WIFSIGNALED(status)) {
            result.termSignal = WTERMSIG(status);
        }
    }
    result.out = ReadAndRemove(outPath);
    result.err = ReadAndRemove(errPath);
    return result;
}

std::string FindOnPath(const std::string& name) {
    const char* path = std::getenv("PATH");
    std::istringstream dirs(path != nullptr ? path : "");
    std::string dir;
    while (std::getline(dirs, dir, ':')) {
        const std::string candidate = (dir.empty() ? std::string(".") : dir) + "/" + name;
        if (::access(candidate.c_str(), X_OK) == 0) {
            return candidate;
        }
    }
    return {};
}

}  // namespace ara_test
