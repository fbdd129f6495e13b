// Which attribute holds the prefix length of an address attribute: scenarios written from
// routing tables give "10.0.0.0/24", and the message should say where the 24 goes.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace pc::support {

// The partner of `address` among `names`: a name "<stem>prefix_len" whose stem the address
// shares, the rest of the address being an address word ("src_ip" and "src_prefix_len",
// "prefix" and "prefix_len", "group" and "group_prefix_len"). "" when none: "gateway_addr" has no
// prefix length even where the type has a "prefix_len" for its "prefix".
inline std::string prefix_length_partner(std::string_view address, const std::vector<std::string_view> &names) {
    static constexpr std::string_view kLength = "prefix_len";
    static constexpr std::string_view kAddressWords[] = {"", "addr", "addr6", "ip", "ip6", "prefix", "address"};
    for (std::string_view name : names) {
        if (name.size() < kLength.size() || name.substr(name.size() - kLength.size()) != kLength) continue;
        std::string_view stem = name.substr(0, name.size() - kLength.size());
        std::string_view bare_stem = stem.empty() || stem.back() != '_' ? stem : stem.substr(0, stem.size() - 1);
        std::string_view rest;
        if (address.substr(0, stem.size()) == stem) rest = address.substr(stem.size());
        else if (address == bare_stem) rest = "";
        else continue;
        for (std::string_view word : kAddressWords)
            if (rest == word && !(stem.empty() && rest.empty())) return std::string(name);
    }
    return "";
}

} // namespace pc::support
