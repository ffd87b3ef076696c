// SPDX-License-Identifier: Apache-2.0
// What the change-history library of the tests was handed.
#pragma once

#include <dlfcn.h>

#include <vector>

#include "fake_platform.h"

namespace vpdd::test {

/// Keeps the change-history library in the process while it lives, whatever the library does. Rows stand in the
/// platform's journal as "history STATUS".
class ChangeHistoryRows {
public:
    ChangeHistoryRows() : library_(dlopen("liborvadb_chghist.so", RTLD_LAZY | RTLD_NOLOAD)) {
        *symbol<int>("inserted_count") = 0;
        *symbol<void (*)(const ChangeHistoryRecord*)>("on_insert") = [](const ChangeHistoryRecord* row) {
            FakePlatform::instance().note("history " + std::to_string(row->status));
        };
    }
    ~ChangeHistoryRows() { dlclose(library_); }
    ChangeHistoryRows(const ChangeHistoryRows&) = delete;
    ChangeHistoryRows& operator=(const ChangeHistoryRows&) = delete;

    std::vector<ChangeHistoryRecord> rows() const {
        const auto* const first = symbol<ChangeHistoryRecord>("inserted_rows");
        return {first, first + *symbol<int>("inserted_count")};
    }

private:
    template <class Object>
    Object* symbol(const char* name) const {
        return static_cast<Object*>(dlsym(library_, name));
    }

    void* library_;
};

}  // namespace vpdd::test
