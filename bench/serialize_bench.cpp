// SPDX-License-Identifier: Apache-2.0
// Cost of sizing and writing the three requests, and of decoding process lists of 1, 10 and
// 100 entries, in the SOME/IP and the DDS encoding.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>
#include <vector>

#include "ara/exec/execution_state.h"
#include "ara/exec/process.h"
#include "kelp/brio/serialize/params_serializer.h"
#include "kelp/serialize/dds/deserializer.h"
#include "kelp/serialize/dds/serializer.h"
#include "kelp/serialize/someip/deserializer.h"
#include "kelp/serialize/someip/serializer.h"

namespace {

using ara::exec::ExecutionState;
using ara::exec::Process;
using kelp::brio::serialize::ParamsSerializer;
using kelp::serialize::SerializationNode;
using kelp::serialize::SerializeConfig;
using kelp::serialize::SerializeType;

SerializeType TypeOf(const benchmark::State& state) {
    return state.range(0) == 0 ? SerializeType::kDds : SerializeType::kSomeip;
}

const ara::core::String FUNCTION_GROUP = "MachineFG";
const ara::core::String FG_STATE = "Running";
const ara::core::String PROCESS_NAME = "platform_health_manager";

template <typename... Args>
void SizeRequest(benchmark::State& state, const Args&... args) {
    const SerializationNode node;
    const SerializeConfig config;
    for (auto _ : state) {
        ParamsSerializer serializer(nullptr, TypeOf(state), node, config);
        benchmark::DoNotOptimize(serializer.GetSerializedSize(args...));
    }
}

template <typename... Args>
void SizeAndWriteRequest(benchmark::State& state, const Args&... args) {
    const SerializationNode node;
    const SerializeConfig config;
    std::vector<unsigned char> payload(256U);
    for (auto _ : state) {
        ParamsSerializer serializer(nullptr, TypeOf(state), node, config);
        const std::uint64_t size = serializer.GetSerializedSize(args...);
        serializer.SerializeArguments(payload.data(), args...);
        benchmark::DoNotOptimize(size);
        benchmark::ClobberMemory();
    }
}

void BM_SizeReportExecutionState(benchmark::State& state) {
    SizeRequest(state, 4242, ExecutionState::kRunning);
}
void BM_SizeSetState(benchmark::State& state) {
    SizeRequest(state, FUNCTION_GROUP, FG_STATE);
}
void BM_SizeProcessRestart(benchmark::State& state) {
    SizeRequest(state, PROCESS_NAME, true);
}
void BM_WriteReportExecutionState(benchmark::State& state) {
    SizeAndWriteRequest(state, 4242, ExecutionState::kRunning);
}
void BM_WriteSetState(benchmark::State& state) {
    SizeAndWriteRequest(state, FUNCTION_GROUP, FG_STATE);
}
void BM_WriteProcessRestart(benchmark::State& state) {
    SizeAndWriteRequest(state, PROCESS_NAME, true);
}

std::vector<Process> MakeList(std::int64_t count) {
    std::vector<Process> list;
    for (std::int64_t i = 0; i < count; ++i) {
        list.push_back(Process{"process_" + std::to_string(i), "MachineFG", "Running", "kRunning", (i % 2) == 0});
    }
    return list;
}

void BM_DecodeProcessList(benchmark::State& state) {
    const std::vector<Process> list = MakeList(state.range(1));
    const SerializeConfig config;
    std::vector<unsigned char> bytes;
    if (TypeOf(state) == SerializeType::kSomeip) {
        kelp::serialize::someip::Serializer<std::vector<Process>> writer(list, config);
        bytes.resize(writer.GetSize());
        kelp::serialize::someip::Serializer<std::vector<Process>>(list, config, nullptr, bytes.size())
            .Serialize(bytes.data());
        for (auto _ : state) {
            const kelp::serialize::someip::Deserializer<std::vector<Process>> reader(
                bytes.data(), bytes.size(), config);
            benchmark::DoNotOptimize(reader.GetSize());
            benchmark::DoNotOptimize(reader.GetValue());
        }
    } else {
        kelp::serialize::dds::Serializer<std::vector<Process>> writer(list, config);
        bytes.resize(writer.GetSize());
        kelp::serialize::dds::Serializer<std::vector<Process>>(list, config, bytes.size()).Serialize(bytes.data());
        for (auto _ : state) {
            const kelp::serialize::dds::Deserializer<std::vector<Process>> reader(bytes.data(), bytes.size(), config);
            benchmark::DoNotOptimize(reader.GetSize());
            benchmark::DoNotOptimize(reader.GetValue());
        }
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(bytes.size()));
}

// Argument 0: encoding (0 DDS, 2 SOME/IP).
BENCHMARK(BM_SizeReportExecutionState)->ArgName("encoding")->Arg(0)->Arg(2);
BENCHMARK(BM_SizeSetState)->ArgName("encoding")->Arg(0)->Arg(2);
BENCHMARK(BM_SizeProcessRestart)->ArgName("encoding")->Arg(0)->Arg(2);
BENCHMARK(BM_WriteReportExecutionState)->ArgName("encoding")->Arg(0)->Arg(2);
BENCHMARK(BM_WriteSetState)->ArgName("encoding")->Arg(0)->Arg(2);
BENCHMARK(BM_WriteProcessRestart)->ArgName("encoding")->Arg(0)->Arg(2);
BENCHMARK(BM_DecodeProcessList)->ArgNames({"encoding", "entries"})->ArgsProduct({{0, 2}, {1, 10, 100}});

}  // namespace

BENCHMARK_MAIN();
