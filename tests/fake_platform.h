// SPDX-License-Identifier: Apache-2.0
// Stands in for every platform library in the tests. The functions of platform/*.h answer from simple models (FRU
// images, SDR records, a configuration store ...), any call can be scripted to answer otherwise, and everything that
// the library writes is kept for the test to look at. Nothing ever sleeps. Every test starts with a fresh platform.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "orva_vpdd.h"

namespace vpdd::test {

using Bytes = std::vector<uint8_t>;

// ---- how calls are scripted

/// One platform function: keeps its calls and decides how each is answered. Looked at in this order: the answer set for
/// this very call number, the first rule that applies, the model.
template <class CallType, class ReplyType>
class Script {
public:
    using Call = CallType;
    using Reply = ReplyType;
    using Predicate = std::function<bool(const Call&)>;
    using Model = std::function<Reply(const Call&)>;

    explicit Script(Model standard, Reply failure) : standard_(std::move(standard)), failure_(std::move(failure)) {
        reset();
    }

    /// Answers the n-th call from now on, counted from 1.
    void at(std::size_t number, Reply reply) {
        const std::lock_guard lock(mutex_);
        by_number_[calls_.size() + number] = std::move(reply);
    }
    /// Answers the next call that no earlier rule answers; several in a row answer one call each.
    void then(Reply reply) {
        add({[](const Call&) { return true; }, 0, 1, std::move(reply)});
    }
    void always(Reply reply) {
        when([](const Call&) { return true; }, std::move(reply));
    }
    /// Answers every call that matches.
    void when(Predicate predicate, Reply reply) { add({std::move(predicate), 0, unlimited, std::move(reply)}); }
    /// Answers the n-th of the calls that match, counted from 1.
    void nth_when(std::size_t number, Predicate predicate, Reply reply) {
        add({std::move(predicate), number - 1, 1, std::move(reply)});
    }

    void fail_at(std::size_t number) { at(number, failure_); }
    void fail_always() { always(failure_); }
    void fail_when(Predicate predicate) { when(std::move(predicate), failure_); }

    /// Replaces the model that answers what no rule does.
    void model(Model model) {
        const std::lock_guard lock(mutex_);
        model_ = std::move(model);
    }
    /// Runs inside each call, before it is answered and with nothing locked: the place to block a thread.
    void during(std::function<void(const Call&)> hook) {
        const std::lock_guard lock(mutex_);
        hook_ = std::move(hook);
    }

    std::vector<Call> calls() const {
        const std::lock_guard lock(mutex_);
        return calls_;
    }
    std::size_t count() const {
        const std::lock_guard lock(mutex_);
        return calls_.size();
    }

    /// For the platform functions.
    Reply answer(const Call& call) {
        std::optional<Reply> reply;
        Model model;
        std::function<void(const Call&)> hook;
        {
            const std::lock_guard lock(mutex_);
            calls_.push_back(call);
            reply = scripted(call);
            model = model_;
            hook = hook_;
        }
        if (hook) hook(call);
        return reply ? *reply : model(call);
    }

    void reset() {
        const std::lock_guard lock(mutex_);
        calls_.clear();
        by_number_.clear();
        rules_.clear();
        model_ = standard_;
        hook_ = nullptr;
    }

private:
    static constexpr std::size_t unlimited = SIZE_MAX;

    struct Rule {
        Predicate matches;
        std::size_t to_skip;
        std::size_t left;
        Reply reply;
    };

    void add(Rule rule) {
        const std::lock_guard lock(mutex_);
        rules_.push_back(std::move(rule));
    }

    std::optional<Reply> scripted(const Call& call) {
        if (const auto numbered = by_number_.find(calls_.size()); numbered != by_number_.end()) return numbered->second;
        for (Rule& rule : rules_) {
            if (rule.left == 0 || !rule.matches(call)) continue;
            if (rule.to_skip > 0) {
                --rule.to_skip;
                continue;
            }
            if (rule.left != unlimited) --rule.left;
            return rule.reply;
        }
        return std::nullopt;
    }

