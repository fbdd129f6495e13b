// The special client steps. They belong to platforms with port, VLAN, route and bundle
// helpers; simplane has none, so each says so once per use and changes nothing.
#include "planecheck/support.h"

namespace {
int unsupported(PROCESS *context, const char *kind) {
    _proxy_log(context, 1, "%s: this step kind is not supported by simplane; nothing was done\n", kind);
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
