# SPDX-License-Identifier: Apache-2.0
# RPC endpoints over a scripted transport: address choice, descriptors, binding, discovery.
ara_exec_add_test(NAME rpc_test SOURCES rpc_test.cpp LINK ara_test_fakes)
target_include_directories(rpc_test PRIVATE ${PROJECT_SOURCE_DIR}/rpc/src)
