// SPDX-License-Identifier: Apache-2.0
// Which build of a firmware image is installed.
#include <array>
#include <string_view>

#include "base/log_line.h"
#include "base/scoped_lock.h"
#include "base/text.h"
#include "orva_vpdd.h"
#include "property/query.h"

namespace {

constexpr char unreadable[] = "*";
constexpr std::size_t name_limit = 20;     // characters
constexpr std::size_t text_limit = 16;     // of build id and build date
constexpr std::size_t version_limit = 15;  // one less: the field ends with the record

struct Paths {
    const char* build_id = nullptr;
    const char* build_date = nullptr;
    const char* build_version = nullptr;
};

enum class Order { id_date_version, id_version_date };

/// What follows a property that can be read but holds no text.
enum class WithoutText { counts_as_unreadable, leaves_the_field_empty };

struct Image {
    std::array<const char*, 2> requests;  ///< the second one is null when there is no other name
    const char* name;
    Paths paths;
    Paths fallback = {};
    Order order = Order::id_date_version;
    WithoutText without_text = WithoutText::counts_as_unreadable;
};

// Deliberate: every generation of the controller reads the paths of the third one.
constexpr Paths controller_primary{"/v2/zeltc/dm/fw/orva3/primary_build_id", "/v2/zeltc/dm/fw/orva3/primary_build_date",
                                   "/v2/zeltc/dm/fw/orva3/primary_build_version"};
constexpr Paths controller_active{"/v2/zeltc/dm/fw/orva3/build_id", "/v2/zeltc/dm/fw/orva3/build_date",
                                  "/v2/zeltc/dm/fw/orva3/build_version"};
constexpr Paths controller_backup_pending{"/v2/zeltc/dm/fw/orva3/backup_pending_build_id",
                                          "/v2/zeltc/dm/fw/orva3/backup_pending_build_date",
                                          "/v2/zeltc/dm/fw/orva3/backup_pending_build_version"};
constexpr Paths controller_backup{"/v2/zeltc/dm/fw/orva3/backup_build_id", "/v2/zeltc/dm/fw/orva3/backup_build_date",
                                  "/v2/zeltc/dm/fw/orva3/backup_build_version"};
constexpr Paths controller_primary_pending{"/v2/zeltc/dm/fw/orva3/primary_pending_build_id",
                                           "/v2/zeltc/dm/fw/orva3/primary_pending_build_date",
                                           "/v2/zeltc/dm/fw/orva3/primary_pending_build_version"};
constexpr Paths uefi{"/v2/zeltc/dm/fw/bios/build_id", "/v2/zeltc/dm/fw/bios/build_date",
                     "/v2/zeltc/dm/fw/bios/build_version"};
constexpr Paths uefi_pending{"/v2/zeltc/dm/fw/bios/pending_build_id", "/v2/zeltc/dm/fw/bios/pending_build_date",
                             "/v2/zeltc/dm/fw/bios/pending_build_version"};
constexpr Paths qsv{"/v2/qsv/build_id", "/v2/qsv/build_date", "/v2/qsv/build_version"};
constexpr Paths windows_drivers{"/v2/zeltc/dm/fw/drvwn/build_id", "/v2/zeltc/dm/fw/drvwn/build_date",
                                "/v2/zeltc/dm/fw/drvwn/build_version"};
constexpr Paths linux_drivers{"/v2/zeltc/dm/fw/drvln/build_id", "/v2/zeltc/dm/fw/drvln/build_date",
                              "/v2/zeltc/dm/fw/drvln/build_version"};
constexpr Paths nexol{"/v2/zeltc/dm/fw/nexol/build_id", "/v2/zeltc/dm/fw/nexol/build_date",
                      "/v2/zeltc/dm/fw/nexol/build_version"};
constexpr Paths nexol_fallback{"/v2/nexol/build_id", "/v2/nexol/build_date", "/v2/nexol/build_version"};

constexpr Image images[] = {
    {{"orva_primary", "orva2_primary"}, "ORVA2(Primary)", controller_primary},
    {{"orva3_primary"}, "BMC(Primary)", controller_primary},
    {{"orva", "orva2"}, "ORVA2(Active)", controller_active},
    {{"orva3"}, "BMC(Active)", controller_active},
    {.requests = {"orva_backup", "orva2_backup"},
     .name = "ORVA2(Backup)",
     .paths = controller_backup_pending,
     .fallback = controller_backup,
     .without_text = WithoutText::leaves_the_field_empty},
    {.requests = {"orva3_backup"},
     .name = "BMC(Backup)",
     .paths = controller_backup_pending,
     .fallback = controller_backup,
     .without_text = WithoutText::leaves_the_field_empty},
    {.requests = {"orva3_primary_pending"},
     .name = "BMC(Primary)",
     .paths = controller_primary_pending,
     .order = Order::id_version_date},
    {{"uefi"}, "UEFI", uefi},
    {{"uefi_pending"}, "UEFI", uefi_pending},
    {{"qsv"}, "KVRN", qsv},
    {{"drvwn"}, "KVRN Windows Drivers", windows_drivers},
    {{"drvln"}, "KVRN Linux Drivers", linux_drivers},
    {{"nexol"}, "NEXOL", nexol, nexol_fallback},
};

const Image* find_image(std::string_view request) {
    for (const Image& image : images) {
        for (const char* name : image.requests) {
            if (name != nullptr && request == name) return &image;
        }
    }
    return nullptr;
}

template <std::size_t Size>
bool read_text(const char* path, WithoutText without_text, char (&field)[Size], std::size_t limit) {
    vpdd::Property property;
    if (path == nullptr || vpdd::read_property(path, property) != 0) return false;
    // Words have no terminator and are no text.
    if (!property.is_terminated()) return without_text == WithoutText::leaves_the_field_empty;
    trim_string(property.text());
    vpdd::assign_text(field, property.text(), limit);  // a blank text is a value, too
    return true;
}

template <std::size_t Size>
void fill(char (&field)[Size], std::size_t limit, const Image& image, const char* Paths::*path) {
    if (read_text(image.paths.*path, image.without_text, field, limit)) return;
    if (read_text(image.fallback.*path, WithoutText::counts_as_unreadable, field, limit)) return;
    vpdd::assign_text(field, unreadable);
}

void read_image(const Image& image, FirmwareVpd& out) {
    vpdd::assign_text(out.name, image.name, name_limit);
    const auto fill_date = [&] { fill(out.build_date, text_limit, image, &Paths::build_date); };
    fill(out.build_id, text_limit, image, &Paths::build_id);
    if (image.order == Order::id_date_version) fill_date();
    fill(out.build_version, version_limit, image, &Paths::build_version);
    if (image.order == Order::id_version_date) fill_date();
}

}  // namespace

extern "C" int GetFirmwareVPD(uint32_t* size_out, uint32_t /*reserved*/, const char* image_name, FirmwareVpd* out) {
    if (image_name == nullptr || out == nullptr) {
        vpdd::log_line(vpdd::log_warning, __func__, "response buffer is null or invalid request.\n");
        return -1;
    }
    const vpdd::ScopedLock lock(fwvpd_access_mutex);
    *out = {};
    const Image* const image = find_image(image_name);
    if (image != nullptr) read_image(*image, *out);
    if (size_out != nullptr) *size_out = sizeof *out;
    return 0;
}
