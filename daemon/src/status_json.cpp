// SPDX-License-Identifier: Apache-2.0
// JSON of emd's own service: escaping, the writer and the four answers.
#include "status_json.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <optional>

#include "utf8.h"

namespace tarn::em::daemon {

std::string JsonString(std::string_view text) {
    std::string out;
    out.reserve(text.size() + 2U);
    out += '"';
    for (std::size_t i = 0U; i < text.size();) {
        const auto c = static_cast<unsigned char>(text[i]);
        if (c >= 0x80U) {
            const std::size_t length = Utf8Length(text, i);
            if (length == 0U) {
                out += "\\ufffd";
                ++i;
            } else {
                out.append(text.substr(i, length));
                i += length;
            }
            continue;
        }
        switch (c) {
            case '"':
                out += "\\\"";
                break;
            case '\\':
                out += "\\\\";
                break;
            case '\b':
                out += "\\b";
                break;
            case '\f':
                out += "\\f";
                break;
            case '\n':
                out += "\\n";
                break;
            case '\r':
                out += "\\r";
                break;
            case '\t':
                out += "\\t";
                break;
            default:
                if (c < 0x20U) {
                    char escaped[8];
                    std::snprintf(escaped, sizeof(escaped), "\\u%04x", static_cast<unsigned int>(c));
                    out += escaped;
                } else {
                    out += static_cast<char>(c);
                }
        }
        ++i;
    }
    out += '"';
    return out;
}

void JsonWriter::BeforeValue() {
    if (afterKey_) {
        afterKey_ = false;
        return;
    }
    if (!empty_.empty()) {
        if (!empty_.back()) {
            text_ += ", ";
        }
        empty_.back() = false;
    }
}

void JsonWriter::Open(char bracket) {
    BeforeValue();
    text_ += bracket;
    empty_.push_back(true);
}

JsonWriter& JsonWriter::BeginObject() {
    Open('{');
    return *this;
}

JsonWriter& JsonWriter::EndObject() {
    empty_.pop_back();
    text_ += '}';
    return *this;
}

JsonWriter& JsonWriter::BeginArray() {
    Open('[');
    return *this;
}

JsonWriter& JsonWriter::EndArray() {
    empty_.pop_back();
    text_ += ']';
    return *this;
}

JsonWriter& JsonWriter::Key(std::string_view name) {
    BeforeValue();
    text_ += JsonString(name);
    text_ += ": ";
    afterKey_ = true;
    return *this;
}

JsonWriter& JsonWriter::String(std::string_view text) {
    BeforeValue();
    text_ += JsonString(text);
    return *this;
}

JsonWriter& JsonWriter::StringOrNull(std::string_view text) {
    return text.empty() ? Null() : String(text);
}

JsonWriter& JsonWriter::Number(std::int64_t value) {
    BeforeValue();
    text_ += std::to_string(value);
    return *this;
}

JsonWriter& JsonWriter::Bool(bool value) {
    BeforeValue();
    text_ += value ? "true" : "false";
    return *this;
}

JsonWriter& JsonWriter::Null() {
    BeforeValue();
    text_ += "null";
    return *this;
}

namespace {

void Dependencies(JsonWriter& json, const std::vector<Dependency>& dependsOn) {
    json.Key("dependsOn").BeginArray();
    for (const Dependency& dependency : dependsOn) {
        json.BeginObject()
            .Key("process")
            .String(dependency.process)
            .Key("condition")
            .String(ConditionName(dependency.condition))
            .EndObject();
    }
    json.EndArray();
}

void Milliseconds(JsonWriter& json, const std::optional<std::chrono::milliseconds>& value) {
    if (value) {
        json.Number(value->count());
    } else {
        json.Null();
    }
}

}  // namespace

std::string ProcessStatusJson(const ProcessStatus& status) {
    JsonWriter json;
    json.BeginObject().Key("name").String(status.name).Key("functionGroup").String(status.functionGroup);
    json.Key("phase").String(status.phase).Key("pid");
    if (status.pid > 0) {
        json.Number(status.pid);
    } else {
        json.Null();
    }
    json.Key("readiness").String(ReadinessName(status.readiness));
    json.Key("statusText").StringOrNull(status.statusText);
    json.Key("restarts").Number(status.restarts);
    json.Key("lastExit").StringOrNull(status.lastExit);
    json.Key("readyAfterMs");
    Milliseconds(json, status.readyAfter);
    json.Key("watchdogMs").Number(status.watchdog.count());
    json.Key("sinceWatchdogMs");
    Milliseconds(json, status.sinceWatchdog);
    Dependencies(json, status.dependsOn);
    for (const auto& [key, bytes] :
         {std::pair{"memoryBytes", status.memoryBytes}, {"memoryMaxBytes", status.memoryMax}}) {
        json.Key(key);
        if (bytes) {
            json.Number(static_cast<std::int64_t>(std::min<std::uint64_t>(*bytes, INT64_MAX)));
        } else {
            json.Null();
        }
    }
    json.Key("cpuMs");
    std::optional<std::chrono::milliseconds> cpu;
    if (status.cpuUsec) {
        cpu = std::chrono::milliseconds(static_cast<std::chrono::milliseconds::rep>(*status.cpuUsec / 1000U));
    }
    Milliseconds(json, cpu);
    return json.EndObject().Text();
}

std::string GroupStatusJson(const GroupStatus& status) {
    JsonWriter json;
    json.BeginObject().Key("name").String(status.name);
    json.Key("state").StringOrNull(status.state);
    json.Key("target").StringOrNull(status.target);
    json.Key("failed").Bool(status.failed);
    json.Key("onFailure").StringOrNull(status.onFailure);
    json.Key("lastResult").StringOrNull(status.lastResult);
    json.Key("escalatedFrom").StringOrNull(status.escalatedFrom);
    return json.EndObject().Text();
}

std::string BlameJson(const std::string& group, const std::vector<BlameEntry>& entries) {
    JsonWriter json;
    json.BeginObject().Key("functionGroup").StringOrNull(group).Key("processes").BeginArray();
    for (const BlameEntry& entry : entries) {
        json.BeginObject()
            .Key("name")
            .String(entry.process)
            .Key("functionGroup")
            .String(entry.functionGroup)
            .Key("readyAfterMs")
            .Number(entry.readyAfter.count())
            .EndObject();
    }
    return json.EndArray().EndObject().Text();
}

std::string DependenciesJson(const Manifest& manifest) {
    JsonWriter json;
    json.BeginObject().Key("processes").BeginArray();
    for (const ProcessConfig& process : manifest.processes) {
        json.BeginObject().Key("name").String(process.name).Key("functionGroup").String(process.functionGroup);
        Dependencies(json, process.dependsOn);
        json.EndObject();
    }
    return json.EndArray().EndObject().Text();
}

}  // namespace tarn::em::daemon
