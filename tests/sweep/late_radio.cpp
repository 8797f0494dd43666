#include "tests/sweep/late_radio.h"

#include <array>

#include "corvane/framework/central_link.h"

namespace corvane::sweep {

/// Stands between a central and the session of a driver.
class LateRadio::Echo final : public CBCentralManagerDelegate,
                              public CBPeripheralDelegate,
                              public std::enable_shared_from_this<Echo> {
public:
    /// The delegate is a driver's.
    explicit Echo(const std::shared_ptr<CBCentralManagerDelegate>& delegate)
        : session_(std::static_pointer_cast<CentralLink>(delegate)) {}

    void repeat() const {
        for (const auto& event : lastOfEachKind_) {
            if (event) event();
        }
    }

private:
    void hear(std::size_t kind, std::function<void()> event) {
        lastOfEachKind_[kind] = event;
        event();
    }
    CBCentralManagerDelegate& central() const { return *session_; }
    CBPeripheralDelegate& peripheral() const { return *session_; }

    void didUpdateState() override {
        hear(0, [this] { central().didUpdateState(); });
    }
    void didDiscover(const PeripheralRef& found) override {
        hear(1, [this, found] { central().didDiscover(found); });
        found->setDelegate(weak_from_this());
    }
    void didConnect(const PeripheralRef& to) override {
        hear(2, [this, to] { central().didConnect(to); });
    }
    void didDiscoverServices(const PeripheralRef& of, const CBError*) override {
        hear(3, [this, of] { peripheral().didDiscoverServices(of, nullptr); });
    }
    void didDiscoverCharacteristicsFor(const PeripheralRef& of, const ServiceRef& service,
                                       const CBError*) override {
        hear(4, [=, this] { peripheral().didDiscoverCharacteristicsFor(of, service, nullptr); });
    }
    void didUpdateValueFor(const PeripheralRef& from, const CharacteristicRef& of, std::optional<Bytes> value,
                           const CBError*) override {
        hear(5, [=, this, bytes = std::vector(value->begin(), value->end())] {
            const CBError error{"late"};
            peripheral().didUpdateValueFor(from, of, Bytes(bytes), &error);
        });
    }
    void didDisconnectPeripheral(const PeripheralRef& from, const CBError*) override {
        hear(6, [this, from] { central().didDisconnectPeripheral(from, nullptr); });
    }

    const std::shared_ptr<CentralLink> session_;
    std::array<std::function<void()>, 7> lastOfEachKind_;
};

std::shared_ptr<CBCentralManager>
LateRadio::makeCentralManager(std::weak_ptr<CBCentralManagerDelegate> delegate) {
    echoes_.push_back(std::make_shared<Echo>(delegate.lock()));
    return inner_.makeCentralManager(echoes_.back());
}

void LateRadio::repeatEverything() {
    for (const auto& echo : echoes_) echo->repeat();
}

}  // namespace corvane::sweep
