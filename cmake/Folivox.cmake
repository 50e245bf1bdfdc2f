# Helpers shared by every folder's CMakeLists.
#
# folivox_library(NAME DEPS ...) makes the library target folivox_NAME from
# every .cpp below the current folder. A folder with no sources yet becomes an
# INTERFACE target so that dependants still configure.
function(folivox_library name)
  cmake_parse_arguments(ARG "" "" "DEPS" ${ARGN})
  # Dependencies point one way: every Folivox library a folder uses must be
  # defined already (src/CMakeLists.txt adds folders bottom first). A
  # dependency on a folder further up is a cycle in the making.
  foreach(dep ${ARG_DEPS})
    if(dep MATCHES "^folivox_" AND NOT TARGET ${dep})
      message(FATAL_ERROR "folivox_${name} depends on ${dep}, which is not below it in src/CMakeLists.txt: "
                          "dependencies between folders must point one way")
    endif()
  endforeach()
  file(GLOB_RECURSE sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp)
  file(GLOB_RECURSE headers CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.h)
  set(target folivox_${name})
  if(sources)
    add_library(${target} STATIC ${sources} ${headers})
    # Text crosses between bytes and QString only where the code says which
    # encoding it is (QStringLiteral, fromUtf8, toUtf8, ...).
    target_compile_definitions(${target} PRIVATE QT_NO_CAST_FROM_ASCII QT_NO_CAST_TO_ASCII)
    target_include_directories(${target} PUBLIC ${PROJECT_SOURCE_DIR}/src)
    target_link_libraries(${target} PUBLIC ${ARG_DEPS})
  else()
    add_library(${target} INTERFACE)
    target_include_directories(${target} INTERFACE ${PROJECT_SOURCE_DIR}/src)
    target_link_libraries(${target} INTERFACE ${ARG_DEPS})
  endif()
endfunction()

# folivox_tests(NAME DEPS ...) makes one test executable per folder below the
# current one that holds .cpp files: folivox_NAME_<sub>_tests. Files whose name
# ends in IntegrationTest.cpp go to a separate executable labelled
# "integration" (they run real ffmpeg). Keeping folders apart lets work on one
# area build and run without the others.
function(folivox_tests name)
  cmake_parse_arguments(ARG "" "" "DEPS" ${ARGN})
  file(GLOB_RECURSE all CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp)
  set(dirs "")
  foreach(f ${all})
    get_filename_component(d ${f} DIRECTORY)
    list(APPEND dirs ${d})
  endforeach()
  list(REMOVE_DUPLICATES dirs)
  foreach(d ${dirs})
    file(RELATIVE_PATH rel ${CMAKE_CURRENT_SOURCE_DIR} ${d})
    string(REPLACE "/" "_" suffix "${rel}")
    if(suffix STREQUAL "")
      set(base folivox_${name})
    else()
      set(base folivox_${name}_${suffix})
    endif()
    file(GLOB unit CONFIGURE_DEPENDS ${d}/*.cpp)
    set(integ "")
    foreach(f ${unit})
      if(f MATCHES "IntegrationTest\\.cpp$")
        list(APPEND integ ${f})
      endif()
    endforeach()
    if(integ)
      list(REMOVE_ITEM unit ${integ})
    endif()
    foreach(kind unit integ)
      if(NOT ${kind})
        continue()
      endif()
      if(kind STREQUAL "unit")
        set(target ${base}_tests)
        set(labels "${name}")
      else()
        set(target ${base}_integration_tests)
        # gtest_discover_tests splits a list-valued property, so integration
        # programs carry the one label ctest -L selects them by.
        set(labels "integration")
      endif()
      add_executable(${target} ${${kind}})
      target_link_libraries(${target} PRIVATE folivox_test_support ${ARG_DEPS})
      gtest_discover_tests(${target}
        DISCOVERY_MODE PRE_TEST
        PROPERTIES LABELS "${labels}" ENVIRONMENT "FOLIVOX_TOOLS_DIR=${FOLIVOX_TOOLS_BUILD_DIR}")
    endforeach()
  endforeach()
endfunction()
