// SPDX-License-Identifier: Apache-2.0
// The configuration text each Cyclone domain of this process is created with.
//
// dds_create_domain ignores CYCLONEDDS_URI when it is given a configuration, so the text is
// built here, as comma-separated fragments (a later fragment overrides an earlier one):
//   0. "<Internal><WriterLingerDuration>20ms</WriterLingerDuration></Internal>": deleting a
//      writer waits at most that long for acknowledgements of what it wrote (one after the
//      other: a server whose sixteen reply writers answered clients that have exited since
//      would wait 16 s at Cyclone's default of 1 s), and
//      "<Internal><HeartbeatInterval>1s</HeartbeatInterval></Internal>": reliable writers with
//      unacknowledged data repeat their heartbeats every second, not every 100 ms (see the .cpp);
//   1. for a serving domain only, a socket receive buffer of up to 4 MiB (hundreds of clients
//      announce themselves at once) and the participant lease of the descriptor,
//      "<Discovery><LeaseDuration>1000ms</LeaseDuration></Discovery>": clients notice a dead
//      server through it, while a client's own lease is Cyclone's default (10 s), so that a
//      server under load does not expire hundreds of clients it only needs for their requests;
//   2. the expanded CYCLONEDDS_URI when it is set (it then decides discovery and interfaces
//      alone), otherwise the discovery fragment of the process's mode (KELP_DDS_DISCOVERY):
//      - hub (the default): unicast on the interface of the descriptor's address, or, when
//        KELP_DDS_PEERS names the hosts to discover, the interface that routes to the first
//        of them. A serving domain takes a participant index (ports of indices 0-9, which
//        other processes know without being told), a client domain takes none and sends its
//        announcements to the indices of the peers (its own address by default). Clients
//        thus find every serving process and never each other: discovery grows with the
//        number of processes, not with its square. A client announces itself every second
//        (to the ten index ports of each peer), so a server that starts after it (or
//        restarts) learns of it within a second; Cyclone's own interval would be 8 s with
//        the client's 10 s lease.
//      - multicast: every participant discovers every other, on the descriptor's address
//        with multicast="true" (lo has no MULTICAST flag: without it Cyclone falls back to
//        unicast with indices 0-9 and the 11th process on a host fails);
//   3. KELP_DDS_CONFIG when it is set (tests put their discovery Tag and port base there).
#ifndef KELP_DRIVER_DDS_DOMAIN_CONFIG_H
#define KELP_DRIVER_DDS_DOMAIN_CONFIG_H

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace kelp::driver::dds {

/// What a process does on a domain, decided by the first endpoint it makes there.
enum class DomainRole : std::uint8_t { kClient, kServing };

enum class DiscoveryMode : std::uint8_t { kHub, kMulticast };

/// The network pair used when a descriptor names none: loopback with multicast.
const std::pair<std::string, bool>& DefaultNetwork();

/// `network`, or DefaultNetwork() when its address is empty or undefined.
const std::pair<std::string, bool>& EffectiveNetwork(const std::pair<std::string, bool>& network);

/// Everything the text is made of; the environment's part already read and expanded.
struct DomainSettings {
    std::optional<std::string> cycloneUri;
    std::pair<std::string, bool> network;
    std::uint32_t participantLeaseMs{0U};  // 0: no lease fragment
    DomainRole role{DomainRole::kClient};
    DiscoveryMode mode{DiscoveryMode::kHub};
    std::string interfaceAddress;    // hub: the interface; empty: the network's address
    std::vector<std::string> peers;  // hub: hosts whose serving processes are discovered
    std::optional<std::string> extraConfig;
};

/// Fragment 2 for the hub or multicast mode (not used when CYCLONEDDS_URI is set).
std::string DiscoveryFragment(const DomainSettings& settings);

/// The whole text.
std::string BuildDomainConfig(const DomainSettings& settings);

/// The discovery settings of this process: KELP_DDS_DISCOVERY ("hub", the default, or
/// "multicast") and KELP_DDS_PEERS (a comma list of addresses, by default the network's
/// address). An unknown mode, or peers without a route from this host, are logged and the
/// default is used.
void ReadDiscoveryEnvironment(DomainSettings& settings);

/// The local address through which `peer` is reached (the source address the kernel would
/// choose); nullopt when `peer` is not an IPv4 address or host name, or has no route.
std::optional<std::string> LocalAddressTowards(const std::string& peer);

/// BuildDomainConfig with CYCLONEDDS_URI (expanded for `domainId`), the discovery settings and
/// KELP_DDS_CONFIG read from the environment; a variable that is empty, or that expands to
/// nothing, counts as unset.
std::string DomainConfigFromEnvironment(const std::pair<std::string, bool>& network,
                                        std::uint32_t participantLeaseMs,
                                        DomainRole role,
                                        std::uint32_t domainId);

}  // namespace kelp::driver::dds

#endif
