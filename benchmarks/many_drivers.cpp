// Many drivers in one process, of all models in turn, each with a device of its own on one simulated radio.
#include <time.h>

#include "benchmarks/allocations.h"
#include "benchmarks/emulated_frames.h"

namespace corvane::benchmarks {
namespace {

using namespace std::chrono_literals;

// Of this thread, in seconds.
double processorTime() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

// They come one after another, as users do: all adverts at once would be the square of them. Each goes after
// a minute of its own, so that one that came first does not do more than the others.
void minute(benchmark::State& state) {
    const auto count = static_cast<std::size_t>(state.range(0));
    std::size_t linked = 0;
    for (auto _ : state) {
        SimulatedRadio radio;
        radio.logSink = [](std::string_view) {};
        std::vector<std::shared_ptr<DeviceBase>> drivers;
        linked = 0;
        const double began = processorTime();
        for (std::size_t i = 0; i < count; ++i) {
            const Model& model = *models()[i % models().size()];
            EmulatorOptions device;
            device.seed = i + 1;
            const std::shared_ptr<PeripheralDevice> emulator = makeEmulator(model, device);
            radio.add(emulator);
            drivers.push_back(makeDevice(model, {}, radio));
            const std::size_t before = linked;
            drivers.back()->stateConnection = [&](StateDeviceConnection state) {
                if (state == StateDeviceConnection::connect) ++linked;
            };
            drivers.back()->startScan();
            radio.runUntil([&] { return linked > before; }, 1min);
            radio.mainQueue().at(radio.now() + 1min, [&, i, emulator] {
                radio.remove(*emulator);
                drivers[i].reset();
            });
        }
        radio.runFor(1min);
        state.SetIterationTime((processorTime() - began) / static_cast<double>(count));
    }
    if (linked < count) state.SkipWithError("not every driver found its device");
}

// A driver that scans and has found nothing.
void idle(benchmark::State& state) {
    const auto count = static_cast<std::size_t>(state.range(0));
    for (auto _ : state) {
        SimulatedRadio radio;
        radio.logSink = [](std::string_view) {};
        std::vector<std::shared_ptr<DeviceBase>> drivers;
        drivers.reserve(count);
        startWeighing();
        const double began = processorTime();
        for (std::size_t i = 0; i < count; ++i) {
            drivers.push_back(makeDevice(*models()[i % models().size()], {}, radio));
            drivers.back()->startScan();
        }
        radio.runFor(10s);
        state.SetIterationTime((processorTime() - began) / static_cast<double>(count));
        state.counters["bytes"] = static_cast<double>(stopWeighing()) / static_cast<double>(count);
    }
}

// Whole rounds of the catalogue, since models differ in what they have to do.
void rounds(benchmark::internal::Benchmark* benchmark) {
    for (const int each : {1, 10, 91}) benchmark->Arg(each * static_cast<int>(models().size()));
    benchmark->UseManualTime()->Iterations(1);
}
BENCHMARK(minute)->Name("drivers/minute")->Apply(rounds);
BENCHMARK(idle)->Name("drivers/idle")->Apply(rounds);

}  // namespace
}  // namespace corvane::benchmarks
