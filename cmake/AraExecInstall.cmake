# SPDX-License-Identifier: Apache-2.0
# Installs the shared libraries, every public header directory, the CMake package
# (find_package(AraExec) -> AraExec::ara_exec) and the pkg-config file ara_exec.pc.
include(CMakePackageConfigHelpers)

# Each library is a package of its own (its runtime component); the .so link the linker
# looks for goes with the development files.
foreach(lib ara_platform kelp_brio brio_ddsdriver ara_exec)
  install(TARGETS ${lib}
          EXPORT AraExecTargets
          LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT ${lib} NAMELINK_COMPONENT dev
          INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
endforeach()

get_property(include_dirs GLOBAL PROPERTY ARA_EXEC_INSTALL_INCLUDE_DIRS)
foreach(dir IN LISTS include_dirs)
  install(DIRECTORY ${dir}/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT dev FILES_MATCHING PATTERN "*.h"
          PATTERN "*.inl")
endforeach()

set(ARA_EXEC_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/AraExec)
install(EXPORT AraExecTargets NAMESPACE AraExec:: DESTINATION ${ARA_EXEC_CMAKE_DIR} COMPONENT dev)
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/AraExecConfig.cmake.in
                              ${CMAKE_CURRENT_BINARY_DIR}/AraExecConfig.cmake INSTALL_DESTINATION ${ARA_EXEC_CMAKE_DIR})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/AraExecConfigVersion.cmake
                                 COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/AraExecConfig.cmake ${CMAKE_CURRENT_BINARY_DIR}/AraExecConfigVersion.cmake
        DESTINATION ${ARA_EXEC_CMAKE_DIR} COMPONENT dev)

configure_file(${CMAKE_CURRENT_LIST_DIR}/ara_exec.pc.in ${CMAKE_CURRENT_BINARY_DIR}/ara_exec.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/ara_exec.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)
