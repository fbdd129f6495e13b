# The installed shared libraries are built from the objects of the in-tree static libraries that
# the command line and the tests link, and export only the C interface. The C++ internals stay
# inside each library, so a user's program can only depend on what the C headers promise.
set(PC_PUBLIC_INCLUDE_DIRS
  ${CMAKE_SOURCE_DIR}/src/value/include ${CMAKE_SOURCE_DIR}/platform/include ${CMAKE_SOURCE_DIR}/src/engine/include
  ${PC_GEN_DIR}/include)

# pc_add_c_abi_library(NAME OUTPUT_NAME LIBRARY...): a shared library of the objects of LIBRARY...
function(pc_add_c_abi_library name output_name)
  set(objects)
  foreach(library ${ARGN})
    list(APPEND objects $<TARGET_OBJECTS:${library}>)
  endforeach()
  add_library(${name} SHARED ${objects})
  set_target_properties(${name} PROPERTIES OUTPUT_NAME ${output_name} VERSION ${PROJECT_VERSION} SOVERSION 0
                                           LINK_DEPENDS ${CMAKE_SOURCE_DIR}/cmake/c_abi.map)
  target_link_options(${name} PRIVATE -Wl,--version-script=${CMAKE_SOURCE_DIR}/cmake/c_abi.map)
  # clang leaves the sanitizer runtimes out of shared libraries: their symbols come from the program
  if(NOT PC_FUZZ)
    target_link_options(${name} PRIVATE -Wl,--no-undefined)
  endif()
  foreach(dir ${PC_PUBLIC_INCLUDE_DIRS})
    target_include_directories(${name} INTERFACE $<BUILD_INTERFACE:${dir}>)
  endforeach()
  target_include_directories(${name} INTERFACE $<INSTALL_INTERFACE:include>)
  add_dependencies(${name} pc_generated)
endfunction()

# The engine as a shared library on a platform library: on simplane (whose shared library carries
# the support library), or on another platform library, which then gets the support library
# linked into the engine.
function(pc_add_engine_library name platform)
  if(platform STREQUAL "simplane")
    pc_add_c_abi_library(${name} planecheck planecheck)
    target_link_libraries(${name} PUBLIC simplane_shared pc_value_shared)
  else()
    pc_add_c_abi_library(${name} planecheck planecheck pc_support)
    target_link_libraries(${name} PUBLIC ${platform} pc_value_shared)
  endif()
endfunction()
