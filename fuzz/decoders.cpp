// Every driver against arbitrary values, in one of two ways. Either everything is allowed: any
// characteristic, absent values, errors, operations at any time; nothing may crash. Or the values come as on
// a good link, and each record must be the one that a plain second reading of the same bytes gives.
//
// In both ways each value has a budget: of memory to take and to keep, and of text for the console.
#include <malloc.h>

#include <new>
#include <vector>

#include "emulators/emulator.h"
#include "fuzz/input.h"
#include "tests/support/direct_platform.h"
#include "tests/support/text_readers.h"

namespace {

/// Bytes that the program has taken from the heap so far, and those of them that it holds.
struct Heap {
    std::size_t taken = 0;
    std::size_t held = 0;
} heap;

}  // namespace

void* operator new(std::size_t size) {
    void* block = std::malloc(size);
    if (!block) std::abort();
    heap.taken += malloc_usable_size(block);
    heap.held += malloc_usable_size(block);
    return block;
}
void operator delete(void* block) noexcept {
    heap.held -= malloc_usable_size(block);
    std::free(block);
}
void operator delete(void* block, std::size_t) noexcept { operator delete(block); }

namespace corvane {
namespace {

/// How much a driver may keep of the values that came. Most drivers keep none.
template <class Driver>
constexpr std::size_t mostKept = 0;
template <>
constexpr std::size_t mostKept<BodyCompositionADFB885TDevice> = std::size_t{64} << 10;
template <>
constexpr std::size_t mostKept<ECGTD4257Device> = std::size_t{32} << 20;

template <class Driver>
class Session {
    using Info = typename Driver::InfoType;

public:
    explicit Session(const DriverArguments& arguments)
        : platform_(device()), driver_(makeDriver<Driver>(arguments, platform_)) {
        platform_.onPreconditionFailed = [](std::string_view, std::string_view) {};
        platform_.logSink = [this](std::string_view line) { logged_ += line.size(); };
        driver_->stateLoading = [this](const StateDeviceLoading<Info>& state) {
            if (!state.success()) return;
            hasReported_ = true;
            reported_.push_back(*state.success());
            must(state.success()->uuid == platform_.peripheral->identifier());
        };
        driver_->startScan();
    }

    /// `repeats` is how many of the values may come again, each up to a hundred times.
    void tryAnything(Input& input, int repeats) {
        while (!input.empty()) {
            switch (const std::uint8_t what = input.byte(); what % 16) {
            case 0:
                driver_->startScan();
                break;
            case 1:
                driver_->disconnect();
                break;
            case 2:
                platform_.unlink();
                break;
            case 3:
                must(!hasReported_ || driver_->getResult());
                break;
            case 4:
                platform_.tick();
                break;
            case 5:
                ownOperations();
                break;
            case 6:
            case 7:
                platform_.link();
                break;
            default:
                const Bytes value = input.take(input.byte());
                notify(what, value);
                for (int i = 0; i < 100 && repeats > 0; ++i, --repeats) notify(what, value);
            }
        }
    }

    void compare(Input& input) {
        platform_.link();
        text::Reader<Driver> reader;
        while (!input.empty()) {
            const Bytes value = input.take(input.byte());
            if (value.size() < reader.shortest) continue;
            notify(0, value);
            const std::optional<Info> expected = reader.read(value, platform_.peripheral->identifier());
            must(reported_.size() == (expected ? 1 : 0));
            must(!expected || reported_[0] == *expected);
        }
    }

private:
    static const PeripheralDevice& device() {
        static const std::unique_ptr<PeripheralDevice> emulator = makeEmulatorOf<Driver>({});
        return *emulator;
    }

    // The value is a block of its own, so that a read beyond its end is seen.
    void notify(std::uint8_t how, Bytes input) {
        const std::vector<std::uint8_t> value(input.begin(), input.end());
        const CBError error{"a platform error"};
        const auto& all = platform_.peripheral->characteristics;
        const bool absent = (how & 0x70) == 0x70;
        reported_.clear();
        logged_ = 0;
        received_ += value.size();
        const std::size_t takenBefore = heap.taken;
        if (const auto link = platform_.peripheral->delegate.lock()) {
            link->didUpdateValueFor(platform_.peripheral, all[how / 16 % all.size()],
                                    absent ? std::nullopt : std::optional<Bytes>(value),
                                    how & 0x80 ? &error : nullptr);
        }
        const std::size_t kept = std::min(mostKept<Driver>, 4 * received_);
        must(logged_ <= 64 + 2 * value.size() + kept);
        must(heap.taken <= takenBefore + 4096 + 16 * value.size() + 6 * kept);
        must(heap.held <= heldAtFirst_ + 4096 + 6 * kept);
    }

    void ownOperations() {
        if constexpr (requires { driver_->start(); }) driver_->start();
        if constexpr (requires { driver_->startResult(); }) driver_->startResult();
        if constexpr (requires { driver_->requestPayload(); }) driver_->requestPayload();
    }

    DirectPlatform platform_;
    std::vector<Info> reported_;  ///< Since the last value came.
    bool hasReported_ = false;
    std::size_t logged_ = 0;  ///< Since the last value came.
    std::size_t received_ = 0;
    const std::size_t heldAtFirst_ = heap.held;
    std::unique_ptr<Driver> driver_;
};

void drive(Input input) {
    const std::uint8_t which = input.byte();
    const std::uint8_t flags = input.byte();
    std::size_t index = 0;
    forEachDriver([&]<class Driver>() {
        if (index++ != which % models().size()) return;
        if (flags & 1) {
            const double height = flags & 8 ? -1.0 : 170.0;
            Session<Driver>(
                {.autoResult = (flags & 2) == 0, .repeatResult = (flags & 4) == 0, .height = height})
                .tryAnything(input, flags & 16 ? 1000 : 0);
        } else {
            Session<Driver>({}).compare(input);
        }
    });
}

}  // namespace
}  // namespace corvane

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    corvane::drive({{data, size}});
    return 0;
}
