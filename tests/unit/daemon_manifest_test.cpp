// SPDX-License-Identifier: Apache-2.0
// The machine manifest of emd: the refusals that tests/support/scripts/manifest_schema_agrees.py
// (which checks emd's place and problem for every other kind) does not reach, and a full
// manifest read back member by member with its defaults.
#include <gtest/gtest.h>

#include <string>

#include "ara/quill/common/jsonParser/crc_sidecar.h"
#include "ara/quill/common/jsonParser/document.h"
#include "ara_test/temp_dir.h"
#include "manifest.h"

namespace {

using namespace tarn::em::daemon;  // NOLINT(google-build-using-namespace)
namespace json = ara::quill::common::jsonParser;
using Texts = std::vector<std::string>;

const std::string MANIFEST = R"({"$schema": "manifest.schema.json", "functionGroups": {
 "MachineFG": {"states": ["Startup", "Running", "Degraded"], "initialState": "Running", "onFailure": "Degraded"},
 "Demo": {"initialState": "Off", "states": ["Off", "On"]}},
"processes": {
 "db": {"executable": "/bin/sh", "arguments": ["-c", ""], "environment": {"A": "b=c", "E": ""},
  "workingDirectory": "/", "functionGroup": "MachineFG", "states": ["Running", "Startup"],
  "startupTimeoutMs": 3600000, "terminationTimeoutMs": 1, "readiness": "notify", "watchdogMs": 2000,
  "restart": {"maxRestarts": 1000, "backoffMs": 100, "backoffMaxMs": 2000, "windowMs": 86400000}},
 "migrate": {"executable": "/bin/true", "functionGroup": "MachineFG", "states": ["Running"], "readiness": "spawn",
  "dependsOn": {"db": "running"}},
 "app": {"executable": "/bin/true", "functionGroup": "MachineFG", "states": ["Running"],
  "dependsOn": {"db": "running", "migrate": "terminated"}},
 "a/b~c": {"executable": "/bin/true", "functionGroup": "Demo", "states": ["On"]}}})";

TEST(ManifestTest, RefusesWithItsPlace) {
    struct Case {
        const char* from;  // nullptr: `to` is the whole text
        const char* to;    // nullptr: no file is written
        std::string text;  // Text() after "<file>: "
        const char* intensity = "not";
    };
    const std::string g = "/functionGroups/", d = "/processes/db/", a = "/processes/app/", x = "/processes/a~1b~0c/";
    const std::string deep = "[\"-c\", " + std::string(125U, '[') + std::string(125U, ']') + "]";
    const std::string large = std::string(json::Document::MAX_FILE_SIZE, ' ') + "{}";
    const Case cases[] = {
        {"\"a/b~c\": {", "\"a/b~c\" {", "line 13, column 10: Missing a colon after a name of object member."},
        {"[\"-c\", \"\"]", deep.c_str(), "line 5, column 178: nested deeper than 128"},
        {"{", "{", "CRC check failed: crc differs from the sidecar", "strong"},
        {"{", nullptr, "cannot open a regular file", "weak"},
        {"{", "{", "CRC intensity \"medium\" is not one of strong, weak, not", "medium"},
        {nullptr, large.c_str(), "larger than 4194304 bytes"},
        {nullptr, "[]", "expected an object"},
        {"[\"Off\", \"On\"]", "[\"Off\", 1]", g + "Demo/states/1: expected a text"},
        {"[\"Off\", \"On\"]", "{}", g + "Demo/states: expected an array of texts"},
        {"\"a/b~c\"", "\"\"", "/processes/: empty name"},
        {"\"/bin/sh\"", "\"/dev/null\"", d + "executable: not a regular file"},
        {"[\"On\"]", "[\"On\", \"Dim\"]", x + "states/1: unknown state"},
        {"\"terminationTimeoutMs\": 1",
         "\"terminationTimeoutMs\": 1e0",
         d + "terminationTimeoutMs: expected a whole number from 1 to 3600000"},
        {"\"migrate\": \"terminated\"",
         "\"a/b~c\": \"running\"",
         a + "dependsOn/a~1b~0c: a/b~c is in function group Demo, not MachineFG"},
        {"{\"db\": \"running\"}}",
         "{\"app\": \"running\"}}",
         "/processes/migrate/dependsOn/app: dependency cycle: migrate -> app -> migrate"},
    };
    for (const Case& c : cases) {
        const ara_test::TempDir dir;
        if (c.to != nullptr) {
            std::string text = c.from == nullptr ? c.to : MANIFEST;
            if (c.from != nullptr) {
                ASSERT_NE(text.find(c.from), std::string::npos) << c.from;
                text.replace(text.find(c.from), std::string(c.from).size(), c.to);
            }
            dir.Write("m.json", text);
            dir.Write("m.json.crc32", "00000000\n");
        }
        EXPECT_EQ(LoadManifest(dir / "m.json", c.intensity).error.Text(), dir / "m.json" + ": " + c.text);
    }
}

