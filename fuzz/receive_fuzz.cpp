// The SDK side with arbitrary received objects of every type and arbitrary records: the runner's
// sequence (receive, then the received-object dump), then the object dump of the same records.
// The received object is one simplane built for the type, its op code and everything after its
// header overwritten by the input; the records may name its type or another one.
#include "fuzz_context.hpp"

#include <cstring>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FuzzedDataProvider in(data, size);
    pc::fuzz::Fixture fixture(in);
    const pc::engine::TypeDesc &object_type = pc::fuzz::pick_type(in);
    const pc::engine::TypeDesc &record_type = in.ConsumeIntegralInRange(0, 7) ? object_type : pc::fuzz::pick_type(in);
    pc::engine::Obj obj = object_type.ops->ctor(in.ConsumeIntegralInRange<uint32_t>(0, 16));
    auto *instance = static_cast<dpa_inst_hdr_t *>(obj->data);
    instance->op = in.ConsumeIntegral<uint8_t>();
    size_t body = instance->inst_size - sizeof(dpa_inst_hdr_t);
    std::string bytes = in.ConsumeBytesAsString(in.ConsumeIntegralInRange<size_t>(0, body));
    std::memcpy(instance + 1, bytes.data(), bytes.size());

    pc::Arena arena;
    if (JSON_Value *records = pc::fuzz::load_rest(in, arena)) {
        JSON_Value *step = pc::fuzz::step_for(record_type, records, arena);
        PROCESS *p = fixture.ctx();
        p->received_obj = reinterpret_cast<ofa_client_obj_base_t>(instance);
        json_receive_object_sdk(step, p);
        p->received_obj = reinterpret_cast<ofa_client_obj_base_t>(instance); // receive leaves its freed view there
        json_dump_object_received_sdk(p);
        fixture.expect_every_count_has_a_message("receive");
        json_dump_object_sdk(step, p);
        fixture.expect_every_count_has_a_message("object dump");
    }
    object_type.ops->dtor(obj);
    return 0;
}
