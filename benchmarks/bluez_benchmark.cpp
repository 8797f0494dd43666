// What the back end costs beside a bare client of the same service, run in turn. The service is a stand-in on
// a bus of its own, and every client a process of its own.
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string_view>
#include <vector>

#include "benchmarks/bluez_clients.h"
#include "corvane/devices/temperature/temperature_aoj20a_device.h"
#include "corvane/platform/bluez/bluez_platform.h"
#include "emulators/emulator.h"
#include "tests/bluez/private_bus.h"
#include "tests/bluez/stand_in.h"

namespace corvane::benchmarks {
namespace {

using namespace std::chrono_literals;
using bluez::StandIn;

constexpr int runs = 9;
constexpr std::size_t values = 2000;
constexpr std::size_t adverts = 20000;
constexpr CBUUID service{"0000fa00-0000-1000-8000-00805f9b34fb"};
constexpr CBUUID characteristic{"0000fa01-0000-1000-8000-00805f9b34fb"};

/// Notifies a thousand times a second from when it is subscribed to: each one wakes the client.
class Metronome final : public PeripheralDevice {
public:
    std::string name() const override { return "Metronome"; }
    std::vector<GattService> services() const override {
        return {{service, {{characteristic, gatt::notify}}}};
    }
    void connected(PeripheralHost& host) override { host_ = &host; }
    void disconnected() override { host_ = nullptr; }
    void subscribed(const CBUUID&, bool enabled) override {
        if (enabled) beat();
    }

private:
    void beat() {
        constexpr std::array<std::uint8_t, 20> value{};
        host_->notify(characteristic, value);
        host_->after(1ms, [this] { beat(); });
    }
    PeripheralHost* host_ = nullptr;
};

/// So many devices, heard in turn while somebody scans; and one more after the last.
class Neighbourhood {
public:
    Neighbourhood(StandIn& standIn, std::size_t size) : standIn_(standIn), size_(size) {
        for (std::size_t i = 0; i < size; ++i)
            standIn.objects().add(path(i), "org.bluez.Device1", facts(i, "Neighbour"));
        timer_ = standIn.loop().scheduleTimer(1ms, [this] { speak(); });
    }

private:
    void speak() {
        for (int i = 0; i < 20 && standIn_.isDiscovering() && heard_ < adverts; ++i, ++heard_) {
            const auto strength = static_cast<std::int16_t>(-40 - heard_ / size_ % 50);
            standIn_.objects().set(path(heard_ % size_), "RSSI", strength);
        }
        if (heard_ == adverts && !ended_) {
            ended_ = true;
            standIn_.objects().add(path(size_), "org.bluez.Device1", facts(size_, "Last"));
        }
    }
    std::string path(std::size_t i) const { return standIn_.adapter() + "/dev_" + address(i, '_'); }
    static std::string address(std::size_t i, char separator) {
        char text[18];
        std::snprintf(text, sizeof text, "C0%c00%c00%c00%c%02X%c%02X", separator, separator, separator,
                      separator, static_cast<unsigned>(i >> 8), separator, static_cast<unsigned>(i & 0xFF));
        return text;
    }
    static bluez::Properties facts(std::size_t i, const char* name) {
        return {{"Address", address(i, ':')},
                {"AddressType", std::string("random")},
                {"Name", std::string(name)}};
    }

    StandIn& standIn_;
    const std::size_t size_;
    std::size_t heard_ = 0;
    bool ended_ = false;
    std::unique_ptr<Timer> timer_;
};

/// Runs in a process of its own, which ends with this object.
class ServiceProcess {
public:
    using Populate = std::function<std::shared_ptr<void>(StandIn&)>;

    ServiceProcess(const std::string& busAddress, const Populate& populate) {
        int ready[2];
        if (pipe(ready) < 0) std::abort();
        child_ = fork();
        if (child_ == 0) {
            bluez::EventLoop loop;
            StandIn standIn(busAddress, loop);
            const auto population = populate(standIn);
            if (write(ready[1], "", 1) != 1) std::abort();
            for (;;) loop.step();
        }
        char byte = 0;
        if (read(ready[0], &byte, 1) != 1) std::abort();
        close(ready[0]);
        close(ready[1]);
    }
    ~ServiceProcess() {
        kill(child_, SIGKILL);
        waitpid(child_, nullptr, 0);
    }

private:
    pid_t child_;
};

Result inProcess(Result (*client)(const Task&), const Task& task) {
    int results[2];
    if (pipe(results) < 0) std::abort();
    const pid_t child = fork();
    if (child == 0) {
        alarm(60);
        const Result result = client(task);
        _exit(write(results[1], &result, sizeof result) == sizeof result ? 0 : 1);
    }
    close(results[1]);
    Result result;
    const bool came = read(results[0], &result, sizeof result) == sizeof result;
    close(results[0]);
    waitpid(child, nullptr, 0);
    if (!came || !result.done) {
        std::fprintf(stderr, "a client has not come to its end\n");
        std::exit(EXIT_FAILURE);
    }
    return result;
}

double median(std::vector<double> of) {
    std::nth_element(of.begin(), of.begin() + of.size() / 2, of.end());
    return of[of.size() / 2];
}

/// One figure of each run, of both clients in turn.
struct Pairs {
    std::vector<double> bare, library;

