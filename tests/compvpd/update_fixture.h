// SPDX-License-Identifier: Apache-2.0
// A cache that stands, whose components then change.
#pragma once

#include "lock_journal.h"
#include "module_fixture.h"

namespace vpdd::test {

inline constexpr char update_name[] = "UpdateComponentVPDCache";

/// One component of the cache, named "FRU <id>". Without an image it is not present.
struct Component {
    uint8_t id;
    Bytes image{};
    uint8_t entity = 7;
    uint8_t modifier = 0;
    uint8_t type = 0x10;
};

inline Component module_component(uint8_t id, const Bytes& image) { return {id, image, memory_device, dimm}; }

class UpdateTest : public ModuleCacheTest {
protected:
    /// Creates the cache. The platform then starts afresh, with the same images and an SMBIOS table that knows none of
    /// the modules.
    void create_cache(const std::vector<Component>& components) {
        std::vector<Bytes> locators;
        platform.fru(0, images::FruImage().build());
        for (const Component& component : components) {
            locators.push_back(images::FruLocator(component.id, "FRU " + std::to_string(component.id))
                                   .type(component.type)
                                   .modifier(component.modifier)
                                   .entity(component.entity, component.id));
        }
        set_images(components);
        create(locators);
        platform.reset();
        set_images(components);
        smbios("slot 99", "99999999");
    }

    /// What a component has become.
    void replace(uint8_t fru_id, const Bytes& image) { platform.fru(fru_id, image); }
    void replace(uint8_t fru_id, const images::FruImage& image) { replace(fru_id, image.build()); }

    /// The record of FRU 5, created from one image and updated from another.
    ComponentVpdRecord updated(const images::FruImage& from, const images::FruImage& to, uint8_t entity = 7) {
        create_cache({{5, from.build(), entity}});
        replace(5, to);
        EXPECT_EQ(UpdateComponentVPDCache(), 0);
        return *cached(5);
    }
    ComponentVpdRecord updated(const images::FruImage& image, uint8_t entity = 7) {
        return updated(image, image, entity);
    }

    testing::AssertionResult update_logged(int priority, std::string_view text) const {
        return platform.logged_at_line(priority, update_name, text);
    }

    /// The journal of an update, with the locks.
    std::vector<std::string> journal_of_update() const {
        const std::size_t before = platform.journal().size();
        {
            const LockJournal locks;
            UpdateComponentVPDCache();
        }
        auto lines = platform.journal();
        lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(before));
        return lines;
    }

    std::vector<ConfigurationWrite> part_numbers() const {
        auto writes = platform.configuration();
        std::erase_if(writes,
                      [](const ConfigurationWrite& write) { return !write.name.starts_with("TARN_STR_PART_NUM_"); });
        return writes;
    }

    int32_t total(std::string_view name) const {
        const auto write = platform.written(name);
        return write ? std::get<int32_t>(write->value) : -77;
    }

private:
    void set_images(const std::vector<Component>& components) {
        for (const Component& component : components) {
            if (!component.image.empty()) platform.fru(component.id, component.image);
        }
    }
};

/// "pid = <this process>, UpdateComponentVPDCache - " and the text.
inline std::string update_line(const std::string& text) {
    return formatted("pid = %d, %s - ", getpid(), update_name) + text;
}

}  // namespace vpdd::test
