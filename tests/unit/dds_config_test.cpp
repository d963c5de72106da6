// SPDX-License-Identifier: Apache-2.0
// Configuration text of the process's Cyclone domains, and DDSDriver::Init with broken ones.
#include <dds/dds.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <iostream>
#include <optional>

#include "ara/quill/common/log/log.h"
#include "cyclone_log.h"
#include "domain_config.h"
#include "kelp/brio/api/types/service_types.h"
#include "kelp/brio/driver/driver.h"
#include "kelp/driver/dds/dds_driver.h"

namespace {
using kelp::driver::dds::BuildDomainConfig;
using kelp::driver::dds::DiscoveryMode;
using kelp::driver::dds::DomainRole;
using kelp::driver::dds::DomainSettings;
using std::nullopt;

const std::string LINGER =
    "<Internal><WriterLingerDuration>20ms</WriterLingerDuration></Internal>,"
    "<Internal><HeartbeatInterval>1s</HeartbeatInterval></Internal>,";
const std::string RECEIVE_BUFFER = R"(<Internal><SocketReceiveBufferSize max="4MiB"/></Internal>,)";
const std::string LEASE = RECEIVE_BUFFER + "<Discovery><LeaseDuration>1000ms</LeaseDuration></Discovery>,";
const std::string LOOPBACK =
    R"(<General><Interfaces><NetworkInterface address="127.0.0.1" multicast="true"/></Interfaces></General>)";
const std::string HUB_NET =
    R"(<General><Interfaces><NetworkInterface address="127.0.0.1"/></Interfaces><AllowMulticast>false</AllowMulticast></General>)";
const std::string HUB_SERVING =
    HUB_NET +
    R"(<Discovery><ParticipantIndex>auto</ParticipantIndex><Peers><Peer address="127.0.0.1"/></Peers></Discovery>)";
const std::string HUB_CLIENT =
    HUB_NET + R"(<Discovery><ParticipantIndex>none</ParticipantIndex><Peers><Peer address="127.0.0.1"/></Peers>)"
              "<SPDPInterval>4s</SPDPInterval></Discovery>";
const std::string TAG = "<Discovery><Tag>dds_config_test</Tag></Discovery>";

// Sets (or with nullopt, unsets) a variable and restores it when the scope ends.
class ScopedEnv {
public:
    ScopedEnv(const char* name, const std::optional<std::string>& value) : name_(name) {
        if (const char* old = std::getenv(name)) {
            old_ = old;
        }
        value ? setenv(name, value->c_str(), 1) : unsetenv(name);
    }
    ~ScopedEnv() { old_ ? setenv(name_, old_->c_str(), 1) : unsetenv(name_); }

private:
    const char* name_;
    std::optional<std::string> old_;
};

DomainSettings Settings(DomainRole role,
                        DiscoveryMode mode,
                        std::pair<std::string, bool> network = {"127.0.0.1", true},
                        std::optional<std::string> uri = nullopt,
                        std::optional<std::string> extra = nullopt) {
    DomainSettings settings;
    settings.cycloneUri = std::move(uri);
    settings.network = std::move(network);
    settings.participantLeaseMs = 1000U;
    settings.role = role;
    settings.mode = mode;
    settings.extraConfig = std::move(extra);
    return settings;
}

TEST(DdsConfigTest, OnlyServingDomainsTakeAnIndexAndTheShortLeaseAndCycloneTakesEveryText) {
    using R = DomainRole;
    using M = DiscoveryMode;
    DomainSettings remote = Settings(R::kClient, M::kHub);
    remote.interfaceAddress = "10.77.0.2";
    remote.peers = {"10.77.0.1", "em-host"};
    DomainSettings noLease = Settings(R::kServing, M::kMulticast, kelp::brio::api::types::UNDEFINED_NETWORK);
    noLease.participantLeaseMs = 0U;
    const struct {
        DomainSettings settings;
        std::string expected;
        bool startsHere;  // Cyclone starts a domain with it on this machine
    } rows[] = {
        {Settings(R::kServing, M::kHub), LEASE + HUB_SERVING, true},
        {Settings(R::kClient, M::kHub), HUB_CLIENT, true},
        {Settings(R::kClient, M::kHub, {"127.0.0.1", true}, nullopt, TAG), HUB_CLIENT + "," + TAG, true},
        {remote,
         R"(<General><Interfaces><NetworkInterface address="10.77.0.2"/></Interfaces><AllowMulticast>false</AllowMulticast></General>)"
         R"(<Discovery><ParticipantIndex>none</ParticipantIndex><Peers><Peer address="10.77.0.1"/><Peer address="em-host"/></Peers>)"
         "<SPDPInterval>4s</SPDPInterval></Discovery>",
         false},
        {Settings(R::kServing, M::kMulticast), LEASE + LOOPBACK, true},
        {Settings(R::kClient, M::kMulticast, {"127.0.0.1", true}, nullopt, TAG), LOOPBACK + "," + TAG, true},
        {noLease, RECEIVE_BUFFER + LOOPBACK, true},
        {Settings(R::kClient, M::kMulticast, {"a\"<&>", false}),
         R"(<General><Interfaces><NetworkInterface address="a&quot;&lt;&amp;&gt;" multicast="false"/></Interfaces></General>)",
         false},
        {Settings(R::kServing,
                  M::kHub,
                  {"127.0.0.1", true},
                  "<General><AllowMulticast>spdp</AllowMulticast></General>",
                  TAG),
         LEASE + "<General><AllowMulticast>spdp</AllowMulticast></General>," + TAG,
         true},
        {Settings(R::kClient, M::kHub, {"127.0.0.1", true}, "file:///etc/kelp/dds.xml"),
         "file:///etc/kelp/dds.xml",
         false},
    };
    for (const auto& row : rows) {
        const std::string text = BuildDomainConfig(row.settings);
        EXPECT_EQ(text, LINGER + row.expected);
        if (row.startsHere) {
            const dds_entity_t domain = dds_create_domain(229U, text.c_str());
            EXPECT_GT(domain, 0) << text;
            dds_delete(domain);
        }
    }
}

TEST(DdsConfigTest, EnvironmentChoosesDiscoveryPeersAndUriAndEmptyMeansUnset) {
    using kelp::driver::dds::DomainConfigFromEnvironment;
    const ScopedEnv part("DDS_CONFIG_TEST_PART", std::string("x"));
    const ScopedEnv noUri("CYCLONEDDS_URI", nullopt);
    const ara::quill::common::log::CaptureSink log;
    const struct {
        std::optional<std::string> discovery;
        std::optional<std::string> peers;
        DomainRole role;
        std::string expected;
        std::string logLine;
    } rows[] = {
        {nullopt, nullopt, DomainRole::kServing, LEASE + HUB_SERVING + "," + TAG, ""},
        {"multicast", nullopt, DomainRole::kClient, LOOPBACK + "," + TAG, ""},
        {"MULTICAST", nullopt, DomainRole::kServing, LEASE + LOOPBACK + "," + TAG, ""},
        {"gossip",
         nullopt,
         DomainRole::kClient,
         HUB_CLIENT + "," + TAG,
         "[DDSDriver][Unknown KELP_DDS_DISCOVERY, hub discovery used][value=gossip]"},
        {"hub", "127.0.0.1", DomainRole::kClient, HUB_CLIENT + "," + TAG, ""},
        {nullopt,
         "no-such-host.invalid",
         DomainRole::kClient,
         HUB_CLIENT + "," + TAG,
         "[DDSDriver][KELP_DDS_PEERS has no route from this host, the loopback peers are used]"
         "[value=no-such-host.invalid]"},
    };
    const ScopedEnv kelp("KELP_DDS_CONFIG", TAG);
    for (const auto& row : rows) {
        const ScopedEnv discovery("KELP_DDS_DISCOVERY", row.discovery);
        const ScopedEnv peers("KELP_DDS_PEERS", row.peers);
        EXPECT_EQ(DomainConfigFromEnvironment({"127.0.0.1", true}, 1000U, row.role, 7U), LINGER + row.expected);
        if (!row.logLine.empty()) {
            EXPECT_TRUE(log.Contains(row.logLine)) << row.logLine;
        }
    }
    {
        const ScopedEnv uri(
            "CYCLONEDDS_URI",
            std::string("<Discovery><Tag>${DDS_CONFIG_TEST_PART}-${CYCLONEDDS_DOMAIN_ID}</Tag></Discovery>"));
        const ScopedEnv empty("KELP_DDS_CONFIG", std::string(""));
        EXPECT_EQ(DomainConfigFromEnvironment({"127.0.0.1", true}, 1000U, DomainRole::kServing, 7U),
                  LINGER + LEASE + "<Discovery><Tag>x-7</Tag></Discovery>");
    }
    for (const char* nothing : {"", "${DDS_CONFIG_TEST_UNSET}"}) {
        const ScopedEnv uri("CYCLONEDDS_URI", std::string(nothing));
        EXPECT_EQ(DomainConfigFromEnvironment({"127.0.0.1", true}, 1000U, DomainRole::kClient, 7U),
                  LINGER + HUB_CLIENT + "," + TAG)
            << nothing;
    }
}

TEST(DdsConfigTest, PeersAreReachedThroughTheInterfaceTheKernelRoutesTo) {
    EXPECT_EQ(kelp::driver::dds::LocalAddressTowards("127.0.0.1"), std::optional<std::string>("127.0.0.1"));
    EXPECT_EQ(kelp::driver::dds::LocalAddressTowards("127.0.0.5"), std::optional<std::string>("127.0.0.1"));
    EXPECT_EQ(kelp::driver::dds::LocalAddressTowards("localhost"), std::optional<std::string>("127.0.0.1"));
    EXPECT_EQ(kelp::driver::dds::LocalAddressTowards("not an address"), std::nullopt);
}

// Each row in a process of its own: Init succeeds once per process.
TEST(DdsConfigTest, InitFailsWithCyclonesReasonForABrokenUri) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const std::string cannot = "[DDSDriver][Cyclone DDS cannot start][code=-1 (Error), reason=";
    const struct {
        std::optional<std::string> uri;
        std::string logLine;  // empty: Init succeeds and registers the transport
    } rows[] = {
        {"file:///nonexistent/kelp.xml", cannot + "can't open configuration file file:///nonexistent/kelp.xml]"},
        {"<General></Interfaces>",
         cannot + "config: //CycloneDDS/Domain/General: parser error open/close tag "
                  "mismatch (Interfaces) at line 1 (CYCLONEDDS_URI+134 line 1)]"},
        {"<Bogus/>", cannot + "config: //CycloneDDS/Domain: Bogus: unknown element (CYCLONEDDS_URI+134 line 1)]"},
        {nullopt, ""},
    };
    for (const auto& row : rows) {
        EXPECT_EXIT(
            {
                const ScopedEnv uri("CYCLONEDDS_URI", row.uri);
                const ara::quill::common::log::CaptureSink log;
                const bool started = kelp::driver::dds::DDSDriver::Init();
                const bool registered =
                    kelp::brio::driver::GetDriver(kelp::brio::api::types::DriverType::DDS) != nullptr;
                const bool expected = row.logLine.empty()
                                          ? started && registered && kelp::driver::dds::DDSDriver::Init()
                                          : !started && !registered && log.Contains(row.logLine);
                for (const auto& text : log.Texts()) {
                    std::cerr << text << "\n";
                }
                std::exit(expected ? 0 : 1);
            },
            ::testing::ExitedWithCode(0),
            "")
            << (row.uri ? *row.uri : "unset");
    }
}

