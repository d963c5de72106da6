// SPDX-License-Identifier: Apache-2.0
// Offers, discoveries and the availability of services in one domain.
#include "service_directory.h"

#include <unistd.h>

#include <cstring>

#include "ara/quill/common/log/log.h"
#include "cyclone_log.h"
#include "dds_domain.h"
#include "wire_types.h"

namespace kelp::driver::dds {
namespace {

const char* const OFFER_TOPIC = "KELP_SERVICE_OFFER";

std::string Origin() {
    char host[256] = {};
    (void)gethostname(host, sizeof(host) - 1U);
    return std::string(host) + "/" + std::to_string(getpid());
}

// Reliable, transient-local, one sample per instance; `leaseMs` adds AUTOMATIC writer
// liveliness, and an offer outlives no writer (no autodispose).
void SetOfferQos(const Qos& qos, std::uint32_t leaseMs, bool writer) {
    dds_qset_reliability(qos.Get(), DDS_RELIABILITY_RELIABLE, DDS_SECS(1));
    dds_qset_durability(qos.Get(), DDS_DURABILITY_TRANSIENT_LOCAL);
    dds_qset_history(qos.Get(), DDS_HISTORY_KEEP_LAST, 1);
    if (writer) {
        dds_qset_writer_data_lifecycle(qos.Get(), false);
        if (leaseMs != 0U) {
            dds_qset_liveliness(qos.Get(), DDS_LIVELINESS_AUTOMATIC, DDS_MSECS(leaseMs));
        }
    }
}

}  // namespace

bool ServiceDirectory::EnsureTopic() {
    if (!topic_.Valid()) {
        topic_ =
            Entity(dds_create_topic(domain_.Participant(), &kelp_dds_ServiceOffer_desc, OFFER_TOPIC, nullptr, nullptr));
        if (!topic_.Valid() &&
            !LogIfSecurityRefused("DDSServiceDiscovery", "topic", OFFER_TOPIC, domain_.Id(), topic_.Status().Code())) {
            ara::quill::common::log::Log::GetLog("CM")->error()
                << "[DDSServiceDiscovery][Offer topic cannot be created][domain=" << domain_.Id() << ", "
                << topic_.Status().Text() << "]";
        }
    }
    return topic_.Valid();
}

bool ServiceDirectory::Offer(std::uint16_t serviceId, const std::string& instanceId, std::uint32_t livelinessLeaseMs) {
    const auto logger = ara::quill::common::log::Log::GetLog("CM");
    dds_entity_t writer = 0;
    {
        const std::lock_guard<std::mutex> lock(entityMutex_);
        if (!writer_.Valid() && EnsureTopic()) {
            const Qos qos;
            SetOfferQos(qos, livelinessLeaseMs, true);
            writer_ = Entity(dds_create_writer(domain_.Participant(), topic_.Get(), qos.Get(), nullptr));
            if (!writer_.Valid() &&
                !LogIfSecurityRefused(
                    "DDSServiceDiscovery", "writer", OFFER_TOPIC, domain_.Id(), writer_.Status().Code())) {
                logger->error() << "[DDSServiceDiscovery][Offer writer cannot be created][domain=" << domain_.Id()
                                << ", " << writer_.Status().Text() << "]";
            }
        }
        writer = writer_.Get();
    }
    if (writer <= 0) {
        return false;
    }
    std::string instance = instanceId;
    std::string origin = Origin();
    const kelp_dds_ServiceOffer sample{serviceId, instance.data(), origin.data()};
    const DdsStatus status(dds_write(writer, &sample));
    if (!status.Ok()) {
        logger->error() << "[DDSServiceDiscovery][Offer cannot be written][service=" << serviceId
                        << ", instance=" << instanceId << ", " << status.Text() << "]";
        return false;
    }
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        offered_.emplace(serviceId, instanceId);
    }
    logger->info() << "[DDSServiceDiscovery][Offer written][service=" << serviceId << ", instance=" << instanceId
                   << "]";
    return true;
}

void ServiceDirectory::StopOffer(std::uint16_t serviceId, const std::string& instanceId) {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (offered_.erase(Key{serviceId, instanceId}) == 0U) {
            return;
        }
    }
    dds_entity_t writer = 0;
    {
        const std::lock_guard<std::mutex> lock(entityMutex_);
        writer = writer_.Get();
    }
    std::string instance = instanceId;
    std::string origin = Origin();
    const kelp_dds_ServiceOffer sample{serviceId, instance.data(), origin.data()};
    // Disposed first, so readers see a withdrawal; unregistered then, so the writer keeps nothing of it.
    const DdsStatus status(dds_dispose(writer, &sample));
    (void)dds_unregister_instance(writer, &sample);
    ara::quill::common::log::Log::GetLog("CM")->info()
        << "[DDSServiceDiscovery][Offer disposed][service=" << serviceId << ", instance=" << instanceId
        << (status.Ok() ? "" : ", " + status.Text()) << "]";
}

