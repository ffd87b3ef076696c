// SPDX-License-Identifier: Apache-2.0
// syslog() and its relatives stand before those of the C library: messages of priority emerg would otherwise be written
// to every terminal of the machine.
#undef _FORTIFY_SOURCE  // its syslog() is an inline function that would collide with ours
#include "host/log_messages.h"

#include <syslog.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "host/server.h"
#include "platform/debug_trace.h"

namespace vpdd::host {

namespace {

std::mutex process_sink_mutex;
MessageSink process_sink;

MessageSink sink_for_now() {
    const auto server = current_server();
    if (server && server->options.sink.function != nullptr) return server->options.sink;
    const std::scoped_lock lock(process_sink_mutex);
    return process_sink;
}

/// The text without its line end.
std::string formatted(const char* format, va_list arguments) {
    char* text = nullptr;
    const int length = vasprintf(&text, format, arguments);
    if (length < 0) return {};
    const std::unique_ptr<char, decltype(&std::free)> owner(text, std::free);
    const std::string_view line(text, static_cast<std::size_t>(length));
    return std::string(line.substr(0, line.ends_with('\n') ? line.size() - 1 : line.size()));
}

void deliver(VpddHostMessageKind kind, int level, const std::string& text) {
    const MessageSink sink = sink_for_now();
    if (sink.function != nullptr) sink.function(sink.context, kind, level, text.c_str());
}

void deliver_syslog(int priority, const char* format, va_list arguments) {
    deliver(VPDD_HOST_SYSLOG, priority, formatted(format, arguments));
}

}  // namespace

bool TraceFiles::append(const std::filesystem::path& path, std::string_view line) {
    if (folder_.empty() || !path.has_filename()) return false;
    const std::scoped_lock lock(mutex_);
    std::ofstream file(folder_ / path.filename(), std::ios::app);
    file << line << '\n';
    return file.good();
}

}  // namespace vpdd::host

extern "C" void vpdd_host_set_message_sink(VpddHostMessageSink sink, void* context) {
    const std::scoped_lock lock(vpdd::host::process_sink_mutex);
    vpdd::host::process_sink = {sink, context};
}

extern "C" void vpdd_host_report(int level, const char* text) { vpdd::host::deliver(VPDD_HOST_PLATFORM, level, text); }

// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name): the C library's names are reserved
extern "C" void vsyslog(int priority, const char* format, va_list arguments) {
    vpdd::host::deliver_syslog(priority, format, arguments);
}

extern "C" void syslog(int priority, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    vpdd::host::deliver_syslog(priority, format, arguments);
    va_end(arguments);
}
// NOLINTEND(readability-inconsistent-declaration-parameter-name)

// What a caller built with _FORTIFY_SOURCE calls instead.
extern "C" void __vsyslog_chk(int priority, int, const char* format, va_list arguments) {
    vpdd::host::deliver_syslog(priority, format, arguments);
}

extern "C" __attribute__((format(printf, 3, 4))) void __syslog_chk(int priority, int, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    vpdd::host::deliver_syslog(priority, format, arguments);
    va_end(arguments);
}

extern "C" int log_debug_log(const char* path, int level, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const std::string line = vpdd::host::formatted(format, arguments);
    va_end(arguments);

    const auto server = vpdd::host::current_server();
    if (server && path != nullptr && server->trace_files.append(path, line)) return 0;
    vpdd::host::deliver(VPDD_HOST_TRACE, level, line);
    return 0;
}
