// SPDX-License-Identifier: Apache-2.0
#undef _FORTIFY_SOURCE  // the interposed functions are defined here under their plain names
#include "fake_platform.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "platform/configuration.h"
#include "platform/debug_trace.h"
#include "platform/ipmi_stack.h"
#include "platform/messages.h"
#include "platform/sdr_repository.h"
#include "platform/sensors.h"
#include "platform/smbios_store.h"
#include "platform/system_vpd.h"

namespace vpdd::test {

namespace {

constexpr uint8_t netfn_app = 0x06, netfn_storage = 0x0A, netfn_oem = 0x3A;
constexpr uint8_t get_device_id = 0x01, get_fru_area_info = 0x10, read_fru_data = 0x11;
constexpr uint8_t run_initialization_agent = 0x2C, oem_system_vpd_read = 0x0B;

// IPMI 2.0 table 5-2.
constexpr uint8_t invalid_command = 0xC1, request_length_invalid = 0xC7, parameter_out_of_range = 0xC9;
constexpr uint8_t not_present = 0xCB;

constexpr uint16_t first_record = 0, no_more_records = 0xFFFF;
constexpr uint32_t unset_field_size = 0;
constexpr int software_event_message = 72;
constexpr std::size_t software_event_payload = 92;

class ResetBetweenTests : public testing::EmptyTestEventListener {
    void OnTestStart(const testing::TestInfo&) override { FakePlatform::instance().reset(); }
    void OnTestEnd(const testing::TestInfo&) override { FakePlatform::instance().reset(); }
};

[[maybe_unused]] const bool listening = [] {
    testing::UnitTest::GetInstance()->listeners().Append(new ResetBetweenTests);
    return true;
}();

std::string formatted_list(const char* format, va_list arguments) {
    va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, again);
    va_end(again);
    std::string text(static_cast<std::size_t>(std::max(length, 0)), '\0');
    std::vsnprintf(text.data(), text.size() + 1, format, arguments);
    return text;
}

template <class Line>
std::string listed(const std::vector<Line>& lines) {
    std::string text = lines.empty() ? "nothing was written" : "what was written:";
    for (const Line& line : lines) text += "\n  " + testing::PrintToString(line);
    return text;
}

uint16_t record_id(const Bytes& record) { return static_cast<uint16_t>(record.at(0) | record.at(1) << 8); }

IpmiCall decoded_frame(Bytes frame, uint32_t room) {
    // Target address, NetFn, LUN, command, data.
    IpmiCall call{0, 0, {}, std::move(frame), room};
    if (call.frame.size() < 4) return call;
    call.netfn = call.frame[1];
    call.cmd = call.frame[3];
    call.data.assign(call.frame.begin() + 4, call.frame.end());
    return call;
}

}  // namespace

IpmiReply ipmi_data(const Bytes& data) {
    IpmiReply reply{0, {0}};
    reply.bytes.insert(reply.bytes.end(), data.begin(), data.end());
    return reply;
}

IpmiReply ipmi_completion(uint8_t code) { return {0, {code}}; }

IpmiReply ipmi_dead() { return {-1}; }

ConfigurationWrite number_variable(std::string name, int32_t value, int flag) {
    return {ConfigurationKind::number, std::move(name), value, flag};
}

ConfigurationWrite text_variable(std::string name, std::string value, int flag) {
    return {ConfigurationKind::text, std::move(name), std::move(value), flag};
}

ConfigurationWrite counted_text_variable(std::string name, std::string value, int flag) {
    const auto length = static_cast<uint32_t>(value.size());
    return {ConfigurationKind::counted_text, std::move(name), std::move(value), flag, length};
}

void PrintTo(const ConfigurationWrite& write, std::ostream* stream) {
    static constexpr const char* kinds[] = {"number", "text", "counted text"};
    *stream << kinds[static_cast<int>(write.kind)] << ' ' << write.name << " = ";
    if (const auto* number = std::get_if<int32_t>(&write.value)) *stream << *number;
    if (const auto* text = std::get_if<std::string>(&write.value)) *stream << testing::PrintToString(*text);
    *stream << " flag " << write.flag;
    if (write.kind == ConfigurationKind::counted_text) *stream << " length " << write.length;
}