// Cyclone's own texts for refused credentials, as its 0.10.2 plugins print them here.
TEST(DdsConfigTest, SecurityRefusalsAreTranslatedAndOtherFailuresAreNot) {
    const std::pair<std::string, std::string> rows[] = {
        {"validating local permission: Certificate not valid: error: certificate has expired; subject: /CN=x",
         "a certificate has expired (the identity's or its CA's)"},
        {"Certificate not valid: error: unable to get local issuer certificate; subject: /CN=x",
         "the identity certificate is not issued by the configured identity CA"},
        {"validating local permissions: Permissions validity period expired for CN=x (expired: 2026-11-22T22:00:00)",
         "the permissions grant has expired"},
        {"validating local permissions: Subject name is invalid(code: 146)",
         "the permissions grant is for another subject than the identity certificate"},
        {"validating local permissions: Failed to parse PKCS7 SMIME document: Verify error: self-signed certificate",
         "the governance or the permissions grant is not signed by the configured permissions CA"},
        {"load_file_into_BIO: File could not be found, opened or is empty, path: /x.pem",
         "a file named in the security configuration cannot be read"},
        {"can't open configuration file file:///x.xml", ""},
        {"unknown", ""},
    };
    for (const auto& [reason, diagnosis] : rows) {
        EXPECT_EQ(kelp::driver::dds::SecurityDiagnosis(reason), diagnosis) << reason;
    }
}

}  // namespace