bool ServiceDirectory::StartFind(std::uint32_t id,
                                 std::uint16_t serviceId,
                                 const std::string& instanceId,
                                 FindHandler handler) {
    {
        const std::lock_guard<std::mutex> lock(entityMutex_);
        if (!reader_.Valid() && EnsureTopic()) {
            const Qos qos;
            SetOfferQos(qos, 0U, false);
            const Listener listener(this);
            dds_lset_data_available(listener.Get(), &ServiceDirectory::OnOfferData);
            reader_ = Entity(dds_create_reader(domain_.Participant(), topic_.Get(), qos.Get(), listener.Get()));
            if (!reader_.Valid() &&
                !LogIfSecurityRefused(
                    "DDSServiceDiscovery", "reader", OFFER_TOPIC, domain_.Id(), reader_.Status().Code())) {
                ara::quill::common::log::Log::GetLog("CM")->error()
                    << "[DDSServiceDiscovery][Offer reader cannot be created][domain=" << domain_.Id() << ", "
                    << reader_.Status().Text() << "]";
            }
        }
        if (!reader_.Valid()) {
            return false;
        }
    }
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        finds_[id] = Find{Key{serviceId, instanceId}, std::move(handler), false};
    }
    ScheduleEvaluate();
    return true;
}

void ServiceDirectory::StopFind(std::uint32_t id) {
    std::unique_lock<std::mutex> lock(mutex_);
    const auto it = finds_.find(id);
    if (it == finds_.end()) {
        return;
    }
    FindHandler handler = std::move(it->second.handler);
    finds_.erase(it);
    if (!domain_.OnWorker()) {
        idle_.wait(lock, [this, id] { return running_ != id; });
    }
    lock.unlock();
}

void ServiceDirectory::AddMethod(std::uint16_t serviceId, const void* method) {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        methods_[serviceId][method] = MethodState::kPending;
    }
    ScheduleEvaluate();
}

void ServiceDirectory::SetMethodMatched(std::uint16_t serviceId, const void* method, bool matched) {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        const auto service = methods_.find(serviceId);
        if (service == methods_.end() || service->second.count(method) == 0U) {
            return;
        }
        MethodState& state = service->second[method];
        state = matched ? MethodState::kMatched : (state == MethodState::kPending ? state : MethodState::kLost);
    }
    ScheduleEvaluate();
}

void ServiceDirectory::RemoveMethod(std::uint16_t serviceId, const void* method) {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        const auto service = methods_.find(serviceId);
        if (service == methods_.end()) {
            return;
        }
        service->second.erase(method);
        if (service->second.empty()) {
            methods_.erase(service);
        }
    }
    ScheduleEvaluate();
}

void ServiceDirectory::OnOfferData(dds_entity_t reader, void* arg) {
    ListenerTarget::From<ServiceDirectory>(arg)->TakeOffers(reader);
}

void ServiceDirectory::TakeOffers(dds_entity_t reader) {
    const auto logger = ara::quill::common::log::Log::GetLog("CM");
    bool changed = false;
    for (;;) {
        kelp_dds_ServiceOffer sample{};
        void* samples[1] = {&sample};
        dds_sample_info_t info{};
        if (dds_take(reader, samples, &info, 1U, 1U) <= 0) {
            break;
        }
        // Cyclone fills the key fields of invalid samples too.
        const Key key{sample.serviceId, sample.instanceId != nullptr ? sample.instanceId : ""};
        const std::string origin = (info.valid_data && sample.origin != nullptr) ? sample.origin : "";
        dds_sample_free(&sample, &kelp_dds_ServiceOffer_desc, DDS_FREE_CONTENTS);
        const bool alive = info.instance_state == DDS_IST_ALIVE;
        bool wasAlive = false;
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            bool& entry = offers_[key];
            wasAlive = entry;
            entry = alive;
        }
        if (alive == wasAlive) {
            continue;
        }
        changed = true;
        if (alive) {
            logger->info() << "[DDSServiceDiscovery][Service offered][service=" << key.first
                           << ", instance=" << key.second << ", origin=" << origin << "]";
        } else if (info.instance_state == DDS_IST_NOT_ALIVE_DISPOSED) {
            logger->info() << "[DDSServiceDiscovery][Service withdrawn][service=" << key.first
                           << ", instance=" << key.second << "]";
        } else {
            logger->warn() << "[DDSServiceDiscovery][Service lost][service=" << key.first << ", instance=" << key.second
                           << "]";
        }
    }
    if (changed) {
        ScheduleEvaluate();
    }
}

bool ServiceDirectory::AvailableLocked(const Key& key, bool reported) const {
    const auto offer = offers_.find(key);
    if (offer == offers_.end() || !offer->second) {
        return false;
    }
    const auto service = methods_.find(key.first);
    if (service == methods_.end()) {
        return true;
    }
    for (const auto& method : service->second) {
        if (method.second == MethodState::kLost || (method.second == MethodState::kPending && !reported)) {
            return false;
        }
    }
    return true;
}

void ServiceDirectory::ScheduleEvaluate() {
    domain_.Post([this] { Evaluate(); });
}

void ServiceDirectory::Evaluate() {
    struct Report {
        std::uint32_t id;
        FindHandler handler;
        std::vector<brio::api::types::HandleType> handles;
    };
    std::vector<Report> reports;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        for (auto& [id, find] : finds_) {
            const bool available = AvailableLocked(find.key, find.reported);
            if (available != find.reported) {
                find.reported = available;
                Report report{id, find.handler, {}};
                if (available) {
                    report.handles.push_back(brio::api::types::HandleType{find.key.first, find.key.second, true});
                }
                reports.push_back(std::move(report));
            }
        }
    }
    for (Report& report : reports) {
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            if (finds_.count(report.id) == 0U) {
                continue;
            }
            running_ = report.id;
        }
        try {
            report.handler(std::move(report.handles));
        } catch (...) {
            ara::quill::common::log::Log::GetLog("CM")->error()
                << "[DDSServiceDiscovery][Find handler threw, exception ignored][id=" << report.id << "]";
        }
        report.handler = nullptr;
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            running_.reset();
        }
        idle_.notify_all();
    }
}

}  // namespace kelp::driver::dds
