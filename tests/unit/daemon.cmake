# SPDX-License-Identifier: Apache-2.0
# Unit tests of the emd daemon: the machine manifest; the process state machine and the
# function-group transitions with a fake launcher and a test-driven clock; the JSON of emd's
# own service; the line assembly and rate limit of the processes' output.
ara_exec_add_test(NAME manifest_test SOURCES daemon_manifest_test.cpp LINK emd_manifest)
ara_exec_add_test(NAME supervisor_test SOURCES supervisor_test.cpp LINK emd_core)
ara_exec_add_test(NAME status_json_test SOURCES status_json_test.cpp LINK emd_core)
ara_exec_add_test(NAME notify_protocol_test SOURCES notify_protocol_test.cpp LINK emd_core)
ara_exec_add_test(NAME output_stream_test SOURCES output_stream_test.cpp LINK emd_core)
# Where emd finds its cgroup hierarchies and its own groups in them.
ara_exec_add_test(NAME cgroup_detection_test SOURCES cgroup_detection_test.cpp LINK emd_core)
# The manifest's JSON Schema and emd's validation agree on one table of manifests.
add_test(NAME manifest_schema_agrees
         COMMAND python3 ${PROJECT_SOURCE_DIR}/tests/support/scripts/manifest_schema_agrees.py $<TARGET_FILE:emd>
                 ${PROJECT_SOURCE_DIR}/daemon/manifest.schema.json)
