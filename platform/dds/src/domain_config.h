// The configuration text each Cyclone domain of this process is created with.
//
// dds_create_domain ignores CYCLONEDDS_URI when it is given a configuration, so the text is
// built here, as comma-separated fragments (a later fragment overrides an earlier one):
//   1. the participant lease of the descriptor, "<Discovery><LeaseDuration>1000ms</LeaseDuration></Discovery>"
//      (a bare number would mean milliseconds too, but Cyclone warns that it is deprecated);
//   2. the expanded CYCLONEDDS_URI when it is set (a deployment that spans hosts names its
//      interfaces there), otherwise the loopback fragment of the descriptor's network pair:
//      ("127.0.0.1", true) gives
//      <General><Interfaces><NetworkInterface address="127.0.0.1" multicast="true"/></Interfaces></General>;
//      multicast="true" matters on lo, which has no MULTICAST flag: without it Cyclone uses
//      unicast discovery with participant indices 0-9 and the 11th process on a host fails;
//   3. KELP_DDS_CONFIG when it is set (tests put their discovery Tag there).
#ifndef KELP_DRIVER_DDS_DOMAIN_CONFIG_H
#define KELP_DRIVER_DDS_DOMAIN_CONFIG_H

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

namespace kelp::driver::dds {

/// The network pair used when a descriptor names none: loopback with multicast.
const std::pair<std::string, bool>& DefaultNetwork();

/// Fragment 2 for `network`; an undefined or empty address means DefaultNetwork().
std::string NetworkFragment(const std::pair<std::string, bool>& network);

/// The whole text from its inputs: `cycloneUri` already expanded; 0 ms means no lease fragment.
std::string BuildDomainConfig(const std::optional<std::string>& cycloneUri,
                              const std::pair<std::string, bool>& network,
                              std::uint32_t participantLeaseMs,
                              const std::optional<std::string>& extraConfig);

/// BuildDomainConfig with CYCLONEDDS_URI (expanded for `domainId`) and KELP_DDS_CONFIG read
/// from the environment; a variable that is empty, or that expands to nothing, counts as unset.
std::string DomainConfigFromEnvironment(const std::pair<std::string, bool>& network,
                                        std::uint32_t participantLeaseMs,
                                        std::uint32_t domainId);

}  // namespace kelp::driver::dds

#endif
