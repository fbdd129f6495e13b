# The installed shared libraries are built from the objects of the in-tree static libraries that
# the command line and the tests link, and export only the C interface. The C++ internals stay
# inside each library, so a user's program can only depend on what the C headers promise.
set(PC_PUBLIC_INCLUDE_DIRS
  ${CMAKE_SOURCE_DIR}/src/value/include ${CMAKE_SOURCE_DIR}/platform/include ${CMAKE_SOURCE_DIR}/src/engine/include
  ${PC_GEN_DIR}/include)

function(pc_add_c_abi_library name objects_of output_name)
  add_library(${name} SHARED $<TARGET_OBJECTS:${objects_of}>)
  set_target_properties(${name} PROPERTIES OUTPUT_NAME ${output_name} VERSION ${PROJECT_VERSION} SOVERSION 0
                                           LINK_DEPENDS ${CMAKE_SOURCE_DIR}/cmake/c_abi.map)
  target_link_options(${name} PRIVATE -Wl,--version-script=${CMAKE_SOURCE_DIR}/cmake/c_abi.map -Wl,--no-undefined)
  foreach(dir ${PC_PUBLIC_INCLUDE_DIRS})
    target_include_directories(${name} INTERFACE $<BUILD_INTERFACE:${dir}>)
  endforeach()
  target_include_directories(${name} INTERFACE $<INSTALL_INTERFACE:include>)
  add_dependencies(${name} pc_generated)
endfunction()
