# SPDX-License-Identifier: Apache-2.0
# Caller authorisation with DDS Security on loopback: a PKI made by ara-exec-pki, emd and its
# test app with their identities, emctl as the state manager, the health manager and an
# application, and credentials that must be refused (a foreign grant, an expired certificate).
add_test(NAME secured_callers
         COMMAND bash ${PROJECT_SOURCE_DIR}/tests/support/scripts/secured.sh $<TARGET_FILE:emd> $<TARGET_FILE:emctl>
                 $<TARGET_FILE:emd_test_app> ${PROJECT_BINARY_DIR}/tools/ara-exec-pki)
set_tests_properties(secured_callers PROPERTIES TIMEOUT 300)
