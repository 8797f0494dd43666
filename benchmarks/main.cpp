// Runs the benchmarks, then prints what they come to beside what is to be reached. Each figure is the best of
// its repetitions, which are interleaved: other programs on the machine only ever make one slower.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "corvane/devices/catalogue.h"

namespace {

class Best final : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.error_occurred)
                std::fprintf(stderr, "%s: %s\n", run.benchmark_name().c_str(), run.error_message.c_str());
            if (run.error_occurred || run.run_type != Run::RT_Iteration) continue;
            const std::string name =
                run.run_name.function_name + (run.run_name.args.empty() ? "" : '/' + run.run_name.args);
            const double seconds = run.real_accumulated_time / static_cast<double>(run.iterations);
            const auto [entry, first] = seconds_.emplace(name, seconds);
            if (!first) entry->second = std::min(entry->second, seconds);
            for (const auto& [counter, value] : run.counters) counters_[name + ' ' + counter] = value;
        }
    }

    double nanoseconds(const std::string& name) const { return found(seconds_, name) * 1e9; }
    double counter(const std::string& name) const { return found(counters_, name); }

private:
    static double found(const std::map<std::string, double>& in, const std::string& name) {
        const auto at = in.find(name);
        return at == in.end() ? 0.0 : at->second;
    }
    std::map<std::string, double> seconds_;
    std::map<std::string, double> counters_;
};

const char* verdict(bool reached) { return reached ? "" : "  MISSED"; }

void printValues(const Best& best) {
    std::puts("\nOne value, delegate call to callback          driver ns   text ns   ratio   (1.3)   "
              "further allocations (1)");
    for (const corvane::Model* model : corvane::models()) {
        const std::string name = "value/" + std::string(model->id);
        const double driver = best.nanoseconds(name + "/driver");
        const double text = best.nanoseconds(name + "/text");
        const double allocations = best.counter(name + "/driver allocations");
        if (driver == 0.0 || text == 0.0) continue;
        std::printf("%-45s %9.0f %9.0f %7.2f           %8.2f%s\n", std::string(model->id).c_str(), driver,
                    text, driver / text, allocations, verdict(driver <= 1.3 * text && allocations <= 1.0));
    }
}

void printTransfers(const Best& best) {
    std::puts("\nECG transfer                                  driver us   text us   ratio   (0.6)   "
              "driver ns a frame");
    for (const int frames : {750, 1500, 3000, 6000}) {
        const std::string size = '/' + std::to_string(frames);
        const double driver = best.nanoseconds("ecg/driver" + size);
        const double text = best.nanoseconds("ecg/text" + size);
        if (driver == 0.0 || text == 0.0) continue;
        std::printf("%5d frames                                  %9.1f %9.1f %7.2f           %8.1f%s\n",
                    frames, driver * 1e-3, text * 1e-3, driver / text, driver / frames,
                    verdict(driver <= 0.6 * text));
    }
}

void printDrivers(const Best& best) {
    std::puts("\nDrivers on one radio                   us a driver, a minute   us a driver, idle   "
              "bytes a driver, idle (4096)");
    for (const std::size_t rounds : {1, 10, 91}) {
        const std::size_t count = rounds * corvane::models().size();
        const std::string size = '/' + std::to_string(count);
        const double bytes = best.counter("drivers/idle" + size + " bytes");
        if (bytes == 0.0) continue;
        std::printf("%5zu                                  %20.1f %19.2f %22.0f%s\n", count,
                    best.nanoseconds("drivers/minute" + size) * 1e-3,
                    best.nanoseconds("drivers/idle" + size) * 1e-3, bytes, verdict(bytes <= 4096.0));
    }
}

}  // namespace

int main(int count, char** arguments) {
    // Memory that was used once stays mapped: what is measured is not the system's page faults.
    mallopt(M_MMAP_THRESHOLD, 1 << 30);
    mallopt(M_TRIM_THRESHOLD, 1 << 30);

    std::vector<char*> all(arguments, arguments + count);
    char repetitions[] = "--benchmark_repetitions=25";
    char interleaved[] = "--benchmark_enable_random_interleaving=true";
    all.insert(all.begin() + 1, {repetitions, interleaved});
    int allCount = static_cast<int>(all.size());
    benchmark::Initialize(&allCount, all.data());
    if (benchmark::ReportUnrecognizedArguments(allCount, all.data())) return 2;

    Best best;
    benchmark::RunSpecifiedBenchmarks(&best);
    printValues(best);
    printTransfers(best);
    printDrivers(best);
}
