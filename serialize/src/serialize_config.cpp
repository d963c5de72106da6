// Out-of-line parts of the serialization settings and the shared length-field reader.
#include "kelp/serialize/serialize_config.h"

#include <cstring>

namespace kelp::serialize {

SerializeConfig::~SerializeConfig() = default;

namespace detail {

std::uint32_t ReadLengthField(const unsigned char* data, std::uint64_t size, ByteOrder order) noexcept {
    switch (size) {
        case 1U:
            return data[0];
        case 2U: {
            std::uint16_t v{};
            std::memcpy(&v, data, sizeof(v));
            return ToOrder(v, order);
        }
        case 4U: {
            std::uint32_t v{};
            std::memcpy(&v, data, sizeof(v));
            return ToOrder(v, order);
        }
        default:
            return 0U;
    }
}

}  // namespace detail
}  // namespace kelp::serialize
