// A driver that reports wherever the framework lets it: twice in a row, from a task that a task has posted,
// from its timer's tick, from inside an operation; and that goes on working after each report.
#include "corvane/framework/central_link.h"
#include "tests/sweep/subject.h"

namespace corvane::sweep {
namespace {

using namespace std::chrono_literals;

struct AwkwardInfo {
    int number = 0;
    std::string uuid;

    [[maybe_unused]] friend bool operator==(const AwkwardInfo&, const AwkwardInfo&) = default;
};

constexpr CBUUID notified{"0000fe01-0000-1000-8000-00805f9b34fb"};
constexpr CBUUID commanded{"0000fe02-0000-1000-8000-00805f9b34fb"};
constexpr Model model{
    .id = "awkward",
    .driver = "AwkwardDevice",
    .kind = "test",
    .name = "Awkward",
    .service = CBUUID("0000fe00-0000-1000-8000-00805f9b34fb"),
};
constexpr LinkProfile profile{
    .model = model, .characteristic = notified, .notFound = "awkwardInfo not found", .everyService = true};

class AwkwardSession final : public Session<AwkwardInfo> {
public:
    explicit AwkwardSession(Platform& platform) : Session(profile, true, platform) {}

private:
    void scanBegins() override {
        log("scan begins");
        reportError("scan begins");
        log("scan began");
    }
    void disconnectRequested() override {
        reportError("disconnect requested");
        reportError("disconnect requested again");
        stopTimer();
    }
    void characteristicFound(const PeripheralRef& from, const CharacteristicRef& found) override {
        reportLoading();
        if (found->uuid == commanded) sendTo = found;
        Session::characteristicFound(from, found);
        reportLoading();
    }
    void linkReady(const CharacteristicRef& found) override {
        Session::linkReady(found);
        reportLoading();
        subscribe(peripheral, found);
        every(200ms, [this] { tick(); });
        post([this] {
            reportError("from a task");
            post([this] {
                deliver({2, peripheral->identifier()});
                deliver({3, peripheral->identifier()});
                ask();
            });
            ask();
        });
    }
    After valueArrived(const ValueUpdate& update) override {
        log("value");
        if (!require(!update.bytes().empty(), "an empty value")) return After::reportError;
        deliver({4, update.uuid()});
        deliver({5, update.uuid()});
        ask();
        post([this, uuid = update.uuid()] { deliver({6, uuid}); });
        return After::reportError;
    }
    void tick() {
        reportError("tick");
        ask();
        if (++ticks % 3 == 0) every(150ms, [this] { tick(); });
        reportError("ticked");
    }
    void linkEnded() override {
        reportError("link ended");
        stopTimer();
        reportError("timer stopped");
    }
    void ask() {
        const std::uint8_t command[] = {1};
        if (sendTo) write(peripheral, sendTo, command);
    }

    CharacteristicRef sendTo;
    int ticks = 0;
};

class AwkwardDevice final : public Device<AwkwardInfo> {
public:
    explicit AwkwardDevice(Platform& platform) : Device(std::make_shared<AwkwardSession>(platform)) {}
};

/// Answers what it is asked, every third time with an empty value.
class AwkwardPeripheral final : public PeripheralDevice {
public:
    std::string name() const override { return std::string(model.name); }
    std::vector<GattService> services() const override {
        return {{model.service, {{commanded, gatt::write}, {notified, gatt::notify}}}};
    }
    void connected(PeripheralHost& host) override { host_ = &host; }
    void disconnected() override { host_ = nullptr; }
    void subscribed(const CBUUID&, bool enabled) override {
        if (enabled) answer();
    }
    void written(const CBUUID&, Bytes, CBCharacteristicWriteType) override { answer(); }

private:
    void answer() {
        host_->after(30ms, [this, length = ++answers_ % 3 == 0 ? 0u : 1u] {
            host_->notify(notified, std::vector<std::uint8_t>(length, 1));
        });
    }

    PeripheralHost* host_ = nullptr;
    int answers_ = 0;
};

}  // namespace

Subject awkwardSubject() {
    return {
        std::string(model.driver),
        [](Platform& platform) -> std::unique_ptr<AnyDriver> {
            return std::make_unique<AnyDriverOf<AwkwardDevice>>(std::make_unique<AwkwardDevice>(platform));
        },
        [] { return std::make_shared<AwkwardPeripheral>(); },
    };
}

}  // namespace corvane::sweep