void PrintTo(const LogLine& line, std::ostream* stream) {
    *stream << line.priority << ' ' << testing::PrintToString(line.text);
}

void PrintTo(const TraceLine& line, std::ostream* stream) {
    *stream << line.path << ' ' << line.level << ' ' << testing::PrintToString(line.text);
}

FakePlatform& FakePlatform::instance() {
    // Never destroyed: the library's destructor may still log.
    static auto* const platform = new FakePlatform;
    return *platform;
}

FakePlatform::FakePlatform()
    : ipmi([this](const IpmiCall& call) { return answer_from_models(call); }, ipmi_dead()),
      ipmi_raw([this](const IpmiCall& call) { return answer_from_models(call); }, ipmi_dead()),
      field_size(
          [this](const FieldCall& call) {
              const std::lock_guard lock(mutex_);
              const auto found = fields_.find(call.id);
              return found == fields_.end() ? unset_field_size : static_cast<uint32_t>(found->second.size());
          },
          unset_field_size),
      field_read(
          [this](const FieldCall& call) {
              const std::lock_guard lock(mutex_);
              const auto found = fields_.find(call.id);
              return found == fields_.end() ? FieldReply{0} : FieldReply{1, found->second};
          },
          FieldReply{0}),
      device_read(
          [this](const DeviceReadCall& call) {
              const std::lock_guard lock(mutex_);
              return DeviceReadReply{true, device_bytes(call.offset, call.length)};
          },
          DeviceReadReply{false}),
      device_write(
          [this](const DeviceWriteCall& call) {
              const std::lock_guard lock(mutex_);
              device_.resize(std::max(device_.size(), call.offset + call.bytes.size()));
              std::copy(call.bytes.begin(), call.bytes.end(), device_.begin() + call.offset);
              return 1;
          },
          0),
      sdr_read([this](const SdrCall& call) { return sdr_record(call); }, SdrReply{-1}),
      sensor_read(
          [this](const SensorCall& call) {
              const std::lock_guard lock(mutex_);
              const auto found = sensors_.find(call.sensor_type);
              return found == sensors_.end() ? SensorReply{} : SensorReply{0, found->second};
          },
          SensorReply{-1}),
      configuration_read([this](const ConfigurationRead& call) { return stored_variable(call); },
                         ConfigurationReply{0}),
      configuration_write([this](const ConfigurationWrite& call) { return store_variable(call); }, 0),
      event([](const Event&) { return 0; }, -1),
      send_data([](const SentData& call) { return static_cast<int>(call.bytes.size()); }, -1),
      receive_data([this](const ReceiveCall& call) { return received(call); }, ReceiveReply{-1}),
      software_message([](const SoftwareMessage&) { return 0; }, -1),
      shell_command([](const std::string&) { return 0; }, -1),
      smbios_open(
          [this](const SmbiosOpenCall&) {
              const std::lock_guard lock(mutex_);
              return smbios_ == nullptr ? SmbiosOpenReply{-1} : SmbiosOpenReply{0, smbios_};
          },
          SmbiosOpenReply{-1}),
      smbios_release([](SmbiosTable*) { return 0; }, -1) {}

void FakePlatform::reset() {
    ipmi.reset();
    ipmi_raw.reset();
    field_size.reset();
    field_read.reset();
    device_read.reset();
    device_write.reset();
    sdr_read.reset();
    sensor_read.reset();
    configuration_read.reset();
    configuration_write.reset();
    event.reset();
    send_data.reset();
    receive_data.reset();
    software_message.reset();
    shell_command.reset();
    smbios_open.reset();
    smbios_release.reset();

    const std::lock_guard lock(mutex_);
    frus_.clear();
    sdr_records_.clear();
    fields_.clear();
    device_.clear();
    smbios_ = nullptr;
    variables_.clear();
    sensors_.clear();
    incoming_.clear();
    requests_.clear();
    log_.clear();
    trace_.clear();
    sleeps_.clear();
    journal_.clear();
    sleep_hook_ = nullptr;
    log_hook_ = nullptr;
    trace_hook_ = nullptr;
}

