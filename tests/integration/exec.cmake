# SPDX-License-Identifier: Apache-2.0
# The execution client in processes of its own against the scripted server, with and
# without an extension library.
foreach(hooks both after_only)
  add_library(exec_test_extension_${hooks} SHARED ${PROJECT_SOURCE_DIR}/tests/support/src/exec_test_extension.cpp)
  target_link_libraries(exec_test_extension_${hooks} PRIVATE ara_platform ara_exec_headers)
  set_target_properties(exec_test_extension_${hooks} PROPERTIES OUTPUT_NAME exec_client_extension
                        LIBRARY_OUTPUT_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/exec_hooks_${hooks})
  target_compile_options(exec_test_extension_${hooks} PRIVATE ${ARA_EXEC_WARNINGS})
  ara_exec_apply_sanitizer(exec_test_extension_${hooks})
endforeach()
target_compile_definitions(exec_test_extension_after_only PRIVATE WITHOUT_BEFORE_HOOK)

# Linked to the shared libraries, as applications are, so the hooks log where the test reads.
ara_exec_add_test(NAME execution_client_test SOURCES execution_client_test.cpp LINK ara_exec)
target_compile_definitions(
  execution_client_test PRIVATE EM_TEST_SERVER="$<TARGET_FILE:em_test_server>"
  HOOKS_BOTH="$<TARGET_FILE_DIR:exec_test_extension_both>"
  HOOKS_AFTER_ONLY="$<TARGET_FILE_DIR:exec_test_extension_after_only>" HOOKS_NONE="${CMAKE_CURRENT_BINARY_DIR}")
add_dependencies(execution_client_test em_test_server exec_test_extension_both exec_test_extension_after_only)

# The state client in processes of its own against the scripted server.
ara_exec_add_test(NAME state_client_test SOURCES state_client_test.cpp LINK ara_exec)
target_compile_definitions(state_client_test PRIVATE EM_TEST_SERVER="$<TARGET_FILE:em_test_server>")
add_dependencies(state_client_test em_test_server)

# The recovery action client in processes of its own against the scripted server, one case with lookups from 4 threads.
ara_exec_add_test(NAME recovery_action_client_test SOURCES recovery_action_client_test.cpp LINK ara_exec LABELS concurrency)
target_compile_definitions(recovery_action_client_test PRIVATE EM_TEST_SERVER="$<TARGET_FILE:em_test_server>")
add_dependencies(recovery_action_client_test em_test_server)

# Every client constructed and no call made: the process must still end cleanly.
ara_exec_add_test(NAME clients_exit_test SOURCES clients_exit_test.cpp LINK ara_exec)

# Clients of every class constructed on several threads at once, with no server.
ara_exec_add_test(NAME clients_concurrent_construction_test SOURCES clients_concurrent_construction_test.cpp
                  LINK ara_exec LABELS concurrency)

# emd in a process of its own supervising test apps, through the public clients.
# Labelled concurrency: emd's event loop and service threads run under ThreadSanitizer too.
ara_exec_add_test(NAME emd_test SOURCES emd_test.cpp LINK ara_exec LABELS concurrency)
target_compile_definitions(emd_test PRIVATE EMD="$<TARGET_FILE:emd>" EMD_TEST_APP="$<TARGET_FILE:emd_test_app>"
                                            EXAMPLE_MANIFEST="${PROJECT_BINARY_DIR}/examples/emd/machine_manifest.json")
add_dependencies(emd_test emd emd_test_app demo_app)

# emd with a hundred processes, callers that die while emd answers them, and a restarted emd;
# alone, since a hundred processes starting take both cores.
ara_exec_add_test(NAME emd_scale_test SOURCES emd_scale_test.cpp LINK ara_exec TIMEOUT 1200 SERIAL)
target_compile_definitions(emd_scale_test PRIVATE EMD="$<TARGET_FILE:emd>" EMD_TEST_APP="$<TARGET_FILE:emd_test_app>"
                                                  EMCTL="$<TARGET_FILE:emctl>"
                                                  EXAMPLE_MANIFEST="${PROJECT_BINARY_DIR}/examples/emd/machine_manifest.json")
