// Runs a helper program of the log tests as a child process with a chosen environment and
// collects its exit status, output and wall time.
#ifndef ARA_TEST_LOG_SUPPORT_CHILD_PROCESS_H
#define ARA_TEST_LOG_SUPPORT_CHILD_PROCESS_H

#include <chrono>
#include <map>
#include <string>
#include <vector>

namespace ara_test {

struct ChildResult {
    bool started{false};
    bool timedOut{false};
    int exitCode{-1};   ///< -1 unless the child exited normally
    int termSignal{0};  ///< signal that ended the child, 0 if none
    std::string out;
    std::string err;
    std::chrono::milliseconds wallTime{0};
};

/// Runs `argv` (argv[0] is the program path) with the parent's environment minus every
/// ARA_LOG_* variable, plus `env`. A child still running after `timeout` is killed.
ChildResult RunChild(const std::vector<std::string>& argv, const std::map<std::string, std::string>& env,
                     std::chrono::seconds timeout = std::chrono::seconds(60));

/// Path of an executable found on PATH, empty if there is none.
std::string FindOnPath(const std::string& name);

}  // namespace ara_test

#endif
