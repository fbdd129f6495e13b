// json_send_object_client with arbitrary operation records for one catalogue type, against a
// fresh simplane instance and context per input. The step always names a catalogue type, so the
// deliberate unknown-table exit cannot happen; every input must run to its end, and every
// finding it counts must come with a message.
#include "fuzz_context.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FuzzedDataProvider in(data, size);
    pc::fuzz::Fixture fixture(in);
    const pc::engine::TypeDesc &type = pc::fuzz::pick_type(in);
    pc::Arena arena;
    JSON_Value *records = pc::fuzz::load_rest(in, arena);
    if (!records) return 0;
    json_send_object_client(pc::fuzz::step_for(type, records, arena), fixture.ctx());
    fixture.expect_every_count_has_a_message("send");
    return 0;
}
