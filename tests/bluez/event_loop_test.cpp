// The loop by itself, and the ways of ending it from elsewhere.
#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <sys/resource.h>

#include <csignal>
#include <thread>

#include "tests/bluez/ward.h"

namespace corvane::bluez {
namespace {

using namespace std::chrono_literals;

/// While one exists, this process gets no new descriptor.
class NoDescriptors {
public:
    NoDescriptors() {
        getrlimit(RLIMIT_NOFILE, &usual_);
        const rlimit none{0, usual_.rlim_max};
        setrlimit(RLIMIT_NOFILE, &none);
    }
    ~NoDescriptors() { setrlimit(RLIMIT_NOFILE, &usual_); }
    NoDescriptors(const NoDescriptors&) = delete;
    NoDescriptors& operator=(const NoDescriptors&) = delete;

private:
    rlimit usual_{};
};

/// Counts how often it was dispatched; always ready.
class Ready final : public EventSource {
public:
    int descriptor() const override { return descriptor_.get(); }
    std::uint32_t events() const override { return 1; }
    bool dispatch() noexcept override { return ++dispatched, false; }

    int dispatched = 0;

private:
    Descriptor descriptor_{::eventfd(1, 0)};
};

// UBSan opens a pipe to look at an object of a type that is new to it. So whatever happens without
// descriptors has happened once with them before.
constexpr bool shortages[] = {false, true};

TEST(EventLoop, GoesOnWithoutADescriptorUntilThereIsOne) {
    for (const bool isShort : shortages) {
        const auto source = std::make_shared<Ready>();
        std::vector<std::string> lines;
        std::optional<NoDescriptors> shortage;
        if (isShort) shortage.emplace();
        EventLoop loop;
        loop.diagnostics = [&](std::string_view line) { lines.emplace_back(line); };
        loop.attach(source);
        int ticks = 0;
        const auto timer = loop.scheduleTimer(1h, [&] { ++ticks; });
        std::vector<std::chrono::nanoseconds> waits;
        for (int i = 0; i < 3; ++i) {
            waits.push_back(loop.timeout().value_or(2h));
            loop.skip(1h);
            loop.step(0ns);
        }
        const bool hasDescriptor = loop.descriptor() >= 0;
        const bool hasDispatched = source->dispatched > 0;
        shortage.reset();  // A failure's text needs descriptors too.
        EXPECT_NE(hasDescriptor, isShort);
        EXPECT_NE(hasDispatched, isShort);
        EXPECT_EQ(ticks, 3);
        EXPECT_EQ(lines.size(), isShort ? 1u : 0u) << "said once";
        for (const auto wait : waits) {
            EXPECT_GT(wait, 500ms) << "it does not spin";
            EXPECT_LE(wait, isShort ? 1s : 1h);
        }
        loop.step(0ns);
        EXPECT_GE(loop.descriptor(), 0);
        EXPECT_GT(source->dispatched, 0);
    }
}

TEST(EventLoop, ReadsADeviceThatWasWantedWhileNoDescriptorWasLeft) {
    for (const bool isShort : shortages) {
        const std::string address = isShort ? privateBus().address() : "unix:path=/nonexistent";
        std::optional<NoDescriptors> shortage;
        if (isShort) shortage.emplace();
        EventLoop loop;
        LoopPlatform platform({.busAddress = address}, loop);
        platform.logSink = [](std::string_view) {};
        Reader reader(platform);
        reader.driver->startScan();
        for (int i = 0; i < 10; ++i) loop.step(0ns);
        EXPECT_EQ(reader.news(), "unknown unsupported");
        shortage.reset();
        if (!isShort) continue;
        StandIn service(address, loop);
        service.add(std::make_shared<Thermometer>());
        for (int i = 0; i < 10'000 && !reader.hasHeard("36.6"); ++i) {
            if (i % 100 == 0) loop.skip(1min);
            loop.step(1ms);
        }
        EXPECT_EQ(reader.news(), "poweredOn connect loading 36.6");
        reader.driver.reset();
        loop.discardTasks();
    }
}

// Each round ends a wait that nothing else would end, unless it comes before the wait, which is as good.
constexpr int rounds = 200;

void eachRound(BlueZPlatform& platform, const std::function<void()>& end, const std::function<void()>& run) {
    for (int round = 0; round < rounds; ++round) {
        std::atomic<bool> running = false;
        platform.mainQueue().post([&] {
            running = true;
            running.notify_one();
        });
        std::thread other([&] {
            running.wait(false);
            end();
        });
        run();
        other.join();
    }
}

BlueZPlatform* toStop = nullptr;

TEST(BlueZPlatform, StopsWhenItIsToldToFromAnotherThreadOrASignalHandlerOrBeforeItRuns) {
    BlueZPlatform platform({.busAddress = privateBus().address()});
    const auto central = platform.makeCentralManager({});
    platform.stop();
    platform.run();
    eachRound(
        platform, [&] { platform.stop(); }, [&] { platform.run(); });
    toStop = &platform;
    const auto former = std::signal(SIGUSR1, [](int) { toStop->stop(); });
    // In the other thread, so that the signal itself ends no wait of this one.
    eachRound(
        platform, [] { std::raise(SIGUSR1); }, [&] { platform.run(); });
    std::signal(SIGUSR1, former);
}

TEST(BlueZPlatform, AsksAgainWhenItIsWoken) {
    BlueZPlatform platform({.busAddress = privateBus().address()});
    std::atomic<bool> done = false;
    eachRound(
        platform, [&] { done = true, platform.wake(); },
        [&] {
            platform.runUntil([&] { return done.load(); }, std::chrono::nanoseconds::max());
            done = false;
        });
}

}  // namespace
}  // namespace corvane::bluez
