// SPDX-License-Identifier: Apache-2.0
// The floor under boot_bench: bare Cyclone DDS, none of our layers. One server process and
// N client processes that each create one participant with the discovery settings of the
// stack, match one request writer and one reply reader with the server, make one round trip
// and then stay idle until SIGTERM.
//
//   boot_floor server --reply MODE [--tag TAG] [--base PORT] [--discovery hub|multicast] [--heartbeat MS]
//   boot_floor client --reply MODE [--tag TAG] [--base PORT] [--discovery hub|multicast] [--heartbeat MS]
//                     [--done-fd FD]
//
// MODE says how replies reach their client:
//   shared     one reply writer; every client's reply reader receives every reply and
//              drops the others' at the reader (by client id);
//   client     each client's reply reader sits in a partition of its own and the server makes
//              one reply writer in it on that client's first request;
//   bucket:K   clients' reply readers sit in K partitions chosen by their id; the server makes
//              the K reply writers at start, so a reply reaches about N/K readers (what the
//              stack does, with K = 16).
// boot_bench starts the server and the clients and measures them as it measures emd and its
// applications. The discovery settings are the stack's: with hub, the server takes a
// participant index and the 1 s lease, clients take none and announce themselves to the
// server's host; with multicast, everyone discovers everyone.
#include <dds/dds.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "wire_types.h"

namespace {

using Clock = std::chrono::steady_clock;

volatile sig_atomic_t g_stop = 0;

struct Options {
    std::string role;
    std::string reply = "bucket:32";
    std::string tag;
    std::string discovery = "hub";
    int base = 7400;
    int doneFd = -1;
    int heartbeatMs = 1000;
};

std::string Config(const Options& options, bool server) {
    std::string config;
    if (options.discovery == "multicast") {
        config =
            "<General><Interfaces><NetworkInterface address=\"127.0.0.1\" multicast=\"true\"/></Interfaces></General>"
            "<Discovery><LeaseDuration>1s</LeaseDuration>";
    } else {
        config = std::string(
                     "<General><Interfaces><NetworkInterface address=\"127.0.0.1\"/></Interfaces>"
                     "<AllowMulticast>false</AllowMulticast></General>"
                     "<Discovery><ParticipantIndex>") +
                 (server ? "auto" : "none") + "</ParticipantIndex><Peers><Peer address=\"127.0.0.1\"/></Peers>" +
                 (server ? "<LeaseDuration>1s</LeaseDuration>" : "");
    }
    config += "<Ports><Base>" + std::to_string(options.base) + "</Base></Ports>";
    if (server) {  // hundreds of clients announce themselves at once
        config = "<Internal><SocketReceiveBufferSize max=\"4MiB\"/></Internal>" + config;
    }
    // The stack's 1 s by default; Cyclone's own is 100 ms.
    config = "<Internal><HeartbeatInterval>" + std::to_string(options.heartbeatMs) +
             "ms</HeartbeatInterval></Internal>" + config;
    if (!options.tag.empty()) {
        config += "<Tag>" + options.tag + "</Tag>";
    }
    return config + "</Discovery>";
}

unsigned Buckets(const std::string& mode) {
    return mode.rfind("bucket:", 0) == 0 ? static_cast<unsigned>(std::atoi(mode.c_str() + 7)) : 0U;
}

unsigned BucketOf(const unsigned char* id, unsigned buckets) {
    unsigned hash = 2166136261U;
    for (int i = 0; i < 12; ++i) {
        hash = (hash ^ id[i]) * 16777619U;
    }
    return hash % buckets;
}

std::string Hex(const unsigned char* id) {
    static const char digits[] = "0123456789abcdef";
    std::string text;
    for (int i = 0; i < 16; ++i) {
        text += digits[id[i] >> 4];
        text += digits[id[i] & 15];
    }
    return text;
}

dds_qos_t* MethodQos(const std::string& partition, bool liveliness) {
    dds_qos_t* qos = dds_create_qos();
    dds_qset_reliability(qos, DDS_RELIABILITY_RELIABLE, DDS_SECS(1));
    dds_qset_durability(qos, DDS_DURABILITY_VOLATILE);
    dds_qset_history(qos, DDS_HISTORY_KEEP_ALL, 0);
    if (liveliness) {
        dds_qset_liveliness(qos, DDS_LIVELINESS_AUTOMATIC, DDS_MSECS(500));
    }
    if (!partition.empty()) {
        dds_qset_partition1(qos, partition.c_str());
    }
    return qos;
}

dds_entity_t Participant(const Options& options, bool server) {
    const std::string config = Config(options, server);
    if (dds_create_domain(2, config.c_str()) < 0) {
        std::fprintf(stderr, "boot_floor: domain refused: %s\n", config.c_str());
        std::exit(1);
    }
    const dds_entity_t participant = dds_create_participant(2, nullptr, nullptr);
    if (participant < 0) {
        std::fprintf(stderr, "boot_floor: participant refused\n");
        std::exit(1);
    }
    return participant;
}

/// The GUIDs of the readers a writer has matched, rescanned only when its match count moved.
struct MatchCache {
    std::map<dds_entity_t, std::pair<std::uint32_t, std::vector<std::string>>> writers;