// ---- the world

void FakePlatform::fru(uint8_t id, Bytes image) {
    const std::lock_guard lock(mutex_);
    frus_[id] = std::move(image);
}

void FakePlatform::remove_fru(uint8_t id) {
    const std::lock_guard lock(mutex_);
    frus_.erase(id);
}

void FakePlatform::sdr(std::vector<Bytes> records) {
    const std::lock_guard lock(mutex_);
    sdr_records_ = std::move(records);
}

void FakePlatform::field(uint32_t id, Bytes bytes) {
    const std::lock_guard lock(mutex_);
    fields_[id] = std::move(bytes);
}

void FakePlatform::field(uint32_t id, std::string_view text) { field(id, bytes_of(text)); }

void FakePlatform::device(Bytes image) {
    const std::lock_guard lock(mutex_);
    device_ = std::move(image);
}

Bytes FakePlatform::device() const {
    const std::lock_guard lock(mutex_);
    return device_;
}

void FakePlatform::smbios(SmbiosTable* table) {
    const std::lock_guard lock(mutex_);
    smbios_ = table;
}

void FakePlatform::variable(const std::string& name, int32_t value) {
    const std::lock_guard lock(mutex_);
    variables_[name] = value;
}

void FakePlatform::sensors(uint8_t type, Bytes entries) {
    const std::lock_guard lock(mutex_);
    sensors_[type] = std::move(entries);
}

void FakePlatform::receive(const Bytes& bytes) {
    const std::lock_guard lock(mutex_);
    incoming_.insert(incoming_.end(), bytes.begin(), bytes.end());
}

// ---- the models

IpmiReply FakePlatform::answer_from_models(const IpmiCall& call) const {
    const std::lock_guard lock(mutex_);
    if (call.is(netfn_app, get_device_id)) return ipmi_data({0x20, 0x01, 0x01, 0x00, 0x02, 0xBF});
    if (call.is(netfn_storage, get_fru_area_info)) return fru_area_info(call);
    if (call.is(netfn_storage, read_fru_data)) return fru_data(call);
    if (call.is(netfn_storage, run_initialization_agent)) return ipmi_data({1});
    if (call.is(netfn_oem, oem_system_vpd_read)) return oem_system_vpd(call);
    return ipmi_completion(invalid_command);
}

IpmiReply FakePlatform::fru_area_info(const IpmiCall& call) const {
    if (call.data.size() != 1) return ipmi_completion(request_length_invalid);
    const auto found = frus_.find(call.data[0]);
    if (found == frus_.end()) return ipmi_completion(not_present);
    const std::size_t size = found->second.size();
    constexpr uint8_t accessed_by_bytes = 0;
    return ipmi_data({static_cast<uint8_t>(size), static_cast<uint8_t>(size >> 8), accessed_by_bytes});
}

IpmiReply FakePlatform::fru_data(const IpmiCall& call) const {
    if (call.data.size() != 4) return ipmi_completion(request_length_invalid);
    const auto found = frus_.find(call.data[0]);
    if (found == frus_.end()) return ipmi_completion(not_present);
    const Bytes& image = found->second;
    const std::size_t offset = call.data[1] | static_cast<std::size_t>(call.data[2]) << 8;
    if (offset >= image.size()) return ipmi_completion(parameter_out_of_range);
    const std::size_t count = std::min<std::size_t>(call.data[3], image.size() - offset);
    Bytes answer{static_cast<uint8_t>(count)};
    const auto first = image.begin() + static_cast<std::ptrdiff_t>(offset);
    answer.insert(answer.end(), first, first + static_cast<std::ptrdiff_t>(count));
    return ipmi_data(answer);
}

IpmiReply FakePlatform::oem_system_vpd(const IpmiCall& call) const {
    // Offset, least significant byte first; a constant; the count.
    if (call.data.size() != 4) return ipmi_completion(request_length_invalid);
    return ipmi_data(device_bytes(call.data[0] | static_cast<uint32_t>(call.data[1]) << 8, call.data[3]));
}

