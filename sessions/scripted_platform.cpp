#include "sessions/scripted_platform.h"

#include <algorithm>

namespace corvane::sessions {

class ScriptedCentral final : public CBCentralManager {
public:
    ScriptedCentral(ScriptedPlatform& platform, std::weak_ptr<CBCentralManagerDelegate> delegate)
        : platform_(platform), delegate_(std::move(delegate)) {}

    std::shared_ptr<CBCentralManagerDelegate> delegate() const { return delegate_.lock(); }

private:
    static const std::string& labelOf(const PeripheralRef& peripheral) {
        return static_cast<const ScriptedPeripheral&>(*peripheral).label();
    }

    CBManagerState state() const override { return platform_.state_; }
    void scanForPeripherals() override { platform_.trace_.scan(); }
    void stopScan() override { platform_.trace_.stopScan(); }
    void connect(const PeripheralRef& peripheral) override { platform_.trace_.connect(labelOf(peripheral)); }
    void cancelPeripheralConnection(const PeripheralRef& peripheral) override {
        platform_.trace_.cancelConnection(labelOf(peripheral));
    }

    ScriptedPlatform& platform_;
    const std::weak_ptr<CBCentralManagerDelegate> delegate_;
};

class ScriptedTimer final : public Timer {
public:
    ScriptedTimer(ScriptedPlatform& platform, std::chrono::nanoseconds interval, std::function<void()> tick)
        : interval(interval), left(interval),
          tick(std::make_shared<const std::function<void()>>(std::move(tick))), platform_(platform) {
        platform_.timers_.push_back(this);
        platform_.trace_.startTimer(interval);
    }
    ~ScriptedTimer() override {
        std::erase(platform_.timers_, this);
        platform_.trace_.invalidateTimer();
    }

    const std::chrono::nanoseconds interval;
    std::chrono::nanoseconds left;  ///< Until the next tick. No sum of times is kept that could overflow.
    const std::shared_ptr<const std::function<void()>> tick;

private:
    ScriptedPlatform& platform_;
};

std::shared_ptr<CBCentralManager>
ScriptedPlatform::makeCentralManager(std::weak_ptr<CBCentralManagerDelegate> delegate) {
    trace_.createCentral();
    hadCentral_ = true;
    const auto central = std::make_shared<ScriptedCentral>(*this, std::move(delegate));
    central_ = central;
    return central;
}

std::shared_ptr<CBCentralManagerDelegate> ScriptedPlatform::centralDelegate() const {
    const auto central = central_.lock();
    return central ? central->delegate() : nullptr;
}

std::unique_ptr<Timer> ScriptedPlatform::scheduleTimer(std::chrono::nanoseconds interval,
                                                       std::function<void()> tick) {
    return std::make_unique<ScriptedTimer>(*this, interval, std::move(tick));
}

void ScriptedPlatform::preconditionFailed(std::string_view /*driver*/, std::string_view what) {
    trace_.fatal(what);
    if (stopsOnPrecondition) stop();
}

void ScriptedPlatform::stop() {
    stopped_ = true;
    trace_.mute();
}

void ScriptedPlatform::setState(CBManagerState state) {
    state_ = state;
    if (const auto delegate = centralDelegate()) delegate->didUpdateState();
}

void ScriptedPlatform::runOldestTask() {
    const std::function<void()> task = std::move(tasks_.front());
    tasks_.pop_front();
    task();
}

void ScriptedPlatform::runTasks(std::size_t count) {
    for (; count > 0 && !stopped_; --count) runOldestTask();
}

void ScriptedPlatform::runAllTasks() {
    while (!tasks_.empty() && !stopped_) runOldestTask();
}

ScriptedTimer* ScriptedPlatform::nextTimer() const {
    const auto sooner = [](const ScriptedTimer* a, const ScriptedTimer* b) { return a->left < b->left; };
    const auto next = std::min_element(timers_.begin(), timers_.end(), sooner);
    return next == timers_.end() ? nullptr : *next;
}

void ScriptedPlatform::pass(std::chrono::nanoseconds time) {
    for (ScriptedTimer* timer : timers_) timer->left -= time;
}

void ScriptedPlatform::advance(std::chrono::nanoseconds time) {
    runAllTasks();
    for (ScriptedTimer* timer = nextTimer(); timer && timer->left <= time && !stopped_; timer = nextTimer()) {
        time -= timer->left;
        pass(timer->left);
        timer->left = timer->interval;
        const auto tick = timer->tick;  // the tick may release its timer
        (*tick)();
        runAllTasks();
    }
    pass(time);
}

std::size_t ScriptedPeripheral::serviceCount() const { return services_ ? services_->size() : 0; }

std::size_t ScriptedPeripheral::characteristicCount(std::size_t service) const {
    const auto& list = (*services_)[service]->characteristics;
    return list ? list->size() : 0;
}

// Apart from the member that takes the list: seen together, GCC 14 holds that member to be uninitialised.
static std::vector<ServiceRef> indexed(const std::vector<CBUUID>& services) {
    std::vector<ServiceRef> list;
    for (const CBUUID& uuid : services) {
        auto service = std::make_shared<IndexedService>();
        service->uuid = uuid;
        service->index = list.size();
        list.push_back(std::move(service));
    }
    return list;
}

void ScriptedPeripheral::servicesDiscovered(const std::optional<std::vector<CBUUID>>& services,
                                            const CBError* error) {
    services_.reset();
    if (services) services_ = indexed(*services);
    if (const auto delegate = delegate_.lock()) delegate->didDiscoverServices(shared_from_this(), error);
}

void ScriptedPeripheral::characteristicsDiscovered(std::size_t index,
                                                   const std::optional<std::vector<CBUUID>>& characteristics,
                                                   const CBError* error) {
    auto service = std::make_shared<IndexedService>();
    service->uuid = (*services_)[index]->uuid;
    service->index = index;
    if (characteristics) service->characteristics.emplace();
    for (const CBUUID& uuid : characteristics.value_or(std::vector<CBUUID>{})) {
        auto characteristic = std::make_shared<IndexedCharacteristic>();
        characteristic->uuid = uuid;
        characteristic->service = index;
        characteristic->index = service->characteristics->size();
        service->characteristics->push_back(std::move(characteristic));
    }
    (*services_)[index] = service;
    if (const auto delegate = delegate_.lock())
        delegate->didDiscoverCharacteristicsFor(shared_from_this(), service, error);
}

void ScriptedPeripheral::valueUpdated(std::size_t service, std::size_t characteristic,
                                      std::optional<Bytes> value, const CBError* error) {
    const CharacteristicRef from = (*(*services_)[service]->characteristics)[characteristic];
    if (const auto delegate = delegate_.lock())
        delegate->didUpdateValueFor(shared_from_this(), from, value, error);
}

void ScriptedPeripheral::discoverServices(std::span<const CBUUID> wanted) {
    trace_.discoverServices(label_, wanted);
}

void ScriptedPeripheral::discoverCharacteristics(std::span<const CBUUID> wanted, const CBService& service) {
    trace_.discoverCharacteristics(label_, service, wanted);
}

void ScriptedPeripheral::setNotifyValue(bool enabled, const CBCharacteristic& characteristic) {
    trace_.setNotify(label_, characteristic, enabled);
}

void ScriptedPeripheral::writeValue(Bytes value, const CBCharacteristic& characteristic,
                                    CBCharacteristicWriteType type) {
    trace_.write(label_, characteristic, value, type);
}

}  // namespace corvane::sessions
