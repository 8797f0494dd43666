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

// The values before they are sent, and where each comes from as the radio would know it. They are sent once:
// some models' state grows with what they are sent.
template <class Receiver>
class Sequence {
public:
    template <class OnRecord>
    Sequence(const std::vector<Frame>& frames, OnRecord onRecord) : frames_(frames), receiver_(onRecord) {
        for (const Frame& frame : frames) origins_.push_back(receiver_.find(frame.characteristic));
    }
    std::size_t size() const { return frames_.size(); }
    void send(std::size_t i) { receiver_.notify(origins_[i], frames_[i].value); }

private:
    const std::vector<Frame>& frames_;
    Receiver receiver_;
    std::vector<std::remove_cvref_t<decltype(receiver_.find(CBUUID()))>> origins_;
};

// The most that a value which gives a record takes beyond that record's own texts.
template <class Receiver, class Driver>
std::size_t furtherAllocations(const std::vector<Frame>& frames) {
    std::optional<std::size_t> own;
    Sequence<Receiver> values(frames, [&](const auto& info) { own = ownAllocations(info); });
    std::size_t most = 0;
    for (std::size_t i = 0; i < values.size(); ++i) {
        own.reset();
        const std::size_t before = allocations();
        values.send(i);
        if (own) most = std::max(most, allocations() - before - *own);
    }
    return most;
}

template <class Receiver, class Driver>
void sequence(benchmark::State& state) {
    const std::vector<Frame> frames = emulatedFrames<Driver>();
    std::size_t records = 0;
    const auto count = [&records](const auto&) { ++records; };
    for (auto _ : state) {
        const double time = medianTime(
            301, [&] { return std::make_unique<Sequence<Receiver>>(frames, count); },
            [](Sequence<Receiver>& values) {
                for (std::size_t i = 0; i < values.size(); ++i) values.send(i);
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