Bytes FakePlatform::device_bytes(uint32_t offset, uint32_t length) const {
    Bytes bytes(length);
    for (std::size_t i = 0; i < length && offset + i < device_.size(); ++i) bytes[i] = device_[offset + i];
    return bytes;
}

SdrReply FakePlatform::sdr_record(const SdrCall& call) const {
    const std::lock_guard lock(mutex_);
    const auto is_wanted = [&](const Bytes& record) {
        return call.record_id == first_record || record_id(record) == call.record_id;
    };
    const auto found = std::find_if(sdr_records_.begin(), sdr_records_.end(), is_wanted);
    if (found == sdr_records_.end()) return {-1};
    const auto following = found + 1;
    return {0, *found, following == sdr_records_.end() ? no_more_records : record_id(*following)};
}

ConfigurationReply FakePlatform::stored_variable(const ConfigurationRead& call) const {
    const std::lock_guard lock(mutex_);
    const auto found = variables_.find(call.name);
    return found == variables_.end() ? ConfigurationReply{0} : ConfigurationReply{1, found->second};
}

int FakePlatform::store_variable(const ConfigurationWrite& call) {
    const std::lock_guard lock(mutex_);
    if (const auto* number = std::get_if<int32_t>(&call.value)) variables_[call.name] = *number;
    return 1;
}

ReceiveReply FakePlatform::received(const ReceiveCall& call) {
    const std::lock_guard lock(mutex_);
    const auto count = static_cast<std::ptrdiff_t>(std::min<std::size_t>(call.length, incoming_.size()));
    ReceiveReply reply{static_cast<int>(count), Bytes(incoming_.begin(), incoming_.begin() + count)};
    incoming_.erase(incoming_.begin(), incoming_.begin() + count);
    return reply;
}

// ---- what was written

std::vector<IpmiCall> FakePlatform::requests() const {
    const std::lock_guard lock(mutex_);
    return requests_;
}

std::vector<LogLine> FakePlatform::log() const {
    const std::lock_guard lock(mutex_);
    return log_;
}

std::vector<LogLine> FakePlatform::log(int priority) const {
    std::vector<LogLine> lines = log();
    std::erase_if(lines, [&](const LogLine& line) { return line.priority != priority; });
    return lines;
}

std::vector<TraceLine> FakePlatform::trace() const {
    const std::lock_guard lock(mutex_);
    return trace_;
}

std::optional<ConfigurationWrite> FakePlatform::written(std::string_view name) const {
    std::optional<ConfigurationWrite> last;
    for (ConfigurationWrite& write : configuration()) {
        if (write.name == name) last = std::move(write);
    }
    return last;
}

std::vector<int64_t> FakePlatform::sleeps() const {
    const std::lock_guard lock(mutex_);
    return sleeps_;
}

std::vector<std::string> FakePlatform::journal() const {
    const std::lock_guard lock(mutex_);
    return journal_;
}

testing::AssertionResult FakePlatform::logged(int priority, std::string_view text) const {
    if (times_logged(priority, text) > 0) return testing::AssertionSuccess();
    return testing::AssertionFailure() << testing::PrintToString(LogLine{priority, std::string(text)})
                                       << " was not logged; " << listed(log());
}

testing::AssertionResult FakePlatform::logged_containing(int priority, std::string_view text) const {
    const auto lines = log(priority);
    const auto contains = [&](const LogLine& line) { return line.text.find(text) != std::string::npos; };
    if (std::any_of(lines.begin(), lines.end(), contains)) return testing::AssertionSuccess();
    return testing::AssertionFailure() << "no line of priority " << priority << " contains \"" << text << "\"; "
                                       << listed(log());
}

