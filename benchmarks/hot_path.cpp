// From the delegate call to the application's callback, a value at a time, with the values that the emulated
// device sends in a minute. Beside it the same values read as text, without the library.
#include "benchmarks/allocations.h"
#include "benchmarks/emulated_frames.h"

namespace corvane::benchmarks {
namespace {

// Allocations that the texts and lists of a record take, whoever makes it.
template <class Info>
std::size_t ownAllocations(const Info& info) {
    std::size_t count = 0;
    visitFields(info, [&](std::string_view, const auto& value) {
        if constexpr (requires { value.capacity(); }) {
            using Value = std::remove_cvref_t<decltype(value)>;
            count += value.size() > Value().capacity();
        }
    });
    return count;
}

template <class Receiver>
void send(Receiver& receiver, const Frame& frame) {
    receiver.notify(receiver.find(frame.characteristic), frame.value);
}

// The most that a value which gives a record takes beyond that record's own texts.
template <class Receiver, class Driver>
std::size_t furtherAllocations(const std::vector<Frame>& frames) {
    std::optional<std::size_t> own;
    Receiver receiver([&](const typename Driver::InfoType& info) { own = ownAllocations(info); });
    std::size_t most = 0;
    for (const Frame& frame : frames) {
        own.reset();
        const std::size_t before = heap().allocations;
        send(receiver, frame);
        if (own) most = std::max(most, heap().allocations - before - *own);
    }
    return most;
}

// Each receiver takes the whole sequence once: some models' state grows with what they are sent.
template <class Receiver, class Driver>
void sequence(benchmark::State& state) {
    const std::vector<Frame> frames = emulatedFrames<Driver>();
    std::size_t records = 0;
    for (auto _ : state) {
        const double time = medianTime(
            301, [&] { return std::make_unique<Receiver>([&](const auto&) { ++records; }); },
            [&](Receiver& receiver) {
                for (const Frame& frame : frames) send(receiver, frame);
            });
        state.SetIterationTime(time / static_cast<double>(frames.size()));
    }
    if (records == 0) state.SkipWithError("no value gave a record");
    state.counters["allocations"] = static_cast<double>(furtherAllocations<Receiver, Driver>(frames));
    state.counters["values"] = static_cast<double>(frames.size());
}

const bool registered = [] {
    forEachDriver([]<class Driver>() {
        const std::string name = "value/" + std::string(Driver::model.id);
        for (const auto& [suffix, function] : {std::pair("/driver", &sequence<LinkedDriver<Driver>, Driver>),
                                               std::pair("/text", &sequence<TextReader<Driver>, Driver>)}) {
            benchmark::RegisterBenchmark((name + suffix).c_str(), function)->UseManualTime()->Iterations(1);
        }
    });
    return true;
}();

}  // namespace
}  // namespace corvane::benchmarks
