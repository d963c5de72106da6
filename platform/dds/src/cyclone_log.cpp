// SPDX-License-Identifier: Apache-2.0
// The Cyclone log sink: records go to the "CM" log as "[CycloneDDS][<level>][<text>]", at most
// 20 per level and second.
#include "cyclone_log.h"

#include <dds/dds.h>
#include <openssl/crypto.h>

#include <mutex>

#include "ara/quill/common/log/log.h"

namespace kelp::driver::dds {

void AppendToCapture(const std::string& text);

namespace {

thread_local CycloneLogCapture* g_capture = nullptr;

const ara::quill::common::log::LimitConfig CYCLONE_LOG_LIMIT{1000U, 20U};

void Sink(void* /*arg*/, const dds_log_data_t* data) {
    if (data == nullptr || data->message == nullptr) {
        return;
    }
    std::string text(data->message, data->size);
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) {
        text.pop_back();
    }
    if (text.empty()) {
        return;
    }
    AppendToCapture(text);
    const auto logger = ara::quill::common::log::Log::GetLog("CM");
    if ((data->priority & (DDS_LC_FATAL | DDS_LC_ERROR)) != 0U) {
        logger->error("CycloneDDS_error", CYCLONE_LOG_LIMIT) << "[CycloneDDS][error][" << text << "]";
    } else if ((data->priority & DDS_LC_WARNING) != 0U) {
        logger->warn("CycloneDDS_warning", CYCLONE_LOG_LIMIT) << "[CycloneDDS][warning][" << text << "]";
    } else {
        logger->debug() << "[CycloneDDS][info][" << text << "]";
    }
}

}  // namespace

void AppendToCapture(const std::string& text) {
    if (g_capture != nullptr) {
        g_capture->text_ += (g_capture->text_.empty() ? "" : "; ") + text;
    }
}

void PrepareProcessForCyclone() {
    static std::once_flag once;
    std::call_once(once, [] {
        dds_set_log_sink(&Sink, nullptr);
        // Domains live until the process ends, and with DDS Security Cyclone's threads call
        // OpenSSL until then. OpenSSL's own exit handler would free its locks under them (a
        // crash in Cyclone's "gc" thread at exit), so it is told not to install one. This has
        // to come before anything else in the process initialises OpenSSL.
        (void)OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr);
    });
}

bool LogIfSecurityRefused(
    const char* component, const char* entity, const std::string& topic, int domainId, int status) {
    if (status != DDS_RETCODE_NOT_ALLOWED_BY_SECURITY) {
        return false;
    }
    ara::quill::common::log::Log::GetLog("CM")->error()
        << "[" << component << "][Security refused: the permissions of this participant do not allow the " << entity
        << "; use an identity whose grant covers it][topic=" << topic << ", domain=" << domainId << ", code=" << status
        << " (" << dds_strretcode(status) << ")]";
    return true;
}

std::string SecurityDiagnosis(const std::string& reason) {
    // Cyclone's texts, most specific first: the authentication plugin validates the identity
    // certificate (which the permissions check reports too), the access control plugin the
    // signed governance and grant.
    static const struct {
        const char* found;
        const char* diagnosis;
    } known[] = {
        {"certificate has expired", "a certificate has expired (the identity's or its CA's)"},
        {"certificate is not yet valid", "a certificate is not valid yet (is the clock behind?)"},
        {"unable to get local issuer certificate",
         "the identity certificate is not issued by the configured identity CA"},
        {"Permissions validity period expired", "the permissions grant has expired"},
        {"validity period", "the permissions grant is not valid at this time"},
        {"Subject name is invalid", "the permissions grant is for another subject than the identity certificate"},
        {"PKCS7", "the governance or the permissions grant is not signed by the configured permissions CA"},
        {"could not be found, opened or is empty", "a file named in the security configuration cannot be read"},
        {"validating local", "DDS Security refused this participant's credentials"},
    };
    for (const auto& entry : known) {
        if (reason.find(entry.found) != std::string::npos) {
            return entry.diagnosis;
        }
    }
    return {};
}

CycloneLogCapture::CycloneLogCapture() : outer_(g_capture) {
    g_capture = this;
}

CycloneLogCapture::~CycloneLogCapture() {
    g_capture = outer_;
}

std::string CycloneLogCapture::Reason() const {
    return text_.empty() ? std::string("unknown") : text_;
}

}  // namespace kelp::driver::dds