testing::AssertionResult FakePlatform::logged_at_line(int priority, std::string_view function,
                                                      std::string_view text) const {
    const std::string head = std::string(function) + "(";
    const std::string tail = ")" + std::string(text);
    const auto matches = [&](const LogLine& line) {
        if (line.priority != priority || !line.text.starts_with(head)) return false;
        const std::size_t digits = line.text.find_first_not_of("0123456789", head.size());
        return digits != std::string::npos && digits > head.size() && line.text.substr(digits) == tail;
    };
    const auto lines = log();
    if (std::any_of(lines.begin(), lines.end(), matches)) return testing::AssertionSuccess();
    return testing::AssertionFailure() << priority << " \"" << head << "<line>" << tail << "\" was not logged; "
                                       << listed(lines);
}

testing::AssertionResult FakePlatform::logged_located(int priority, std::string_view function,
                                                      std::string_view text) const {
    const std::string name(function);
    return logged_at_line(priority, formatted("pid=%d, tid=%d, %s", getpid(), gettid(), name.c_str()),
                          " - " + std::string(text));
}

testing::AssertionResult FakePlatform::logged_nothing() const {
    const auto lines = log();
    if (lines.empty()) return testing::AssertionSuccess();
    return testing::AssertionFailure() << listed(lines);
}

testing::AssertionResult FakePlatform::traced(int level, std::string_view function, std::string_view text) const {
    const TraceLine wanted{"/tmp/vpdd_trace.log", level, "[" + std::string(function) + "]:" + std::string(text)};
    const auto lines = trace();
    if (std::count(lines.begin(), lines.end(), wanted) > 0) return testing::AssertionSuccess();
    return testing::AssertionFailure() << testing::PrintToString(wanted) << " was not traced; " << listed(lines);
}

std::size_t FakePlatform::times_logged(int priority, std::string_view text) const {
    const auto lines = log();
    return static_cast<std::size_t>(std::count(lines.begin(), lines.end(), LogLine{priority, std::string(text)}));
}

void FakePlatform::during_sleep(std::function<void(int64_t)> hook) {
    const std::lock_guard lock(mutex_);
    sleep_hook_ = std::move(hook);
}

void FakePlatform::during_log(std::function<void(const LogLine&)> hook) {
    const std::lock_guard lock(mutex_);
    log_hook_ = std::move(hook);
}

void FakePlatform::during_trace(std::function<void(const TraceLine&)> hook) {
    const std::lock_guard lock(mutex_);
    trace_hook_ = std::move(hook);
}

void FakePlatform::add_log(int priority, std::string text) {
    const LogLine line{priority, std::move(text)};
    std::function<void(const LogLine&)> hook;
    {
        const std::lock_guard lock(mutex_);
        journal_.push_back(formatted("log %d %s", priority, line.text.c_str()));
        log_.push_back(line);
        hook = log_hook_;
    }
    if (hook) hook(line);
}

void FakePlatform::add_trace(TraceLine line) {
    std::function<void(const TraceLine&)> hook;
    {
        const std::lock_guard lock(mutex_);
        journal_.push_back(formatted("trace %d %s", line.level, line.text.c_str()));
        trace_.push_back(line);
        hook = trace_hook_;
    }
    if (hook) hook(line);
}

void FakePlatform::add_sleep(int64_t microseconds) {
    std::function<void(int64_t)> hook;
    {
        const std::lock_guard lock(mutex_);
        journal_.push_back("sleep " + std::to_string(microseconds));
        sleeps_.push_back(microseconds);
        hook = sleep_hook_;
    }
    if (hook) hook(microseconds);
}

void FakePlatform::add_request(const IpmiCall& call) {
    const std::lock_guard lock(mutex_);
    journal_.push_back(formatted("%s %02X/%02X", call.frame.empty() ? "ipmi" : "raw", call.netfn, call.cmd));
    requests_.push_back(call);
}

void FakePlatform::note(std::string journal_line) {
    const std::lock_guard lock(mutex_);
    journal_.push_back(std::move(journal_line));
}

// ---- texts

std::string formatted(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    std::string text = formatted_list(format, arguments);
    va_end(arguments);
    return text;
}

std::string pid_line(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    std::string text = formatted_list(format, arguments);
    va_end(arguments);
    return "pid=" + std::to_string(getpid()) + ", " + text;
}

