# SPDX-License-Identifier: Apache-2.0
# DDS transport: configuration text of the Cyclone domains and start-up of the transport.
ara_exec_add_test(NAME dds_config_test SOURCES dds_config_test.cpp LINK brio_ddsdriver_static)
target_include_directories(dds_config_test PRIVATE ${PROJECT_SOURCE_DIR}/platform/dds/src)
