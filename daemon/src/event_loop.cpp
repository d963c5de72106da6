// SPDX-License-Identifier: Apache-2.0
// signalfd for the signals, an eventfd for posted work, poll with the next time-out (the
// supervisor's, or the service manager's watchdog ping).
#include "event_loop.h"

#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <optional>

namespace tarn::em::daemon {

namespace {

/// How long launches may hold the loop before it looks at its events again.
constexpr std::chrono::milliseconds LAUNCH_SLICE{10};
/// Datagrams from strangers are logged at most this often.
const ara::quill::common::log::LimitConfig FOREIGN_LIMIT{5000U, 5U};

sigset_t LoopSignals() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGCHLD);
    sigaddset(&set, SIGTERM);
    sigaddset(&set, SIGINT);
    return set;
}

}  // namespace

bool EventLoop::BlockSignals() {
    const sigset_t set = LoopSignals();
    return pthread_sigmask(SIG_BLOCK, &set, nullptr) == 0;
}

EventLoop::EventLoop(Supervisor& supervisor, NotifySocket* notify, OutputPipes* outputs, ServiceManager* manager)
    : supervisor_(supervisor),
      notify_(notify),
      outputs_(outputs),
      manager_(manager),
      log_(ara::quill::common::log::Log::GetLog("EMD")) {
    const sigset_t set = LoopSignals();
    signalFd_ = signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
    wakeFd_ = eventfd(0U, EFD_CLOEXEC | EFD_NONBLOCK);
}

EventLoop::~EventLoop() {
    for (const int fd : {signalFd_, wakeFd_}) {
        if (fd >= 0) {
            close(fd);
        }
    }
}

void EventLoop::Post(std::function<void(Supervisor&)> work) {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (ended_) {
            return;
        }
        posted_.push_back(std::move(work));
    }
    const std::uint64_t one = 1U;
    (void)!write(wakeFd_, &one, sizeof(one));
}

void EventLoop::Run() {
    bool stopping = false;
    bool launching = true;  // Start() may have queued launches
    Clock::time_point firstSignal{};
    while (!(stopping && supervisor_.Finished())) {
        // The next of the supervisor's time-outs and the service manager's watchdog ping.
        std::optional<Clock::time_point> next = supervisor_.NextDeadline();
        if (const auto ping = manager_ != nullptr ? manager_->NextPing() : std::nullopt) {
            next = next ? std::min(*next, *ping) : *ping;
        }
        int timeout = -1;
        if (launching) {
            timeout = 0;  // queued launches go on once the events that came meanwhile are handled
        } else if (next) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(*next - Clock::now()).count();
            timeout = static_cast<int>(std::max<long long>(0, std::min<long long>(left + 1, 60000)));
        }
        // A negative descriptor (no notify socket) is skipped by poll. The output pipes follow.
        fds_.assign({{signalFd_, POLLIN, 0},
                     {wakeFd_, POLLIN, 0},
                     {notify_ != nullptr ? notify_->Descriptor() : -1, POLLIN, 0}});
        if (outputs_ != nullptr) {
            outputs_->AppendPollEntries(fds_);
        }
        const int ready = poll(fds_.data(), fds_.size(), timeout);
        if (ready < 0 && errno != EINTR) {
            break;
        }
        pollfd* const fds = fds_.data();
        if (outputs_ != nullptr && ready > 0) {  // first, so that a process's last lines come before its exit
            outputs_->OnReady(fds + 3, fds_.size() - 3U);
        }
        if ((fds[0].revents & POLLIN) != 0) {
            signalfd_siginfo info{};
            while (read(signalFd_, &info, sizeof(info)) == static_cast<ssize_t>(sizeof(info))) {
                // A repeat within a second is the same request sent to the process and to
                // its group (as `timeout` and some shells do); a later one kills at once.
                const auto now = Clock::now();
                if ((info.ssi_signo == SIGTERM || info.ssi_signo == SIGINT) &&
                    (!stopping || now - firstSignal >= std::chrono::seconds(1))) {
                    if (!stopping && manager_ != nullptr) {
                        manager_->Stopping("stopping its processes");
                    }
                    firstSignal = stopping ? firstSignal : now;
                    stopping = true;
                    supervisor_.Shutdown(now);
                }
            }
            Reap();  // SIGCHLD is coalesced: reap whatever has ended
        }
        if ((fds[1].revents & POLLIN) != 0) {
            std::uint64_t count = 0U;
            (void)!read(wakeFd_, &count, sizeof(count));
            RunPosted();
        }
        if ((fds[2].revents & POLLIN) != 0) {
            notify_->Receive([this](pid_t sender, const NotifyMessage& message) { OnNotify(sender, message); });
        }
        supervisor_.OnTimer(Clock::now());
        if (manager_ != nullptr) {
            manager_->OnTimer(Clock::now());
        }
        launching = supervisor_.LaunchQueued(Clock::now() + LAUNCH_SLICE);
    }
    if (outputs_ != nullptr) {
        outputs_->Drain();
    }
    const std::lock_guard<std::mutex> lock(mutex_);
    ended_ = true;
}

void EventLoop::Reap() {
    int status = 0;
    pid_t pid = 0;
    while ((pid = waitpid(-1, &status, WNOHANG)) > 0) {
        supervisor_.OnExit(pid, status, Clock::now());
    }
}

void EventLoop::OnNotify(pid_t sender, const NotifyMessage& message) {
    const auto process = TraceToSupervised(sender, [this](pid_t pid) { return supervisor_.Supervises(pid); });
    if (!process) {
        log_->warn("notify-foreign", FOREIGN_LIMIT)
            << "[Notify][Datagram from a process emd did not start, ignored][pid=" << sender << "]";
        return;
    }
    supervisor_.Notify(*process, message, Clock::now());
}

void EventLoop::RunPosted() {
    std::vector<std::function<void(Supervisor&)>> work;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        work.swap(posted_);
    }
    for (auto& item : work) {
        item(supervisor_);
    }
}

}  // namespace tarn::em::daemon
