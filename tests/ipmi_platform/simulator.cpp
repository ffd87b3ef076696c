// SPDX-License-Identifier: Apache-2.0
#include "simulator.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "udp_socket.h"

namespace vpdd::test {

namespace {

constexpr unsigned longest_life = 120;  // seconds

std::string hex(unsigned byte) {
    std::array<char, 8> text{};
    std::snprintf(text.data(), text.size(), "0x%02x", byte);
    return text.data();
}

/// The states as the simulator's commands set them, bit by bit.
void write_sensor(std::ostream& out, const SimulatedSensor& sensor) {
    constexpr unsigned sensor_specific = 0x6F;  // event/reading type, IPMI 2.0 table 42-1
    constexpr unsigned states = 15;
    const std::string name = "0x20 0 " + std::to_string(sensor.number);
    out << "sensor_add " << name << ' ' << hex(sensor.type) << ' ' << hex(sensor_specific) << '\n';
    const std::string bits(states, '1');
    out << "sensor_set_event_support " << name << " enable " << (sensor.is_scanned ? "scanning" : "no-scanning")
        << " per-state " << bits << ' ' << bits << ' ' << bits << ' ' << bits << '\n';
    for (unsigned bit = 0; bit < states; ++bit) {
        if ((sensor.state >> bit & 1U) != 0) out << "sensor_set_bit " << name << ' ' << bit << " 1 0\n";
    }
}

}  // namespace

bool simulator_is_installed() {
    return run_tool({"ipmi_sim", "-v"}).code != exit_not_found && run_tool({"ipmitool", "-V"}).code != exit_not_found &&
           run_tool({"ipmi-fru", "--version"}).code != exit_not_found;
}

uint16_t free_port() { return UdpSocket().port(); }

Simulator::Simulator(const SimulatedBmc& bmc) : port_(free_port()) {
    write_files(bmc);
    start();
    wait_until_it_answers();
}

void Simulator::write_files(const SimulatedBmc& bmc) {
    std::ostringstream lan;
    lan << "name \"orva\"\nset_working_mc 0x20\nstartlan 1\naddr 127.0.0.1 " << port_ << "\npriv_limit admin\n";
    for (const char* level : {"callback", "user", "operator", "admin"}) {
        lan << "allowed_auths_" << level << " none md2 md5 straight\n";
    }
    lan << "guid a123456789abcdefa123456789abcdef\nendlan\n"
        << "user 2 true \"" << simulated_user << "\" \"" << simulated_password << "\" admin 10 none md2 md5 straight\n";
    folder_.file("lan.conf", lan.str());

    std::ostringstream commands;
    commands << "mc_setbmc 0x20\n"
             << "mc_add 0x20 0 no-device-sdrs 0x23 9 8 0x9f 0x1291 0xf02 persist_sdr\n";
    for (const auto& [id, image] : bmc.frus) {
        const std::string file = folder_.file("fru" + std::to_string(id), image);
        commands << "mc_add_fru_data 0x20 " << int{id} << ' ' << image.size() << " file 0 \"" << file << "\"\n";
    }
    for (const images::Bytes& record : bmc.sdr) {
        commands << "main_sdr_add 0x20";
        for (const uint8_t byte : record) commands << ' ' << hex(byte);
        commands << '\n';
    }
    for (const SimulatedSensor& sensor : bmc.sensors) write_sensor(commands, sensor);
    commands << "mc_enable 0x20\n";
    folder_.file("commands", commands.str());
    std::filesystem::create_directory(folder_.path("state"));
}

void Simulator::start() {
    const std::string lan = folder_.path("lan.conf");
    const std::string commands = folder_.path("commands");
    const std::string state = folder_.path("state");
    const std::string output = folder_.path("output");
    process_ = fork();
    if (process_ != 0) return;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    alarm(longest_life);
    const int file = open(output.c_str(), O_WRONLY | O_CREAT, 0600);
    dup2(file, STDOUT_FILENO);
    dup2(file, STDERR_FILENO);
    execlp("ipmi_sim", "ipmi_sim", "-c", lan.c_str(), "-f", commands.c_str(), "-s", state.c_str(), "-n", nullptr);
    _exit(exit_not_found);
}

void Simulator::wait_until_it_answers() const {
    // ASF presence ping (IPMI 2.0 section 13.2.3).
    constexpr std::array<uint8_t, 12> ping{0x06, 0x00, 0xFF, 0x06, 0x00, 0x00, 0x11, 0xBE, 0x80, 0x00, 0x00, 0x00};
    constexpr int attempts = 200;
    constexpr int wait = 50;  // milliseconds
    UdpSocket socket;
    for (int attempt = 0; attempt < attempts; ++attempt) {
        socket.send(loopback(port_), ping);
        if (socket.wait(wait) && socket.receive()) return;
    }
    throw std::runtime_error("the simulator does not answer: " + read_file(folder_.path("output")));
}

void Simulator::stop() {
    if (process_ < 0) return;
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
    process_ = -1;
}

}  // namespace vpdd::test
