// SPDX-License-Identifier: Apache-2.0
// The services that emd offers: the three of Execution Management, the application service
// (domain 2), the state manager service and the platform health manager service (domain 4),
// and its own status service (domain 4, tarn/em/emd_status_service.h).
// Each handler decodes nothing itself (the skeleton does), hands the request to the event
// loop and replies from there, so no handler waits and no lock spans the daemon.
#ifndef TARN_EM_DAEMON_SERVICES_H
#define TARN_EM_DAEMON_SERVICES_H

#include <memory>
#include <string>

#include "event_loop.h"
#include "tarn/em/util/rpc_server.h"

namespace tarn::em::daemon {

class Services {
public:
    explicit Services(EventLoop& loop);
    /// Starts the DDS transport, serves every method and offers the four services; false
    /// (with `error` set) when any step fails.
    bool Offer(std::string& error);

private:
    EventLoop& loop_;
    std::unique_ptr<tarn::em::util::RpcServer> application_;
    std::unique_ptr<tarn::em::util::RpcServer> stateManager_;
    std::unique_ptr<tarn::em::util::RpcServer> healthManager_;
    std::unique_ptr<tarn::em::util::RpcServer> status_;
};

}  // namespace tarn::em::daemon

#endif
