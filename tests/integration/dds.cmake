# DDS transport over real Cyclone DDS: the test client in the test process, the echo server in
# another. Labelled concurrency: Cyclone threads deliver into the test's callbacks throughout.
add_executable(dds_echo_server ${CMAKE_CURRENT_SOURCE_DIR}/dds_echo_server.cpp)
target_link_libraries(dds_echo_server PRIVATE brio_ddsdriver_static Threads::Threads)
target_compile_options(dds_echo_server PRIVATE ${ARA_EXEC_WARNINGS})
ara_exec_apply_sanitizer(dds_echo_server)

ara_exec_add_test(NAME dds_rpc_test SOURCES dds_rpc_test.cpp LINK brio_ddsdriver_static LABELS concurrency)
target_compile_definitions(dds_rpc_test PRIVATE DDS_ECHO_SERVER="$<TARGET_FILE:dds_echo_server>")
add_dependencies(dds_rpc_test dds_echo_server)
