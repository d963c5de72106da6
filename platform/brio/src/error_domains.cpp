// SPDX-License-Identifier: Apache-2.0
// Com, E2E and Dynamic error domains.
#include "kelp/brio/api/types/error_domains.h"

#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <string>

#include "ara/quill/common/log/log.h"

namespace kelp::brio::api::types {
namespace {
constexpr ComErrorDomain g_comErrorDomain;
constexpr E2EErrorDomain g_e2eErrorDomain;

// Tables are looked up with an inserting index: an unknown code yields "" and adds an empty
// entry. The mutex keeps concurrent first lookups of new codes from racing; map nodes never
// move, so returned texts stay valid.
const char* InsertingLookup(std::map<ara::core::ErrorDomain::CodeType, std::string>& table,
                            std::mutex& mutex,
                            ara::core::ErrorDomain::CodeType code) {
    const std::lock_guard<std::mutex> lock(mutex);
    return table[code].c_str();
}

// Domain objects for foreign ids live until the process ends: an ErrorCode holds a plain
// pointer to its domain, and codes may sit in statics that are destroyed after ours.
struct DynamicDomainStore {
    std::mutex mutex;
    std::map<ara::core::ErrorDomain::IdType, std::unique_ptr<DynamicErrorDomain>> domains;
    bool fullReported{false};
};

DynamicDomainStore& GetDynamicDomainStore() {
    // NOLINTNEXTLINE(cppcoreguidelines-owning-memory): never destroyed, see above
    static DynamicDomainStore* const store = new DynamicDomainStore();
    return *store;
}
}  // namespace

ComException::ComException(ara::core::ErrorCode err) noexcept : ara::core::Exception(err) {}
ComException::~ComException() = default;
E2EException::E2EException(ara::core::ErrorCode err) noexcept : ara::core::Exception(err) {}
E2EException::~E2EException() = default;
DynamicException::DynamicException(ara::core::ErrorCode err) noexcept : ara::core::Exception(err) {}
DynamicException::~DynamicException() = default;

const char* ComErrorDomain::Name() const noexcept {
    return "Com";
}

const char* ComErrorDomain::Message(CodeType errorCode) const noexcept {
    static std::map<CodeType, std::string> table{
        {0, "ok"},
        {1, "kServiceNotAvailable"},
        {2, "kMaxSamplesExceeded"},
        {3, "kNetworkBindingFailure"},
        {11, "kServiceNotOffered"},
        {14, "kCommunicationStackError"},
        {17, "kWrongMethodCallProcessingMode"},
    };
    static std::mutex mutex;
    return InsertingLookup(table, mutex, errorCode);
}

void ComErrorDomain::ThrowAsException(const ara::core::ErrorCode& errorCode) const noexcept(false) {
    throw ComException(errorCode);
}

const char* E2EErrorDomain::Name() const noexcept {
    return "E2E";
}

const char* E2EErrorDomain::Message(CodeType errorCode) const noexcept {
    static std::map<CodeType, std::string> table{
        {1, "repeated"},
        {2, "wrong_sequence_error"},
        {3, "error"},
        {4, "not_available"},
        {5, "no_new_data"},
        {6, "check_disable"},
    };
    static std::mutex mutex;
    return InsertingLookup(table, mutex, errorCode);
}

void E2EErrorDomain::ThrowAsException(const ara::core::ErrorCode& errorCode) const noexcept(false) {
    throw E2EException(errorCode);
}

const char* DynamicErrorDomain::Name() const noexcept {
    return "Dynamic";
}

const char* DynamicErrorDomain::Message(CodeType /*errorCode*/) const noexcept {
    return "Dynamic error domain doesn't support message output";
}

void DynamicErrorDomain::ThrowAsException(const ara::core::ErrorCode& errorCode) const noexcept(false) {
    throw DynamicException(errorCode);
}

const DynamicErrorDomain* GetDynamicErrorDomain(ara::core::ErrorDomain::IdType id) noexcept {
    DynamicDomainStore& store = GetDynamicDomainStore();
    bool reportFull = false;
    {
        const std::lock_guard<std::mutex> lock(store.mutex);
        const auto held = store.domains.find(id);
        if (held != store.domains.end()) {
            return held->second.get();
        }
        if (store.domains.size() < MAX_DYNAMIC_ERROR_DOMAINS) {
            try {
                return store.domains.emplace(id, std::make_unique<DynamicErrorDomain>(id)).first->second.get();
            } catch (const std::bad_alloc&) {
                return nullptr;
            }
        }
        reportFull = !store.fullReported;
        store.fullReported = true;
    }
    if (reportFull) {
        ara::quill::common::log::Log::GetLog("CM")->warn()
            << "[DynamicErrorDomain][Too many foreign error domains, further ones are treated as unregistered][limit="
            << MAX_DYNAMIC_ERROR_DOMAINS << ", errorDomain=" << id << "]";
    }
    return nullptr;
}

std::size_t GetDynamicErrorDomainCount() noexcept {
    DynamicDomainStore& store = GetDynamicDomainStore();
    const std::lock_guard<std::mutex> lock(store.mutex);
    return store.domains.size();
}

const ara::core::ErrorDomain& GetComErrorDomain() noexcept {
    return g_comErrorDomain;
}
const ara::core::ErrorDomain& GetE2EErrorDomain() noexcept {
    return g_e2eErrorDomain;
}

}  // namespace kelp::brio::api::types
