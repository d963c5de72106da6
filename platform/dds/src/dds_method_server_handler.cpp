// Server half of a DDS method: request delivery, and replies written once the requesting
// client's reply reader is matched.
#include "dds_method_server_handler.h"

#include <chrono>
#include <condition_variable>
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
constexpr std::chrono::milliseconds CLIENT_MATCH_WAIT{500};
const ara::quill::common::log::LimitConfig SERVER_LOG_LIMIT{500U, 1U};
}  // namespace

struct DDSMethodServerHandler::Core : ListenerTarget {
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
    /// Adds the GUIDs of all readers the reply writer matches now to `clients`.
    void ScanMatchedReaders(std::set<types::ClientId>& found) const;
    bool WaitForClient(const types::ClientId& client);

    Domain& domain;
    const std::string requestTopicName;
    const std::string replyTopicName;
    const std::uint32_t livelinessLeaseMs;
    const std::shared_ptr<ara::quill::common::log::Log> logger;

    Entity requestTopic;
    Entity replyTopic;
    Entity reader;
    Entity writer;

    std::mutex mutex;
    std::condition_variable matchChanged;
    std::uint64_t matchEvents{0U};
    std::set<types::ClientId> knownClients;  // reply readers seen matched; cleared on any unmatch
    bool closed{false};

    CallbackSlot<RequestCallback> request;
};

bool DDSMethodServerHandler::Core::Open() {
    const dds_entity_t participant = domain.Participant();
    requestTopic =
        Entity(dds_create_topic(participant, &kelp_dds_MethodSample_desc, requestTopicName.c_str(), nullptr, nullptr));
    replyTopic =
        Entity(dds_create_topic(participant, &kelp_dds_MethodSample_desc, replyTopicName.c_str(), nullptr, nullptr));
    if (requestTopic.Valid() && replyTopic.Valid()) {
        const Qos writerQos;
        SetMethodQos(writerQos, livelinessLeaseMs);
        const Listener writerListener(this);
        dds_lset_publication_matched(writerListener.Get(), &Core::OnReplyMatched);
        writer = Entity(dds_create_writer(participant, replyTopic.Get(), writerQos.Get(), writerListener.Get()));
        const Qos readerQos;
        SetMethodQos(readerQos, 0U);
        const Listener readerListener(this);
        dds_lset_data_available(readerListener.Get(), &Core::OnRequest);
        reader = Entity(dds_create_reader(participant, requestTopic.Get(), readerQos.Get(), readerListener.Get()));
    }
    const struct {
        const Entity& entity;
        const char* kind;
        const std::string& topic;
    } created[] = {{requestTopic, "topic", requestTopicName},
                   {replyTopic, "topic", replyTopicName},
                   {writer, "writer", replyTopicName},
                   {reader, "reader", requestTopicName}};
    for (const auto& made : created) {
        if (!made.entity.Valid()) {
            if (!LogIfSecurityRefused(
                    "DDSMethodServerHandler", made.kind, made.topic, domain.Id(), made.entity.Status().Code())) {
                logger->error() << "[DDSMethodServerHandler][Endpoints cannot be created][topic=" << requestTopicName
                                << ", " << made.entity.Status().Text() << "]";
            }
            return false;
        }
    }
    return true;
}

void DDSMethodServerHandler::Core::DeleteEntities() {
    reader.Reset();
    writer.Reset();
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

void DDSMethodServerHandler::Core::OnReplyMatched(dds_entity_t /*writer*/,
                                                  dds_publication_matched_status_t status,
                                                  void* arg) {
    const auto core = ListenerTarget::From<Core>(arg);
    {
        const std::lock_guard<std::mutex> lock(core->mutex);
        ++core->matchEvents;
        if (status.current_count_change < 0) {
            core->knownClients.clear();
        }
    }
    core->matchChanged.notify_all();
}

void DDSMethodServerHandler::Core::ScanMatchedReaders(std::set<types::ClientId>& found) const {
    std::vector<dds_instance_handle_t> handles(8U);
    dds_return_t count = 0;
    while ((count = dds_get_matched_subscriptions(writer.Get(), handles.data(), handles.size())) >
           static_cast<dds_return_t>(handles.size())) {
        handles.resize(static_cast<std::size_t>(count));
    }
    for (dds_return_t i = 0; i < count; ++i) {
        dds_builtintopic_endpoint_t* endpoint =
            dds_get_matched_subscription_data(writer.Get(), handles[static_cast<std::size_t>(i)]);
        if (endpoint != nullptr) {
            types::ClientId id{};
            std::memcpy(id.data(), endpoint->key.v, id.size());
            found.insert(id);
            dds_builtintopic_free_endpoint(endpoint);
        }
    }
}

bool DDSMethodServerHandler::Core::WaitForClient(const types::ClientId& client) {
    const auto deadline = std::chrono::steady_clock::now() + CLIENT_MATCH_WAIT;
    std::unique_lock<std::mutex> lock(mutex);
    for (;;) {
        if (closed) {
            return false;
        }
        if (knownClients.count(client) != 0U) {
            return true;
        }
        const std::uint64_t seen = matchEvents;
        lock.unlock();
        std::set<types::ClientId> found;
        ScanMatchedReaders(found);
        lock.lock();
        knownClients.insert(found.begin(), found.end());
        if (found.count(client) != 0U) {
            return true;
        }
        if (!matchChanged.wait_until(lock, deadline, [this, seen] { return closed || matchEvents != seen; })) {
            return false;
        }
    }
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
    core_->matchChanged.notify_all();
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
    if (!core.WaitForClient(request.clientId)) {
        core.logger->warn("DDSMethodServerHandler_not_matched", SERVER_LOG_LIMIT)
            << "[DDSMethodServerHandler][Reply reader not matched, reply dropped][topic=" << core.replyTopicName
            << ", sessionId=" << request.sessionId << ", clientId=" << ClientIdText(request.clientId) << "]";
        return false;
    }
    // The reply echoes the request's header (client id and session id route it back).
    types::MethodMsg reply = request;
    reply.isRealReply = true;
    reply.isErrorReply = isError;
    const kelp_dds_MethodSample sample = MakeSample(reply, payload, size);
    const DdsStatus status(dds_write(core.writer.Get(), &sample));
    if (!status.Ok()) {
        core.logger->warn("DDSMethodServerHandler_write", SERVER_LOG_LIMIT)
            << "[DDSMethodServerHandler][Reply write failed][topic=" << core.replyTopicName
            << ", sessionId=" << request.sessionId << ", " << status.Text() << "]";
        return false;
    }
    return true;
}

serialize::SerializeType DDSMethodServerHandler::GetSerializeType() const {
    return ProcessEncoding().type;
}

const serialize::SerializeConfig& DDSMethodServerHandler::GetSerializeConfig() const {
    return ProcessEncoding().config;
}

}  // namespace kelp::driver::dds
