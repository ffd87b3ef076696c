// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>

#include <array>
#include <cstdio>

#include "base/file_handle.h"
#include "base/file_lock.h"
#include "base/host_macs.h"
#include "base/log_line.h"
#include "sysvpd/machine_record.h"

const char* const machine_vpd_cache_file[2] = {"/tmp/machine.cache", "/tmp/oemMachine.cache"};

namespace {

constexpr int rebuild_attempts = 30;
constexpr unsigned rebuild_pause = 1;  // seconds

/// What belongs to a cache file; index 0 standard, 1 OEM.
struct CacheFile {
    uint32_t size;
    const char* lock_path;
};

constexpr std::array<CacheFile, 2> cache_files{{
    {sizeof(MachineVpdRecord), "/tmp/vpdd_machine_lock"},
    {sizeof(OemMachineRecord), "/tmp/vpdd_machine_oem_lock"},
}};

std::size_t index_of(uint32_t oem) { return oem != 0 ? 1 : 0; }

vpdd::File open_for_reading(const char* path) {
    const int fd = vpdd::open_plain_file(path, O_RDONLY);
    if (fd < 0) return nullptr;
    vpdd::File file(fdopen(fd, "r"));
    if (file == nullptr) close(fd);
    return file;
}

int read_locked(uint8_t* buffer, uint32_t size, uint32_t oem) {
    int32_t fd = -1;
    if (vpdd::lock_file(cache_files[oem].lock_path, &fd) < 0) {
        // Deliberate: the text of another reader.
        std::fprintf(stderr, "vpdd_serv_readlog : fail to lock.\n");
        return -1;
    }
    const int result = read_machine_vpd_cache_file(buffer, size, oem);
    vpdd::unlock_file(fd);
    return result;
}

bool has_expected_size(const char* function, uint32_t size, uint32_t oem) {
    const uint32_t expected = cache_files[index_of(oem)].size;
    if (size == expected) return true;
    vpdd::log_line(vpdd::log_warning, function, "input size = %d, expect size = %d\n", static_cast<int>(size),
                   static_cast<int>(expected));
    return false;
}

/// Where the calling thread writes the next content until it is whole: writers that could not get the lock do not meet.
struct NewPath {
    explicit NewPath(const char* path) { std::snprintf(text, sizeof text, "%s.%d.new", path, gettid()); }
    char text[48];
};

/// Writes all of a new file and gives it the name of the old one, so that no reader ever finds a part of it, in
/// whatever thread or process.
bool replace_file(const char* path, const uint8_t* content, uint32_t size) {
    const NewPath new_path(path);
    unlink(new_path.text);  // left by a thread that was killed
    const int fd = open(new_path.text, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
    if (fd < 0) return false;
    const bool written = write(fd, content, size) == static_cast<ssize_t>(size);
    const bool closed = close(fd) == 0;
    if (written && closed && std::rename(new_path.text, path) == 0) return true;
    unlink(new_path.text);
    return false;
}

}  // namespace

extern "C" int vpdd_machine_cache_file_lock_wait(int32_t* fd) { return vpdd::lock_file(cache_files[0].lock_path, fd); }

extern "C" int vpdd_machine_oem_cache_file_lock_wait(int32_t* fd) {
    return vpdd::lock_file(cache_files[1].lock_path, fd);
}

extern "C" int vpdd_machine_cache_file_unlock(int32_t fd) { return vpdd::unlock_file(fd); }

extern "C" int vpdd_machine_oem_cache_file_unlock(int32_t fd) { return vpdd::unlock_file(fd); }

extern "C" int vpdd_machine_vpd_read(uint8_t* buffer, uint32_t size) { return read_locked(buffer, size, 0); }

extern "C" int vpdd_machine_oem_vpd_read(uint8_t* buffer, uint32_t size) { return read_locked(buffer, size, 1); }

extern "C" int read_machine_vpd_cache_file(uint8_t* buffer, uint32_t size, uint32_t oem) {
    if (buffer == nullptr) {
        vpdd::log_line(vpdd::log_warning, __func__, "input buffer is null\n");
        return -1;
    }
    if (!has_expected_size(__func__, size, oem)) return -1;
    const char* const path = machine_vpd_cache_file[index_of(oem)];
    const vpdd::File file = open_for_reading(path);
    if (file == nullptr) {
        vpdd::log_line(vpdd::log_warning, __func__, "open %s failed\n", path);
        return -1;
    }
    const std::size_t records = std::fread(buffer, size, 1, file.get());
    if (records == 1) return 0;
    vpdd::log_line(vpdd::log_warning, __func__, "read data (%d) in %s failed\n", static_cast<int>(records), path);
    return -1;
}

extern "C" int create_machine_vpd_cache_file(const uint8_t* buffer, uint32_t size, uint32_t oem) {
    if (buffer == nullptr) {
        vpdd::log_line(vpdd::log_warning, __func__, "input buffer is null\n");
        return -1;
    }
    if (!has_expected_size(__func__, size, oem)) return -1;

    const CacheFile& cache = cache_files[index_of(oem)];
    const char* const path = machine_vpd_cache_file[index_of(oem)];
    int32_t fd = -1;
    // A whole file is also safe without the lock: nobody who holds it may stop the writer for good.
    const bool locked = vpdd::lock_file_bounded(cache.lock_path, &fd) >= 0;
    const bool replaced = replace_file(path, buffer, size);
    if (locked) vpdd::unlock_file(fd);
    if (replaced) return 0;
    vpdd::log_line(vpdd::log_warning, __func__, "open %s failed\n", path);
    return -1;
}

extern "C" int init_machine_vpd_cache_file() {
    const auto trace_failure = [](const char* what, int result) {
        vpdd::trace_line(vpdd::TraceLevel::failure, "init_machine_vpd_cache_file", "%s FAIL,RET[%d]", what, result);
        return result;
    };
    MachineVpdRecord machine{};
    OemMachineRecord oem_machine{};
    MachineFieldsRecord fields{};
    uint32_t length = 0;

    auto* const machine_bytes = reinterpret_cast<uint8_t*>(&machine);
    int result = GetMachineVPDImpl(&length, sizeof machine, nullptr, machine_bytes);
    if (result != 0) return trace_failure("GET MACHINE VPD IPMLEMENT", result);
    result = create_machine_vpd_cache_file(machine_bytes, sizeof machine, 0);
    if (result != 0) return trace_failure("CREATE MACHINE VPD CACHE FILE", result);
    result = GetMachineFields(&length, sizeof fields, 0, reinterpret_cast<uint8_t*>(&fields));
    if (result != 0) return trace_failure("GET MACHINE FIELD", result);

    const int posid = read_POSID_ext();
    const char* const manufacturer = vpdd::product_manufacturer(posid);
    if (*manufacturer == '\0') trace_failure("READ POSID EXT", posid);
    std::printf("vpdd:%s, line:%d - read_POSID_ext, productmfg=%s, ret=%d\n", __func__, __LINE__, manufacturer, posid);

    vpdd::fill_oem_machine_record(machine, fields, manufacturer, oem_machine);
    result = create_machine_vpd_cache_file(reinterpret_cast<const uint8_t*>(&oem_machine), sizeof oem_machine, 1);
    if (result != 0) return trace_failure("CREATE MACHINE VPD OEM CACHE FILE", result);
    return 0;
}

extern "C" int update_machine_vpd_cache_file() {
    int result = -1;
    for (int attempt = 0; result != 0 && attempt < rebuild_attempts; ++attempt) {
        result = init_machine_vpd_cache_file();
        sleep(rebuild_pause);  // deliberate: also after a success
    }
    return result;
}

// A cancellation unwinds through this function: it holds nothing where it honours one.
extern "C" void vpd_sysvpd_changed_notify_callback() {
    std::printf("--> vpdd: sysvpd changed");
    vpdd::log_line(vpdd::log_info, __func__, "info: sysvpd changed\n");

    int former_state = 0;
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &former_state);
    vpdd::forget_host_macs();
    update_machine_vpd_cache_file();
    pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, &former_state);
    pthread_testcancel();
}
