// SPDX-License-Identifier: Apache-2.0
// DDSDriver::Init, and the DDS transport it registers with the middleware.
#include "kelp/driver/dds/dds_driver.h"

#include <atomic>
#include <map>
#include <mutex>

#include "ara/quill/common/log/log.h"
#include "cyclone_log.h"
#include "dds_domain.h"
#include "dds_method_handler.h"
#include "dds_method_server_handler.h"
#include "domain_config.h"
#include "kelp/brio/driver/driver.h"
#include "kelp/driver/dds/dds_types.h"
#include "service_directory.h"

namespace kelp::driver::dds {
namespace types = brio::api::types;

namespace {

// Init starts a domain of this id with the process's configuration and deletes it again: no
// participant, so nothing is sent, and no participant index, so no well-known port is taken.
// The system's own ids are 2 and 4; a low id keeps every port of it in range whatever port
// base the configuration sets.
constexpr dds_domainid_t PROBE_DOMAIN_ID = 0U;
const char* const PROBE_FRAGMENT = "<Discovery><ParticipantIndex>none</ParticipantIndex></Discovery>";

class DdsTransport final : public brio::driver::Driver {
public:
    DdsTransport() : logger_(ara::quill::common::log::Log::GetLog("CM")) {}

    std::shared_ptr<brio::driver::MethodHandler> CreateMethodHandler(
        const std::shared_ptr<types::MethodInfo>& info) override {
        const auto dds = MethodInfo(info, "CreateMethodHandler");
        Domain* domain = dds ? DomainOf(*dds, DomainRole::kClient) : nullptr;
        return domain != nullptr ? DDSMethodHandler::Create(*domain, *dds) : nullptr;
    }

    std::shared_ptr<brio::driver::MethodServerHandler> CreateMethodServerHandler(
        const std::shared_ptr<types::MethodInfo>& info) override {
        const auto dds = MethodInfo(info, "CreateMethodServerHandler");
        Domain* domain = dds ? DomainOf(*dds, DomainRole::kServing) : nullptr;
        return domain != nullptr ? DDSMethodServerHandler::Create(*domain, *dds) : nullptr;
    }

    bool OfferService(const types::ServiceDiscoveryInfo& info) override {
        const auto* dds = DiscoveryInfo(info, "OfferService");
        Domain* domain = dds != nullptr ? DomainOf(*dds, DomainRole::kServing) : nullptr;
        return domain != nullptr &&
               domain->Directory().Offer(
                   dds->GetServiceId(), dds->GetInstanceId(), dds->GetParticipantQos().GetLivelinessLeaseMs());
    }

    void StopOfferService(const types::ServiceDiscoveryInfo& info) override {
        const auto* dds = DiscoveryInfo(info, "StopOfferService");
        if (Domain* domain = dds != nullptr ? DomainOf(*dds, DomainRole::kServing) : nullptr) {
            domain->Directory().StopOffer(dds->GetServiceId(), dds->GetInstanceId());
        }
    }

    std::optional<std::uint32_t> StartFindService(const types::ServiceDiscoveryInfo& info,
                                                  FindHandler handler) override {
        const auto* dds = DiscoveryInfo(info, "StartFindService");
        Domain* domain = dds != nullptr ? DomainOf(*dds, DomainRole::kClient) : nullptr;
        if (domain == nullptr) {
            return std::nullopt;
        }
        const std::uint32_t id = nextFindId_.fetch_add(1U);
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            finds_[id] = domain;
        }
        if (!domain->Directory().StartFind(id, dds->GetServiceId(), dds->GetInstanceId(), std::move(handler))) {
            const std::lock_guard<std::mutex> lock(mutex_);
            finds_.erase(id);
            return std::nullopt;
        }
        return id;
    }

    void StopFindService(std::uint32_t id) override {
        Domain* domain = nullptr;
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            const auto it = finds_.find(id);
            if (it == finds_.end()) {
                return;
            }
            domain = it->second;
            finds_.erase(it);
        }
        domain->Directory().StopFind(id);
    }

private:
    std::shared_ptr<DDSMethodInfo> MethodInfo(const std::shared_ptr<types::MethodInfo>& info, const char* call) const {
        auto dds = std::dynamic_pointer_cast<DDSMethodInfo>(info);
        if (!dds || dds->GetRequestTopicName().empty() || dds->GetReplyTopicName().empty()) {
            logger_->error() << "[DDSDriver][Not a DDS method descriptor with topic names][call=" << call
                             << ", method=" << (info ? info->GetMethodUUIDInfo() : std::string("null")) << "]";
            return nullptr;
        }
        return dds;
    }

    const DDSServiceDiscoveryInfo* DiscoveryInfo(const types::ServiceDiscoveryInfo& info, const char* call) const {
        const auto* dds = dynamic_cast<const DDSServiceDiscoveryInfo*>(&info);
        if (dds == nullptr) {
            logger_->error() << "[DDSDriver][Not a DDS discovery descriptor][call=" << call
                             << ", service=" << info.GetServiceId() << ", instance=" << info.GetInstanceId() << "]";
        }
        return dds;
    }

    /// The domain of `info`, made for `role` if this is its first use in the process.
    template <typename Info>
    static Domain* DomainOf(const Info& info, DomainRole role) {
        return Domain::Acquire(
            info.GetDomainId(), info.GetNetwork(), info.GetParticipantQos().GetParticipantLeaseMs(), role);
    }

    const std::shared_ptr<ara::quill::common::log::Log> logger_;
    std::atomic<std::uint32_t> nextFindId_{1U};
    std::mutex mutex_;
    std::map<std::uint32_t, Domain*> finds_;
};

}  // namespace

bool DDSDriver::Init() {
    static std::mutex mutex;
    static bool started = false;
    const std::lock_guard<std::mutex> lock(mutex);
    if (started) {
        return true;
    }
    PrepareProcessForCyclone();
    const std::string config = DomainConfigFromEnvironment(DefaultNetwork(),
                                                           qos::DefaultRpcParticipantQos().GetParticipantLeaseMs(),
                                                           DomainRole::kClient,
                                                           PROBE_DOMAIN_ID) +
                               "," + PROBE_FRAGMENT;
    {
        const CycloneLogCapture capture;
        Entity probe(dds_create_domain(PROBE_DOMAIN_ID, config.c_str()));
        if (!probe.Valid()) {
            ara::quill::common::log::Log::GetLog("CM")->error()
                << "[DDSDriver][Cyclone DDS cannot start][" << probe.Status().Text() << ", reason=" << capture.Reason()
                << "]";
            return false;
        }
    }
    brio::driver::RegisterDriver(types::DriverType::DDS, std::make_shared<DdsTransport>());
    started = true;
    return true;
}

}  // namespace kelp::driver::dds
