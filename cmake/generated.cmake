# catgen turns the catalogue into sources in build/gen; they are never checked in.
set(PC_SHARDS 0 1 2 3 4 5 6 7)
set(PC_GEN_SIMPLANE ${PC_GEN_DIR}/simplane_layouts.cpp)
set(PC_GEN_ENGINE ${PC_GEN_DIR}/engine_catalogue.cpp)
foreach(s ${PC_SHARDS})
  list(APPEND PC_GEN_SIMPLANE ${PC_GEN_DIR}/simplane_api_${s}.cpp)
  list(APPEND PC_GEN_ENGINE ${PC_GEN_DIR}/engine_types_${s}.cpp)
endforeach()
set(PC_GEN_SUPPORT ${PC_GEN_DIR}/support_value_forms.cpp)
set(PC_GEN_HEADERS ${PC_GEN_DIR}/include/planecheck/dpa_api.h ${PC_GEN_DIR}/include/planecheck/exports.h
                   ${PC_GEN_DIR}/include/planecheck/vocabulary.hpp)
# The scenario files' JSON Schema, as a file to install and as a constant for `catalogue --schema`.
set(PC_GEN_SCHEMA ${PC_GEN_DIR}/scenario.schema.json)
set(PC_GEN_SCHEMA_SOURCE ${PC_GEN_DIR}/scenario_schema.cpp)

add_custom_command(
  OUTPUT ${PC_GEN_SIMPLANE} ${PC_GEN_ENGINE} ${PC_GEN_SUPPORT} ${PC_GEN_HEADERS} ${PC_GEN_SCHEMA} ${PC_GEN_SCHEMA_SOURCE}
  COMMAND catgen --objects ${PC_CATALOGUE} --value-types ${PC_VALUE_TYPES} --vocabulary ${PC_VOCABULARY} --out ${PC_GEN_DIR}
  DEPENDS catgen ${PC_CATALOGUE} ${PC_VALUE_TYPES} ${PC_VOCABULARY}
  COMMENT "Generating sources from the catalogue"
  VERBATIM)
add_custom_target(pc_generated DEPENDS ${PC_GEN_SIMPLANE} ${PC_GEN_ENGINE} ${PC_GEN_SUPPORT} ${PC_GEN_HEADERS} ${PC_GEN_SCHEMA}
                                       ${PC_GEN_SCHEMA_SOURCE})

# The generated per-type code is large and simple; it needs no heavy optimisation.
set_source_files_properties(${PC_GEN_SIMPLANE} ${PC_GEN_ENGINE} PROPERTIES COMPILE_OPTIONS "-O1;-g0")
add_library(pc_gen_headers INTERFACE)
target_include_directories(pc_gen_headers INTERFACE ${PC_GEN_DIR}/include)
add_dependencies(pc_gen_headers pc_generated)
