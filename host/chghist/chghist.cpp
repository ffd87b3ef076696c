// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cstdlib>
#include <exception>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "host/chghist/change_store.h"
#include "platform/change_history.h"

namespace vpdd::host {

namespace {

constexpr const char* file_name = "change_history.sqlite";
constexpr const char* directory_variable = "VPDD_STATE_DIRECTORY";

thread_local std::string last_error;

/// The database in use: opened when it is first needed, and anew when it is to be in another place.
class Place {
public:
    void use(const char* directory) {
        const std::scoped_lock lock(mutex_);
        directory_ = directory != nullptr ? directory : "";
    }

    /// What the operation makes of the database; nothing when that cannot be used.
    template <class Operation>
    auto with_store(Operation operation) -> std::optional<decltype(operation(std::declval<ChangeStore&>()))> try {
        last_error.clear();
        const std::scoped_lock lock(mutex_);
        return operation(store());
    } catch (const std::exception& error) {
        last_error = error.what();
        return {};
    }

private:
    std::filesystem::path directory() const {
        if (!directory_.empty()) return directory_;
        const char* named = std::getenv(directory_variable);
        return named != nullptr ? named : "";
    }

    ChangeStore& store() {
        const std::filesystem::path folder = directory();
        const std::filesystem::path path = folder.empty() ? folder : folder / file_name;
        if (store_ == nullptr || path != path_) {
            store_.reset();
            store_ = std::make_unique<ChangeStore>(path);
            path_ = path;
        }
        return *store_;
    }

    std::mutex mutex_;
    std::filesystem::path directory_;
    std::filesystem::path path_;
    std::unique_ptr<ChangeStore> store_;
};

Place& place() {
    static Place the_place;
    return the_place;
}

/// A copy for a caller that knows no containers; null for nothing.
template <class Element>
Element* released_copy(const std::vector<Element>& elements) {
    if (elements.empty()) return nullptr;
    auto* copy = static_cast<Element*>(std::calloc(elements.size(), sizeof(Element)));
    if (copy != nullptr) std::ranges::copy(elements, copy);
    return copy;
}

}  // namespace

}  // namespace vpdd::host

using vpdd::host::ChangeStore;
using vpdd::host::place;

extern "C" int insert_hw_log(ChangeHistoryRecord* record) {
    if (record == nullptr) return -1;
    const auto insert = [&](ChangeStore& store) {
        store.insert(*record);
        return true;
    };
    return place().with_store(insert) ? 0 : -1;
}

extern "C" int chghist_read_components(ComponentVpdRecord** records, void*) {
    if (records == nullptr) return -1;
    *records = nullptr;
    const auto components = place().with_store([](ChangeStore& store) { return store.components(); });
    if (!components) return -1;
    *records = vpdd::host::released_copy(*components);
    return *records != nullptr ? static_cast<int>(components->size()) : 0;
}

extern "C" int chghist_release_components(ComponentVpdRecord* records) {
    std::free(records);
    return 0;
}

extern "C" int chghist_read_pci(uint8_t** records, uint32_t table_code, uint32_t) {
    if (records == nullptr) return -1;
    *records = nullptr;
    const auto bytes = place().with_store([&](ChangeStore& store) { return store.pci_records(table_code); });
    if (!bytes) return -1;
    *records = vpdd::host::released_copy(*bytes);
    return *records != nullptr ? static_cast<int>(bytes->size() / sizeof PciNode::record) : 0;
}

extern "C" int chghist_release_pci(uint8_t* records) {
    std::free(records);
    return 0;
}

extern "C" void vpdd_chghist_use_directory(const char* directory) { place().use(directory); }

extern "C" int vpdd_chghist_each_change(VpddChangeVisitor visitor, void* context) {
    if (visitor == nullptr) return -1;
    const auto changes = place().with_store([](ChangeStore& store) { return store.changes(); });
    if (!changes) return -1;
    std::ranges::any_of(*changes, [&](const VpddChange& change) { return visitor(context, &change) != 0; });
    return 0;
}

extern "C" const char* vpdd_chghist_last_error(void) { return vpdd::host::last_error.c_str(); }
