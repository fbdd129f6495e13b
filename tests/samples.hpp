// Sample JSON values of any value type, away from zero and from the edges that a lazy
// converter might get right by chance.
#pragma once

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

} // namespace pc::test
