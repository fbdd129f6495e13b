// Every converter family of every value type: json_convert_<type> with an arbitrary JSON value,
// then json_dump_convert_<type> and recorder_dump_convert_<type> of what it produced, and of
// arbitrary bytes. Storage is exactly the value's width, so a converter that writes or reads past
// its value shows. A value that cannot be converted is refused with a message.
#include "fuzz_context.hpp"

#include <cstring>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FuzzedDataProvider in(data, size);
    pc::fuzz::Fixture fixture(in);
    const auto &type = pc::engine::kValueTypes[in.ConsumeIntegralInRange<size_t>(0, pc::engine::kValueTypeCount - 1)];
    std::vector<uint8_t> value(type.width);
    if (in.ConsumeBool()) {
        std::string bytes = in.ConsumeBytesAsString(type.width);
        std::memcpy(value.data(), bytes.data(), bytes.size());
    } else {
        pc::Arena arena;
        JSON_Value *json = pc::fuzz::load_rest(in, arena);
        if (!json) return 0;
        int refused = type.convert(fixture.ctx(), value.data(), json, "fuzzed");
        if (refused && fixture.context.session.value_errors() == 0) {
            std::fprintf(stderr, "json_convert_%s refused the value without a message\n", type.name);
            std::abort();
        }
        fixture.expect_every_count_has_a_message("convert");
    }
    if (type.json_dump) type.json_dump(fixture.ctx(), value.data(), "fuzzed");
    if (type.recorder_dump) type.recorder_dump(fixture.ctx(), value.data(), "fuzzed");
    return 0;
}