    bool Matched(dds_entity_t writer, const unsigned char* id) {
        dds_publication_matched_status_t status;
        dds_get_publication_matched_status(writer, &status);
        auto& [seen, guids] = writers[writer];
        if (seen != status.total_count + 1U) {
            seen = status.total_count + 1U;
            guids.clear();
            std::vector<dds_instance_handle_t> handles(64);
            dds_return_t count = 0;
            while ((count = dds_get_matched_subscriptions(writer, handles.data(), handles.size())) >
                   static_cast<dds_return_t>(handles.size())) {
                handles.resize(static_cast<std::size_t>(count));
            }
            for (dds_return_t i = 0; i < count; ++i) {
                dds_builtintopic_endpoint_t* endpoint =
                    dds_get_matched_subscription_data(writer, handles[static_cast<std::size_t>(i)]);
                if (endpoint != nullptr) {
                    guids.emplace_back(reinterpret_cast<const char*>(endpoint->key.v), 16U);
                    dds_builtintopic_free_endpoint(endpoint);
                }
            }
        }
        const std::string key(reinterpret_cast<const char*>(id), 16U);
        for (const std::string& guid : guids) {
            if (guid == key) {
                return true;
            }
        }
        return false;
    }
};

int Server(const Options& options) {
    const dds_entity_t participant = Participant(options, true);
    const dds_entity_t requestTopic =
        dds_create_topic(participant, &kelp_dds_MethodSample_desc, "EM_RPC_REQUEST_APPLICATION_0", nullptr, nullptr);
    const dds_entity_t replyTopic =
        dds_create_topic(participant, &kelp_dds_MethodSample_desc, "EM_RPC_REPLY_APPLICATION_0", nullptr, nullptr);
    dds_qos_t* readerQos = MethodQos("", false);
    const dds_entity_t reader = dds_create_reader(participant, requestTopic, readerQos, nullptr);
    dds_delete_qos(readerQos);

    const unsigned buckets = Buckets(options.reply);
    std::vector<dds_entity_t> bucketWriters;
    std::map<std::string, dds_entity_t> clientWriters;
    dds_entity_t shared = 0;
    if (options.reply == "shared") {
        dds_qos_t* qos = MethodQos("", true);
        shared = dds_create_writer(participant, replyTopic, qos, nullptr);
        dds_delete_qos(qos);
    }
    for (unsigned b = 0; b < buckets; ++b) {
        dds_qos_t* qos = MethodQos("r" + std::to_string(b), true);
        bucketWriters.push_back(dds_create_writer(participant, replyTopic, qos, nullptr));
        dds_delete_qos(qos);
    }

    const dds_entity_t waitset = dds_create_waitset(participant);
    const dds_entity_t readable = dds_create_readcondition(reader, DDS_ANY_STATE);
    dds_waitset_attach(waitset, readable, 0);
    signal(SIGTERM, [](int) { g_stop = 1; });
    std::printf("ready\n");
    std::fflush(stdout);

    struct Pending {
        kelp_dds_MethodSample* sample;
        dds_entity_t writer;
        Clock::time_point deadline;
    };
    std::vector<Pending> pending;
    MatchCache matches;
    while (g_stop == 0) {
        dds_attach_t fired[1];
        (void)dds_waitset_wait(waitset, fired, 1, pending.empty() ? DDS_MSECS(200) : DDS_MSECS(5));
        for (;;) {
            void* samples[1] = {nullptr};
            dds_sample_info_t info;
            if (dds_take(reader, samples, &info, 1, 1) <= 0) {
                break;
            }
            auto* request = static_cast<kelp_dds_MethodSample*>(samples[0]);
            if (!info.valid_data) {
                dds_return_loan(reader, samples, 1);
                continue;
            }
            dds_entity_t writer = shared;
            if (buckets != 0U) {
                writer = bucketWriters[BucketOf(request->clientId, buckets)];
            } else if (options.reply == "client") {
                unsigned char prefix[16] = {};
                std::memcpy(prefix, request->clientId, 12);
                const std::string partition = "c" + Hex(prefix);
                dds_entity_t& made = clientWriters[partition];
                if (made == 0) {
                    dds_qos_t* qos = MethodQos(partition, true);
                    made = dds_create_writer(participant, replyTopic, qos, nullptr);
                    dds_delete_qos(qos);
                }
                writer = made;
            }
            auto* copy = static_cast<kelp_dds_MethodSample*>(dds_alloc(sizeof(kelp_dds_MethodSample)));
            std::memcpy(copy, request, sizeof(*copy));
            copy->payload._buffer = nullptr;
            copy->payload._length = copy->payload._maximum = 0;
            copy->isRealReply = true;
            dds_return_loan(reader, samples, 1);
            pending.push_back(Pending{copy, writer, Clock::now() + std::chrono::seconds(10)});
        }
        for (auto it = pending.begin(); it != pending.end();) {
            if (matches.Matched(it->writer, it->sample->clientId)) {
                (void)dds_write(it->writer, it->sample);
            } else if (Clock::now() < it->deadline) {
                ++it;
                continue;
            } else {
                std::fprintf(stderr, "boot_floor: reply dropped, client never matched\n");
            }
            dds_free(it->sample);
            it = pending.erase(it);
        }
    }
    dds_delete(DDS_CYCLONEDDS_HANDLE);
    return 0;
}

int Client(const Options& options) {
    const dds_entity_t participant = Participant(options, false);
    if (options.reply == "none") {
        if (options.doneFd >= 0) {
            (void)!write(options.doneFd, "d", 1);
        }
        signal(SIGTERM, [](int) { g_stop = 1; });
        while (g_stop == 0) {
            pause();
        }
        return 0;
    }
    const dds_entity_t requestTopic =
        dds_create_topic(participant, &kelp_dds_MethodSample_desc, "EM_RPC_REQUEST_APPLICATION_0", nullptr, nullptr);
    const dds_entity_t replyTopic =
        dds_create_topic(participant, &kelp_dds_MethodSample_desc, "EM_RPC_REPLY_APPLICATION_0", nullptr, nullptr);
    dds_qos_t* writerQos = MethodQos("", false);
    const dds_entity_t writer = dds_create_writer(participant, requestTopic, writerQos, nullptr);
    dds_delete_qos(writerQos);

    // The partition is chosen from the participant's GUID prefix, which is known before the
    // reader exists; the reader's own GUID (prefix and entity id) routes the replies.
    dds_guid_t self;
    dds_get_guid(participant, &self);
    std::string partition;
    const unsigned buckets = Buckets(options.reply);
    if (buckets != 0U) {
        partition = "r" + std::to_string(BucketOf(self.v, buckets));
    } else if (options.reply == "client") {
        unsigned char prefix[16] = {};
        std::memcpy(prefix, self.v, 12);
        partition = "c" + Hex(prefix);
    }
    dds_qos_t* readerQos = MethodQos(partition, false);
    const dds_entity_t reader = dds_create_reader(participant, replyTopic, readerQos, nullptr);
    dds_delete_qos(readerQos);

    signal(SIGTERM, [](int) { g_stop = 1; });
    const dds_entity_t waitset = dds_create_waitset(participant);
    dds_set_status_mask(writer, DDS_PUBLICATION_MATCHED_STATUS);
    dds_set_status_mask(reader, DDS_SUBSCRIPTION_MATCHED_STATUS);
    dds_waitset_attach(waitset, writer, 0);
    dds_waitset_attach(waitset, reader, 1);
    const auto start = Clock::now();
    for (;;) {
        dds_publication_matched_status_t pub;
        dds_subscription_matched_status_t sub;
        dds_get_publication_matched_status(writer, &pub);
        dds_get_subscription_matched_status(reader, &sub);
        if (pub.current_count > 0 && (sub.current_count > 0 || options.reply == "client")) {
            break;
        }
        if (g_stop != 0 || Clock::now() - start > std::chrono::seconds(600)) {
            return 1;
        }
        dds_attach_t fired[2];
        (void)dds_waitset_wait(waitset, fired, 2, DDS_MSECS(100));
    }
    dds_guid_t id;
    dds_get_guid(reader, &id);
    kelp_dds_MethodSample request{};
    std::memcpy(request.clientId, id.v, 16);
    request.sessionId = 1;
    // From here on only replies wake the client; a match status left set would wake it forever.
    (void)dds_waitset_detach(waitset, writer);
    dds_set_status_mask(reader, DDS_DATA_AVAILABLE_STATUS);
    // The request is made again when no reply came in 10 s (the server drops a reply whose
    // client it has not matched within 10 s); unlike an application's report, which gives up
    // after 1.9 s, the floor never waits out a time-out it could have avoided.
    bool answered = false;
    auto sent = Clock::now() - std::chrono::seconds(10);
    while (!answered && g_stop == 0) {
        if (Clock::now() - sent >= std::chrono::seconds(10)) {
            (void)dds_write(writer, &request);
            sent = Clock::now();
        }
        void* samples[1] = {nullptr};
        dds_sample_info_t info;
        if (dds_take(reader, samples, &info, 1, 1) > 0) {
            const auto* reply = static_cast<const kelp_dds_MethodSample*>(samples[0]);
            answered = info.valid_data && std::memcmp(reply->clientId, id.v, 16) == 0;
            dds_return_loan(reader, samples, 1);
        } else {
            dds_attach_t fired[2];
            (void)dds_waitset_wait(waitset, fired, 2, DDS_MSECS(100));
        }
    }
    dds_delete(waitset);
    if (options.doneFd >= 0) {
        (void)!write(options.doneFd, "d", 1);
    }
    while (g_stop == 0) {
        pause();
    }
    dds_delete(DDS_CYCLONEDDS_HANDLE);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    if (argc < 2) {
        std::fprintf(stderr, "usage: boot_floor server|client [options]\n");
        return 2;
    }
    options.role = argv[1];
    for (int i = 2; i + 1 < argc; i += 2) {
        const std::string name = argv[i];
        const std::string value = argv[i + 1];
        if (name == "--reply") {
            options.reply = value;
        } else if (name == "--tag") {
            options.tag = value;
        } else if (name == "--base") {
            options.base = std::atoi(value.c_str());
        } else if (name == "--discovery") {
            options.discovery = value;
        } else if (name == "--heartbeat") {
            options.heartbeatMs = std::atoi(value.c_str());
        } else if (name == "--done-fd") {
            options.doneFd = std::atoi(value.c_str());
        }
    }
    if (options.role == "server") {
        return Server(options);
    }
    if (options.role == "client") {
        return Client(options);
    }
    std::fprintf(stderr, "boot_floor: unknown role %s\n", options.role.c_str());
    return 2;
}
