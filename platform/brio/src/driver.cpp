// SPDX-License-Identifier: Apache-2.0
// The process-wide table of transports and the out-of-line parts of the transport types.
#include "kelp/brio/driver/driver.h"

#include <map>
#include <mutex>
#include <utility>

namespace kelp::brio {
namespace api::types {
ServiceDiscoveryInfo::~ServiceDiscoveryInfo() = default;
}  // namespace api::types

namespace driver {
namespace {
struct DriverTable {
    std::mutex mutex;
    std::map<api::types::DriverType, std::shared_ptr<Driver>> drivers;
};

// Never destroyed: static clients and servers of other libraries detach from their transports
// in their destructors at exit, in an order no library controls.
DriverTable& Table() {
    static DriverTable* const table = new DriverTable;
    return *table;
}
}  // namespace

MethodServerHandler::~MethodServerHandler() = default;
Driver::~Driver() = default;

void RegisterDriver(api::types::DriverType type, std::shared_ptr<Driver> driver) {
    DriverTable& table = Table();
    const std::lock_guard<std::mutex> lock(table.mutex);
    table.drivers[type] = std::move(driver);
}

std::shared_ptr<Driver> GetDriver(api::types::DriverType type) {
    DriverTable& table = Table();
    const std::lock_guard<std::mutex> lock(table.mutex);
    const auto it = table.drivers.find(type);
    return it == table.drivers.end() ? nullptr : it->second;
}

}  // namespace driver
}  // namespace kelp::brio
