# SPDX-License-Identifier: Apache-2.0
# RPC clients against the scripted server in another process, over Cyclone DDS.
ara_exec_add_test(NAME rpc_transport_test SOURCES rpc_transport_test.cpp LINK ara_exec_static)
target_compile_definitions(rpc_transport_test PRIVATE EM_TEST_SERVER="$<TARGET_FILE:em_test_server>")
add_dependencies(rpc_transport_test em_test_server)
# The same calls once more with both ends in the SOME/IP encoding.
add_test(NAME rpc_transport_someip COMMAND rpc_transport_test --gtest_filter=RpcTransportTest.RepliesAndErrorsOfEveryKind)
set_tests_properties(rpc_transport_someip PROPERTIES ENVIRONMENT KELP_SERIALIZE_TYPE=someip TIMEOUT 300)
