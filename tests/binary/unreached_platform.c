/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The platform functions that no call of the program reaches. The library is bound whole when it is loaded, so they
 * must be there; without their headers, since nothing of them but the name matters.
 */
#include <stdlib.h>

#define UNREACHED(name) \
    void name(void);    \
    void name(void) { abort(); }

UNREACHED(GetAllSensorInfoByType)
UNREACHED(IPMI_DoIPMICmd)
UNREACHED(c_vpd_read)
UNREACHED(c_vpd_write)
UNREACHED(mosk_sdr_get_entry)
UNREACHED(pm_read_data)
UNREACHED(pm_sent_data)
UNREACHED(proc_system)
UNREACHED(send_ipmi_cmd)
UNREACHED(smbt_init)
UNREACHED(smbt_release)
UNREACHED(sw_msg_dispatcher)
UNREACHED(tarn_config_set_int)
UNREACHED(tarn_config_set_str)
UNREACHED(tarn_config_set_str_n)
UNREACHED(tarn_event_type_occurred)
