// SPDX-License-Identifier: Apache-2.0
#include "host/server.h"

#include <dlfcn.h>

#include <algorithm>
#include <cstring>
#include <system_error>

#include "host/chghist/vpdd_chghist.h"
#include "host/fru_changes.h"
#include "host/private_root.h"
#include "host/schema.h"

namespace vpdd::host {

namespace {

constexpr int impossible = -2;

std::mutex current_mutex;
std::shared_ptr<Server> current;

/// The server that was current.
std::shared_ptr<Server> make_current(std::shared_ptr<Server> server) {
    const std::scoped_lock lock(current_mutex);
    current.swap(server);
    return server;
}

/// A path without symbolic links, which stays right in a private root.
std::filesystem::path created_directory(const char* path) {
    if (path == nullptr || *path == '\0') return {};
    std::error_code error;
    std::filesystem::create_directories(path, error);
    if (!error && !std::filesystem::is_directory(path)) error = std::make_error_code(std::errc::not_a_directory);
    if (error) throw std::system_error(error, path);
    return std::filesystem::canonical(path);
}

Options options_of(const VpddHostOptions* options) {
    if (options == nullptr) return {};
    return {created_directory(options->state_directory),
            options->sleep_factor,
            {options->message, options->message_context},
            options->progress,
            options->progress_context};
}

std::filesystem::path store_path(const std::filesystem::path& state_directory) {
    return state_directory.empty() ? state_directory : state_directory / "configuration.sqlite";
}

int fail(const std::string& reason, char* error, std::size_t error_size) {
    if (error == nullptr || error_size == 0) return -1;
    const std::size_t length = std::min(reason.size(), error_size - 1);
    std::memcpy(error, reason.data(), length);
    error[length] = '\0';
    return -1;
}

Description changed_description(Json document, const FruChanges& changes, const std::filesystem::path& folder) {
    apply_changes(changes, document);
    return read_description(document, folder);
}

ChangedFru change_fru(Server& server, VpddHostChange change, const char* fru, const char* serial_number) {
    if (server.options.state_directory.empty()) throw std::runtime_error("a change needs a state directory");
    FruChanges changes = server.store->fru_changes();
    const auto serial = serial_number != nullptr ? std::optional<std::string>(serial_number) : std::nullopt;
    ChangedFru changed = changed_fru(server.document, changes, change, fru, serial);

    changes[changed.fru_id] = changed.change;
    Json document = server.document;
    apply_changes(changes, document);
    read_description(checked_document(document.dump(), schema_text), server.folder);  // a serial number may be none
    if (!server.store->set_fru_change(changed.fru_id, changed.change))
        throw std::runtime_error("the change is not kept");
    use_server(std::make_shared<Server>(server.document, server.folder, server.options));
    return changed;
}

template <std::size_t Size>
void put_text(char (&to)[Size], const std::string& text) {
    to[text.copy(to, Size - 1)] = '\0';
}

/// Makes the described server the current one; the errors of its description begin with `prefix`.
int open(std::string_view text, const std::filesystem::path& folder, const VpddHostOptions* options, Bmc bmc,
         const std::string& prefix, char* error, std::size_t error_size) try {
    vpdd_host_close();
    use_server(
        std::make_shared<Server>(checked_document(text, schema_text), folder, options_of(options), std::move(bmc)));
    return 0;
} catch (const DescriptionError& reason) {
    return fail(prefix + reason.what(), error, error_size);
} catch (const Json::exception& reason) {
    return fail(prefix + reason_of(reason), error, error_size);
} catch (const std::exception& reason) {
    return fail(reason.what(), error, error_size);
}

/// Beside this library where it was built, else where it is installed.
std::filesystem::path find_server_folder() {
    Dl_info library{};
    if (dladdr(&current, &library) != 0 && library.dli_fname != nullptr) {
        std::filesystem::path built = std::filesystem::path(library.dli_fname).replace_filename("servers");
        if (std::filesystem::is_directory(built)) return built;
    }
    return VPDD_SERVER_FOLDER;
}

VpddHostVariable public_form(const Variable& variable) {
    return {variable.name.c_str(),
            variable.integer ? VPDD_HOST_INTEGER : VPDD_HOST_TEXT,
            variable.integer.value_or(0),
            variable.text.c_str(),
            variable.flag,
            variable.changed};
}

}  // namespace

bool ReadProgress::is_first_read(uint8_t fru_id) {
    const std::scoped_lock lock(mutex_);
    if (read_.test(fru_id)) return false;
    read_.set(fru_id);
    return true;
}

void SeenLocators::add(uint8_t fru_id) {
    const std::scoped_lock lock(mutex_);
    if (std::ranges::find(fru_ids_, fru_id) == fru_ids_.end()) fru_ids_.push_back(fru_id);
}

std::pair<uint32_t, uint32_t> SeenLocators::position(uint8_t fru_id) {
    const std::scoped_lock lock(mutex_);
    const auto total = static_cast<uint32_t>(fru_ids_.size());
    const auto found = std::ranges::find(fru_ids_, fru_id);
    return {found == fru_ids_.end() ? 0 : static_cast<uint32_t>(found - fru_ids_.begin() + 1), total};
}

Server::Server(Json server_document, std::filesystem::path server_folder, Options server_options, Bmc server_bmc)
    : document(std::move(server_document)),
      folder(std::move(server_folder)),
      options(std::move(server_options)),
      store(std::make_unique<ConfigStore>(store_path(options.state_directory))),
      changes(store->fru_changes()),
      description(changed_description(document, changes, folder)),
      system_vpd(description.system_vpd),
      trace_files(options.state_directory),
      bmc(std::move(server_bmc)) {}

Server::Server(Description server_description, Options server_options)
    : options(std::move(server_options)),
      description(std::move(server_description)),
      system_vpd(description.system_vpd),
      trace_files(options.state_directory) {}

std::shared_ptr<Server> current_server() {
    const std::scoped_lock lock(current_mutex);
    return current;
}

void use_server(const std::shared_ptr<Server>& server) {
    const std::filesystem::path directory = server ? server->options.state_directory : std::filesystem::path();
    vpdd_chghist_use_directory(directory.empty() ? nullptr : directory.c_str());
    make_current(server);
}

}  // namespace vpdd::host