    Model standard_;
    Reply failure_;
    mutable std::mutex mutex_;
    std::vector<Call> calls_;
    std::map<std::size_t, Reply> by_number_;
    std::vector<Rule> rules_;
    Model model_;
    std::function<void(const Call&)> hook_;
};

// ---- calls and replies

struct IpmiCall {
    uint8_t netfn = 0;
    uint8_t cmd = 0;
    Bytes data;
    Bytes frame{};      ///< the whole frame when it came as a raw one
    uint32_t room = 0;  ///< for the answer, in bytes, as the caller states it

    bool is(uint8_t of_netfn, uint8_t of_cmd) const { return netfn == of_netfn && cmd == of_cmd; }
    /// The room is no part of the request.
    bool operator==(const IpmiCall& other) const {
        return is(other.netfn, other.cmd) && data == other.data && frame == other.frame;
    }
};

struct IpmiReply {
    int result = 0;
    Bytes bytes{};                    ///< completion code first; written to the response whatever the result
    std::optional<int64_t> length{};  ///< reported instead of the number of bytes
};

/// A carried out request with the completion code 0 and data.
IpmiReply ipmi_data(const Bytes& data);
/// A carried out request with nothing but a completion code.
IpmiReply ipmi_completion(uint8_t code);
/// The stack did not carry out the request and left nothing in the response.
IpmiReply ipmi_dead();

struct FieldCall {
    uint32_t instance, id;
    uint32_t size = 0;
};
struct FieldReply {
    int result = 1;
    Bytes bytes{};
};

struct DeviceReadCall {
    uint32_t instance, offset, length;
};
struct DeviceReadReply {
    bool readable = true;
    Bytes bytes{};
};
struct DeviceWriteCall {
    uint32_t instance, offset;
    Bytes bytes;
    int flag;
};

struct SdrCall {
    int repository;
    uint16_t record_id;
    uint32_t length;
};
struct SdrReply {
    int result = 0;
    Bytes record{};
    uint16_t next_record_id = 0xFFFF;
    std::optional<int32_t> bytes_read{};  ///< reported instead of the number of bytes
};

struct SensorCall {
    uint32_t size;
    uint32_t buffer_size;
    uint8_t sensor_type;
};
struct SensorReply {
    int result = 0;
    Bytes entries{};
    std::optional<uint32_t> size{};  ///< reported instead of the number of bytes
};

struct ConfigurationRead {
    std::string name;
};
struct ConfigurationReply {
    int result = 1;
    int32_t value = 0;
};

enum class ConfigurationKind { number, text, counted_text };

struct ConfigurationWrite {
    ConfigurationKind kind;
    std::string name;
    std::variant<int32_t, std::string> value;
    int flag;
    uint32_t length = 0;  ///< as handed to tarn_config_set_str_n

    bool operator==(const ConfigurationWrite&) const = default;
};
void PrintTo(const ConfigurationWrite& write, std::ostream* stream);

ConfigurationWrite number_variable(std::string name, int32_t value, int flag);
ConfigurationWrite text_variable(std::string name, std::string value, int flag);
ConfigurationWrite counted_text_variable(std::string name, std::string value, int flag);

struct Event {
    int type;
    std::string name;
    int argument0, argument1;

    bool operator==(const Event&) const = default;
};

struct SentData {
    int fd;
    Bytes bytes;
};
struct ReceiveCall {
    int fd;
    uint32_t length;
};
struct ReceiveReply {
    int result = 0;
    Bytes bytes{};
};

struct SoftwareMessage {
    int message;
    Bytes payload;
    int32_t argument0, argument1;
};

struct SmbiosOpenCall {
    int flags;
    std::string name, directory;
};
struct SmbiosOpenReply {
    int result = 0;
    SmbiosTable* table = nullptr;  ///< handed out whatever the result; null of a failure leaves the handle alone
};

struct LogLine {
    int priority;
    std::string text;

