// SPDX-License-Identifier: Apache-2.0
// Client half of a DDS method: matching, request writes, reply routing and state reports.
#include "dds_method_handler.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <map>
#include <mutex>

#include "ara/quill/common/log/log.h"
#include "cyclone_log.h"
#include "method_endpoint.h"
#include "service_directory.h"

namespace kelp::driver::dds {
namespace types = brio::api::types;

namespace {
constexpr std::chrono::milliseconds MATCH_WAIT{1000};
const ara::quill::common::log::LimitConfig HANDLER_LOG_LIMIT{500U, 1U};
}  // namespace

struct DDSMethodHandler::Core : ListenerTarget, std::enable_shared_from_this<DDSMethodHandler::Core> {
    Core(Domain& owner, const DDSMethodInfo& info)
        : domain(owner),
          serviceId(info.GetServiceId()),
          requestTopicName(info.GetRequestTopicName()),
          replyTopicName(info.GetReplyTopicName()),
          logger(ara::quill::common::log::Log::GetLog("CM")) {}

    bool Open();
    void DeleteEntities();
    void Close();

    static bool AcceptReply(const void* sample, void* arg);
    static void OnReply(dds_entity_t reader, void* arg);
    static void OnWriterMatched(dds_entity_t writer, dds_publication_matched_status_t status, void* arg);
    static void OnReaderMatched(dds_entity_t reader, dds_subscription_matched_status_t status, void* arg);
    static void OnLiveliness(dds_entity_t reader, dds_liveliness_changed_status_t status, void* arg);
    void UpdateMatch(std::uint32_t Core::*count, std::uint32_t value);
    void ReportStateChanges();

    Domain& domain;
    const std::uint16_t serviceId;
    const std::string requestTopicName;
    const std::string replyTopicName;
    const std::shared_ptr<ara::quill::common::log::Log> logger;

    Entity requestTopic;
    Entity replyTopic;
    Entity writer;
    Entity reader;
    types::ClientId clientId{};
    std::atomic<bool> clientIdSet{false};

    std::mutex mutex;
    std::condition_variable matchChanged;
    std::uint32_t serverReaders{0U};  // readers the request writer matched
    std::uint32_t serverWriters{0U};  // writers the reply reader matched
    std::uint32_t aliveWriters{0U};   // of those, alive by their liveliness lease
    bool available{false};
    bool closed{false};
    std::deque<bool> stateChanges;  // not yet reported, oldest first
    std::shared_ptr<brio::utils::stats::MethodProxyStats> stats;

    CallbackSlot<ReplyCallback> reply;
    CallbackSlot<StateChangeHandler> state;

