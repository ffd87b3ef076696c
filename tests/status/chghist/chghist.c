/* SPDX-License-Identifier: Apache-2.0 */
/* Stands in for the change-history library: keeps what it is handed, for a test to look up with dlsym(). */
#include "platform/change_history.h"

#define MOST_ROWS 32

int inserted_count;
ChangeHistoryRecord inserted_rows[MOST_ROWS];
void (*on_insert)(const ChangeHistoryRecord* row);

int insert_hw_log(ChangeHistoryRecord* row) {
    if (inserted_count < MOST_ROWS) inserted_rows[inserted_count] = *row;
    ++inserted_count;
    if (on_insert) on_insert(row);
    return 0;
}
