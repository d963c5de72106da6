# SPDX-License-Identifier: Apache-2.0
# Tests of the platform log library, and the helper program the process tests run.
set(ARA_LOG_SRC_DIR ${PROJECT_SOURCE_DIR}/platform/log/src)

# Linked to the shared library as a real user is, so static destruction spans two modules.
add_executable(log_emitter ${CMAKE_CURRENT_SOURCE_DIR}/log_support/log_emitter.cpp)
target_link_libraries(log_emitter PRIVATE ara_platform Threads::Threads)
target_compile_options(log_emitter PRIVATE ${ARA_EXEC_WARNINGS})
ara_exec_apply_sanitizer(log_emitter)

ara_exec_add_test(
  NAME log_unit_test
  SOURCES log_capture_test.cpp
  LINK ara_platform_static)
target_include_directories(log_unit_test PRIVATE ${ARA_LOG_SRC_DIR})

ara_exec_add_test(
  NAME log_concurrency_test
  SOURCES log_concurrency_test.cpp
  LINK ara_platform_static
  LABELS concurrency)

ara_exec_add_test(
  NAME log_process_test
  SOURCES log_process_test.cpp
  LINK ara_platform_static)
target_compile_definitions(log_process_test PRIVATE LOG_EMITTER_PATH="$<TARGET_FILE:log_emitter>"
                                                    $<$<BOOL:${ARA_EXEC_WITH_DLT}>:ARA_LOG_TEST_WITH_DLT=1>)
add_dependencies(log_process_test log_emitter)
