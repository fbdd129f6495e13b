// Sample JSON values of any value type, away from zero and from the edges that a lazy
// converter might get right by chance.
#pragma once

#include "common.hpp"
#include "descriptors.hpp"
#include "value_forms.hpp"

#include <algorithm>
#include <string>

namespace pc::test {

inline std::string hex_digits(uint32_t bytes) {
    std::string s;
    for (uint32_t i = 0; i < bytes; ++i) s += "0123456789abcdef"[(i * 7 + 3) % 16], s += "fedcba9876543210"[i % 16];
    return s;
}

inline std::string sample(const pc::support::ValueForm &f) {
    using pc::support::Form;
    switch (f.form) {
    case Form::Uint: return f.width == 1 ? "201" : f.width == 2 ? "60001" : f.width == 4 ? "4000000001" : "18446744073709551000";
    case Form::Int: return f.width == 1 ? "-100" : f.width == 2 ? "-30000" : f.width == 4 ? "-2000000000" : "-9000000000000000000";
    case Form::Hex: return "\"0x" + hex_digits(f.width).substr(0, 2 * f.width - 1) + "\"";
    case Form::Bool: return "true";
    case Form::Status: return "ENOENT";
    case Form::Refhdl: case Form::HandleName: return "4660";
    case Form::Ip4: return "\"10.1.2.3\"";
    case Form::Ip6: return "\"2001:db8::5\"";
    case Form::Mac: return "\"00:11:22:aa:bb:cc\"";
    case Form::Bytes: return "\"0x" + hex_digits(f.width) + "\"";
    case Form::String: return "\"name-" + std::to_string(f.width) + "\"";
    case Form::Enum: return std::string("\"") + f.values[f.value_count - 1].name + "\"";
    case Form::Record: case Form::KeyRecord: {
        std::string s = "{";
        for (uint32_t i = 0; i < f.field_count; ++i) s += std::string(i ? ", " : "") + f.fields[i].name + ": " + sample(*f.fields[i].type);
        return s + "}";
    }
    case Form::Array: {
        std::string s = "[";
        for (uint32_t i = 0; i < std::min(f.bound, 3u); ++i) s += (i ? ", " : "") + sample(*f.element);
        return s + "]";
    }
    }
    return "null";
}

inline std::string sample_of(uint16_t value_type) { return sample(*pc::support::kValueForms[value_type]); }

// The fields of a record of any type, with sample values: its keys, and unless keys_only its
// settable attributes and the reference pairs active in ctx. Direct handles and the handles of the
// pairs name `handle`; the count of a sized type says two, as many as the members written.
inline std::string catalogue_fields(const pc::engine::TypeDesc &t, const PROCESS *ctx, bool element, bool keys_only,
                                    const std::string &handle) {
    using pc::engine::Kind;
    std::string s;
    for (const pc::engine::AttrDesc &a : element ? t.elements() : t.top()) {
        if (a.kind == Kind::ReadOnly || (keys_only && a.kind != Kind::Key)) continue;
        bool count = t.count_key && std::string(a.name) == t.count_key;
        s += std::string(", ") + a.name + ": " + (count ? "2" : a.kind == Kind::DirectRefhdl ? handle : sample_of(a.value_type));
    }
    for (const pc::engine::RoleDesc &r : element ? t.element_roles() : t.top_roles())
        if (!keys_only && pc::engine::active(r.gate, ctx))
            s += std::string(", ") + r.hdl_key + ": " + handle + ", " + r.key_key + ": " + sample_of(r.key_value_type);
    return s;
}

// One record of any type as a YAML flow mapping: `op`, the fields above, the members unless
// keys_only (two of a sized type), then `extra`.
inline std::string catalogue_record(const pc::engine::TypeDesc &t, const PROCESS *ctx, const std::string &op, bool keys_only,
                                    const std::string &extra = "", const std::string &handle = "4660") {
    std::string s = "{ op: " + op + catalogue_fields(t, ctx, false, keys_only, handle);
    if (!keys_only && !t.elements().empty()) {
        std::string fields = catalogue_fields(t, ctx, true, false, handle);
        std::string element = "{" + fields.substr(std::min<size_t>(2, fields.size())) + "}";
        s += ", members: [" + element + (t.sized() ? ", " + element : "") + "]";
    }
    return s + extra + " }";
}

} // namespace pc::test