std::vector<long> Numbers(const ProcessConfig& c) {
    return {c.startupTimeout.count(),
            c.terminationTimeout.count(),
            c.restart.maxRestarts,
            c.restart.backoff.count(),
            c.restart.backoffMax.count(),
            c.restart.window.count(),
            c.watchdog.count()};
}

std::string Dependencies(const ProcessConfig& process) {
    std::string text;
    for (const Dependency& dependency : process.dependsOn) {
        text += dependency.process + ":" + ConditionName(dependency.condition) + " ";
    }
    return text;
}

TEST(ManifestTest, ReadsEveryMemberAndFillsDefaults) {
    const ara_test::TempDir dir;
    const std::string path = dir.Write("m.json", MANIFEST);
    ASSERT_EQ(json::WriteCrcSidecar(path), json::CrcWrite::kWritten);
    const ManifestResult result = LoadManifest(path, "strong");
    ASSERT_TRUE(result.ok) << result.error.Text();
    const auto& groups = result.manifest.functionGroups;
    ASSERT_EQ(groups.size(), 2U);
    EXPECT_EQ(groups[0].name + "/" + groups[0].initialState + "/" + groups[0].onFailure, "MachineFG/Running/Degraded");
    EXPECT_EQ(groups[1].name + "/" + groups[1].initialState + "/" + groups[1].onFailure, "Demo/Off/");
    EXPECT_EQ(groups[1].states, (Texts{"Off", "On"}));
    const auto& processes = result.manifest.processes;
    ASSERT_EQ(processes.size(), 4U);
    const ProcessConfig& db = processes[0];
    EXPECT_EQ(db.name + db.executable + db.workingDirectory + db.functionGroup, "db/bin/sh/MachineFG");
    EXPECT_EQ(db.arguments, (Texts{"-c", ""}));
    EXPECT_EQ(db.environment, (Texts{"A=b=c", "E="}));
    EXPECT_EQ(db.states, (Texts{"Running", "Startup"}));
    EXPECT_EQ(Numbers(db), (std::vector<long>{3600000, 1, 1000, 100, 2000, 86400000, 2000}));
    EXPECT_EQ(std::string(ReadinessName(db.readiness)) + ReadinessName(processes[1].readiness) +
                  ReadinessName(processes[2].readiness),
              "notifyspawnreport");
    EXPECT_EQ(Dependencies(processes[1]) + "/ " + Dependencies(processes[2]),
              "db:running / db:running migrate:terminated ");
    const ProcessConfig& least = processes[3];
    EXPECT_EQ(least.name + least.workingDirectory +
                  std::to_string(least.arguments.size() + least.environment.size() + least.dependsOn.size()),
              "a/b~c/0");
    EXPECT_EQ(Numbers(least), (std::vector<long>{3000, 2000, 0, 1000, 0, 0, 0}));
}

}  // namespace
