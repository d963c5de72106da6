// SPDX-License-Identifier: Apache-2.0
// The daemon's one event loop: it owns the supervisor, reaps children on SIGCHLD, turns
// SIGTERM and SIGINT into an orderly shutdown, fires the supervisor's time-outs, hands it the
// notify-protocol datagrams of its processes, logs their output, runs the work that the
// service handlers post from their own threads, and keeps emd's own service manager told.
#ifndef TARN_EM_DAEMON_EVENT_LOOP_H
#define TARN_EM_DAEMON_EVENT_LOOP_H

#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "ara/quill/common/log/log.h"
#include "notify_socket.h"
#include "process_output.h"
#include "service_manager.h"
#include "supervisor.h"

namespace tarn::em::daemon {

class EventLoop {
public:
    /// Blocks SIGCHLD, SIGTERM and SIGINT in the calling thread; call it before any other
    /// thread exists, so that every thread inherits the mask and only the loop receives them.
    static bool BlockSignals();

    /// `notify`, when given, is polled for datagrams; each is traced to the process emd
    /// started that sent it (or that its sender descends from) and handed to the supervisor.
    /// `outputs`, when given, are the processes' log pipes: polled with the rest, read before
    /// the exits of the same round are handled, and drained when the loop ends.
    /// `manager`, when given, is told STOPPING=1 when a shutdown begins and pinged with
    /// WATCHDOG=1 from this loop when due, so that a loop that is stuck stops pinging.
    explicit EventLoop(Supervisor& supervisor,
                       NotifySocket* notify = nullptr,
                       OutputPipes* outputs = nullptr,
                       ServiceManager* manager = nullptr);
    ~EventLoop();
    EventLoop(const EventLoop&) = delete;
    EventLoop& operator=(const EventLoop&) = delete;

    /// False when the loop's descriptors could not be made.
    bool Valid() const noexcept { return signalFd_ >= 0 && wakeFd_ >= 0; }
    /// Runs `work` on the loop's thread with the supervisor; from any thread. Work posted
    /// after the loop ended is dropped (its repliers then log the dropped call).
    void Post(std::function<void(Supervisor&)> work);
    /// Runs until a shutdown asked by signal has stopped every child.
    void Run();

private:
    void Reap();
    void RunPosted();
    void OnNotify(pid_t sender, const NotifyMessage& message);

    Supervisor& supervisor_;
    NotifySocket* notify_;
    OutputPipes* outputs_;
    ServiceManager* manager_;
    std::vector<pollfd> fds_;  ///< the poll set, rebuilt each round
    std::shared_ptr<ara::quill::common::log::Log> log_;
    int signalFd_{-1};
    int wakeFd_{-1};
    std::mutex mutex_;
    std::vector<std::function<void(Supervisor&)>> posted_;
    bool ended_{false};
};

}  // namespace tarn::em::daemon

#endif
