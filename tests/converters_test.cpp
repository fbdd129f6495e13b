// The converters of every value type: coverage, the round trip JSON -> native -> JSON, and the
// messages a bad value gives.
#include "harness.hpp"
#include "samples.hpp"
#include "prefix_length.hpp"

#include <set>
#include <vector>

namespace {

using pc::engine::kValueTypeCount;
using pc::engine::kValueTypes;
using pc::support::Form;
using pc::support::ValueForm;
using pc::test::sample;

TEST(Converters, EveryValueTypeHasItsConvertersExceptTheDocumentedGaps) {
    ASSERT_EQ(kValueTypeCount, 332u);
    ASSERT_EQ(pc::support::kValueFormCount, 332u);
    std::set<std::string> no_recorder, no_json;
    size_t convert = 0;
    for (size_t i = 0; i < kValueTypeCount; ++i) {
        EXPECT_STREQ(kValueTypes[i].name, pc::support::kValueForms[i]->name);
        convert += kValueTypes[i].convert != nullptr;
        if (!kValueTypes[i].recorder_dump) no_recorder.insert(kValueTypes[i].name);
        if (!kValueTypes[i].json_dump) no_json.insert(kValueTypes[i].name);
    }
    EXPECT_EQ(convert, 332u);
    EXPECT_EQ(no_recorder, (std::set<std::string>{"rc", "ulong"}));
    EXPECT_EQ(no_json, (std::set<std::string>{"rc", "ulong", "ofa_tandem_array_t", "tcam_entry_id_list"}));
}

TEST(Converters, EveryValueTypeRoundTripsThroughItsNativeForm) {
    pc::test::Harness h;
    alignas(8) uint8_t first[4096], second[4096];
    for (size_t i = 0; i < kValueTypeCount; ++i) {
        const ValueForm &f = *pc::support::kValueForms[i];
        SCOPED_TRACE(f.name);
        std::string json = sample(f);
        std::memset(first, 0, sizeof first);
        kValueTypes[i].convert(h.ctx(), first, h.json(json), f.name);
        std::string text = pc::support::format_value(f, first);
        std::memset(second, 0, sizeof second);
        kValueTypes[i].convert(h.ctx(), second, h.json(text), f.name);
        EXPECT_EQ(std::memcmp(first, second, f.width), 0) << json << " came back as " << text;
        EXPECT_EQ(pc::support::format_value(f, second), text);
        if (kValueTypes[i].recorder_dump) { // the exported recorder converter writes the same text
            pc::recorder::Capture capture;
            kValueTypes[i].recorder_dump(nullptr, first, f.name);
            EXPECT_EQ(capture.text(), text);
        }
        if (kValueTypes[i].json_dump) {
            h.context.session.dump_document.clear();
            kValueTypes[i].json_dump(h.ctx(), first, f.name);
            EXPECT_EQ(h.context.session.dump_document, "  \"" + std::string(f.name) + "\": " + text + ",\n");
        }
    }
    EXPECT_EQ(h.value_errors(), 0u) << h.all_log();
}

// The spellings users type for numbers, statuses, handles, addresses, booleans, 12-byte ids and
// enum values: each accepted spelling must give the very bytes of the canonical one.
TEST(Converters, EverydaySpellingsGiveTheSameNativeValue) {
    pc::test::Harness h;
    using Convert = int (*)(PROCESS *, void *, JSON_Value *, const char *);
    auto native = [&](Convert convert, const std::string &yaml, size_t width) {
        alignas(8) uint8_t out[64] = {};
        convert(h.ctx(), out, h.json(yaml), "v");
        return std::string(reinterpret_cast<char *>(out), width);
    };
    json_set_hdl(h.ctx(), "if1", 0x1abc);
    const Convert mac = json_convert_mac, boolean = json_convert_bool, id = json_convert_id, state = json_convert_dpa_bfdoff_local_state_en;
    const struct {
        Convert convert;
        size_t width;
        const char *canonical;
        std::vector<const char *> spellings;
    } rows[] = {
        {json_convert_uint, 4, "31", {"\"0x1f\""}},
        {json_convert_uint, 4, "42", {"\"42\""}},
        {json_convert_rc, 4, "17", {"EEXIST"}},
        {json_convert_rc, 4, "53450", {"DONT_CARE"}},
        {json_convert_refhdl, 8, "6844", {"if1"}},
        {json_convert_ip6, 16, "\"2001:db8::1\"", {"\"2001:DB8:0:0:0:0:0:1\""}},
        {mac, 6, "\"00:11:22:aa:bb:cc\"", {"\"00-11-22-AA-BB-CC\"", "\"0011.22aa.bbcc\"", "\"0011.22AA.BBCC\"", "\"001122aabbcc\"", "001122aabbcc"}},
        {boolean, 1, "true", {"yes", "\"yes\"", "Yes", "YES", "on", "\"On\"", "ON", "\"true\"", "1"}},
        {boolean, 1, "false", {"no", "\"no\"", "No", "NO", "off", "Off", "OFF", "0"}},
        {id, 12, "\"0x0102030405060708090a0b0c\"", {"\"0102030405060708090a0b0c\"", "0102030405060708090A0B0C"}},
        {id, 12, "42", {"\"42\""}}, // short bare digits stay decimal
        {state, 4, "up", {"DPA_BFDOFF_LOCAL_STATE_UP"}},
        {state, 4, "down", {"DOWN", "Down", "\"DOWN\"", "dpa_bfdoff_local_state_down", "DPA_BFDOFF_LOCAL_STATE_DOWN"}},
    };
    for (const auto &row : rows)
        for (const char *spelling : row.spellings)
            EXPECT_EQ(native(row.convert, spelling, row.width), native(row.convert, row.canonical, row.width)) << spelling;
    EXPECT_EQ(native(mac, "\"00:11:22:aa:bb:cc\"", 6), std::string("\x00\x11\x22\xaa\xbb\xcc", 6));
    EXPECT_EQ(native(boolean, "true", 1) + native(boolean, "false", 1), std::string("\1\0", 2));
    EXPECT_NE(native(state, "down", 4), native(state, "UP", 4));
    EXPECT_EQ(h.value_errors(), 0u) << h.all_log();
}

// A bad value, near misses of the spellings above too, gives one message naming the attribute,
// counts one value error, and the run goes on.
TEST(Converters, BadValuesGiveOneMessageNamingTheAttributeAndTheRunGoesOn) {
    pc::test::Harness h;
    struct Case {
        const char *json;
        int (*convert)(PROCESS *, void *, JSON_Value *, const char *);
        const char *message;
    };
    const Case cases[] = {
        {"abc", json_convert_uint, "v: expected a number, got the string \"abc\""},
        {"256", json_convert_uchar, "v: value 256 does not fit in 1 unsigned byte(s)"},
        {"-1", json_convert_uint, "v: value -1 does not fit in 4 unsigned byte(s)"},
        {"sideways", json_convert_dpa_bfdoff_local_state_en, "v: unknown value 'sideways' of dpa_bfdoff_local_state_en (one of: "},
        {"DOWNWARD", json_convert_dpa_bfdoff_local_state_en, "v: unknown value 'DOWNWARD'"},
        {"{fc: 1, colour: 2}", json_convert_forward_class_st, "v: unknown field 'colour' of forward_class_st (fields: fc, dp, tc, valid)"},
        {"\"10.0.0\"", json_convert_ip, "v: expected an IPv4 address"},
        {"\"00:11:22\"", json_convert_mac, "v: expected a MAC address"},
        {"\"00:11-22:33:44:55\"", json_convert_mac, "v: expected a MAC address like"}, // one separator throughout
        {"\"001.122.33.4455\"", json_convert_mac, "v: expected a MAC address like"},
        {"\"00112233445\"", json_convert_mac, "v: expected a MAC address like"},
        {"\"0011.2233.445g\"", json_convert_mac, "v: expected a MAC address like"},
        {"001122334455", json_convert_mac, "v: expected a MAC address like \"00:11:22:33:44:55\", \"0011.2233.4455\" or \"001122334455\", "
                                           "got the number 1122334455 (quote a MAC address"},
        {"nobody", json_convert_refhdl, "v: unknown handle name 'nobody'"},
        {"maybe", json_convert_bool, "v: expected true or false, got the string \"maybe\""},
        {"yEs", json_convert_bool, "v: expected true or false, got the string \"yEs\""},
        {"y", json_convert_bool, "v: expected true or false, got the string \"y\""},
        {"\"0102030405060708090a0b0\"", json_convert_id, "v: expected a number, got"}, // 23 digits: neither form
        {"\"0x0102030405060708090a0b0c0d\"", json_convert_id, "v: expected a number, \"0x\" and up to 24 hex digits, or exactly 24"},
        // an unquoted 24-digit id does not reach the converter: the loader refuses integers beyond 64 bits
    };
    alignas(8) uint8_t out[4096];
    for (const Case &c : cases) {
        h.log.clear();
        uint64_t before = h.value_errors();
        c.convert(h.ctx(), out, h.json(c.json), "v");
        EXPECT_EQ(h.value_errors(), before + 1) << c.json;
        ASSERT_EQ(h.log.size(), 1u) << c.json << "\n" << h.all_log();
        EXPECT_EQ(h.log[0].rfind(c.message, 0), 0u) << h.log[0];
    }
}

// The messages of planecheck's own that finish the sentence: the range a number must lie in, and
// where the length of an address written as "ADDRESS/LEN" goes, for the type being worked on.
TEST(Converters, MessagesSayTheRangeAndWhereAPrefixLengthGoes) {
    pc::test::Harness h;
    struct Case {
        const char *json;
        int (*convert)(PROCESS *, void *, JSON_Value *, const char *);
        const char *type, *name, *message;
    };
    const Case cases[] = {
        {"70000", json_convert_ushort, nullptr, "mtu_ipv4", "mtu_ipv4: value 70000 does not fit in 2 unsigned byte(s) (0 to 65535)"},
        {"128", json_convert_char, nullptr, "c", "c: value 128 does not fit in 1 signed byte(s) (-128 to 127)"},
        {"-2147483649", json_convert_int, nullptr, "i", "i: value -2147483649 does not fit in 4 signed byte(s) (-2147483648 to 2147483647)"},
        {"-1", json_convert_uint64_t, nullptr, "u", "u: value -1 does not fit in 8 unsigned byte(s) (0 to 18446744073709551615)"},
        {"\"10.0.0.1/24\"", json_convert_ip, "test_rt", "prefix",
         "prefix: expected an IPv4 address like \"10.0.0.1\", got the string \"10.0.0.1/24\"; the prefix length goes in prefix_len: "
         "write prefix: \"10.0.0.1\" and prefix_len: 24"},
        {"\"10.1.1.1/30\"", json_convert_ip, "l3intf", "ipv4_addr",
         "ipv4_addr: expected an IPv4 address like \"10.0.0.1\", got the string \"10.1.1.1/30\"; the prefix length goes in "
         "ipv4_prefix_len: write ipv4_addr: \"10.1.1.1\" and ipv4_prefix_len: 30"},
        {"\"2001:db8::/32\"", json_convert_ip6, "ip6acl", "src_ip",
         "src_ip: expected an IPv6 address like \"2001:db8::1\", got the string \"2001:db8::/32\"; the prefix length goes in "
         "src_prefix_len: write src_ip: \"2001:db8::\" and src_prefix_len: 32"},
        // iproute's prefix_len belongs to its prefix, not to its gateway
        {"\"10.0.0.1/24\"", json_convert_ip, "iproute", "gateway_addr",
         "gateway_addr: expected an IPv4 address like \"10.0.0.1\", got the string \"10.0.0.1/24\"; an address takes no /24 here: "
         "write \"10.0.0.1\""},
        {"{addr: \"10.0.0.0/8\"}", json_convert_ofa_ip_addr_t, "test_rt", "v",
         "v.addr: expected an IPv4 address like \"10.0.0.1\", got the string \"10.0.0.0/8\"; the prefix length goes in v.prefix_len: "
         "write addr: \"10.0.0.0\" and prefix_len: 8"},
        {"\"10.0.0\"", json_convert_ip, "test_rt", "prefix", "prefix: expected an IPv4 address like \"10.0.0.1\", got the string \"10.0.0\""},
    };
    alignas(8) uint8_t out[512];
    for (const Case &c : cases) {
        h.log.clear();
        pc::support::FindingScope scope(h.ctx(), c.type, "create");
        c.convert(h.ctx(), out, h.json(c.json), c.name);
        ASSERT_EQ(h.log.size(), 1u) << c.json << "\n" << h.all_log();
        EXPECT_EQ(h.log[0], std::string(c.message) + "\n");
    }
    // the pairing itself, where names come close without being partners
    using pc::support::prefix_length_partner;
    EXPECT_EQ(prefix_length_partner("group", {"prefix_len", "group_prefix_len"}), "group_prefix_len");
    EXPECT_EQ(prefix_length_partner("ipv6_link_local", {"ipv6_prefix_len"}), "");
    EXPECT_EQ(prefix_length_partner("src_addr", {"dst_prefix_len", "src_prefix_len"}), "src_prefix_len");
    EXPECT_EQ(prefix_length_partner("prefix", {"src_prefix_len"}), "");
}

// Every status shown to a person is its name with its number beside it.
TEST(Converters, StatusesForPeopleAreNameAndNumber) {
    const std::pair<int32_t, const char *> cases[] = {
        {0, "EOK (0)"}, {17, "EEXIST (17)"}, {0x1002, "ENOENT (4098)"}, // the class names it, the number is whole
        {53450, "DONT_CARE (53450)"}, {97, "97"}, {-17, "-17"}};
    for (const auto &[status, text] : cases) EXPECT_EQ(pc::support::status_for_people(status), text) << status;
}

TEST(Converters, SignedRangesAndHexBitPatternsHaveExactEdges) {
    pc::test::Harness h;
    int8_t c = 0;
    json_convert_char(h.ctx(), &c, h.json("-128"), "c");
    EXPECT_EQ(c, -128);
    json_convert_char(h.ctx(), &c, h.json("\"0xff\""), "c"); // hex is a bit pattern of the width
    EXPECT_EQ(c, -1);
    EXPECT_EQ(h.value_errors(), 0u) << h.all_log();
    json_convert_char(h.ctx(), &c, h.json("128"), "c");
    json_convert_char(h.ctx(), &c, h.json("\"0x100\""), "c");
    EXPECT_EQ(h.value_errors(), 2u);
    int64_t big = 0;
    json_convert_int64_t(h.ctx(), &big, h.json("-9223372036854775808"), "big");
    EXPECT_EQ(big, INT64_MIN);
    uint64_t u = 0;
    json_convert_uint64_t(h.ctx(), &u, h.json("18446744073709551615"), "u"); // beyond a double's precision
    EXPECT_EQ(u, UINT64_MAX);
    EXPECT_EQ(h.value_errors(), 2u) << h.all_log();
}

// Statuses, counts, NPU results and router types are read as constants: a number with no 64-bit
// integer (`npu_result: [1e400]` in a send, run under the fuzz build) reads as 0 instead of an
// undefined conversion (the sanitizer build checks float-cast-overflow); fractions truncate and
// those that fit keep their value.
TEST(Converters, ConstantsBeyond64BitsReadAsZeroAndTheEdgesKeepTheirValue) {
    pc::test::Harness h;
    for (const char *none : {".inf", "-.inf", ".nan", "1e400", "-1e400", "1e30", "1.9e19", "-1e19", "\"0x1ffffffffffffffff\"",
                             "\"-99999999999999999999\""})
        EXPECT_EQ(json_value_get_constant(h.json(none)), 0) << none;
    EXPECT_EQ(json_value_get_constant(h.json("1.8e19")), int64_t(uint64_t(18000000000000000000.0)));
    EXPECT_EQ(json_value_get_constant(h.json("-9.2e18")), int64_t(-9.2e18));
    EXPECT_EQ(json_value_get_constant(h.json("2.7")), 2);
    EXPECT_EQ(json_value_get_constant(h.json("-2.5")), -2);
    EXPECT_EQ(json_value_get_constant(h.json("\"0xffffffffffffffff\"")), -1);
    EXPECT_EQ(json_value_get_constant(h.json("ENOENT")), 2);
    EXPECT_EQ(pc::support::truncated(-9223372036854775808.0), INT64_MIN);
}

TEST(Converters, AStatusIsNamedByTheClassInItsLowNineBits) {
    EXPECT_STREQ(kerr_strerror(0x20c), "ENOMEM");
    EXPECT_STREQ(kerr_strerror(0x102), "status 0x102"); // bit 8 belongs to the class: not ENOENT
}

TEST(Converters, OverlongStringsAndListsAreCutToFitAndReported) {
    pc::test::Harness h;
    pc_string64_t s;
    std::memset(&s, 0, sizeof s);
    json_convert_string(h.ctx(), &s, h.json("\"" + std::string(100, 'a') + "\""), "description");
    EXPECT_EQ(std::strlen(s.text), 63u); // never past its width, always terminated
    EXPECT_TRUE(h.logged("description: the string is 100 bytes long; at most 63 fit"));
    std::string twenty = "[";
    for (int i = 0; i < 20; ++i) twenty += i ? ", 7" : "7";
    tcam_entry_id_list list{};
    json_convert_tcam_entry_id_list(h.ctx(), &list, h.json(twenty + "]"), "ids");
    EXPECT_EQ(list.count, 16u);
    EXPECT_EQ(list.elems[15], 7u);
    EXPECT_TRUE(h.logged("ids: the list has 20 elements; tcam_entry_id_list holds at most 16"));
    EXPECT_EQ(h.value_errors(), 2u);
}

TEST(Converters, KeyRecordsAndTwelveByteIdsKeepTheirFullWidth) {
    pc::test::Harness h;
    dpa_nhgroup_key_t k{}, back{};
    json_convert_dpa_nhgroup_key_t(h.ctx(), &k, h.json("{nhgroup_id: \"0x0102030405060708090a0b0c\"}"), "nhgroup_refkey");
    EXPECT_EQ(sizeof k, 12u);
    EXPECT_EQ(k.nhgroup_id.bytes[0], 0x0c);
    EXPECT_EQ(k.nhgroup_id.bytes[11], 0x01);
    pc::recorder::Capture capture;
    recorder_dump_convert_dpa_nhgroup_key_t(nullptr, &k, "nhgroup_refkey");
    EXPECT_EQ(capture.text(), "{\"nhgroup_id\": \"0x0102030405060708090a0b0c\"}");
    json_convert_dpa_nhgroup_key_t(h.ctx(), &back, h.json(capture.text()), "nhgroup_refkey");
    EXPECT_EQ(std::memcmp(&k, &back, sizeof k), 0);
}

} // namespace
