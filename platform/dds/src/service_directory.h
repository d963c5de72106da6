// SPDX-License-Identifier: Apache-2.0
// Service offers and service discovery of one domain, over the domain's offer topic
// KELP_SERVICE_OFFER, keyed by (service id, instance id): reliable, transient-local, with
// AUTOMATIC writer liveliness, and writer_data_lifecycle(autodispose=false) so that a
// withdrawn offer (disposed) and a crashed server's offer (no writers) are told apart.
#ifndef KELP_DRIVER_DDS_SERVICE_DIRECTORY_H
#define KELP_DRIVER_DDS_SERVICE_DIRECTORY_H

#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "dds_entity.h"
#include "kelp/brio/driver/driver.h"

namespace kelp::driver::dds {

class Domain;

class ServiceDirectory : public ListenerTarget {
public:
    using FindHandler = brio::driver::Driver::FindHandler;

    explicit ServiceDirectory(Domain& domain) : domain_(domain) {}
    ServiceDirectory(const ServiceDirectory&) = delete;
    ServiceDirectory& operator=(const ServiceDirectory&) = delete;

    /// Announces (service, instance) until StopOffer; `livelinessLeaseMs` (0: none) applies to
    /// the domain's offer writer, made by the first offer.
    bool Offer(std::uint16_t serviceId, const std::string& instanceId, std::uint32_t livelinessLeaseMs);
    /// Disposes an own offer; unknown offers are ignored.
    void StopOffer(std::uint16_t serviceId, const std::string& instanceId);

    /// Reports (service, instance) to `handler` on the domain worker each time its
    /// availability changes, starting from "not available". False when the offer reader
    /// cannot be made.
    bool StartFind(std::uint32_t id, std::uint16_t serviceId, const std::string& instanceId, FindHandler handler);
    /// Once this returns, the handler is not running (unless this is called from inside it)
    /// and will not run. Unknown ids are ignored.
    void StopFind(std::uint32_t id);

    /// The method handlers of this process count towards their service's availability: a
    /// service becomes available when its offer is alive and all of them are matched both
    /// ways, and stays available until the offer dies or a matched method loses its server.
    /// A method bound later that has not matched yet does not take a found service away (its
    /// first request waits for the match), so binding never fails the calls of other methods.
    void AddMethod(std::uint16_t serviceId, const void* method);
    void SetMethodMatched(std::uint16_t serviceId, const void* method, bool matched);
    void RemoveMethod(std::uint16_t serviceId, const void* method);

private:
    using Key = std::pair<std::uint16_t, std::string>;
    struct Find {
        Key key;
        FindHandler handler;
        bool reported{false};
    };

    static void OnOfferData(dds_entity_t reader, void* arg);
    bool EnsureTopic();
    void TakeOffers(dds_entity_t reader);
    enum class MethodState { kPending, kMatched, kLost };
    bool AvailableLocked(const Key& key, bool reported) const;
    /// Runs on the worker: reports every discovery whose availability changed.
    void Evaluate();
    void ScheduleEvaluate();

    Domain& domain_;
    std::mutex entityMutex_;  // creation of the entities below; never taken inside a listener
    Entity topic_;
    Entity writer_;
    Entity reader_;

    std::mutex mutex_;
    std::condition_variable idle_;
    std::set<Key> offered_;
    std::map<Key, bool> offers_;  // alive or not, as the offer reader sees them
    std::map<std::uint16_t, std::map<const void*, MethodState>> methods_;
    std::map<std::uint32_t, Find> finds_;
    std::optional<std::uint32_t> running_;  // the discovery whose handler runs now
};

}  // namespace kelp::driver::dds

#endif
