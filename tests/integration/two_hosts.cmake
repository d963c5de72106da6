# SPDX-License-Identifier: Apache-2.0
# emd on one host and emctl on another (calls, and pending calls failing within the lease when
# the daemon's link goes down or the daemon is killed): two network namespaces joined by a veth pair, with
# multicast discovery, with unicast peers, and with the library's hub discovery pointed at the
# daemon's host by KELP_DDS_PEERS. Skipped (77) where namespaces are not permitted,
# unless ARA_EXEC_REQUIRE_NAMESPACES=1 (CI) makes that a failure.
foreach(mode multicast unicast peers)
  add_test(NAME two_hosts_${mode}
           COMMAND bash ${PROJECT_SOURCE_DIR}/tests/support/scripts/two_hosts.sh ${mode} $<TARGET_FILE:emd>
                   $<TARGET_FILE:emctl> $<TARGET_FILE:emd_test_app>)
  set_tests_properties(two_hosts_${mode} PROPERTIES SKIP_RETURN_CODE 77 TIMEOUT 300)
endforeach()

# The same across the two hosts with every process holding a DDS Security identity.
add_test(NAME two_hosts_secured
         COMMAND bash ${PROJECT_SOURCE_DIR}/tests/support/scripts/two_hosts.sh multicast $<TARGET_FILE:emd>
                 $<TARGET_FILE:emctl> $<TARGET_FILE:emd_test_app> ${PROJECT_BINARY_DIR}/tools/ara-exec-pki)
set_tests_properties(two_hosts_secured PROPERTIES SKIP_RETURN_CODE 77 TIMEOUT 300)