    bool operator==(const LogLine&) const = default;
};
void PrintTo(const LogLine& line, std::ostream* stream);

struct TraceLine {
    std::string path;
    int level;
    std::string text;

    bool operator==(const TraceLine&) const = default;
};
void PrintTo(const TraceLine& line, std::ostream* stream);

// ---- the platform

class FakePlatform {
public:
    static FakePlatform& instance();

    /// Back to the state at the start of a test; done by itself between tests.
    void reset();

    // The world that the models answer from.

    /// Get FRU Inventory Area Info and Read FRU Data are answered from this image. FRUs without one answer 0xCB.
    void fru(uint8_t id, Bytes image);
    void remove_fru(uint8_t id);
    /// The repository, in order; a record's id is in its first two bytes.
    void sdr(std::vector<Bytes> records);
    /// A field of the system VPD. Fields that are not set cannot be read and have the size 0.
    void field(uint32_t id, Bytes bytes);
    void field(uint32_t id, std::string_view text);
    /// The system-VPD device, for c_vpd_read, c_vpd_write and the OEM read over IPMI. 0x00 behind its end.
    void device(Bytes image);
    Bytes device() const;
    /// What smbt_init hands out; null makes it fail.
    void smbios(SmbiosTable* table);
    /// A variable of the configuration store.
    void variable(const std::string& name, int32_t value);
    /// Sensors of a type, entries of 1492 bytes each.
    void sensors(uint8_t type, Bytes entries);
    /// The next bytes that pm_read_data delivers, in order of the calls here.
    void receive(const Bytes& bytes);

    // One script for each function.

    Script<IpmiCall, IpmiReply> ipmi;      ///< IPMI_DoIPMICmd
    Script<IpmiCall, IpmiReply> ipmi_raw;  ///< send_ipmi_cmd
    Script<FieldCall, uint32_t> field_size;
    Script<FieldCall, FieldReply> field_read;
    Script<DeviceReadCall, DeviceReadReply> device_read;
    Script<DeviceWriteCall, int> device_write;
    Script<SdrCall, SdrReply> sdr_read;
    Script<SensorCall, SensorReply> sensor_read;
    Script<ConfigurationRead, ConfigurationReply> configuration_read;
    Script<ConfigurationWrite, int> configuration_write;  ///< all three setters
    Script<Event, int> event;
    Script<SentData, int> send_data;
    Script<ReceiveCall, ReceiveReply> receive_data;
    Script<SoftwareMessage, int> software_message;
    Script<std::string, int> shell_command;
    Script<SmbiosOpenCall, SmbiosOpenReply> smbios_open;
    Script<SmbiosTable*, int> smbios_release;

    // What was written.

    /// Requests over both ways into the stack, in order.
    std::vector<IpmiCall> requests() const;
    std::vector<LogLine> log() const;
    std::vector<LogLine> log(int priority) const;
    std::vector<TraceLine> trace() const;
    std::vector<ConfigurationWrite> configuration() const { return configuration_write.calls(); }
    /// The last value written to a variable, or null.
    std::optional<ConfigurationWrite> written(std::string_view name) const;
    std::vector<Event> events() const { return event.calls(); }
    /// Sleeps in microseconds, in order; `sleep`, `usleep` and `nanosleep` alike.
    std::vector<int64_t> sleeps() const;
    /// Everything that happened, a line each: "ipmi 0A/10", "sleep 300000", "log 11 text", "trace 2 text",
    /// "set name", "event name", "sdr 0001", "field 9", "shell command", "message 72".
    std::vector<std::string> journal() const;

