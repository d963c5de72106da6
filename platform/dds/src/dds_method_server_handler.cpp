// SPDX-License-Identifier: Apache-2.0
// Server half of a DDS method: request delivery, and replies written with the writer of the
// requester's bucket, at once when that writer has matched the requester's reply reader and
// can write without waiting, else by the domain's reply pump.
#include "dds_method_server_handler.h"

#include <array>
#include <atomic>
#include <cstring>
#include <mutex>
#include <set>
#include <vector>

#include "ara/quill/common/log/log.h"
#include "cyclone_log.h"
#include "method_endpoint.h"

namespace kelp::driver::dds {
namespace types = brio::api::types;

namespace {
const ara::quill::common::log::LimitConfig SERVER_LOG_LIMIT{500U, 1U};
}  // namespace

struct DDSMethodServerHandler::Core : ListenerTarget {
    using Outcome = ReplyPump::Sink::Outcome;

    /// The pump's view of this core. A member, not a base: listeners get the core as a
    /// ListenerTarget through a void pointer, so that base must stay at the core's address.
    struct PumpSink final : ReplyPump::Sink {
        explicit PumpSink(Core& owner) : core(owner) {}
        Outcome TryWrite(const ReplyPump::Reply& reply) override { return core.TryWrite(reply); }
        void Expired(const ReplyPump::Reply& reply) override { core.Expired(reply); }
        Core& core;
    };

    Core(Domain& owner, const DDSMethodInfo& info)
        : domain(owner),
          requestTopicName(info.GetRequestTopicName()),
          replyTopicName(info.GetReplyTopicName()),
          livelinessLeaseMs(info.GetParticipantQos().GetLivelinessLeaseMs()),
          logger(ara::quill::common::log::Log::GetLog("CM")) {}

    bool Open();
    void DeleteEntities();
    static void OnRequest(dds_entity_t reader, void* arg);
    static void OnReplyMatched(dds_entity_t writer, dds_publication_matched_status_t status, void* arg);
    /// The GUIDs of the readers `writer` matches now.
    static std::set<types::ClientId> MatchedReaders(dds_entity_t writer);

    Outcome TryWrite(const ReplyPump::Reply& reply);
    void Expired(const ReplyPump::Reply& reply);
    /// The writer of the reply's bucket once it has matched the requester's reply reader, else
    /// 0 (and -1 once closed). Rescans the bucket's readers when a match event marked it stale.
    dds_entity_t WriterFor(const types::ClientId& client);

    Domain& domain;
    const std::string requestTopicName;
    const std::string replyTopicName;
    const std::uint32_t livelinessLeaseMs;
    const std::shared_ptr<ara::quill::common::log::Log> logger;

    Entity requestTopic;
    Entity replyTopic;
    Entity reader;
    std::array<Entity, REPLY_BUCKETS> writers;
    // The writers' handles as their listener compares them; 0 until made.
    std::array<std::atomic<dds_entity_t>, REPLY_BUCKETS> writerHandles{};

    std::mutex mutex;
    bool closed{false};
    // Per bucket: the reply readers its writer has matched, rescanned by the next writer of a
    // reply in it when a match event marked it stale.
    std::array<std::set<types::ClientId>, REPLY_BUCKETS> knownClients;
    std::array<std::atomic<bool>, REPLY_BUCKETS> stale{};
    std::atomic<std::uint32_t> queued{0U};   // replies handed to the pump, not yet written or dropped
    std::atomic<std::uint64_t> dropped{0U};  // replies dropped since the handler was made

