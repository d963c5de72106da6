// Building the domain configuration text; see domain_config.h for the fragments and their order.
#include "domain_config.h"

#include <dds/ddsrt/environ.h>
#include <dds/ddsrt/heap.h>

#include <cstdlib>
#include <memory>

#include "kelp/brio/api/types/service_types.h"

namespace kelp::driver::dds {
namespace {

std::optional<std::string> Environment(const char* name) {
    const char* value = std::getenv(name);
    if (value == nullptr || *value == '\0') {
        return std::nullopt;
    }
    return std::string(value);
}

std::string XmlAttribute(const std::string& text) {
    std::string escaped;
    for (const char c : text) {
        switch (c) {
            case '"':
                escaped += "&quot;";
                break;
            case '&':
                escaped += "&amp;";
                break;
            case '<':
                escaped += "&lt;";
                break;
            case '>':
                escaped += "&gt;";
                break;
            default:
                escaped += c;
                break;
        }
    }
    return escaped;
}

}  // namespace

const std::pair<std::string, bool>& DefaultNetwork() {
    static const std::pair<std::string, bool> network{"127.0.0.1", true};
    return network;
}

std::string NetworkFragment(const std::pair<std::string, bool>& network) {
    const bool undefined = network.first.empty() || network.first == brio::api::types::UNDEFINED_NETWORK.first;
    const auto& chosen = undefined ? DefaultNetwork() : network;
    return "<General><Interfaces><NetworkInterface address=\"" + XmlAttribute(chosen.first) + "\" multicast=\"" +
           (chosen.second ? "true" : "false") + "\"/></Interfaces></General>";
}

std::string BuildDomainConfig(const std::optional<std::string>& cycloneUri,
                              const std::pair<std::string, bool>& network,
                              std::uint32_t participantLeaseMs,
                              const std::optional<std::string>& extraConfig) {
    std::string config;
    if (participantLeaseMs != 0U) {
        config = "<Discovery><LeaseDuration>" + std::to_string(participantLeaseMs) + "ms</LeaseDuration></Discovery>,";
    }
    config += cycloneUri ? *cycloneUri : NetworkFragment(network);
    if (extraConfig) {
        config += "," + *extraConfig;
    }
    return config;
}

std::string DomainConfigFromEnvironment(const std::pair<std::string, bool>& network,
                                        std::uint32_t participantLeaseMs,
                                        std::uint32_t domainId) {
    std::optional<std::string> uri = Environment("CYCLONEDDS_URI");
    if (uri) {
        const std::unique_ptr<char, void (*)(void*)> expanded(ddsrt_expand_envvars(uri->c_str(), domainId), ddsrt_free);
        if (expanded) {
            uri = std::string(expanded.get());
        }
        if (uri->empty()) {
            uri.reset();  // "${UNSET}" means no configuration of its own, not Cyclone's defaults
        }
    }
    return BuildDomainConfig(uri, network, participantLeaseMs, Environment("KELP_DDS_CONFIG"));
}

}  // namespace kelp::driver::dds
