// The machine manifest of emd: every kind of refusal with its full text, and a full manifest with defaults.
#include <gtest/gtest.h>

#include <string>

#include "ara/quill/common/jsonParser/crc_sidecar.h"
#include "ara_test/temp_dir.h"
#include "manifest.h"

namespace {

using namespace tarn::em::daemon;  // NOLINT(google-build-using-namespace)
namespace json = ara::quill::common::jsonParser;
using Texts = std::vector<std::string>;

const std::string MANIFEST = R"({"key": "manifest", "value": [
{"key": "functionGroups", "value": [
 {"key": "MachineFG", "value": [{"key": "states", "value": ["Startup", "Running"]}, {"key": "initialState", "value": "Running"}]},
 {"key": "Demo", "value": [{"key": "initialState", "value": "Off"}, {"key": "states", "value": ["Off", "On"]}]}]},
{"key": "processes", "value": [
 {"key": "logger", "comment": "every member", "value": [{"key": "executable", "value": "/bin/sh"},
  {"key": "arguments", "value": ["-c", ""]}, {"key": "environment", "value": ["A=b=c", "E="]},
  {"key": "workingDirectory", "value": "/tmp"}, {"key": "functionGroup", "value": "MachineFG"},
  {"key": "states", "value": ["Running", "Startup"]}, {"key": "startupTimeoutMs", "value": 3600000},
  {"key": "terminationTimeoutMs", "value": 1}, {"key": "restart", "value": [{"key": "maxRestarts", "value": 1000}]}]},
 {"key": "p", "value": [{"key": "executable", "value": "/bin/true"}, {"key": "functionGroup", "value": "Demo"},
  {"key": "states", "value": ["On"]}]}]}]})";

TEST(ManifestTest, RefusesEveryFaultWithItsPlace) {
    struct Case {
        const char* from;
        const char* to;    // nullptr: no file is written
        std::string text;  // Text() after "<file>: "
        const char* intensity = "not";
    };
    const std::string g = "manifest/functionGroups/", l = "manifest/processes/logger/", p = "manifest/processes/p/";
    const std::string notEntry = "manifest/processes[0]: expected an entry {\"key\": <non-empty text>, \"value\": ...}";
    const std::string range = ": expected a whole number from ";
    const Case cases[] = {
        {"\"Demo\", ", "\"Demo\" ", "line 4, column 17: Missing a comma or '}' after an object member."},
        {"", "", "CRC check failed: crc differs from the sidecar", "strong"},
        {"", nullptr, "cannot open a regular file", "weak"},
        {"", "", "CRC intensity \"medium\" is not one of strong, weak, not", "medium"},
        {"\"manifest\"", "\"Manifest\"", "expected the root entry {\"key\": \"manifest\", \"value\": [...]}"},
        {"Groups\", \"value\"", "Groups\", \"value\": 5, \"x\"", "manifest/functionGroups: expected a list of entries"},
        {"\"processes\", \"value\": [", "\"processes\", \"value\": [7, ", notEntry},
        {"\"processes\", \"value\": [", "\"processes\", \"value\": [{\"comment\": 1}, ", notEntry},
        {"\"workingDirectory\"", "\"cwd\"", l + "cwd: unknown member"},
        {"\"p\"", "\"logger\"", "manifest/processes/logger: duplicate process"},
        {"{\"key\": \"functionGroup\", \"value\": \"Demo\"},", "", p + "functionGroup: missing member"},
        {"\"MachineFG\", ", "\"Machine\", ", "manifest/functionGroups: missing function group MachineFG"},
        {"\"value\": \"Off\"", "\"value\": \"Dim\"", g + "Demo/initialState: unknown state"},
        {"[\"Off\", \"On\"]", "[\"Off\", \"On\", \"Off\"]", g + "Demo/states[2]: duplicate state"},
        {"[\"Off\", \"On\"]", "[]", g + "Demo/states: expected at least one state"},
        {"[\"Off\", \"On\"]", "\"Off\"", g + "Demo/states: expected a list of texts"},
        {"[\"On\"]", "[\"On\", \"Dim\"]", p + "states[1]: unknown state"},
        {"\"/bin/true\"", "\"bin/true\"", p + "executable: expected an absolute path"},
        {"\"/bin/true\"", "\"/bin/no-such-program\"", p + "executable: no such file or directory"},
        {"\"/bin/true\"", "\"/tmp\"", p + "executable: is a directory"},
        {"\"/bin/true\"", "\"/etc/passwd\"", p + "executable: not executable"},
        {"\"Demo\"}", "\"Nav\"}", p + "functionGroup: unknown function group"},
        {"\"/tmp\"", "\"/bin/true\"", l + "workingDirectory: not a directory"},
        {"\"E=\"", "\"=E\"", l + "environment[1]: expected NAME=VALUE"},
        {"\"value\": 1}", "\"value\": 0}", l + "terminationTimeoutMs" + range + "1 to 3600000"},
        {"\"value\": 1}", "\"value\": 1.0}", l + "terminationTimeoutMs" + range + "1 to 3600000"},
        {"1000", "1001", l + "restart/maxRestarts" + range + "0 to 1000"},
        {"1000", "-1", l + "restart/maxRestarts" + range + "0 to 1000"},
    };
    for (const Case& c : cases) {
        const ara_test::TempDir dir;
        if (c.to != nullptr) {
            std::string text = MANIFEST;
            dir.Write("m.json", text.replace(text.find(c.from), std::string(c.from).size(), c.to));
            dir.Write("m.json.crc32", "00000000\n");
        }
        EXPECT_EQ(LoadManifest(dir / "m.json", c.intensity).error.Text(), dir / "m.json" + ": " + c.text);
    }
}

std::vector<long> Numbers(const ProcessConfig& c) {
    return {c.startupTimeout.count(), c.terminationTimeout.count(), c.restart.maxRestarts, c.restart.backoff.count()};
}

TEST(ManifestTest, ReadsEveryMemberAndFillsDefaults) {
    const ara_test::TempDir dir;
    const std::string path = dir.Write("m.json", MANIFEST);
    ASSERT_EQ(json::WriteCrcSidecar(path), json::CrcWrite::kWritten);
    const ManifestResult result = LoadManifest(path, "strong");
    ASSERT_TRUE(result.ok) << result.error.Text();
    const FunctionGroupConfig& demo = result.manifest.functionGroups.at(1);
    EXPECT_EQ(demo.name + "/" + demo.initialState, "Demo/Off");
    EXPECT_EQ(demo.states, (Texts{"Off", "On"}));
    const ProcessConfig& full = result.manifest.processes.at(0);
    EXPECT_EQ(full.name + full.executable + full.workingDirectory + full.functionGroup, "logger/bin/sh/tmpMachineFG");
    EXPECT_EQ(full.arguments, (Texts{"-c", ""}));
    EXPECT_EQ(full.environment, (Texts{"A=b=c", "E="}));
    EXPECT_EQ(full.states, (Texts{"Running", "Startup"}));
    EXPECT_EQ(Numbers(full), (std::vector<long>{3600000, 1, 1000, 1000}));
    const ProcessConfig& least = result.manifest.processes.at(1);
    EXPECT_EQ(least.workingDirectory + std::to_string(least.arguments.size() + least.environment.size()), "/0");
    EXPECT_EQ(Numbers(least), (std::vector<long>{3000, 2000, 0, 1000}));
}

}  // namespace
