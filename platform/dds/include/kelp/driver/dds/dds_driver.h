// SPDX-License-Identifier: Apache-2.0
// Start of the DDS transport (Eclipse Cyclone DDS) in this process.
#ifndef KELP_DRIVER_DDS_DDS_DRIVER_H
#define KELP_DRIVER_DDS_DDS_DRIVER_H

#include "ara/core/internal/export.h"

namespace kelp::driver::dds {

class ARA_EXPORT DDSDriver {
public:
    /// Checks that Cyclone DDS can start with this process's configuration and registers the
    /// DDS transport with the middleware. False, with a log line naming the cause, when it
    /// cannot. Safe to call again and from several threads; after a success it does nothing.
    static bool Init();
};

}  // namespace kelp::driver::dds

#endif
