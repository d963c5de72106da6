// SPDX-License-Identifier: Apache-2.0
// One Cyclone domain and participant per DDS domain id per process, shared by every method,
// offer and discovery of that id, with the worker thread that runs the domain's deferred work.
#ifndef KELP_DRIVER_DDS_DDS_DOMAIN_H
#define KELP_DRIVER_DDS_DDS_DOMAIN_H

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

#include "dds_entity.h"
#include "domain_config.h"
#include "reply_pump.h"

namespace kelp::driver::dds {

class ServiceDirectory;

class Domain {
public:
    /// The domain `domainId` of this process, created on first use with the configuration
    /// built from `network`, `participantLeaseMs` and `role` (domain_config.h); later callers
    /// share it as it was made (a serving endpoint on a domain made by a client is logged
    /// once: in hub discovery, other clients of the host cannot find it). Null, with a log
    /// line naming Cyclone's reason, when Cyclone refuses; the next call tries again. Domains
    /// live until the process ends.
    static Domain* Acquire(std::int16_t domainId,
                           const std::pair<std::string, bool>& network,
                           std::uint32_t participantLeaseMs,
                           DomainRole role);

    Domain(const Domain&) = delete;
    Domain& operator=(const Domain&) = delete;
    ~Domain();

    std::int16_t Id() const noexcept { return id_; }
    dds_entity_t Participant() const noexcept { return participant_.Get(); }
    ServiceDirectory& Directory() noexcept { return *directory_; }
    ReplyPump& Replies() noexcept { return replies_; }
    /// The partition of this process's reply readers: the bucket of its participant's GUID.
    const std::string& ReplyPartition() const noexcept { return replyPartition_; }

    /// Runs `task` on this domain's worker thread, in posting order. The worker runs the
    /// discovery handlers and method state changes, and deletes the entities of an endpoint
    /// that was destroyed inside its own listener (dds_delete would wait for itself there).
    void Post(std::function<void()> task);
    bool OnWorker() const noexcept { return std::this_thread::get_id() == workerId_.load(); }

private:
    Domain(std::int16_t id, std::pair<std::string, bool> network, DomainRole role, Entity domain, Entity participant);
    void RunWorker();

    const std::int16_t id_;
    const std::pair<std::string, bool> network_;
    const DomainRole role_;
    bool roleWarned_{false};  // under the domain table's lock
    Entity domain_;
    Entity participant_;
    std::string replyPartition_;
    std::unique_ptr<ServiceDirectory> directory_;
    ReplyPump replies_;

    std::mutex mutex_;
    std::condition_variable wake_;
    std::deque<std::function<void()>> tasks_;
    bool workerStarted_{false};
    std::atomic<std::thread::id> workerId_{};
};

}  // namespace kelp::driver::dds

#endif
