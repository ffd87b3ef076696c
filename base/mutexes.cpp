// SPDX-License-Identifier: Apache-2.0
#include "orva_vpdd.h"

pthread_mutex_t compvpd_access_mutex = PTHREAD_MUTEX_INITIALIZER;
pthread_mutex_t g_list_access_mutex = PTHREAD_MUTEX_INITIALIZER;
pthread_mutex_t compvpd_readonly_mutex = PTHREAD_MUTEX_INITIALIZER;
pthread_mutex_t compvpd_kiva_readonly_mutex = PTHREAD_MUTEX_INITIALIZER;
pthread_mutex_t g_fru_changed_flag_mutex = PTHREAD_MUTEX_INITIALIZER;
pthread_mutex_t compvpd_getproperty_mutex = PTHREAD_MUTEX_INITIALIZER;
pthread_mutex_t compvpd_getstringproperty_mutex = PTHREAD_MUTEX_INITIALIZER;
pthread_mutex_t compvpd_getbyteproperty_mutex = PTHREAD_MUTEX_INITIALIZER;
pthread_mutex_t fwvpd_access_mutex = PTHREAD_MUTEX_INITIALIZER;
pthread_mutex_t sysvpd_access_mutex = PTHREAD_MUTEX_INITIALIZER;
