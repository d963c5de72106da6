// SPDX-License-Identifier: Apache-2.0
// Building the domain configuration text; see domain_config.h for the fragments and their order.
#include "domain_config.h"

#include <arpa/inet.h>
#include <dds/ddsrt/environ.h>
#include <dds/ddsrt/heap.h>
#include <netdb.h>
#include <netinet/in.h>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <memory>

#include "ara/quill/common/log/log.h"
#include "kelp/brio/api/types/service_types.h"

namespace kelp::driver::dds {
namespace {

// Deleting a reliable writer waits this long for acknowledgements (Cyclone's default is 1 s),
// writer after writer: a server that stops after answering clients that have exited would
// otherwise wait a second per writer that wrote to them, since an exited client is known as
// such only after its lease. The reply a server wrote just before it stops is still sent.
const char* const WRITER_LINGER = "<Internal><WriterLingerDuration>20ms</WriterLingerDuration></Internal>";
// A reliable writer with data some reader has not acknowledged sends heartbeats, every 100 ms by
// Cyclone's default, and to all its readers unless exactly one lags; every reader answers each.
// The discovery writers of a serving process lag behind every client that is joining, so a
// boot of 500 clients turned into millions of packets and took minutes here; at 1 s it took
// 150 thousand. Repairing a lost sample may take as long, which is still within a client's
// 1.9 s reply wait.
const char* const HEARTBEAT_INTERVAL = "<Internal><HeartbeatInterval>1s</HeartbeatInterval></Internal>";
// A serving process receives the announcements of every client that starts: hundreds at once
// overflowed Cyclone's 1 MiB socket buffer here, and what is dropped comes again only after a
// resend interval. The kernel caps the request at net.core.rmem_max (Debian's default 208 KiB).
const char* const SERVING_RECEIVE_BUFFER = "<Internal><SocketReceiveBufferSize max=\"4MiB\"/></Internal>";

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

std::vector<std::string> SplitList(const std::string& text) {
    std::vector<std::string> items;
    std::string item;
    for (const char c : text + ",") {
        if (c == ',' || c == ' ' || c == '\t') {
            if (!item.empty()) {
                items.push_back(item);
            }
            item.clear();
        } else {
            item += c;
        }
    }
    return items;
}

struct DiscoveryChoice {
    DiscoveryMode mode{DiscoveryMode::kHub};
    std::vector<std::string> peers;
    std::string interfaceAddress;
};

DiscoveryChoice ReadChoice() {
    const auto logger = ara::quill::common::log::Log::GetLog("CM");
    DiscoveryChoice choice;
    if (const auto mode = Environment("KELP_DDS_DISCOVERY")) {
        if (strcasecmp(mode->c_str(), "multicast") == 0) {
            choice.mode = DiscoveryMode::kMulticast;
        } else if (strcasecmp(mode->c_str(), "hub") != 0) {
            logger->warn() << "[DDSDriver][Unknown KELP_DDS_DISCOVERY, hub discovery used][value=" << *mode << "]";
        }
    }
    if (const auto peers = Environment("KELP_DDS_PEERS")) {
        choice.peers = SplitList(*peers);
        const auto local = choice.peers.empty() ? std::nullopt : LocalAddressTowards(choice.peers.front());
        if (local) {
            choice.interfaceAddress = *local;
        } else {
            logger->error() << "[DDSDriver][KELP_DDS_PEERS has no route from this host, the loopback peers are "
                               "used][value="
                            << *peers << "]";
            choice.peers.clear();
        }
    }
    return choice;
}

}  // namespace

const std::pair<std::string, bool>& DefaultNetwork() {
    static const std::pair<std::string, bool> network{"127.0.0.1", true};
    return network;
}

const std::pair<std::string, bool>& EffectiveNetwork(const std::pair<std::string, bool>& network) {
    const bool undefined = network.first.empty() || network.first == brio::api::types::UNDEFINED_NETWORK.first;
    return undefined ? DefaultNetwork() : network;
}

std::string DiscoveryFragment(const DomainSettings& settings) {
    const auto& network = EffectiveNetwork(settings.network);
    if (settings.mode == DiscoveryMode::kMulticast) {
        return "<General><Interfaces><NetworkInterface address=\"" + XmlAttribute(network.first) + "\" multicast=\"" +
               (network.second ? "true" : "false") + "\"/></Interfaces></General>";
    }
    const std::string address = settings.interfaceAddress.empty() ? network.first : settings.interfaceAddress;
    std::string peers;
    for (const std::string& peer : settings.peers.empty() ? std::vector<std::string>{address} : settings.peers) {
        peers += "<Peer address=\"" + XmlAttribute(peer) + "\"/>";
    }
    const bool serving = settings.role == DomainRole::kServing;
    return "<General><Interfaces><NetworkInterface address=\"" + XmlAttribute(address) +
           "\"/></Interfaces><AllowMulticast>false</AllowMulticast></General><Discovery><ParticipantIndex>" +
           (serving ? "auto" : "none") + "</ParticipantIndex><Peers>" + peers + "</Peers>" +
           (serving ? "" : "<SPDPInterval>4s</SPDPInterval>") + "</Discovery>";
}

std::string BuildDomainConfig(const DomainSettings& settings) {
    std::string config = std::string(WRITER_LINGER) + "," + HEARTBEAT_INTERVAL + ",";
    if (settings.role == DomainRole::kServing) {
        config += std::string(SERVING_RECEIVE_BUFFER) + ",";
    }
    if (settings.role == DomainRole::kServing && settings.participantLeaseMs != 0U) {
        config += "<Discovery><LeaseDuration>" + std::to_string(settings.participantLeaseMs) +
                  "ms</LeaseDuration></Discovery>,";
    }
    config += settings.cycloneUri ? *settings.cycloneUri : DiscoveryFragment(settings);
    if (settings.extraConfig) {
        config += "," + *settings.extraConfig;
    }
    return config;
}

void ReadDiscoveryEnvironment(DomainSettings& settings) {
    const DiscoveryChoice choice = ReadChoice();
    settings.mode = choice.mode;
    settings.peers = choice.peers;
    settings.interfaceAddress = choice.interfaceAddress;
}

std::optional<std::string> LocalAddressTowards(const std::string& peer) {
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_DGRAM;
    addrinfo* found = nullptr;
    if (getaddrinfo(peer.c_str(), "7400", &hints, &found) != 0 || found == nullptr) {
        return std::nullopt;
    }
    std::optional<std::string> local;
    // Connecting a datagram socket sends nothing; it only asks the kernel for the route.
    const int probe = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (probe >= 0 && connect(probe, found->ai_addr, found->ai_addrlen) == 0) {
        sockaddr_in self{};
        socklen_t length = sizeof(self);
        char text[INET_ADDRSTRLEN] = {};
        // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): the socket API takes sockaddr
        if (getsockname(probe, reinterpret_cast<sockaddr*>(&self), &length) == 0 &&
            inet_ntop(AF_INET, &self.sin_addr, text, sizeof(text)) != nullptr) {
            local = text;
        }
    }
    if (probe >= 0) {
        close(probe);
    }
    freeaddrinfo(found);
    return local;
}

std::string DomainConfigFromEnvironment(const std::pair<std::string, bool>& network,
                                        std::uint32_t participantLeaseMs,
                                        DomainRole role,
                                        std::uint32_t domainId) {
    DomainSettings settings;
    settings.network = network;
    settings.participantLeaseMs = participantLeaseMs;
    settings.role = role;
    settings.cycloneUri = Environment("CYCLONEDDS_URI");
    if (settings.cycloneUri) {
        const std::unique_ptr<char, void (*)(void*)> expanded(
            ddsrt_expand_envvars(settings.cycloneUri->c_str(), domainId), ddsrt_free);
        if (expanded) {
            settings.cycloneUri = std::string(expanded.get());
        }
        if (settings.cycloneUri->empty()) {
            settings.cycloneUri.reset();  // "${UNSET}" means no configuration of its own, not Cyclone's defaults
        }
    }
    ReadDiscoveryEnvironment(settings);
    settings.extraConfig = Environment("KELP_DDS_CONFIG");
    return BuildDomainConfig(settings);
}

}  // namespace kelp::driver::dds
