# SPDX-License-Identifier: Apache-2.0
# One way to make every target: object library per directory, shared libraries assembled
# from those objects, a static twin of each shared library for the tests (which need the
# hidden symbols), and tests linked against the static twins.

set(ARA_EXEC_WARNINGS -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wnon-virtual-dtor
                      -Woverloaded-virtual -Wcast-align)
if(ARA_EXEC_WERROR)
  list(APPEND ARA_EXEC_WARNINGS -Werror)
endif()

# Compile and link flags of the sanitizer build, applied per target.
function(ara_exec_apply_sanitizer target)
  if(ARA_EXEC_SANITIZER)
    target_compile_options(${target} PRIVATE -fsanitize=${ARA_EXEC_SANITIZER} -fno-omit-frame-pointer
                                             -fno-sanitize-recover=all)
    get_target_property(type ${target} TYPE)
    if(NOT type STREQUAL "OBJECT_LIBRARY" AND NOT type STREQUAL "STATIC_LIBRARY")
      target_link_options(${target} PRIVATE -fsanitize=${ARA_EXEC_SANITIZER})
    endif()
  endif()
endfunction()

# ara_exec_add_component(NAME n LIBRARY lib SOURCES ... [USES ...] [DEPS ...] [PRIVATE_DEPS ...])
# Object library for one directory, one layer, part of the shared library LIBRARY. Its
# headers are the target <n>_headers (<dir>/include); USES names the components below it
# whose headers it includes, and only those (and what their own headers need) are on its
# include path, so an include that reaches up or sideways fails to build. <dir>/src stays
# private. The layer check (cmake/check_layers.sh) holds the include lines to the same list.
function(ara_exec_add_component)
  cmake_parse_arguments(ARG "" "NAME;LIBRARY" "SOURCES;USES;DEPS;PRIVATE_DEPS" ${ARGN})
  set_property(GLOBAL APPEND PROPERTY ARA_EXEC_COMPONENTS_${ARG_LIBRARY} ${ARG_NAME})
  set_property(GLOBAL APPEND PROPERTY ARA_EXEC_LAYERS "${ARG_NAME}=${CMAKE_CURRENT_SOURCE_DIR}=${ARG_USES}")
  add_library(${ARG_NAME}_headers INTERFACE)
  target_include_directories(${ARG_NAME}_headers INTERFACE $<BUILD_INTERFACE:${CMAKE_CURRENT_SOURCE_DIR}/include>)
  foreach(used IN LISTS ARG_USES)
    target_link_libraries(${ARG_NAME}_headers INTERFACE ${used}_headers)
  endforeach()
  target_link_libraries(${ARG_LIBRARY}_headers INTERFACE ${ARG_NAME}_headers)
  set_property(GLOBAL APPEND PROPERTY ARA_EXEC_INSTALL_INCLUDE_DIRS "${CMAKE_CURRENT_SOURCE_DIR}/include")
  add_library(${ARG_NAME} OBJECT ${ARG_SOURCES})
  target_include_directories(${ARG_NAME} PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/src)
  target_link_libraries(${ARG_NAME} PUBLIC ${ARG_NAME}_headers Threads::Threads ${ARG_DEPS} PRIVATE ${ARG_PRIVATE_DEPS})
  set_target_properties(${ARG_NAME} PROPERTIES POSITION_INDEPENDENT_CODE ON CXX_VISIBILITY_PRESET hidden
                                               VISIBILITY_INLINES_HIDDEN ON)
  target_compile_options(${ARG_NAME} PRIVATE ${ARA_EXEC_WARNINGS})
  target_compile_definitions(${ARG_NAME} PRIVATE ARA_EXEC_BUILDING)
  ara_exec_apply_sanitizer(${ARG_NAME})
endfunction()

