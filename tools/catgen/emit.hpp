// Writers of the generated sources. Each returns the text of one file.
#pragma once

#include "model.hpp"

#include <string>
#include <vector>

namespace catgen {

constexpr int kShards = 8; // generated per-type code is split so the build runs in parallel

std::vector<const ObjectType *> shard_types(const Catalogue &cat, int shard);

std::string api_header(const Catalogue &cat);          // planecheck/dpa_api.h
std::string exports_header(const Catalogue &cat);      // planecheck/exports.h
std::string support_value_forms(const Catalogue &cat); // converters of every value type
std::string simplane_layouts(const Catalogue &cat);
std::string simplane_shard(const Catalogue &cat, int shard);
std::string engine_shard(const Catalogue &cat, int shard);
std::string engine_catalogue(const Catalogue &cat);
std::string scenario_schema(const Catalogue &cat);      // scenario.schema.json
std::string schema_source(const std::string &schema);  // the schema as a C++ constant
std::string vocabulary_header(const Vocabulary &vocab); // planecheck/vocabulary.hpp

// The native C type of an attribute's value as accessors see it.
inline std::string c_type(const Attribute &a) { return a.type->c_type(); }

// The C constant prefix of an enum's values: DPA_BFDOFF_LOCAL_STATE_ for dpa_bfdoff_local_state_en.
std::string enum_constant_prefix(const std::string &enum_name);
std::string key_type(const ObjectType &t);   // dpa_<obj>_key_t
std::string role_accessor(const ObjectType &t, const RolePair &p, const char *verb, const char *form);

// Names that have their own stub functions but no catalogue entry and no place in any dispatch.
extern const char *const kStubTypes[7];

} // namespace catgen
