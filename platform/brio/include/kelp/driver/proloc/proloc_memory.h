// SPDX-License-Identifier: Apache-2.0
// Process-wide tables through which a client and a server in the same process hand over
// request arguments and reply results without serializing them. The payload pointer of a
// process-local message is the address of the parked object.
#ifndef KELP_DRIVER_PROLOC_PROLOC_MEMORY_H
#define KELP_DRIVER_PROLOC_PROLOC_MEMORY_H

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <tuple>

#include "ara/core/error_code.h"
#include "ara/core/result.h"
#include "ara/quill/common/log/log.h"
#include "kelp/driver/proloc/proloc_entity_index.h"

namespace kelp::driver::proloc {

namespace detail {

/// Table of parked objects per method, keyed by the object's address. `side` names the side
/// in log texts ("request" or "reply").
template <typename Parked>
class ProlocMemory {
public:
    using Address = const unsigned char*;

    explicit ProlocMemory(const char* side) : side_(side), logger_(ara::quill::common::log::Log::GetLog("CM")) {}
    virtual ~ProlocMemory() = default;
    ProlocMemory(const ProlocMemory&) = delete;
    ProlocMemory& operator=(const ProlocMemory&) = delete;

    /// Parks `object` for `index`; its address is the payload pointer to hand over.
    Address Store(const ProlocEntityIndex& index, std::shared_ptr<Parked> object) {
        const auto address = reinterpret_cast<Address>(object.get());
        const std::lock_guard<std::mutex> lock(mutex_);
        table_[index][address] = std::move(object);
        return address;
    }

    /// The parked object at `address`, or null (with a warning) when there is none.
    std::shared_ptr<Parked> Get(Address address, const ProlocEntityIndex& index) const {
        const std::lock_guard<std::mutex> lock(mutex_);
        const auto methods = table_.find(index);
        if (methods == table_.end()) {
            logger_->warn() << "Proloc get " << side_ << " value cannot find index [" << GetProlocInfo(index) << "]";
            return nullptr;
        }
        const auto parked = methods->second.find(address);
        if (parked == methods->second.end()) {
            logger_->warn() << "Proloc get unknow " << side_ << " value [" << GetProlocInfo(index) << "]";
            return nullptr;
        }
        return parked->second;
    }

    /// Ends the loan of the object at `address`.
    void ReturnLoan(Address address, const ProlocEntityIndex& index) {
        const std::lock_guard<std::mutex> lock(mutex_);
        const auto methods = table_.find(index);
        if (methods == table_.end()) {
            logger_->warn() << "Proloc " << side_ << " return loan cannot find index [" << GetProlocInfo(index) << "]";
            return;
        }
        if (methods->second.erase(address) == 0U) {
            logger_->warn() << "Proloc " << side_ << " return loan unknon address[" << GetProlocInfo(index) << "]";
        }
    }

    /// Drops every object parked for `index`.
    void UnRegisterMethod(const ProlocEntityIndex& index) {
        const std::lock_guard<std::mutex> lock(mutex_);
        const auto methods = table_.find(index);
        if (methods == table_.end()) {
            return;
        }
        logger_->debug() << "Proloc unregister method server index [" << GetProlocInfo(index) << "]";
        table_.erase(methods);
    }

    /// Number of objects parked for `index`.
    std::size_t Count(const ProlocEntityIndex& index) const {
        const std::lock_guard<std::mutex> lock(mutex_);
        const auto methods = table_.find(index);
        return methods == table_.end() ? 0U : methods->second.size();
    }

private:
    const char* side_;
    std::shared_ptr<ara::quill::common::log::Log> logger_;
    mutable std::mutex mutex_;
    std::map<ProlocEntityIndex, std::map<Address, std::shared_ptr<Parked>>> table_;
};

}  // namespace detail

/// Parked request arguments of one argument list.
template <typename... Args>
class ProlocRequestMemory final : public detail::ProlocMemory<std::tuple<Args...>> {
public:
    ProlocRequestMemory() : detail::ProlocMemory<std::tuple<Args...>>("request") {}
};

/// Parked reply results of one result type.
template <typename T>
class ProlocReplyMemory final : public detail::ProlocMemory<ara::core::Result<T, ara::core::ErrorCode>> {
public:
    ProlocReplyMemory() : detail::ProlocMemory<ara::core::Result<T, ara::core::ErrorCode>>("reply") {}

    /// The parked result at `address`, or null when the look-up fails (logged).
    std::shared_ptr<ara::core::Result<T, ara::core::ErrorCode>> GetReplyResult(const unsigned char* address,
                                                                               const ProlocEntityIndex& index) const {
        return this->Get(address, index);
    }
};

/// The process-wide memories, created on first use and released at exit. Exported so that
/// every library of the process shares one instance per type.
class ARA_EXPORT ProlocMemoryFactory final {
public:
    template <typename... Args>
    ARA_EXPORT static std::shared_ptr<ProlocRequestMemory<Args...>> GetMethodRequestInstance() {
        static const auto instance = std::make_shared<ProlocRequestMemory<Args...>>();
        return instance;
    }

    template <typename T>
    ARA_EXPORT static std::shared_ptr<ProlocReplyMemory<T>> GetMethodReplyInstance() {
        static const auto instance = std::make_shared<ProlocReplyMemory<T>>();
        return instance;
    }
};

}  // namespace kelp::driver::proloc

#endif
