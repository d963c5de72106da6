# Unit tests of the emd daemon: the machine manifest.
ara_exec_add_test(NAME manifest_test SOURCES daemon_manifest_test.cpp LINK emd_manifest)
