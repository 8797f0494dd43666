// A whole transfer of the ECG recorder: case information, waveform frames, the end; collected and decoded.
#include "benchmarks/measuring.h"

namespace corvane::benchmarks {
namespace {

using Driver = ECGTD4257Device;

template <class Receiver>
void transfer(benchmark::State& state) {
    std::vector<std::uint8_t> caseInformation(64, 0x01);
    caseInformation[0] = 0xE1;
    std::vector<std::uint8_t> waveform(64);
    for (std::size_t i = 1; i < waveform.size(); ++i) waveform[i] = static_cast<std::uint8_t>(i * 37);
    waveform[0] = 0xD0;
    waveform[62] = 0x00;
    std::vector<std::uint8_t> end(64);
    end[62] = 0x7F;

    const auto frames = static_cast<std::size_t>(state.range(0));
    std::size_t samples = 0;
    for (auto _ : state) {
        state.SetIterationTime(medianTime(
            51,
            [&] {
                return std::make_unique<Receiver>([&](const ECGInfo& info) { samples = info.graph.size(); });
            },
            [&](Receiver& receiver) {
                const auto& from = receiver.find(Driver::characteristicCBUUIDread);
                receiver.notify(from, caseInformation);
                for (std::size_t i = 0; i < frames; ++i) receiver.notify(from, waveform);
                receiver.notify(from, end);
            }));
    }
    // The frame that ends the transfer is collected too, since a block is open.
    if (samples != 25 * (frames + 1)) state.SkipWithError("the record has another number of samples");
}

// Twice as many each time: the cost of a frame is to stay the same.
void lengths(benchmark::internal::Benchmark* benchmark) {
    for (const int frames : {750, 1500, 3000, 6000}) benchmark->Arg(frames);
    benchmark->UseManualTime()->Iterations(1);
}
BENCHMARK(transfer<LinkedDriver<Driver>>)->Name("ecg/driver")->Apply(lengths);
BENCHMARK(transfer<TextReader<Driver>>)->Name("ecg/text")->Apply(lengths);

}  // namespace
}  // namespace corvane::benchmarks
