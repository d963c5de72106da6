// SPDX-License-Identifier: Apache-2.0
// Child program of the log process tests: emits one record per level and exits, while a logger
// held in a static logs again during static destruction.
// usage: log_emitter <appId|-> <ctxId> <text> [busy]
//   "-" leaves the app id empty; "busy" keeps a second thread logging while the process exits.
#include <atomic>
#include <memory>
#include <string>
#include <thread>

#include "ara/quill/common/log/log.h"

namespace {

using ara::quill::common::log::Log;

// Taken before main, like the library-wide loggers of other libraries, so it is destroyed
// after the log library has closed its DLT registration.
struct TeardownLogger {
    std::shared_ptr<Log> log{Log::GetLog("TEAR")};
    ~TeardownLogger() { log->error() << "record from a static destructor"; }
} teardownLogger;

std::atomic<bool> busyStarted{false};

}  // namespace

int main(int argc, char** argv) {
    if (argc < 4) {
        return 2;
    }
    const std::string ctxId = argv[2];
    const std::string text = argv[3];
    Log::InitLog(argv[1] == std::string("-") ? "" : argv[1], ctxId, "context " + ctxId + " of the log emitter");
    const auto log = Log::GetLog(ctxId);
    log->fatal() << text << " at fatal";
    log->error() << text << " at error";
    log->warn() << text << " at warn";
    log->info() << text << " at info";
    log->debug() << text << " at debug";
    log->verbose() << text << " at verbose";
    if (argc > 4 && std::string(argv[4]) == "busy") {
        std::thread([log] {
            for (unsigned i = 0U;; ++i) {
                log->error() << "busy record " << i;
                busyStarted.store(true);
            }
        }).detach();
        while (!busyStarted.load()) {
            std::this_thread::yield();
        }
    }
    return 0;
}
