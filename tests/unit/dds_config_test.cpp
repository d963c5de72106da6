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
using std::nullopt;

const std::string LEASE = "<Discovery><LeaseDuration>1000ms</LeaseDuration></Discovery>,";
const std::string LOOPBACK =
    R"(<General><Interfaces><NetworkInterface address="127.0.0.1" multicast="true"/></Interfaces></General>)";
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

TEST(DdsConfigTest, TextIsLeaseThenUriOrNetworkThenKelpConfigAndCycloneTakesIt) {
    const struct {
        std::optional<std::string> uri;
        std::pair<std::string, bool> network;
        std::uint32_t leaseMs;
        std::optional<std::string> extra;
        std::string expected;
        bool startsHere;  // Cyclone starts a domain with it on this machine
    } rows[] = {
        {nullopt, {"127.0.0.1", true}, 1000U, nullopt, LEASE + LOOPBACK, true},
        {nullopt, {"127.0.0.1", true}, 1000U, TAG, LEASE + LOOPBACK + "," + TAG, true},
        {nullopt, kelp::brio::api::types::UNDEFINED_NETWORK, 0U, nullopt, LOOPBACK, true},
        {nullopt,
         {"", false},
         500U,
         nullopt,
         "<Discovery><LeaseDuration>500ms</LeaseDuration></Discovery>," + LOOPBACK,
         true},
        {nullopt,
         {"10.1.2.3", false},
         0U,
         nullopt,
         R"(<General><Interfaces><NetworkInterface address="10.1.2.3" multicast="false"/></Interfaces></General>)",
         false},
        {nullopt,
         {"a\"<&>", true},
         0U,
         nullopt,
         R"(<General><Interfaces><NetworkInterface address="a&quot;&lt;&amp;&gt;" multicast="true"/></Interfaces></General>)",
         false},
        {"<General><AllowMulticast>spdp</AllowMulticast></General>",
         {"127.0.0.1", true},
         1000U,
         TAG,
         LEASE + "<General><AllowMulticast>spdp</AllowMulticast></General>," + TAG,
         true},
        {"file:///etc/kelp/dds.xml", {"127.0.0.1", true}, 1000U, nullopt, LEASE + "file:///etc/kelp/dds.xml", false},
    };
    for (const auto& row : rows) {
        const std::string text = BuildDomainConfig(row.uri, row.network, row.leaseMs, row.extra);
        EXPECT_EQ(text, row.expected);
        if (row.startsHere) {
            const dds_entity_t domain = dds_create_domain(229U, text.c_str());
            EXPECT_GT(domain, 0) << text;
            dds_delete(domain);
        }
    }
}

TEST(DdsConfigTest, EnvironmentIsExpandedForTheDomainAndEmptyMeansUnset) {
    const ScopedEnv part("DDS_CONFIG_TEST_PART", std::string("x"));
    {
        const ScopedEnv uri(
            "CYCLONEDDS_URI",
            std::string("<Discovery><Tag>${DDS_CONFIG_TEST_PART}-${CYCLONEDDS_DOMAIN_ID}</Tag></Discovery>"));
        const ScopedEnv kelp("KELP_DDS_CONFIG", std::string(""));
        EXPECT_EQ(kelp::driver::dds::DomainConfigFromEnvironment({"127.0.0.1", true}, 1000U, 7U),
                  LEASE + "<Discovery><Tag>x-7</Tag></Discovery>");
    }
    const ScopedEnv kelp("KELP_DDS_CONFIG", TAG);
    for (const char* nothing : {"", "${DDS_CONFIG_TEST_UNSET}"}) {
        const ScopedEnv uri("CYCLONEDDS_URI", std::string(nothing));
        EXPECT_EQ(kelp::driver::dds::DomainConfigFromEnvironment({"127.0.0.1", true}, 1000U, 7U),
                  LEASE + LOOPBACK + "," + TAG)
            << nothing;
    }
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
                  "mismatch (Interfaces) at line 1 (CYCLONEDDS_URI+61 line 1)]"},
        {"<Bogus/>", cannot + "config: //CycloneDDS/Domain: Bogus: unknown element (CYCLONEDDS_URI+61 line 1)]"},
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
