# SPDX-License-Identifier: Apache-2.0
# The DDS transport's method halves over real Cyclone DDS, both in the test process. Labelled
# concurrency: Cyclone threads deliver into the test's callbacks throughout.
ara_exec_add_test(NAME dds_rpc_test SOURCES dds_rpc_test.cpp LINK brio_ddsdriver_static LABELS concurrency)
