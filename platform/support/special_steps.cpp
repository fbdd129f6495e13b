// The special client steps. They belong to platforms with port, VLAN, route and bundle
// helpers; simplane has none, so each says so once per use and changes nothing.
#include "planecheck/session.hpp"
#include "planecheck/support.h"

namespace {
int unsupported(PROCESS *context, const char *kind) {
    pc_finding f = pc::support::message(pc_finding::Kind::log, pc_finding::Text::type_detail,
                                        "this step kind is not supported by simplane; nothing was done");
    f.type = kind;
    pc::support::report_finding(context, std::move(f));
    return 0;
}
} // namespace

extern "C" {
int json_ports_send(JSON_Value *, PROCESS *context) { return unsupported(context, "ports"); }
int json_vlan_send(JSON_Value *, PROCESS *context) { return unsupported(context, "vlan"); }
int json_route_send(JSON_Value *, PROCESS *context) { return unsupported(context, "route"); }
int json_bundle_send(JSON_Value *, PROCESS *context) { return unsupported(context, "bundle"); }
int json_get_then_update_send(JSON_Value *, PROCESS *context) { return unsupported(context, "get_then_update_test"); }
}
