// SPDX-License-Identifier: Apache-2.0
// The process's Cyclone domains: creation on first use, and each domain's worker thread.
#include "dds_domain.h"

#include <cstring>
#include <map>

#include "ara/quill/common/log/log.h"
#include "cyclone_log.h"
#include "domain_config.h"
#include "method_endpoint.h"
#include "service_directory.h"

namespace kelp::driver::dds {
namespace {

struct DomainTable {
    std::mutex mutex;
    std::map<std::int16_t, std::unique_ptr<Domain>> domains;
};

// Never destroyed: endpoints of static objects may still use their domain at process exit.
DomainTable& Table() {
    static DomainTable* const table = new DomainTable;
    return *table;
}

bool SameNetwork(const std::pair<std::string, bool>& a, const std::pair<std::string, bool>& b) {
    return EffectiveNetwork(a) == EffectiveNetwork(b);
}

}  // namespace

Domain* Domain::Acquire(std::int16_t domainId,
                        const std::pair<std::string, bool>& network,
                        std::uint32_t participantLeaseMs,
                        DomainRole role) {
    const auto logger = ara::quill::common::log::Log::GetLog("CM");
    DomainTable& table = Table();
    const std::lock_guard<std::mutex> lock(table.mutex);
    const auto it = table.domains.find(domainId);
    if (it != table.domains.end()) {
        if (!SameNetwork(it->second->network_, network)) {
            logger->warn("DDSDriver_network_differs", {10000U, 1U})
                << "[DDSDriver][Network differs from the domain's, the domain's is used][domain=" << domainId
                << ", network=" << network.first << ", inUse=" << it->second->network_.first << "]";
        }
        Domain& existing = *it->second;
        if (role == DomainRole::kServing && existing.role_ == DomainRole::kClient && !existing.roleWarned_) {
            existing.roleWarned_ = true;
            logger->warn()
                << "[DDSDriver][Serving on a domain this process started as a client: it took no participant "
                   "index, so with hub discovery only serving processes find this service; create servers "
                   "before clients][domain="
                << domainId << "]";
        }
        return &existing;
    }

    PrepareProcessForCyclone();
    const std::string config =
        DomainConfigFromEnvironment(network, participantLeaseMs, role, static_cast<std::uint32_t>(domainId));
    const CycloneLogCapture capture;
    Entity domain(dds_create_domain(static_cast<dds_domainid_t>(domainId), config.c_str()));
    Entity participant;
    if (domain.Valid()) {
        participant = Entity(dds_create_participant(static_cast<dds_domainid_t>(domainId), nullptr, nullptr));
    }
    if (!participant.Valid()) {
        const DdsStatus& status = domain.Valid() ? participant.Status() : domain.Status();
        const std::string diagnosis = SecurityDiagnosis(capture.Reason());
        if (!diagnosis.empty()) {
            logger->error() << "[DDSDriver][DDS Security refused to start this process's participant: " << diagnosis
                            << "][domain=" << domainId << ", " << status.Text() << ", reason=" << capture.Reason()
                            << "]";
        } else {
            logger->error() << "[DDSDriver][Cyclone DDS domain cannot start][domain=" << domainId << ", "
                            << status.Text() << ", reason=" << capture.Reason() << "]";
        }
        return nullptr;
    }
    logger->info() << "[DDSDriver][Domain started][domain=" << domainId
                   << ", role=" << (role == DomainRole::kServing ? "serving" : "client") << ", config=" << config
                   << "]";
    std::unique_ptr<Domain> created(new Domain(domainId, network, role, std::move(domain), std::move(participant)));
    return table.domains.emplace(domainId, std::move(created)).first->second.get();
}

Domain::Domain(
    std::int16_t id, std::pair<std::string, bool> network, DomainRole role, Entity domain, Entity participant)
    : id_(id),
      network_(std::move(network)),
      role_(role),
      domain_(std::move(domain)),
      participant_(std::move(participant)),
      directory_(std::make_unique<ServiceDirectory>(*this)) {
    dds_guid_t guid{};
    (void)dds_get_guid(participant_.Get(), &guid);
    brio::api::types::ClientId prefix{};
    static_assert(sizeof(guid.v) == sizeof(prefix), "a client id is a GUID");
    std::memcpy(prefix.data(), guid.v, prefix.size());
    replyPartition_ = ReplyPartitionName(ReplyBucket(prefix));
}

Domain::~Domain() = default;

void Domain::Post(std::function<void()> task) {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        tasks_.push_back(std::move(task));
        if (!workerStarted_) {
            workerStarted_ = true;
            // Detached: the domain outlives it, and the process ends it.
            std::thread worker([this] { RunWorker(); });
            workerId_.store(worker.get_id());
            worker.detach();
        }
    }
    wake_.notify_one();
}

void Domain::RunWorker() {
    std::unique_lock<std::mutex> lock(mutex_);
    for (;;) {
        wake_.wait(lock, [this] { return !tasks_.empty(); });
        std::function<void()> task = std::move(tasks_.front());
        tasks_.pop_front();
        lock.unlock();
        task();
        task = nullptr;
        lock.lock();
    }
}

}  // namespace kelp::driver::dds
