// Test server over the Driver interface only: serves "<prefix>" of service <id> and offers it.
// A request is echoed as the reply; one whose payload starts with 'E' is answered as an error
// with the same bytes. SIGUSR1 withdraws the offer, or offers again; SIGTERM ends the process.
#include <condition_variable>
#include <csignal>
#include <cstdlib>
#include <deque>
#include <mutex>
#include <thread>

#include "dds_test_descriptors.h"
#include "kelp/brio/driver/driver.h"
#include "kelp/driver/dds/dds_driver.h"

using MsgPtr = std::shared_ptr<kelp::brio::api::types::MethodMsg>;

int main(int argc, char** argv) {
    if (argc != 3) {
        return 2;
    }
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGUSR1);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);  // before any thread starts

    const auto serviceId = static_cast<std::uint16_t>(std::atoi(argv[1]));
    const auto driver = kelp::driver::dds::DDSDriver::Init()
                            ? kelp::brio::driver::GetDriver(kelp::brio::api::types::DriverType::DDS)
                            : nullptr;
    const auto server = driver ? driver->CreateMethodServerHandler(dds_test::Method(serviceId, argv[2])) : nullptr;
    const auto service = dds_test::Service(serviceId);
    if (!server || !driver->OfferService(service)) {
        return 3;
    }
    // Replies are sent from a thread of ours, as a skeleton's dispatcher does.
    std::mutex mutex;
    std::condition_variable queued;
    std::deque<MsgPtr> requests;
    server->RegisterRequestCallback([&](const MsgPtr& request) {
        const std::lock_guard<std::mutex> lock(mutex);
        requests.push_back(request);
        queued.notify_one();
    });
    std::thread([&] {
        for (;;) {
            std::unique_lock<std::mutex> lock(mutex);
            queued.wait(lock, [&] { return !requests.empty(); });
            const MsgPtr request = requests.front();
            requests.pop_front();
            lock.unlock();
            const bool isError = request->payloadSize > 0U && request->payload[0] == 'E';
            (void)server->SendReply(*request, request->payload, request->payloadSize, isError);
        }
    }).detach();

    bool offered = true;
    for (int signal = 0; sigwait(&signals, &signal) == 0 && signal == SIGUSR1;) {
        if (offered) {
            driver->StopOfferService(service);
        } else {
            (void)driver->OfferService(service);
        }
        offered = !offered;
    }
    std::_Exit(0);
}
