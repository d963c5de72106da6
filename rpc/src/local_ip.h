// SPDX-License-Identifier: Apache-2.0
// The two halves of RpcBase::GetLocalIp, apart so that tests can give them interface lists.
#ifndef TARN_EM_UTIL_LOCAL_IP_H
#define TARN_EM_UTIL_LOCAL_IP_H

#include <ifaddrs.h>

#include <string>
#include <vector>

namespace tarn::em::util::detail {

/// The IPv4 addresses of `list` as texts, in list order; entries without an address, of
/// another family, or that cannot be converted are skipped.
std::vector<std::string> Ipv4Texts(const ifaddrs* list);

/// The choice of GetLocalIp over `texts` (its steps after the conversion, logging included).
bool ChooseLocalIp(const std::vector<std::string>& texts, std::string& ip, bool isLoopBack);

}  // namespace tarn::em::util::detail

#endif