    /// The ratio is of two runs that followed each other: what else the machine does changes slowly.
    void print(const char* what, double scale, const char* unit, double bar) const {
        std::vector<double> ratios;
        for (std::size_t i = 0; i < bare.size(); ++i) ratios.push_back(library[i] / bare[i]);
        std::printf("%-44s %8.2f %8.2f %s  ratio %.2f (%.2f)\n", what, scale * median(bare),
                    scale * median(library), unit, median(ratios), bar);
    }
};

class Comparison {
public:
    explicit Comparison(std::string busAddress) { task_.busAddress = std::move(busAddress); }

    void notifications(bool bySocket) {
        task_.deviceName = "Metronome";
        task_.characteristic = "0000fa01-0000-1000-8000-00805f9b34fb";
        task_.values = values;
        task_.bySocket = bySocket;
        compare([](StandIn& standIn) {
            standIn.habits.advertisingDelay = 20ms;
            standIn.add(std::make_shared<Metronome>());
            return nullptr;
        });
        processor_.print(bySocket ? "CPU per notification, paced, by socket"
                                  : "CPU per notification, paced, by signals",
                         1e6 / static_cast<double>(values), "us", 1.3);
        firstValue_.print("start to first reading", 1e3, "ms", 1.05);
    }

    void scanning(std::size_t neighbours) {
        task_.deviceName = "Last";
        task_.values = 0;
        compare(
            [neighbours](StandIn& standIn) { return std::make_shared<Neighbourhood>(standIn, neighbours); });
        char what[64];
        std::snprintf(what, sizeof what, "CPU per advert, %zu neighbours", neighbours);
        processor_.print(what, 1e6 / static_cast<double>(adverts), "us", 1.3);
    }

private:
    void compare(const ServiceProcess::Populate& populate) {
        firstValue_ = processor_ = {};
        const auto run = [&](Result (*client)(const Task&), std::vector<double> Pairs::*side) {
            const ServiceProcess service(task_.busAddress, populate);
            const Result result = inProcess(client, task_);
            (firstValue_.*side).push_back(result.firstValue);
            (processor_.*side).push_back(result.processor);
        };
        for (int i = 0; i < runs; ++i) {
            run(runBareClient, &Pairs::bare);
            run(runLibraryClient, &Pairs::library);
        }
    }

    Task task_;
    Pairs firstValue_, processor_;
};

/// Switches of context in two seconds after a reading.
void idle(const std::string& busAddress) {
    const ServiceProcess service(busAddress, [](StandIn& standIn) {
        standIn.add(makeEmulatorOf<TemperatureAOJ20ADevice>({}));
        return nullptr;
    });
    BlueZPlatform platform({.busAddress = busAddress});
    platform.logSink = [](std::string_view) {};
    TemperatureAOJ20ADevice driver(true, platform);
    bool read = false;
    driver.stateLoading = [&](const auto& state) { read |= state.success() != nullptr; };
    driver.startScan();
    platform.runUntil([&] { return read; }, 60s);
    driver.disconnect();
    platform.runUntil([] { return false; }, 3s);
    rusage before{}, after{};
    getrusage(RUSAGE_SELF, &before);
    platform.runUntil([] { return false; }, 2s);
    getrusage(RUSAGE_SELF, &after);
    // One is the end of the two seconds.
    std::printf("%-44s %ld (0)\n", "wake-ups in two idle seconds", after.ru_nvcsw - before.ru_nvcsw - 1);
}

void memory(const std::string& busAddress, const char* tool) {
    const ServiceProcess service(busAddress, [](StandIn& standIn) {
        standIn.add(makeEmulatorOf<TemperatureAOJ20ADevice>({}));
        return nullptr;
    });
    const pid_t child = fork();
    if (child == 0) {
        setenv("DBUS_SYSTEM_BUS_ADDRESS", busAddress.c_str(), 1);
        execl(tool, tool, "measure", "temperature-aoj20a", "--platform", "bluez", nullptr);
        _exit(127);
    }
    int status = 0;
    rusage usage{};
    wait4(child, &status, 0, &usage);
    std::printf("%-44s %.1f MiB (8), status %d\n", "peak memory of corvane measure",
                static_cast<double>(usage.ru_maxrss) / 1024, WEXITSTATUS(status));
}

int run(const char* tool, std::string_view only) {
    const bluez::PrivateBus bus;
    if (bus.address().empty()) {
        std::fprintf(stderr, "no private bus: %s\n", bus.failure().c_str());
        return EXIT_FAILURE;
    }
    std::printf("%-44s %8s %8s\n", "medians of interleaved runs", "bare", "library");
    Comparison comparison(bus.address());
    const auto wanted = [&](std::string_view part) { return only.empty() || only == part; };
    if (wanted("signals")) comparison.notifications(false);
    if (wanted("socket")) comparison.notifications(true);
    for (const std::size_t neighbours : {1, 100, 1000}) {
        if (wanted("scanning")) comparison.scanning(neighbours);
    }
    if (wanted("idle")) idle(bus.address());
    if (wanted("memory")) memory(bus.address(), tool);
    return EXIT_SUCCESS;
}

}  // namespace
}  // namespace corvane::benchmarks

// bluez_benchmark TOOL [PART]: TOOL is the command-line tool; PART is signals, socket, scanning, idle or
// memory.
int main(int argc, char** argv) {
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    return argc > 1 ? corvane::benchmarks::run(argv[1], argc > 2 ? argv[2] : "") : EXIT_FAILURE;
}
