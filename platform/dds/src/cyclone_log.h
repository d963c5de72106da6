// SPDX-License-Identifier: Apache-2.0
// Cyclone DDS's own log records (errors and warnings: a configuration file that cannot be
// read, an interface that does not exist, refused security settings) go to the "CM" log, so
// the reason of a failed call is in our log and not only on Cyclone's standard error.
#ifndef KELP_DRIVER_DDS_CYCLONE_LOG_H
#define KELP_DRIVER_DDS_CYCLONE_LOG_H

#include <string>

namespace kelp::driver::dds {

/// Readies the process for Cyclone, once (later calls do nothing): installs the process-wide
/// Cyclone log sink, and keeps OpenSSL's state alive until the process ends.
void PrepareProcessForCyclone();

/// When `status` is DDS Security's refusal (the permissions of this participant do not grant
/// `topic`), logs one error line that says so, naming the `entity` ("topic", "writer" or
/// "reader") that Cyclone would not create, and returns true; otherwise logs nothing.
bool LogIfSecurityRefused(
    const char* component, const char* entity, const std::string& topic, int domainId, int status);

/// What Cyclone's `reason` for refusing to start a participant says about this process's DDS
/// Security credentials, in words an integrator can act on ("the identity certificate has
/// expired"); empty when the reason is not about them.
std::string SecurityDiagnosis(const std::string& reason);

/// Collects the Cyclone records logged on the current thread while it lives, so that a failed
/// create call can name Cyclone's reason.
class CycloneLogCapture {
public:
    CycloneLogCapture();
    ~CycloneLogCapture();
    CycloneLogCapture(const CycloneLogCapture&) = delete;
    CycloneLogCapture& operator=(const CycloneLogCapture&) = delete;

    /// The records so far, joined by "; "; "unknown" when there were none.
    std::string Reason() const;

private:
    friend void AppendToCapture(const std::string& text);
    std::string text_;
    CycloneLogCapture* outer_;
};

}  // namespace kelp::driver::dds

#endif
