// SPDX-License-Identifier: Apache-2.0
#include <cstdio>

#include "base/text.h"
#include "orva_vpdd.h"
#include "platform/configuration.h"
#include "platform/messages.h"

namespace {

constexpr int component_event = 72;  // message number of the dispatcher

struct EventPayload {
    uint32_t entity_id;
    int32_t master;     // value of "vpdc_master"
    int32_t component;  // value of the component's own variable
    char name[64];
    char variable[16];  // scratch behind the payload proper
};
static_assert(offsetof(EventPayload, name) == 12);
static_assert(offsetof(EventPayload, variable) == 76);
static_assert(sizeof(EventPayload) == 76 + 16);

/// 0 for a variable that is not set.
int32_t configured(const char* name) {
    int32_t value = 0;
    return tarn_config_get_int(name, &value) != 0 ? value : 0;
}

}  // namespace

extern "C" int send_swe_vpdd(const ComponentVpdRecord* record) {
    EventPayload payload{};
    payload.entity_id = record->entity_id;
    payload.master = configured("vpdc_master");
    std::snprintf(payload.variable, sizeof payload.variable, "vpdc_0x%.2x", record->fru_id);
    payload.component = configured(payload.variable);
    vpdd::assign_text(payload.name, vpdd::bounded_view(record->name, sizeof record->name));
    return sw_msg_dispatcher(component_event, &payload, payload.master, payload.component);
}
