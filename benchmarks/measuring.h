// What the benchmarks share: a driver on a link that the benchmark itself is the other end of, and a clock
// that other programs on the machine do not move.
#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <memory>

#include "emulators/emulator.h"
#include "tests/support/direct_platform.h"
#include "tests/support/text_readers.h"

namespace corvane::benchmarks {

struct Frame {
    CBUUID characteristic;
    std::vector<std::uint8_t> value;
};

/// Seconds that one run takes: the median of many, which is not moved by those that another program on the
/// machine interrupts. `prepare` makes what `run` is given, outside the time.
template <class Prepare, class Run>
double medianTime(int runs, Prepare&& prepare, Run&& run) {
    using Clock = std::chrono::steady_clock;
    std::vector<Clock::duration> times;
    for (int i = 0; i < runs; ++i) {
        const auto prepared = prepare();
        const auto began = Clock::now();
        run(*prepared);
        times.push_back(Clock::now() - began);
    }
    std::nth_element(times.begin(), times.begin() + runs / 2, times.end());
    return std::chrono::duration<double>(times[static_cast<std::size_t>(runs / 2)]).count();
}

/// A driver to which values can be notified by a plain call.
template <class Driver>
class LinkedDriver {
public:
    template <class OnRecord>
    explicit LinkedDriver(OnRecord onRecord)
        : platform_(*makeEmulatorOf<Driver>({})), driver_(makeDriver<Driver>({}, platform_)) {
        driver_->stateLoading = [onRecord](const StateDeviceLoading<typename Driver::InfoType>& state) {
            if (state.success()) onRecord(*state.success());
        };
        driver_->startScan();
        platform_.link();
        delegate_ = platform_.peripheral->delegate.lock();
    }

    const CharacteristicRef& find(const CBUUID& uuid) const {
        const auto& all = platform_.peripheral->characteristics;
        return *std::find_if(all.begin(), all.end(), [&](const auto& each) { return each->uuid == uuid; });
    }
    void notify(const CharacteristicRef& characteristic, Bytes value) {
        delegate_->didUpdateValueFor(platform_.peripheral, characteristic, value, nullptr);
    }

private:
    DirectPlatform platform_;
    std::unique_ptr<Driver> driver_;
    std::shared_ptr<CBPeripheralDelegate> delegate_;
};

/// The same without the library: a reader, and a function for the record.
template <class Driver>
class TextReader {
public:
    explicit TextReader(std::function<void(const typename Driver::InfoType&)> onRecord)
        : onRecord_(std::move(onRecord)) {}

    const CBUUID& find(const CBUUID& uuid) const { return uuid; }
    void notify(const CBUUID&, Bytes value) {
        if (const auto info = reader_.read(value, uuid_)) onRecord_(*info);
    }

private:
    text::Reader<Driver> reader_;
    std::function<void(const typename Driver::InfoType&)> onRecord_;
    std::string uuid_ = "6E400001-B5A3-F393-E0A9-E50E24DCCA9E";
};

}  // namespace corvane::benchmarks
