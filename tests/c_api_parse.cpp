// The C test's YAML parsing, through the library's own loader.
#include "arena.hpp"
#include "yaml_loader.hpp"

extern "C" JSON_Value *pc_test_parse(const char *yaml) {
    static pc::Arena arena;
    pc::yaml::LoadError error;
    return pc::yaml::load_string(yaml, "c_api_test", arena, error);
}