    std::mutex buffersMutex;
    std::map<const unsigned char*, std::unique_ptr<unsigned char[]>> buffers;
};

bool DDSMethodHandler::Core::Open() {
    const dds_entity_t participant = domain.Participant();
    requestTopic =
        Entity(dds_create_topic(participant, &kelp_dds_MethodSample_desc, requestTopicName.c_str(), nullptr, nullptr));
    // A topic entity of this handler's own, so that the filter applies to its reader only. It
    // admits nothing until the client id is known, and no request is sent before that.
    replyTopic =
        Entity(dds_create_topic(participant, &kelp_dds_MethodSample_desc, replyTopicName.c_str(), nullptr, nullptr));
    if (!requestTopic.Valid() || !replyTopic.Valid()) {
        const Entity& failed = requestTopic.Valid() ? replyTopic : requestTopic;
        const std::string& name = requestTopic.Valid() ? replyTopicName : requestTopicName;
        if (!LogIfSecurityRefused("DDSMethodHandler", "topic", name, domain.Id(), failed.Status().Code())) {
            logger->error() << "[DDSMethodHandler][Topic cannot be created][topic=" << name << ", "
                            << failed.Status().Text() << "]";
        }
        return false;
    }
    dds_topic_filter filter{};
    filter.mode = DDS_TOPIC_FILTER_SAMPLE_ARG;
    filter.f.sample_arg = &Core::AcceptReply;
    filter.arg = this;
    const DdsStatus filtered(dds_set_topic_filter_extended(replyTopic.Get(), &filter));

    const Qos qos;
    SetMethodQos(qos, 0U);
    const Listener writerListener(this);
    dds_lset_publication_matched(writerListener.Get(), &Core::OnWriterMatched);
    writer = Entity(dds_create_writer(participant, requestTopic.Get(), qos.Get(), writerListener.Get()));
    // In the reply bucket of this process: a server writes each reply in its requester's.
    const Qos readerQos;
    SetMethodQos(readerQos, 0U, domain.ReplyPartition());
    const Listener readerListener(this);
    dds_lset_data_available(readerListener.Get(), &Core::OnReply);
    dds_lset_subscription_matched(readerListener.Get(), &Core::OnReaderMatched);
    dds_lset_liveliness_changed(readerListener.Get(), &Core::OnLiveliness);
    reader = Entity(dds_create_reader(participant, replyTopic.Get(), readerQos.Get(), readerListener.Get()));
    dds_guid_t guid{};
    const DdsStatus identified(reader.Valid() ? dds_get_guid(reader.Get(), &guid) : DDS_RETCODE_OK);
    if (!filtered.Ok() || !writer.Valid() || !reader.Valid() || !identified.Ok()) {
        const DdsStatus& failed = !filtered.Ok()    ? filtered
                                  : !writer.Valid() ? writer.Status()
                                  : !reader.Valid() ? reader.Status()
                                                    : identified;
        const bool refused = LogIfSecurityRefused("DDSMethodHandler",
                                                  !writer.Valid() ? "writer" : "reader",
                                                  !writer.Valid() ? requestTopicName : replyTopicName,
                                                  domain.Id(),
                                                  failed.Code());
        if (!refused) {
            logger->error() << "[DDSMethodHandler][Endpoints cannot be created][topic=" << requestTopicName << ", "
                            << failed.Text() << "]";
        }
        return false;
    }
    static_assert(sizeof(guid.v) == sizeof(types::ClientId), "a client id is a GUID");
    std::memcpy(clientId.data(), guid.v, clientId.size());
    clientIdSet.store(true, std::memory_order_release);
    return true;
}

void DDSMethodHandler::Core::DeleteEntities() {
    reader.Reset();
    writer.Reset();
    replyTopic.Reset();
    requestTopic.Reset();
    ListenersDone();
}

void DDSMethodHandler::Core::Close() {
    {
        const std::lock_guard<std::mutex> lock(mutex);
        closed = true;
    }
    matchChanged.notify_all();
    reply.Set({});
    state.Set({});
}

bool DDSMethodHandler::Core::AcceptReply(const void* sample, void* arg) {
    const auto core = ListenerTarget::From<const Core>(arg);
    return core->clientIdSet.load(std::memory_order_acquire) &&
           std::memcmp(static_cast<const kelp_dds_MethodSample*>(sample)->clientId,
                       core->clientId.data(),
                       core->clientId.size()) == 0;
}

void DDSMethodHandler::Core::OnReply(dds_entity_t reader, void* arg) {
    const auto core = ListenerTarget::From<Core>(arg);
    const DispatchScope scope(core.get());
    while (const std::shared_ptr<SampleMsg> msg = SampleMsg::Take(reader)) {
        if (msg->clientId != core->clientId) {
            continue;  // the topic filter already keeps them out
        }
        if (!core->reply.Invoke(std::shared_ptr<types::MethodMsg>(msg))) {
            core->logger->debug() << "[DDSMethodHandler][No reply callback, reply dropped][topic="
                                  << core->replyTopicName << ", sessionId=" << msg->sessionId << "]";
        }
    }
}

void DDSMethodHandler::Core::OnWriterMatched(dds_entity_t /*writer*/,
                                             dds_publication_matched_status_t status,
                                             void* arg) {
    ListenerTarget::From<Core>(arg)->UpdateMatch(&Core::serverReaders, status.current_count);
}

void DDSMethodHandler::Core::OnReaderMatched(dds_entity_t /*reader*/,
                                             dds_subscription_matched_status_t status,
                                             void* arg) {
    ListenerTarget::From<Core>(arg)->UpdateMatch(&Core::serverWriters, status.current_count);
}

void DDSMethodHandler::Core::OnLiveliness(dds_entity_t /*reader*/, dds_liveliness_changed_status_t status, void* arg) {
    ListenerTarget::From<Core>(arg)->UpdateMatch(&Core::aliveWriters, status.alive_count);
}

void DDSMethodHandler::Core::UpdateMatch(std::uint32_t Core::*count, std::uint32_t value) {
    bool changed = false;
    {
        const std::lock_guard<std::mutex> lock(mutex);
        this->*count = value;
        const bool now = serverReaders > 0U && serverWriters > 0U && aliveWriters > 0U;
        if (now != available && !closed) {
            available = now;
            stateChanges.push_back(now);
            changed = true;
        }
    }
    matchChanged.notify_all();
    if (changed) {
        // Reported in order on the worker, never inside Cyclone's listener.
        domain.Post([weak = weak_from_this()] {
            if (const auto core = weak.lock()) {
                core->ReportStateChanges();
            }
        });
    }
}

void DDSMethodHandler::Core::ReportStateChanges() {
    for (;;) {
        bool now = false;
        {
            const std::lock_guard<std::mutex> lock(mutex);
            if (stateChanges.empty() || closed) {
                return;
            }
            now = stateChanges.front();
            stateChanges.pop_front();
        }
        if (now) {
            logger->info() << "[DDSMethodHandler][Server matched][topic=" << requestTopicName << "]";
        } else {
            logger->warn() << "[DDSMethodHandler][Server lost][topic=" << requestTopicName << "]";
        }
        domain.Directory().SetMethodMatched(serviceId, this, now);
        (void)state.Invoke(now ? types::MethodState::kAvailable : types::MethodState::kUnavailable);
    }
}

std::shared_ptr<DDSMethodHandler> DDSMethodHandler::Create(Domain& domain, const DDSMethodInfo& info) {
    auto core = std::make_shared<Core>(domain, info);
    // Known to the directory before its endpoints exist: their listeners may report the first
    // match at once, and a report for an unknown method is ignored.
    domain.Directory().AddMethod(core->serviceId, core.get());
    if (!core->Open()) {
        domain.Directory().RemoveMethod(core->serviceId, core.get());
        return nullptr;
    }
    core->logger->debug() << "[DDSMethodHandler][Created][topic=" << core->requestTopicName
                          << ", clientId=" << ClientIdText(core->clientId) << "]";
    return std::make_shared<DDSMethodHandler>(std::move(core));
}

DDSMethodHandler::DDSMethodHandler(std::shared_ptr<Core> core) : core_(std::move(core)) {}

DDSMethodHandler::~DDSMethodHandler() {
    core_->domain.Directory().RemoveMethod(core_->serviceId, core_.get());
    core_->Close();
    DeleteEndpointEntities(std::move(core_));
}

void DDSMethodHandler::RegisterReplyCallback(ReplyCallback callback) {
    core_->reply.Set(std::move(callback));
}

unsigned char* DDSMethodHandler::AllocateRequestBuffer(const std::shared_ptr<types::MethodMsg>& /*msg*/,
                                                       std::uint32_t size) {
    if (size == 0U) {
        return nullptr;
    }
    std::unique_ptr<unsigned char[]> buffer(new (std::nothrow) unsigned char[size]);
    unsigned char* address = buffer.get();
    if (address != nullptr) {
        const std::lock_guard<std::mutex> lock(core_->buffersMutex);
        core_->buffers.emplace(address, std::move(buffer));
    }
    return address;
}

void DDSMethodHandler::ReturnBuffer(const unsigned char* payload) {
    // Reply payloads belong to their message record; only unsent request buffers are ours.
    std::unique_ptr<unsigned char[]> released;
    const std::lock_guard<std::mutex> lock(core_->buffersMutex);
    const auto it = core_->buffers.find(payload);
    if (it != core_->buffers.end()) {
        released = std::move(it->second);
        core_->buffers.erase(it);
    }
}

bool DDSMethodHandler::SendRequest(const unsigned char* payload, std::uint32_t size, std::uint16_t sessionId) {
    Core& core = *core_;
    std::unique_ptr<unsigned char[]> owned;  // an allocated buffer goes with this call, sent or not
    {
        const std::lock_guard<std::mutex> lock(core.buffersMutex);
        const auto it = core.buffers.find(payload);
        if (it != core.buffers.end()) {
            owned = std::move(it->second);
            core.buffers.erase(it);
        }
    }
    {
        std::unique_lock<std::mutex> lock(core.mutex);
        if (!core.matchChanged.wait_for(lock, MATCH_WAIT, [&core] { return core.closed || core.available; }) ||
            core.closed) {
            const char* const cause = core.closed                ? "Handler closed"
                                      : core.serverReaders == 0U ? "Request writer not matched"
                                      : core.serverWriters == 0U ? "Reply reader not matched"
                                                                 : "Server not alive";
            lock.unlock();
            core.logger->warn("DDSMethodHandler_not_matched", HANDLER_LOG_LIMIT)
                << "[DDSMethodHandler][" << cause << "][topic=" << core.requestTopicName << ", sessionId=" << sessionId
                << "]";
            return false;
        }
    }
    types::MethodMsg request = types::MethodMsg::MakeRequest(sessionId);
    request.clientId = core.clientId;
    const kelp_dds_MethodSample sample = MakeSample(request, payload, size);
    const DdsStatus status(dds_write(core.writer.Get(), &sample));
    if (!status.Ok()) {
        core.logger->warn("DDSMethodHandler_write", HANDLER_LOG_LIMIT)
            << "[DDSMethodHandler][Request write failed][topic=" << core.requestTopicName << ", sessionId=" << sessionId
            << ", " << status.Text() << "]";
        return false;
    }
    return true;
}

serialize::SerializeType DDSMethodHandler::GetSerializeType() const {
    return ProcessEncoding().type;
}

const serialize::SerializeConfig& DDSMethodHandler::GetSerializeConfig() const {
    return ProcessEncoding().config;
}

void DDSMethodHandler::SetMethodStateChangeHandler(StateChangeHandler handler) {
    core_->state.Set(std::move(handler));
}

void DDSMethodHandler::UnsetMethodStateChangeHandler() {
    core_->state.Set({});
}

void DDSMethodHandler::SetMethodProxyStats(const std::shared_ptr<brio::utils::stats::MethodProxyStats>& stats) {
    const std::lock_guard<std::mutex> lock(core_->mutex);
    core_->stats = stats;
}

}  // namespace kelp::driver::dds