using namespace vpdd::host;

extern "C" int vpdd_host_open_file(const char* path, const VpddHostOptions* options, char* error,
                                   size_t error_size) try {
    vpdd_host_close();
    if (path == nullptr) return fail("no file given", error, error_size);
    const std::filesystem::path file(path);
    const Bytes content = file_content(file, largest_description);
    const std::string_view text(reinterpret_cast<const char*>(content.data()), content.size());
    return open(text, file.parent_path(), options, {}, file.string() + ": ", error, error_size);
} catch (const std::exception& reason) {
    return fail(reason.what(), error, error_size);
}

extern "C" int vpdd_host_open_text(const char* text, size_t length, const char* folder, const VpddHostOptions* options,
                                   char* error, size_t error_size) {
    vpdd_host_close();
    if (text == nullptr) return fail("no text given", error, error_size);
    return open({text, length}, folder != nullptr ? folder : "", options, {}, "", error, error_size);
}

extern "C" int vpdd_host_open_bmc(const VpddHostBmc* bmc, const char* text, size_t length, const char* folder,
                                  const VpddHostOptions* options, char* error, size_t error_size) {
    vpdd_host_close();
    if (bmc == nullptr) return fail("no BMC given", error, error_size);
    Bmc owned(*bmc);
    if (text == nullptr) return fail("no text given", error, error_size);
    return open({text, length}, folder != nullptr ? folder : "", options, std::move(owned), "", error, error_size);
}

extern "C" int vpdd_host_open_module(const uint8_t* image, size_t size, const VpddHostOptions* options, char* error,
                                     size_t error_size) try {
    vpdd_host_close();
    if (image == nullptr) return fail("no image given", error, error_size);
    VpddHostOptions kept_nowhere = options != nullptr ? *options : VpddHostOptions{};
    kept_nowhere.state_directory = nullptr;
    use_server(std::make_shared<Server>(lone_memory_module({image, size}), options_of(&kept_nowhere)));
    return 0;
} catch (const std::exception& reason) {
    return fail(reason.what(), error, error_size);
}

extern "C" void vpdd_host_close(void) { use_server(nullptr); }

extern "C" int vpdd_host_change_fru(VpddHostChange change, const char* fru, const char* serial_number,
                                    VpddHostChangedFru* changed, char* error, size_t error_size) try {
    const auto server = current_server();
    if (!server || fru == nullptr) return fail("no server is open, or no FRU given", error, error_size);
    const ChangedFru result = change_fru(*server, change, fru, serial_number);
    if (changed == nullptr) return 0;
    changed->fru_id = result.fru_id;
    put_text(changed->name, result.name);
    put_text(changed->old_serial_number, result.old_serial_number);
    put_text(changed->new_serial_number, result.new_serial_number);
    return 0;
} catch (const ImpossibleChange& reason) {
    fail(reason.what(), error, error_size);
    return impossible;
} catch (const DescriptionError& reason) {
    fail(reason.what(), error, error_size);
    return impossible;
} catch (const std::exception& reason) {
    return fail(reason.what(), error, error_size);
}

extern "C" int vpdd_host_enter_private_root(const char* state_directory, char* error, size_t error_size) try {
    enter_private_root(created_directory(state_directory));
    return 0;
} catch (const std::exception& reason) {
    return fail(reason.what(), error, error_size);
}

extern "C" const char* vpdd_host_server_folder(void) {
    static const std::string folder = find_server_folder().string();
    return folder.c_str();
}

extern "C" int vpdd_host_each_variable(VpddHostVariableVisitor visitor, void* context) {
    const auto server = current_server();
    if (!server || visitor == nullptr) return -1;
    if (!server->store) return 0;
    const auto variables = server->store->variables();
    std::ranges::any_of(variables, [&](const Variable& variable) {
        const VpddHostVariable shown = public_form(variable);
        return visitor(context, &shown) != 0;
    });
    return 0;
}

extern "C" int vpdd_host_each_event(VpddHostEventVisitor visitor, void* context) {
    const auto server = current_server();
    if (!server || visitor == nullptr) return -1;
    if (!server->store) return 0;
    const auto events = server->store->events();
    std::ranges::any_of(events, [&](const Event& event) {
        const VpddHostEvent shown{event.name.c_str(), event.type, event.argument0, event.argument1, event.occurred};
        return visitor(context, &shown) != 0;
    });
    return 0;
}
