# SPDX-License-Identifier: Apache-2.0
# Debian packages of the install, made by `cpack` in the build directory (into packages/):
#   libara-platform1, libkelp-brio1, libbrio-ddsdriver1, libara-exec1   one per shared library
#   libara-exec-dev   headers, CMake package, pkg-config file and the linker's .so names
#   ara-exec-emd      emd and its unit, emctl with its completion, ara-exec-pki, ara_crc32,
#                     the schema, the example programs and manifests, the man pages
# Configure with CMAKE_INSTALL_PREFIX=/usr for packages: the paths written into the unit, the
# manifests and the pkg-config file are the configured ones.
set(ARA_EXEC_MAINTAINER "ara-exec developers <ara-exec-devel@lists.example.org>")
set(ARA_EXEC_RUNTIME_COMPONENTS ara_platform kelp_brio brio_ddsdriver ara_exec)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME ara-exec)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "${ARA_EXEC_MAINTAINER}")
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
                                                WORLD_READ WORLD_EXECUTE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL ${ARA_EXEC_RUNTIME_COMPONENTS} dev emd)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# Our own libraries are found in the build tree; the dependencies on their packages come
# from the components' dependencies below, at this exact version.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

# Every package carries the licence terms and the changelog under its own name.
set(ARA_EXEC_PACKAGE_DOCS ${PROJECT_BINARY_DIR}/packaging)
configure_file(${PROJECT_SOURCE_DIR}/packaging/changelog.in ${ARA_EXEC_PACKAGE_DOCS}/changelog @ONLY)
execute_process(COMMAND gzip -9nc ${ARA_EXEC_PACKAGE_DOCS}/changelog OUTPUT_FILE ${ARA_EXEC_PACKAGE_DOCS}/changelog.gz
                COMMAND_ERROR_IS_FATAL ANY)
function(ara_exec_package component name section summary description)
  string(TOUPPER ${component} upper)
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${name} PARENT_SCOPE)
  set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION ${section} PARENT_SCOPE)
  set(CPACK_COMPONENT_${upper}_DESCRIPTION "${summary}\n${description}" PARENT_SCOPE)
  install(FILES ${PROJECT_SOURCE_DIR}/packaging/copyright ${ARA_EXEC_PACKAGE_DOCS}/changelog.gz
          DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${name} COMPONENT ${component})
endfunction()

# Descriptions: a summary, then lines of at most 80 columns.
set(ARA_EXEC_ABOUT "The Execution Management client library (ara::exec) lets application\n\
processes report their execution state, a state manager set Function Group\n\
states, and a health manager supervise processes, all by remote methods to an\n\
Execution Management daemon over DDS.")
foreach(lib IN LISTS ARA_EXEC_RUNTIME_COMPONENTS)
  string(REPLACE "_" "-" name "lib${lib}${PROJECT_VERSION_MAJOR}")
  ara_exec_package(${lib} ${name} libs "Execution Management client stack - lib${lib} shared library"
                   "${ARA_EXEC_ABOUT}\n.\nThis package holds the shared library lib${lib}.")
endforeach()
ara_exec_package(dev libara-exec-dev libdevel "Execution Management client library - development files"
                 "${ARA_EXEC_ABOUT}\n.\nThis package holds the headers, the CMake package AraExec and the\n\
pkg-config file ara_exec.")
ara_exec_package(emd ara-exec-emd admin "Execution Management daemon (emd) and its tools"
                 "emd starts, supervises and stops the processes of a machine per Function\n\
Group state, as its machine manifest describes, and serves the Execution\n\
Management client library over DDS.\n.\n\
This package holds emd with its systemd unit, emctl to drive it, ara-exec-pki\n\
for DDS Security, the manifest schema, example programs and manifests, and the\n\
manual pages.")

# A library package refreshes the loader cache by trigger, not by scripts of its own.
foreach(script postinst postrm)
  configure_file(${PROJECT_SOURCE_DIR}/packaging/library-maintscript ${ARA_EXEC_PACKAGE_DOCS}/library/${script} COPYONLY)
endforeach()
foreach(lib IN LISTS ARA_EXEC_RUNTIME_COMPONENTS)
  string(TOUPPER ${lib} upper)
  set(CPACK_DEBIAN_${upper}_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/triggers
                                                  ${ARA_EXEC_PACKAGE_DOCS}/library/postinst ${ARA_EXEC_PACKAGE_DOCS}/library/postrm)
endforeach()

# Within one version the packages go together.
set(CPACK_COMPONENT_KELP_BRIO_DEPENDS ara_platform)
set(CPACK_COMPONENT_BRIO_DDSDRIVER_DEPENDS kelp_brio ara_platform)
set(CPACK_COMPONENT_ARA_EXEC_DEPENDS brio_ddsdriver kelp_brio ara_platform)
set(CPACK_COMPONENT_DEV_DEPENDS ${ARA_EXEC_RUNTIME_COMPONENTS})
set(CPACK_COMPONENT_EMD_DEPENDS ${ARA_EXEC_RUNTIME_COMPONENTS})
# emd's service scripts use init-system-helpers; ara-exec-pki runs openssl; the example's
# timekeeper and any notify-ready process use systemd-notify.
set(CPACK_DEBIAN_EMD_PACKAGE_DEPENDS "init-system-helpers (>= 1.54~), openssl")
set(CPACK_DEBIAN_EMD_PACKAGE_RECOMMENDS "systemd")
set(CPACK_DEBIAN_EMD_PACKAGE_CONTROL_EXTRA
    ${PROJECT_SOURCE_DIR}/packaging/postinst ${PROJECT_SOURCE_DIR}/packaging/prerm
    ${PROJECT_SOURCE_DIR}/packaging/postrm ${ARA_EXEC_PACKAGE_DOCS}/conffiles)

# The service's manifest: a machine with nothing to start until the administrator writes one.
# Under /usr it is /etc/ara-exec, a conffile; under another prefix it stays below the prefix.
if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  set(ARA_EXEC_CONFIG_DIR ${CMAKE_INSTALL_FULL_SYSCONFDIR}/ara-exec)
else()
  set(ARA_EXEC_CONFIG_DIR ${CMAKE_INSTALL_SYSCONFDIR}/ara-exec)
endif()
install(FILES ${PROJECT_SOURCE_DIR}/packaging/machine_manifest.json DESTINATION ${ARA_EXEC_CONFIG_DIR} COMPONENT emd)
file(WRITE ${ARA_EXEC_PACKAGE_DOCS}/conffiles "${CMAKE_INSTALL_FULL_SYSCONFDIR}/ara-exec/machine_manifest.json\n")

include(CPack)