Bytes bytes_of(std::string_view text) { return Bytes(text.begin(), text.end()); }

// ---- standard output and error

CaptureStream::CaptureStream(int descriptor)
    : descriptor_(descriptor), original_(dup(descriptor)), file_(memfd_create("captured", MFD_CLOEXEC)) {
    std::fflush(nullptr);
    dup2(file_, descriptor_);
}

CaptureStream::~CaptureStream() {
    std::fflush(nullptr);
    dup2(original_, descriptor_);
    close(original_);
    close(file_);
}

std::string CaptureStream::text() const {
    std::fflush(nullptr);
    std::string text;
    char block[4096];
    ssize_t count = 0;
    while ((count = pread(file_, block, sizeof block, static_cast<off_t>(text.size()))) > 0) {
        text.append(block, static_cast<std::size_t>(count));
    }
    return text;
}

}  // namespace vpdd::test

// ---- the platform functions

using namespace vpdd::test;

namespace {

FakePlatform& platform() { return FakePlatform::instance(); }

Bytes copied(const void* bytes, std::size_t count) {
    const auto* first = static_cast<const uint8_t*>(bytes);
    return first == nullptr ? Bytes{} : Bytes(first, first + count);
}

void deliver(const Bytes& bytes, void* to, std::size_t room) {
    if (!bytes.empty()) std::memcpy(to, bytes.data(), std::min(bytes.size(), room));
}

int write_variable(const ConfigurationWrite& write) {
    platform().note("set " + write.name);
    return platform().configuration_write.answer(write);
}

}  // namespace

