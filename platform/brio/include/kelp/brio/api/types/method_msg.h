// SPDX-License-Identifier: Apache-2.0
// The message record a method proxy and its driver exchange for one request or reply.
#ifndef KELP_BRIO_API_TYPES_METHOD_MSG_H
#define KELP_BRIO_API_TYPES_METHOD_MSG_H

#include <array>
#include <cstdint>
#include <string>

#include "ara/core/internal/export.h"

namespace kelp::brio::api::types {

/// Identity of the requesting endpoint; a reply carries the id of its request's sender.
using ClientId = std::array<std::uint8_t, 16>;

class ARA_EXPORT MethodMsg {
public:
    /// Values of a request record.
    static constexpr std::uint16_t REQUEST_ENTITY_FIELD = 0xFFFFU;
    static constexpr std::uint8_t REQUEST_MESSAGE_TYPE = 3U;
    static constexpr std::uint8_t REQUEST_E2E_CHECK_STATUS = 6U;  ///< check disabled
    static constexpr std::uint8_t REQUEST_E2E_STATE = 4U;         ///< state machine disabled
    static constexpr std::uint64_t REQUEST_FIELD64 = 0x0FFFFFFF00000000ULL;
    static constexpr std::int32_t REQUEST_MARKER = 1;

    MethodMsg() = default;
    MethodMsg(const MethodMsg&) = default;
    MethodMsg& operator=(const MethodMsg&) = default;
    virtual ~MethodMsg();

    /// A request record: every field at its request value, `sessionId` set, name copied
    /// from the library-wide default.
    static MethodMsg MakeRequest(std::uint16_t sessionId);
    /// The library-wide default name of request records.
    static const std::string& DefaultName();

    std::uint16_t sessionId{0U};
    std::uint16_t entityField{0U};
    std::uint8_t messageType{0U};
    std::uint8_t e2eCheckStatus{0U};  ///< a ProfileCheckStatus value
    std::uint8_t e2eState{0U};        ///< an SMState value
    std::uint64_t field64{0U};
    std::int32_t requestMarker{0};
    bool isRealReply{true};                 ///< replies: clear when it only reports a failed TLS handshake
    bool isErrorReply{false};               ///< replies: the payload is an error code, not a result
    const unsigned char* payload{nullptr};  ///< owned by the driver's buffer
    std::uint32_t payloadSize{0U};
    std::string name;
    ClientId clientId{};
};

}  // namespace kelp::brio::api::types

#endif
