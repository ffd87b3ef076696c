// SPDX-License-Identifier: Apache-2.0
#include "host/ipmi/connection.h"

#include <array>
#include <stdexcept>

namespace vpdd::host::ipmi {

namespace {

using namespace std::chrono_literals;

// A BMC ends a session on its own after 60 seconds, give or take 3 (IPMI 2.0 section 6.12.15).
constexpr auto longest_idle = 45s;
constexpr auto pause_before_next_session = 15s;

constexpr std::size_t largest_answer = 512;  // bytes; a LAN message has 255 at most

uint8_t privilege_of(const Settings& settings) {
    if (settings.privilege == "admin") return IPMI_PRIVILEGE_LEVEL_ADMIN;
    return settings.privilege == "operator" ? IPMI_PRIVILEGE_LEVEL_OPERATOR : IPMI_PRIVILEGE_LEVEL_USER;
}

uint8_t authentication_of(const Settings& settings) {
    if (settings.authentication == "none") return IPMI_AUTHENTICATION_TYPE_NONE;
    if (settings.authentication == "md2") return IPMI_AUTHENTICATION_TYPE_MD2;
    return settings.authentication == "straight" ? IPMI_AUTHENTICATION_TYPE_STRAIGHT_PASSWORD_KEY
                                                 : IPMI_AUTHENTICATION_TYPE_MD5;
}

const char* text_or_null(const std::string& text) { return text.empty() ? nullptr : text.c_str(); }

int open_lan(ipmi_ctx_t context, const Settings& settings) {
    const std::string host = settings.name();
    const auto timeout = static_cast<unsigned>(settings.timeout.count());
    const unsigned repeat = timeout / 5;  // sent five times before the BMC counts as silent
    if (settings.transport == Transport::lan) {
        return ipmi_ctx_open_outofband(context, host.c_str(), text_or_null(settings.user),
                                       text_or_null(settings.password), authentication_of(settings),
                                       privilege_of(settings), timeout, repeat, IPMI_WORKAROUND_FLAGS_DEFAULT,
                                       IPMI_FLAGS_DEFAULT);
    }
    // Otherwise the session is opened for the highest level that the user may have, which some BMCs refuse.
    constexpr unsigned ask_for_the_level_that_is_used = IPMI_WORKAROUND_FLAGS_OUTOFBAND_2_0_OPEN_SESSION_PRIVILEGE;
    return ipmi_ctx_open_outofband_2_0(context, host.c_str(), text_or_null(settings.user),
                                       text_or_null(settings.password), nullptr, 0, privilege_of(settings),
                                       settings.cipher_suite, timeout, repeat, ask_for_the_level_that_is_used,
                                       IPMI_FLAGS_DEFAULT);
}

int open_local(ipmi_ctx_t context, const Settings& settings) {
    constexpr int no_probing = 1;
    constexpr uint16_t own_base = 0;
    constexpr uint8_t own_spacing = 0;
    return ipmi_ctx_open_inband(context, IPMI_DEVICE_OPENIPMI, no_probing, own_base, own_spacing,
                                settings.device.c_str(), IPMI_WORKAROUND_FLAGS_DEFAULT, IPMI_FLAGS_DEFAULT);
}

/// Whether the answer did not come, as opposed to a request that the library refused.
bool is_silence(int error) {
    return error == IPMI_ERR_SESSION_TIMEOUT || error == IPMI_ERR_CONNECTION_TIMEOUT ||
           error == IPMI_ERR_MESSAGE_TIMEOUT || error == IPMI_ERR_DRIVER_TIMEOUT || error == IPMI_ERR_SYSTEM_ERROR ||
           error == IPMI_ERR_DEVICE_NOT_OPEN;
}

std::string with_milliseconds(const char* reason, const Settings& settings) {
    return std::string(reason) + " (" + std::to_string(settings.timeout.count()) + " ms for an answer)";
}

}  // namespace

Connection::Connection(Settings settings, Report report) : settings_(std::move(settings)), report_(std::move(report)) {
    const std::string problem = open();
    if (!problem.empty()) throw std::runtime_error("BMC " + settings_.name() + ": " + problem);
}

std::optional<Answer> Connection::carry_out(const Command& command) {
    const std::scoped_lock lock(mutex_);
    if (!is_open()) return {};
    if (auto answer = send(command)) return answer;
    const int error = ipmi_ctx_errnum(context_.get());
    const std::string reason = ipmi_ctx_errormsg(context_.get());
    if (!is_silence(error)) return {};

    // The BMC may have ended the session, or be another one since it was restarted.
    const std::string problem = open();
    if (!problem.empty()) {
        lose(problem);
        return {};
    }
    auto answer = send(command);
    if (!answer) lose(reason);
    return answer;
}

std::string Connection::open() {
    context_.reset();
    Context context(ipmi_ctx_create());
    if (context == nullptr) return "no memory for a session";
    const int result = settings_.transport == Transport::local ? open_local(context.get(), settings_)
                                                               : open_lan(context.get(), settings_);
    if (result < 0) {
        const char* reason = ipmi_ctx_errormsg(context.get());
        return is_silence(ipmi_ctx_errnum(context.get())) ? with_milliseconds(reason, settings_) : reason;
    }
    context_ = std::move(context);
    last_answer_ = Clock::now();
    return {};
}

/// Opens a session where there is none, or one that the BMC may have ended.
bool Connection::is_open() {
    const auto now = Clock::now();
    if (context_ != nullptr && now - last_answer_ < longest_idle) return true;
    if (context_ == nullptr && now < gone_until_) return false;
    const std::string problem = open();
    if (!problem.empty()) lose(problem);
    return problem.empty();
}

std::optional<Answer> Connection::send(const Command& command) {
    Bytes request{command.cmd};
    request.insert(request.end(), command.data.begin(), command.data.end());
    std::array<uint8_t, largest_answer> response{};
    constexpr uint8_t primary_ipmb = 0;
    const auto length = static_cast<unsigned>(request.size());
    const int received =
        command.address == bmc_address
            ? ipmi_cmd_raw(context_.get(), command.lun, command.netfn, request.data(), length, response.data(),
                           response.size())
            : ipmi_cmd_raw_ipmb(context_.get(), primary_ipmb, command.address, command.lun, command.netfn,
                                request.data(), length, response.data(), response.size());
    constexpr int header = 2;  // command and completion code
    if (received < header) return {};
    last_answer_ = Clock::now();
    return Answer{response[1], Bytes(response.begin() + header, response.begin() + received)};
}

void Connection::lose(const std::string& reason) {
    context_.reset();
    gone_until_ = Clock::now() + pause_before_next_session;
    report_("BMC " + settings_.name() + " no longer answers: " + reason);
}

}  // namespace vpdd::host::ipmi