    /// Whether exactly this line was logged. The failure message lists what was.
    testing::AssertionResult logged(int priority, std::string_view text) const;
    testing::AssertionResult logged_containing(int priority, std::string_view text) const;
    /// A line of the form "%s(%d)" and the text, whatever the line number.
    testing::AssertionResult logged_at_line(int priority, std::string_view function, std::string_view text) const;
    /// A line of the form "pid=%d, tid=%d, %s(%d) - " and the text, whatever the line number.
    testing::AssertionResult logged_located(int priority, std::string_view function, std::string_view text) const;
    testing::AssertionResult logged_nothing() const;
    /// Whether "[function]:text" went to the trace file at this level.
    testing::AssertionResult traced(int level, std::string_view function, std::string_view text) const;
    std::size_t times_logged(int priority, std::string_view text) const;

    /// Called inside each sleep, with the microseconds.
    void during_sleep(std::function<void(int64_t)> hook);
    /// Called inside each syslog(), behind the keeping of the line and with nothing locked.
    void during_log(std::function<void(const LogLine&)> hook);
    /// The same inside each log_debug_log().
    void during_trace(std::function<void(const TraceLine&)> hook);

    // For the platform functions.

    void add_log(int priority, std::string text);
    void add_trace(TraceLine line);
    void add_sleep(int64_t microseconds);
    void add_request(const IpmiCall& call);
    void note(std::string journal_line);

private:
    FakePlatform();

    IpmiReply answer_from_models(const IpmiCall& call) const;
    IpmiReply fru_area_info(const IpmiCall& call) const;
    IpmiReply fru_data(const IpmiCall& call) const;
    IpmiReply oem_system_vpd(const IpmiCall& call) const;
    Bytes device_bytes(uint32_t offset, uint32_t length) const;
    SdrReply sdr_record(const SdrCall& call) const;
    ConfigurationReply stored_variable(const ConfigurationRead& call) const;
    int store_variable(const ConfigurationWrite& call);
    ReceiveReply received(const ReceiveCall& call);

    mutable std::mutex mutex_;
    std::map<uint8_t, Bytes> frus_;
    std::vector<Bytes> sdr_records_;
    std::map<uint32_t, Bytes> fields_;
    Bytes device_;
    SmbiosTable* smbios_ = nullptr;
    std::map<std::string, int32_t> variables_;
    std::map<uint8_t, Bytes> sensors_;
    Bytes incoming_;

    std::vector<IpmiCall> requests_;
    std::vector<LogLine> log_;
    std::vector<TraceLine> trace_;
    std::vector<int64_t> sleeps_;
    std::vector<std::string> journal_;
    std::function<void(int64_t)> sleep_hook_;
    std::function<void(const LogLine&)> log_hook_;
    std::function<void(const TraceLine&)> trace_hook_;
};

/// Base of the tests that talk to the platform.
class PlatformTest : public testing::Test {
protected:
    FakePlatform& platform = FakePlatform::instance();
};

// ---- texts

std::string formatted(const char* format, ...) __attribute__((format(printf, 1, 2)));
/// "pid=<this process>, " and the text.
std::string pid_line(const char* format, ...) __attribute__((format(printf, 1, 2)));
/// The bytes of a text, without its terminator.
Bytes bytes_of(std::string_view text);

// ---- standard output and error

/// Catches what is written to a file descriptor while it lives. One at a time for each descriptor.
class CaptureStream {
public:
    CaptureStream(const CaptureStream&) = delete;
    CaptureStream& operator=(const CaptureStream&) = delete;

    /// What was written so far.
    std::string text() const;

protected:
    explicit CaptureStream(int descriptor);
    ~CaptureStream();

private:
    int descriptor_;
    int original_;
    int file_;
};

struct CaptureStdout : CaptureStream {
    CaptureStdout() : CaptureStream(STDOUT_FILENO) {}
};
struct CaptureStderr : CaptureStream {
    CaptureStderr() : CaptureStream(STDERR_FILENO) {}
};

}  // namespace vpdd::test
