// SPDX-License-Identifier: Apache-2.0
// Error domains of the communication middleware: Com, E2E, and Dynamic (which stands for a
// domain this process does not know), plus the error records of method replies.
#ifndef KELP_BRIO_API_TYPES_ERROR_DOMAINS_H
#define KELP_BRIO_API_TYPES_ERROR_DOMAINS_H

#include <cstddef>
#include <cstdint>
#include <utility>

#include "ara/core/error_code.h"
#include "ara/core/error_domain.h"
#include "ara/core/exception.h"

namespace kelp::brio::api::types {

enum class ComErrc : ara::core::ErrorDomain::CodeType {
    kServiceNotAvailable = 1,
    kMaxSamplesExceeded = 2,
    kNetworkBindingFailure = 3,
    kPeerIsUnreachable = 5,  ///< has no message text
    kServiceNotOffered = 11,
    kCommunicationStackError = 14,
    kWrongMethodCallProcessingMode = 17,
};

/// Codes of the E2E domain; each equals the failed check status it reports.
enum class E2EErrorCode : ara::core::ErrorDomain::CodeType {
    kRepeated = 1,
    kWrongSequenceError = 2,
    kError = 3,
    kNotAvailable = 4,
    kNoNewData = 5,
    kCheckDisable = 6,
};

class ARA_EXPORT ComException : public ara::core::Exception {
public:
    explicit ComException(ara::core::ErrorCode err) noexcept;
    ~ComException() override;
    ComException(const ComException&) = default;
    ComException& operator=(const ComException&) = default;
};

class ARA_EXPORT E2EException : public ara::core::Exception {
public:
    explicit E2EException(ara::core::ErrorCode err) noexcept;
    ~E2EException() override;
    E2EException(const E2EException&) = default;
    E2EException& operator=(const E2EException&) = default;
};

class ARA_EXPORT DynamicException : public ara::core::Exception {
public:
    explicit DynamicException(ara::core::ErrorCode err) noexcept;
    ~DynamicException() override;
    DynamicException(const DynamicException&) = default;
    DynamicException& operator=(const DynamicException&) = default;
};

class ARA_EXPORT ComErrorDomain final : public ara::core::ErrorDomain {
public:
    static constexpr IdType kId = 0x8000000000001267ULL;
    constexpr ComErrorDomain() noexcept : ErrorDomain(kId) {}
    ~ComErrorDomain() = default;
    const char* Name() const noexcept override;
    /// The table text; a code outside the table yields "" and is added to the table.
    const char* Message(CodeType errorCode) const noexcept override;
    [[noreturn]] void ThrowAsException(const ara::core::ErrorCode& errorCode) const noexcept(false) override;
};

class ARA_EXPORT E2EErrorDomain final : public ara::core::ErrorDomain {
public:
    static constexpr IdType kId = 0x8000000000001268ULL;
    constexpr E2EErrorDomain() noexcept : ErrorDomain(kId) {}
    ~E2EErrorDomain() = default;
    const char* Name() const noexcept override;
    /// The table text; a code outside the table yields "" and is added to the table.
    const char* Message(CodeType errorCode) const noexcept override;
    [[noreturn]] void ThrowAsException(const ara::core::ErrorCode& errorCode) const noexcept(false) override;
};

/// Stands for a foreign domain, known only by its id, whose codes a reply carried.
class ARA_EXPORT DynamicErrorDomain final : public ara::core::ErrorDomain {
public:
    explicit DynamicErrorDomain(IdType id) noexcept : ErrorDomain(id) {}
    ~DynamicErrorDomain() = default;
    DynamicErrorDomain(const DynamicErrorDomain&) = delete;
    DynamicErrorDomain& operator=(const DynamicErrorDomain&) = delete;
    const char* Name() const noexcept override;
    /// Always "Dynamic error domain doesn't support message output".
    const char* Message(CodeType errorCode) const noexcept override;
    [[noreturn]] void ThrowAsException(const ara::core::ErrorCode& errorCode) const noexcept(false) override;
};

/// How many foreign domain ids one process keeps a DynamicErrorDomain for.
inline constexpr std::size_t MAX_DYNAMIC_ERROR_DOMAINS = 64U;

/// The process's one DynamicErrorDomain for the foreign domain `id`, made on first use and
/// kept until the process ends, so an ErrorCode that refers to it stays valid however long
/// its holder keeps it. Once MAX_DYNAMIC_ERROR_DOMAINS ids are kept, a new id gets nullptr
/// (and one warning per process): a peer cannot make us keep an unbounded number.
/// @thread-safety May be called from any thread.
ARA_EXPORT const DynamicErrorDomain* GetDynamicErrorDomain(ara::core::ErrorDomain::IdType id) noexcept;
/// Foreign domain ids this process keeps a DynamicErrorDomain for.
ARA_EXPORT std::size_t GetDynamicErrorDomainCount() noexcept;

ARA_EXPORT const ara::core::ErrorDomain& GetComErrorDomain() noexcept;
ARA_EXPORT const ara::core::ErrorDomain& GetE2EErrorDomain() noexcept;

inline ara::core::ErrorCode MakeErrorCode(ComErrc code, ara::core::ErrorDomain::SupportDataType data) noexcept {
    return {static_cast<ara::core::ErrorDomain::CodeType>(code), GetComErrorDomain(), data};
}
inline ara::core::ErrorCode MakeErrorCode(E2EErrorCode code, ara::core::ErrorDomain::SupportDataType data) noexcept {
    return {static_cast<ara::core::ErrorDomain::CodeType>(code), GetE2EErrorDomain(), data};
}

/// Domain id and code read from an error reply.
struct MethodError {
    std::uint64_t domainId{0U};
    std::int32_t code{0};
};

namespace internal {
/// Key of a method's table of accepted error codes: (domain id, code).
using ErrorIndex = std::pair<std::uint64_t, std::int32_t>;
/// Registering this key accepts codes of every domain not registered on its own.
inline constexpr ErrorIndex WILDCARD_ERROR_INDEX{0xC000000000000001ULL, 0};
}  // namespace internal

}  // namespace kelp::brio::api::types

#endif