    CallbackSlot<RequestCallback> request;
    PumpSink sink{*this};
};

bool DDSMethodServerHandler::Core::Open() {
    const dds_entity_t participant = domain.Participant();
    requestTopic =
        Entity(dds_create_topic(participant, &kelp_dds_MethodSample_desc, requestTopicName.c_str(), nullptr, nullptr));
    replyTopic =
        Entity(dds_create_topic(participant, &kelp_dds_MethodSample_desc, replyTopicName.c_str(), nullptr, nullptr));
    const Entity* failedWriter = nullptr;
    if (requestTopic.Valid() && replyTopic.Valid()) {
        for (std::uint32_t bucket = 0U; bucket < REPLY_BUCKETS; ++bucket) {
            stale[bucket].store(true);
            const Qos writerQos;
            SetMethodQos(writerQos, livelinessLeaseMs, ReplyPartitionName(bucket), 0);
            const Listener writerListener(this);
            dds_lset_publication_matched(writerListener.Get(), &Core::OnReplyMatched);
            writers[bucket] =
                Entity(dds_create_writer(participant, replyTopic.Get(), writerQos.Get(), writerListener.Get()));
            if (!writers[bucket].Valid()) {
                failedWriter = &writers[bucket];
                break;
            }
            writerHandles[bucket].store(writers[bucket].Get());
        }
        if (failedWriter == nullptr) {
            const Qos readerQos;
            SetMethodQos(readerQos, 0U);
            const Listener readerListener(this);
            dds_lset_data_available(readerListener.Get(), &Core::OnRequest);
            reader = Entity(dds_create_reader(participant, requestTopic.Get(), readerQos.Get(), readerListener.Get()));
        }
    }
    const Entity unmade;
    const struct {
        const Entity& entity;
        const char* kind;
        const std::string& topic;
    } created[] = {{requestTopic, "topic", requestTopicName},
                   {replyTopic, "topic", replyTopicName},
                   {failedWriter != nullptr ? *failedWriter : unmade, "writer", replyTopicName},
                   {failedWriter != nullptr ? unmade : reader, "reader", requestTopicName}};
    for (const auto& made : created) {
        if (!made.entity.Valid() && !made.entity.Status().Ok()) {
            if (!LogIfSecurityRefused(
                    "DDSMethodServerHandler", made.kind, made.topic, domain.Id(), made.entity.Status().Code())) {
                logger->error() << "[DDSMethodServerHandler][Endpoints cannot be created][topic=" << requestTopicName
                                << ", " << made.entity.Status().Text() << "]";
            }
            return false;
        }
    }
    return reader.Valid();
}

void DDSMethodServerHandler::Core::DeleteEntities() {
    reader.Reset();
    for (Entity& writer : writers) {
        writer.Reset();
    }
    replyTopic.Reset();
    requestTopic.Reset();
    ListenersDone();
}

void DDSMethodServerHandler::Core::OnRequest(dds_entity_t reader, void* arg) {
    const auto core = ListenerTarget::From<Core>(arg);
    const DispatchScope scope(core.get());
    while (const std::shared_ptr<SampleMsg> msg = SampleMsg::Take(reader)) {
        if (!core->request.Invoke(std::shared_ptr<types::MethodMsg>(msg))) {
            core->logger->warn("DDSMethodServerHandler_no_callback", SERVER_LOG_LIMIT)
                << "[DDSMethodServerHandler][No request callback, request dropped][topic=" << core->requestTopicName
                << ", sessionId=" << msg->sessionId << "]";
        }
    }
}

void DDSMethodServerHandler::Core::OnReplyMatched(dds_entity_t writer,
                                                  dds_publication_matched_status_t /*status*/,
                                                  void* arg) {
    const auto core = ListenerTarget::From<Core>(arg);
    bool found = false;
    for (std::uint32_t bucket = 0U; bucket < REPLY_BUCKETS; ++bucket) {
        if (core->writerHandles[bucket].load() == writer) {
            core->stale[bucket].store(true);
            found = true;
        }
    }
    if (!found) {  // still being made: its handle is not stored yet
        for (auto& flag : core->stale) {
            flag.store(true);
        }
    }
    core->domain.Replies().Wake();
}

std::set<types::ClientId> DDSMethodServerHandler::Core::MatchedReaders(dds_entity_t writer) {
    std::set<types::ClientId> found;
    std::vector<dds_instance_handle_t> handles(8U);
    dds_return_t count = 0;
    while ((count = dds_get_matched_subscriptions(writer, handles.data(), handles.size())) >
           static_cast<dds_return_t>(handles.size())) {
        handles.resize(static_cast<std::size_t>(count));
    }
    for (dds_return_t i = 0; i < count; ++i) {
        dds_builtintopic_endpoint_t* endpoint =
            dds_get_matched_subscription_data(writer, handles[static_cast<std::size_t>(i)]);
        if (endpoint != nullptr) {
            types::ClientId id{};
            std::memcpy(id.data(), endpoint->key.v, id.size());
            found.insert(id);
            dds_builtintopic_free_endpoint(endpoint);
        }
    }
    return found;
}

dds_entity_t DDSMethodServerHandler::Core::WriterFor(const types::ClientId& client) {
    const std::uint32_t bucket = ReplyBucket(client);
    std::unique_lock<std::mutex> lock(mutex);
    if (closed) {
        return -1;
    }
    const dds_entity_t writer = writers[bucket].Get();
    if (stale[bucket].exchange(false)) {
        // A match event after the exchange marks it stale again, so none is missed.
        lock.unlock();
        std::set<types::ClientId> matched = MatchedReaders(writer);
        lock.lock();
        knownClients[bucket].swap(matched);
    }
    return knownClients[bucket].count(client) != 0U ? writer : 0;
}

DDSMethodServerHandler::Core::Outcome DDSMethodServerHandler::Core::TryWrite(const ReplyPump::Reply& reply) {
    const dds_entity_t writer = WriterFor(reply.header.clientId);
    if (writer == 0) {
        return Outcome::kNotMatched;
    }
    if (writer < 0) {
        queued.fetch_sub(1U);
        return Outcome::kDropped;  // counted in the line the closing handler logged
    }
    const kelp_dds_MethodSample sample = MakeSample(reply.header,
                                                    reply.payload.empty() ? nullptr : reply.payload.data(),
                                                    static_cast<std::uint32_t>(reply.payload.size()));
    const DdsStatus status(dds_write(writer, &sample));
    if (status.Code() == DDS_RETCODE_TIMEOUT) {
        return Outcome::kBusy;  // it would have to wait for acknowledgements
    }
    queued.fetch_sub(1U);
    if (!status.Ok()) {
        dropped.fetch_add(1U);
        logger->warn("DDSMethodServerHandler_write", SERVER_LOG_LIMIT)
            << "[DDSMethodServerHandler][Reply write failed][topic=" << replyTopicName
            << ", sessionId=" << reply.header.sessionId << ", " << status.Text() << "]";
        return Outcome::kDropped;
    }
    return Outcome::kWritten;
}

void DDSMethodServerHandler::Core::Expired(const ReplyPump::Reply& reply) {
    queued.fetch_sub(1U);
    const std::uint64_t total = dropped.fetch_add(1U) + 1U;
    {
        const std::lock_guard<std::mutex> lock(mutex);
        if (closed) {
            return;
        }
    }
    logger->warn("DDSMethodServerHandler_not_matched", SERVER_LOG_LIMIT)
        << "[DDSMethodServerHandler][Reply reader not matched, reply dropped][topic=" << replyTopicName
        << ", sessionId=" << reply.header.sessionId << ", clientId=" << ClientIdText(reply.header.clientId)
        << ", waited_ms=" << ReplyPump::HOLD_LIMIT.count() << ", dropped=" << total << "]";
}

std::shared_ptr<DDSMethodServerHandler> DDSMethodServerHandler::Create(Domain& domain, const DDSMethodInfo& info) {
    auto core = std::make_shared<Core>(domain, info);
    if (!core->Open()) {
        return nullptr;
    }
    return std::make_shared<DDSMethodServerHandler>(std::move(core));
}

DDSMethodServerHandler::DDSMethodServerHandler(std::shared_ptr<Core> core) : core_(std::move(core)) {}

DDSMethodServerHandler::~DDSMethodServerHandler() {
    {
        const std::lock_guard<std::mutex> lock(core_->mutex);
        core_->closed = true;
    }
    if (const std::uint32_t left = core_->queued.load(); left != 0U) {
        core_->logger->warn()
            << "[DDSMethodServerHandler][Closed with replies not written yet, they are dropped][topic="
            << core_->replyTopicName << ", count=" << left << "]";
    }
    core_->request.Set({});
    DeleteEndpointEntities(std::move(core_));
}

void DDSMethodServerHandler::RegisterRequestCallback(RequestCallback callback) {
    core_->request.Set(std::move(callback));
}

bool DDSMethodServerHandler::SendReply(const types::MethodMsg& request,
                                       const unsigned char* payload,
                                       std::uint32_t size,
                                       bool isError) {
    Core& core = *core_;
    ReplyPump::Reply reply;
    // The reply echoes the request's header (client id and session id route it back).
    reply.header = request;
    reply.header.isRealReply = true;
    reply.header.isErrorReply = isError;
    reply.header.payload = nullptr;
    reply.header.payloadSize = 0U;
    if (payload != nullptr && size != 0U) {
        reply.payload.assign(payload, payload + size);
    }
    // Written at once on this thread when none of this server's replies waits in the pump
    // (which keeps the replies to one client in order), the client is matched and the writer
    // need not wait; otherwise by the pump.
    if (core.queued.fetch_add(1U) == 0U) {
        const Core::Outcome outcome = core.TryWrite(reply);
        if (outcome == Core::Outcome::kWritten || outcome == Core::Outcome::kDropped) {
            return true;
        }
    }
    reply.sink = std::shared_ptr<ReplyPump::Sink>(core_, &core.sink);  // keeps the core alive
    core.domain.Replies().Submit(std::move(reply));
    return true;
}

serialize::SerializeType DDSMethodServerHandler::GetSerializeType() const {
    return ProcessEncoding().type;
}

const serialize::SerializeConfig& DDSMethodServerHandler::GetSerializeConfig() const {
    return ProcessEncoding().config;
}

}  // namespace kelp::driver::dds
