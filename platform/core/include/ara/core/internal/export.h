// SPDX-License-Identifier: Apache-2.0
// Symbol visibility: everything is hidden unless marked ARA_EXPORT.
#ifndef ARA_CORE_INTERNAL_EXPORT_H
#define ARA_CORE_INTERNAL_EXPORT_H

#define ARA_EXPORT __attribute__((visibility("default")))

#endif