# ara_exec_add_shared_library(NAME n [LINK ...])
# lib<n>.so from the objects of the components that named it, AraExec::<n> alias, and the
# static twin <n>_static that the tests link.
function(ara_exec_add_shared_library)
  cmake_parse_arguments(ARG "" "NAME" "LINK" ${ARGN})
  set(ARG_HEADERS ${ARG_NAME}_headers)
  get_property(ARG_COMPONENTS GLOBAL PROPERTY ARA_EXEC_COMPONENTS_${ARG_NAME})
  add_library(${ARG_NAME} SHARED)
  add_library(AraExec::${ARG_NAME} ALIAS ${ARG_NAME})
  target_link_libraries(${ARG_NAME} PRIVATE ${ARG_COMPONENTS} PUBLIC ${ARG_LINK})
  target_include_directories(${ARG_NAME} INTERFACE $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  foreach(component IN LISTS ARG_COMPONENTS)
    if(TARGET ${component}_headers)
      get_target_property(build_dirs ${component}_headers INTERFACE_INCLUDE_DIRECTORIES)
      target_include_directories(${ARG_NAME} INTERFACE ${build_dirs})
    endif()
  endforeach()
  # $ORIGIN: an installed library finds its sibling libraries wherever the prefix is.
  set_target_properties(${ARG_NAME} PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR}
                                               CXX_VISIBILITY_PRESET hidden INSTALL_RPATH "$ORIGIN")
  target_link_options(${ARG_NAME} PRIVATE -Wl,--no-undefined)
  ara_exec_apply_sanitizer(${ARG_NAME})

  set(static_links)
  foreach(lib IN LISTS ARG_LINK)
    list(APPEND static_links ${lib}_static)
  endforeach()
  add_library(${ARG_NAME}_static STATIC)
  target_link_libraries(${ARG_NAME}_static PUBLIC ${ARG_COMPONENTS} ${static_links})
endfunction()

# ara_exec_add_program(NAME n SOURCES ... [LINK ...])
# An executable of ours (daemon, example, test helper, benchmark) with our warnings and the
# sanitizer flags of the build, linked PRIVATE to LINK.
function(ara_exec_add_program)
  cmake_parse_arguments(ARG "" "NAME" "SOURCES;LINK" ${ARGN})
  add_executable(${ARG_NAME} ${ARG_SOURCES})
  target_link_libraries(${ARG_NAME} PRIVATE ${ARG_LINK})
  target_compile_options(${ARG_NAME} PRIVATE ${ARA_EXEC_WARNINGS})
  ara_exec_apply_sanitizer(${ARG_NAME})
endfunction()

# ara_exec_add_test(NAME n SOURCES ... [LINK ...] [LABELS ...] [TIMEOUT s] [SERIAL])
# A GoogleTest executable linked to the static twins; each test case becomes a ctest test.
# SERIAL: ctest runs none of its cases beside another test (for cases that load the whole
# machine and would starve a neighbour's time-outs).
function(ara_exec_add_test)
  cmake_parse_arguments(ARG "SERIAL" "NAME;TIMEOUT" "SOURCES;LINK;LABELS" ${ARGN})
  add_executable(${ARG_NAME} ${ARG_SOURCES})
  target_link_libraries(${ARG_NAME} PRIVATE ${ARG_LINK} ara_test_support GTest::gmock GTest::gtest_main)
  target_compile_options(${ARG_NAME} PRIVATE ${ARA_EXEC_WARNINGS})
  ara_exec_apply_sanitizer(${ARG_NAME})
  if(NOT ARG_TIMEOUT)
    set(ARG_TIMEOUT 300)
  endif()
  set(properties TIMEOUT ${ARG_TIMEOUT})
  if(ARG_SERIAL)
    list(APPEND properties RUN_SERIAL TRUE)
  endif()
  if(ARG_LABELS)
    list(APPEND properties LABELS "${ARG_LABELS}")
  endif()
  gtest_discover_tests(${ARG_NAME} DISCOVERY_TIMEOUT 60 NO_PRETTY_VALUES PROPERTIES ${properties})
endfunction()