extern "C" {

int IPMI_DoIPMICmd(uint8_t netfn, uint8_t cmd, const uint8_t* request, uint32_t request_length, uint8_t* response,
                   int32_t* response_length) {
    const IpmiCall call{netfn, cmd, copied(request, request_length), {}, static_cast<uint32_t>(*response_length)};
    platform().add_request(call);
    const IpmiReply reply = platform().ipmi.answer(call);
    deliver(reply.bytes, response, reply.bytes.size());
    if (reply.length) *response_length = static_cast<int32_t>(*reply.length);
    if (!reply.length && reply.result == 0) *response_length = static_cast<int32_t>(reply.bytes.size());
    return reply.result;
}

int send_ipmi_cmd(const uint8_t* raw_request, uint32_t* raw_request_length, uint8_t* response,
                  uint32_t* response_length) {
    const IpmiCall call = decoded_frame(copied(raw_request, *raw_request_length), *response_length);
    platform().add_request(call);
    const IpmiReply reply = platform().ipmi_raw.answer(call);
    deliver(reply.bytes, response, *response_length);
    if (reply.length) *response_length = static_cast<uint32_t>(*reply.length);
    if (!reply.length && reply.result == 0) *response_length = static_cast<uint32_t>(reply.bytes.size());
    return reply.result;
}

uint32_t c_vpd_read_field_size(uint32_t instance, uint32_t id) { return platform().field_size.answer({instance, id}); }

int c_vpd_read_field(uint32_t instance, uint32_t id, uint32_t size, uint8_t* buffer) {
    platform().note("field " + std::to_string(id));
    const FieldReply reply = platform().field_read.answer({instance, id, size});
    deliver(reply.bytes, buffer, size);
    return reply.result;
}

uint8_t* c_vpd_read(uint32_t instance, uint32_t offset, uint32_t length, uint8_t* buffer) {
    const DeviceReadReply reply = platform().device_read.answer({instance, offset, length});
    deliver(reply.bytes, buffer, length);
    return reply.readable ? buffer : nullptr;
}

int c_vpd_write(uint32_t instance, uint32_t offset, uint32_t length, const uint8_t* buffer, int flag) {
    return platform().device_write.answer({instance, offset, copied(buffer, length), flag});
}

int mosk_sdr_get_entry(int repository, uint16_t record_id, uint32_t length, uint16_t* next_record_id,
                       int32_t* bytes_read, uint8_t* buffer) {
    platform().note(formatted("sdr %04X", record_id));
    const SdrReply reply = platform().sdr_read.answer({repository, record_id, length});
    if (reply.result != 0) return reply.result;
    deliver(reply.record, buffer, length);
    *next_record_id = reply.next_record_id;
    *bytes_read = reply.bytes_read.value_or(static_cast<int32_t>(std::min<std::size_t>(reply.record.size(), length)));
    return reply.result;
}

int GetAllSensorInfoByType(uint32_t* size, uint32_t buffer_size, const uint8_t* sensor_type, void* buffer) {
    const SensorReply reply = platform().sensor_read.answer({*size, buffer_size, *sensor_type});
    if (reply.result != 0) return reply.result;
    deliver(reply.entries, buffer, buffer_size);
    *size = reply.size.value_or(static_cast<uint32_t>(std::min<std::size_t>(reply.entries.size(), buffer_size)));
    return reply.result;
}

int tarn_config_get_int(const char* name, int32_t* value) {
    const ConfigurationReply reply = platform().configuration_read.answer({name});
    if (reply.result != 0) *value = reply.value;
    return reply.result;
}

int tarn_config_set_int(const char* name, int32_t value, int flag) {
    return write_variable({ConfigurationKind::number, name, value, flag});
}

int tarn_config_set_str(const char* name, const char* value, int flag) {
    return write_variable({ConfigurationKind::text, name, std::string(value), flag});
}

int tarn_config_set_str_n(const char* name, const char* value, uint32_t length, int flag) {
    return write_variable({ConfigurationKind::counted_text, name, std::string(value), flag, length});
}

int tarn_event_type_occurred(int type, const char* name, int argument0, int argument1) {
    platform().note(std::string("event ") + name);
    return platform().event.answer({type, name, argument0, argument1});
}

int log_debug_log(const char* path, int level, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    platform().add_trace({path, level, formatted_list(format, arguments)});
    va_end(arguments);
    return 0;
}

int pm_sent_data(int fd, const void* data, uint32_t length) {
    return platform().send_data.answer({fd, copied(data, length)});
}

int pm_read_data(int fd, void* data, uint32_t length) {
    const ReceiveReply reply = platform().receive_data.answer({fd, length});
    deliver(reply.bytes, data, length);
    return reply.result;
}

int sw_msg_dispatcher(int message, void* payload, int32_t argument0, int32_t argument1) {
    platform().note("message " + std::to_string(message));
    // The payload's size belongs to the message; only the software event's is known.
    const std::size_t size = message == software_event_message ? software_event_payload : 0;
    return platform().software_message.answer({message, copied(payload, size), argument0, argument1});
}

int proc_system(const char* command) {
    platform().note(std::string("shell ") + command);
    return platform().shell_command.answer(command);
}

int smbt_init(SmbiosTable** table, int flags, const char* name, const char* directory) {
    const SmbiosOpenReply reply = platform().smbios_open.answer({flags, name, directory});
    if (reply.result == 0 || reply.table != nullptr) *table = reply.table;
    return reply.result;
}

int smbt_release(SmbiosTable* table) { return platform().smbios_release.answer(table); }

// ---- interposed functions of the C library

void vsyslog(int priority, const char* format, va_list arguments) {
    platform().add_log(priority, formatted_list(format, arguments));
}

void syslog(int priority, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    vsyslog(priority, format, arguments);
    va_end(arguments);
}

// The names under which fortified callers reach syslog.
void __vsyslog_chk(int priority, int /*flag*/, const char* format, va_list arguments) {
    vsyslog(priority, format, arguments);
}

void __syslog_chk(int priority, int /*flag*/, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    vsyslog(priority, format, arguments);
    va_end(arguments);
}

unsigned int sleep(unsigned int seconds) {
    platform().add_sleep(int64_t{seconds} * 1000000);
    return 0;
}

int usleep(useconds_t microseconds) {
    platform().add_sleep(microseconds);
    return 0;
}

int nanosleep(const timespec* wanted, timespec* /*remaining*/) {
    platform().add_sleep(int64_t{wanted->tv_sec} * 1000000 + wanted->tv_nsec / 1000);
    return 0;
}

}  // extern "C"