add_dependencies(emd_scale_test emd emd_test_app emctl demo_app)

# emctl against emd, every verb with its outputs and exit codes; manifests validated as emd does.
ara_exec_add_test(NAME emctl_test SOURCES emctl_test.cpp LINK ara_exec)
target_compile_definitions(emctl_test PRIVATE EMD="$<TARGET_FILE:emd>" EMCTL="$<TARGET_FILE:emctl>"
                                              EMD_TEST_APP="$<TARGET_FILE:emd_test_app>"
                                              EXAMPLE_MANIFEST="${PROJECT_BINARY_DIR}/examples/emd/machine_manifest.json")
add_dependencies(emctl_test emd emctl emd_test_app demo_app)

# emd supervising shell scripts that use systemd-notify, and sleep: dependency order, the
# watchdog and escalation.
ara_exec_add_test(NAME emd_supervision_test SOURCES emd_supervision_test.cpp LINK ara_exec)
target_compile_definitions(emd_supervision_test PRIVATE EMD="$<TARGET_FILE:emd>" EMD_TEST_APP="$<TARGET_FILE:emd_test_app>")
add_dependencies(emd_supervision_test emd)

# emd with processes that report readiness through the notify protocol.
ara_exec_add_test(NAME emd_readiness_test SOURCES emd_readiness_test.cpp LINK ara_exec)
target_compile_definitions(emd_readiness_test PRIVATE EMD="$<TARGET_FILE:emd>" EMD_TEST_APP="$<TARGET_FILE:emd_test_app>")
add_dependencies(emd_readiness_test emd)

# Identity, capabilities, limits, scheduling and the clean start of a process, from /proc.
ara_exec_add_test(NAME emd_sandbox_test SOURCES emd_sandbox_test.cpp LINK ara_exec)
target_compile_definitions(emd_sandbox_test PRIVATE EMD="$<TARGET_FILE:emd>" EMD_TEST_APP="$<TARGET_FILE:emd_test_app>")
add_dependencies(emd_sandbox_test emd)
# emd sending its processes' output to its log, nowhere or a file; their descriptor limit.
ara_exec_add_test(NAME emd_output_test SOURCES emd_output_test.cpp LINK ara_exec)
target_compile_definitions(emd_output_test PRIVATE EMD="$<TARGET_FILE:emd>" EMD_TEST_APP="$<TARGET_FILE:emd_test_app>")
add_dependencies(emd_output_test emd)
# emd's cgroups: limits, a fork loop, a memory hog, orphaned grandchildren (ARA_EXEC_REQUIRE_CGROUPS).
ara_exec_add_test(NAME emd_cgroup_test SOURCES emd_cgroup_test.cpp LINK ara_exec emd_core)
target_compile_definitions(emd_cgroup_test PRIVATE EMD="$<TARGET_FILE:emd>" EMD_TEST_APP="$<TARGET_FILE:emd_test_app>")
add_dependencies(emd_cgroup_test emd)
# emd telling a service manager (the test) READY=1, WATCHDOG=1 and STOPPING=1; addresses it cannot use.
ara_exec_add_test(NAME emd_service_manager_test SOURCES emd_service_manager_test.cpp LINK ara_exec)
target_compile_definitions(emd_service_manager_test PRIVATE EMD="$<TARGET_FILE:emd>" EMD_TEST_APP="$<TARGET_FILE:emd_test_app>")
add_dependencies(emd_service_manager_test emd)
# emd.service as built, on the build tree's emd, passes systemd-analyze verify without a word.
add_test(NAME emd_unit_verifies COMMAND bash ${PROJECT_SOURCE_DIR}/tests/support/scripts/unit_verifies.sh
                                        ${PROJECT_BINARY_DIR}/daemon/systemd/build_tree/emd.service)
set_tests_properties(emd_unit_verifies PROPERTIES SKIP_RETURN_CODE 77)
