#include "tests/conformance/wrong_back_end.h"

#include <algorithm>
#include <cctype>
#include <set>

#include "tests/conformance/scene.h"

namespace corvane::conformance {
namespace {

using namespace std::chrono_literals;

/// What all objects of one back end share.
struct Spoiler {
    std::string_view wrong;
    SimulatedRadio& radio;
    std::map<std::string, PeripheralRef> shared{};
    std::vector<std::shared_ptr<void>> kept{};
    bool inTask = false;

    bool is(std::string_view what) const { return wrong == what; }
};

// The queue.

class SpoiledQueue final : public MainQueue {
public:
    explicit SpoiledQueue(Spoiler& spoiler) : spoiler_(spoiler) {}

    void post(std::function<void()> task) override {
        if (spoiler_.is("tasksRunAtOnce")) return task();
        if (spoiler_.is("tasksOfTasksRunAtOnce") && spoiler_.inTask) return task();
        const bool front = spoiler_.is("tasksRunLastFirst");
        tasks_.insert(front ? tasks_.begin() : tasks_.end(), std::move(task));
        spoiler_.radio.mainQueue().post([this] {
            const auto next = std::move(tasks_.front());
            tasks_.erase(tasks_.begin());
            spoiler_.inTask = true;
            next();
            spoiler_.inTask = false;
        });
    }

    std::unique_ptr<Timer> scheduleTimer(std::chrono::nanoseconds interval,
                                         std::function<void()> tick) override {
        if (spoiler_.is("timersAreFast")) interval /= 2;
        auto timer = spoiler_.radio.mainQueue().scheduleTimer(interval, std::move(tick));
        if (!spoiler_.is("timersOutliveTheirRelease")) return timer;
        spoiler_.kept.push_back(std::shared_ptr<Timer>(std::move(timer)));
        return std::make_unique<Timer>();
    }

private:
    Spoiler& spoiler_;
    std::vector<std::function<void()>> tasks_;
};

// The central and its peripherals. Each is the delegate of what it wraps.

class SpoiledCentral;

class SpoiledPeripheral final : public CBPeripheral,
                                public CBPeripheralDelegate,
                                public std::enable_shared_from_this<SpoiledPeripheral> {
public:
    SpoiledPeripheral(Spoiler& spoiler, PeripheralRef inner, std::weak_ptr<SpoiledCentral> central)
        : inner(std::move(inner)), spoiler_(spoiler), central_(std::move(central)),
          identifier_(this->inner->identifier()) {
        if (spoiler_.is("identifiersAreLowerCase")) {
            for (char& c : identifier_) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        }
    }

    std::optional<std::string> name() const override {
        auto name = inner->name();
        if (name && spoiler_.is("namesAreNotChecked")) {
            const std::size_t replaced = name->find("\xEF\xBF\xBD");
            if (replaced != name->npos) name->replace(replaced, 3, "\xFF");
        }
        return name;
    }
    const std::string& identifier() const override { return identifier_; }
    void setDelegate(std::weak_ptr<CBPeripheralDelegate> delegate) override {
        inner->setDelegate(weak_from_this());
        if (spoiler_.is("peripheralDelegatesCannotBeDetached") && delegate.expired()) return;
        delegate_ = delegate;
        if (spoiler_.is("peripheralDelegatesAreHeldStrongly")) strong_ = delegate.lock();
    }
    std::optional<std::vector<ServiceRef>> services() const override {
        auto services = inner->services();
        if (spoiler_.is("servicesAreRememberedFromTheLastLink") && !services) return remembered_;
        return services;
    }
    void discoverServices(std::span<const CBUUID> wanted) override {
        if (spoiler_.is("eventsComeInsideTheCall")) didDiscoverServices(nullptr, nullptr);
        inner->discoverServices(filter(wanted));
        if (spoiler_.is("discoveryIsAnsweredWithoutALink")) {
            spoiler_.radio.mainQueue().post(
                [self = shared_from_this()] { self->didDiscoverServices(nullptr, nullptr); });
        }
    }
    void discoverCharacteristics(std::span<const CBUUID> wanted, const CBService& service) override {
        inner->discoverCharacteristics(filter(wanted), service);
    }
    void setNotifyValue(bool enabled, const CBCharacteristic& characteristic) override {
        if (spoiler_.is("subscriptionsCannotBeEnded") && !enabled) return;
        if (spoiler_.is("indicationsAreUnknown") && characteristic.uuid == Sample::indicated) return;
        if (spoiler_.is("oldHandlesAreForgotten") && !isCurrent(characteristic)) return;
        loseNext_ = spoiler_.is("theFirstValueIsLost");
        inner->setNotifyValue(enabled, characteristic);
    }
    void writeValue(Bytes value, const CBCharacteristic& characteristic,
                    CBCharacteristicWriteType type) override {
        if (spoiler_.is("writesOvertake") && type == CBCharacteristicWriteType::withResponse) {
            later([this, copy = Value(value.begin(), value.end()), uuid = characteristic.uuid, type] {
                inner->writeValue(copy, CBCharacteristic{uuid}, type);
            });
        } else if (spoiler_.is("writesAreNotCopied")) {
            later([this, value, uuid = characteristic.uuid, type] {
                inner->writeValue(value, CBCharacteristic{uuid}, type);
            });
        } else {
            inner->writeValue(value, characteristic, type);
        }
    }

    void linkEnds() {
        linked = false;
        if (inner->services()) remembered_ = inner->services();
    }

    const PeripheralRef inner;
    bool linked = false;

private:
    void didDiscoverServices(const PeripheralRef&, const CBError* error) override {
        listed_ = inner->services();
        for (const ServiceRef& service : listed_.value_or(std::vector<ServiceRef>{})) {
            auto& list = const_cast<CBService&>(*service).characteristics;
            if (spoiler_.is("undiscoveredListsAreEmpty") && !list) list.emplace();
        }
        tell([&](auto& delegate, const PeripheralRef& self) { delegate.didDiscoverServices(self, error); });
    }
    void didDiscoverCharacteristicsFor(const PeripheralRef&, const ServiceRef& service,
                                       const CBError* error) override {
        for (const ServiceRef& old : listed_.value_or(std::vector<ServiceRef>{})) {
            if (spoiler_.is("listsAreChangedInPlace") && old->uuid == service->uuid) {
                const_cast<CBService&>(*old).characteristics = service->characteristics;
            }
        }
        tell([&](auto& delegate, const PeripheralRef& self) {
            delegate.didDiscoverCharacteristicsFor(self, service, error);
        });
    }
    void didUpdateValueFor(const PeripheralRef&, const CharacteristicRef& characteristic,
                           std::optional<Bytes> value, const CBError* error) override {
        if (std::exchange(loseNext_, false)) return;
        if (spoiler_.is("valuesAreLostAtTheEnd")) {
            return later([this, characteristic, copy = Value(value->begin(), value->end())] {
                if (linked) tellValue(characteristic, Bytes(copy), nullptr);
            });
        }
        if (spoiler_.is("emptyValuesAreAbsent") && value->empty()) value.reset();
        const bool copies = spoiler_.is("eventsCarryCopies");
        tellValue(copies ? std::make_shared<CBCharacteristic>(*characteristic) : characteristic, value,
                  error);
    }
    void tellValue(const CharacteristicRef& characteristic, std::optional<Bytes> value,
                   const CBError* error) {
        tell([&](auto& delegate, const PeripheralRef& self) {
            delegate.didUpdateValueFor(self, characteristic, value, error);
        });
    }

    template <class Call>
    void tell(Call call) {
        if (spoiler_.is("nothingIsKeptDuringDelivery")) {
            CBPeripheralDelegate* delegate = delegate_.lock().get();
            if (delegate) call(*delegate, PeripheralRef(PeripheralRef(), this));
            return;
        }
        const auto central = central_.lock();
        const auto delegate = delegate_.lock();
        const bool outlived = spoiler_.is("eventsOutliveTheirCentral");
        if (delegate && (central || outlived)) call(*delegate, shared_from_this());
    }
    template <class Task>
    void later(Task task) {
        spoiler_.radio.mainQueue().at(spoiler_.radio.now() + 50ms,
                                      [self = shared_from_this(), task = std::move(task)] { task(); });
    }
    std::span<const CBUUID> filter(std::span<const CBUUID> wanted) const {
        static constexpr CBUUID none[] = {CBUUID()};
        if (spoiler_.is("nothingWantedMeansNothing") && wanted.empty()) return none;
        return spoiler_.is("filtersAreIgnored") ? std::span<const CBUUID>() : wanted;
    }
    bool isCurrent(const CBCharacteristic& characteristic) const {
        for (const ServiceRef& service : inner->services().value_or(std::vector<ServiceRef>{})) {
            for (const auto& known : service->characteristics.value_or(std::vector<CharacteristicRef>{})) {
                if (known.get() == &characteristic) return true;
            }
        }
        return false;
    }

    Spoiler& spoiler_;
    const std::weak_ptr<SpoiledCentral> central_;
    std::string identifier_;
    std::weak_ptr<CBPeripheralDelegate> delegate_;
    std::shared_ptr<CBPeripheralDelegate> strong_;
    std::optional<std::vector<ServiceRef>> remembered_;
    std::optional<std::vector<ServiceRef>> listed_;
    bool loseNext_ = false;
};

class SpoiledCentral final : public CBCentralManager,
                             public CBCentralManagerDelegate,
                             public std::enable_shared_from_this<SpoiledCentral> {
public:
    SpoiledCentral(Spoiler& spoiler, std::weak_ptr<CBCentralManagerDelegate> delegate)
        : spoiler_(spoiler), delegate_(std::move(delegate)) {
        if (spoiler_.is("centralDelegatesAreHeldStrongly")) strong_ = delegate_.lock();
    }

    CBManagerState state() const override {
        if (spoiler_.is("theStateRunsAheadOfItsEvent")) return spoiler_.radio.state();
        if (spoiler_.is("theStateIsKnownAtOnce") && !heardState_) return spoiler_.radio.state();
        return inner->state();
    }
    void scanForPeripherals() override {
        if (spoiler_.is("aSecondScanIsIgnored") && scanning_) return;
        scanning_ = true;
        reported_.clear();
        inner->scanForPeripherals();
        if (!spoiler_.is("linkedDevicesAreReported")) return;
        for (const auto& [known, peripheral] : peripherals_) {
            if (peripheral->linked) {
                spoiler_.radio.mainQueue().post(
                    [self = shared_from_this(), inner = known] { self->didDiscover(inner); });
            }
        }
    }
    void stopScan() override {
        if (spoiler_.is("stopScanIsIgnored")) return;
        scanning_ = false;
        inner->stopScan();
    }
    void connect(const PeripheralRef& peripheral) override {
        const auto& known = static_cast<SpoiledPeripheral&>(*peripheral).inner;
        inner->connect(known);
        if (spoiler_.is("attemptsTimeOut")) {
            spoiler_.radio.mainQueue().at(spoiler_.radio.now() + 15s, [weak = std::weak_ptr(inner), known] {
                if (auto it = weak.lock()) it->cancelPeripheralConnection(known);
            });
        }
    }
    void cancelPeripheralConnection(const PeripheralRef& peripheral) override {
        const auto& known = static_cast<SpoiledPeripheral&>(*peripheral);
        if (spoiler_.is("attemptsCannotBeCancelled") && !known.linked) return;
        inner->cancelPeripheralConnection(known.inner);
    }

    std::shared_ptr<CBCentralManager> inner;

private:
    void didUpdateState() override {
        const bool first = !std::exchange(heardState_, true);
        if (first && spoiler_.is("theFirstStateEventIsSwallowed")) return;
        if (spoiler_.is("scansGoOnAfterTheAdapterWasOff") && scanning_) inner->scanForPeripherals();
        for (const auto& [known, peripheral] : peripherals_) {
            if (spoiler_.is("linksEndBeforeTheAdapter") && peripheral->linked &&
                state() != CBManagerState::poweredOn)
                didDisconnectPeripheral(known, nullptr);
        }
        tell([](auto& delegate) { delegate.didUpdateState(); });
    }
    void didDiscover(const PeripheralRef& found) override {
        if (spoiler_.is("namelessDevicesAreDropped") && !found->name()) return;
        if (!reported_.insert(found->identifier()).second && spoiler_.is("newNamesAreNotReported")) return;
        const auto peripheral = wrapper(found);
        const auto report = [&](auto& delegate) { delegate.didDiscover(peripheral); };
        if (spoiler_.is("nothingIsKeptDuringDelivery")) {
            return tell([&](auto& delegate) {
                delegate.didDiscover(PeripheralRef(PeripheralRef(), peripheral.get()));
            });
        }
        tell(report);
        if (spoiler_.is("devicesAreReportedTwice")) tell(report);
    }
    void didConnect(const PeripheralRef& to) override {
        const auto peripheral = wrapper(to);
        peripheral->linked = true;
        tell([&](auto& delegate) { delegate.didConnect(peripheral); });
    }
    void didDisconnectPeripheral(const PeripheralRef& from, const CBError* error) override {
        const auto peripheral = wrapper(from);
        if (spoiler_.is("linksEndBeforeTheAdapter") && !peripheral->linked) return;
        peripheral->linkEnds();
        if (spoiler_.is("lossesAreNotReported") && error) return;
        if (spoiler_.is("anAdapterThatGoesOffEndsLinksInSilence") &&
            spoiler_.radio.state() != CBManagerState::poweredOn)
            return;
        const CBError made{"made up"};
        if (spoiler_.is("ownEndsAreErrors") && !error) error = &made;
        tell([&](auto& delegate) { delegate.didDisconnectPeripheral(peripheral, error); });
    }

    template <class Call>
    void tell(Call call) {
        if (spoiler_.is("nothingIsKeptDuringDelivery")) {
            CBCentralManagerDelegate* delegate = delegate_.lock().get();
            if (delegate) call(*delegate);
            return;
        }
        const auto self = shared_from_this();
        if (const auto delegate = delegate_.lock()) call(*delegate);
    }
    std::shared_ptr<SpoiledPeripheral> wrapper(const PeripheralRef& inner) {
        if (spoiler_.is("centralsSharePeripherals")) {
            auto& shared = spoiler_.shared[inner->identifier()];
            if (!shared) shared = std::make_shared<SpoiledPeripheral>(spoiler_, inner, weak_from_this());
            return std::static_pointer_cast<SpoiledPeripheral>(shared);
        }
        auto& known = peripherals_[inner];
        if (!known || spoiler_.is("everyAdvertIsANewPeripheral")) {
            known = std::make_shared<SpoiledPeripheral>(spoiler_, inner, weak_from_this());
        }
        return known;
    }

    Spoiler& spoiler_;
    const std::weak_ptr<CBCentralManagerDelegate> delegate_;
    std::shared_ptr<CBCentralManagerDelegate> strong_;
    bool heardState_ = false;
    bool scanning_ = false;
    std::set<std::string> reported_;
    std::map<PeripheralRef, std::shared_ptr<SpoiledPeripheral>> peripherals_;
};

// The device side.

class SpoiledDevice final : public PeripheralDevice, public PeripheralHost {
public:
    SpoiledDevice(Spoiler& spoiler, const std::shared_ptr<PeripheralDevice>& device)
        : spoiler_(spoiler), device_(device) {
        if (!spoiler.is("devicesAreNotKept")) kept_ = device;
    }

    std::string name() const override { return device_.expired() ? "" : device_.lock()->name(); }
    std::vector<GattService> services() const override { return device_.lock()->services(); }
    void connected(PeripheralHost& host) override {
        host_ = &host;
        subscribed_ = false;
        call([this](auto& device) { device.connected(*this); });
    }
    void disconnected() override {
        if (!host_) return;
        host_ = nullptr;
        if (spoiler_.is("devicesAreNotToldOfALoss")) return;
        call([](auto& device) { device.disconnected(); });
    }
    void subscribed(const CBUUID& characteristic, bool enabled) override {
        const bool again = std::exchange(subscribed_, enabled) && enabled;
        if (again && spoiler_.is("devicesAreToldOfTheFirstSubscriptionOnly")) return;
        for (const Value& value : std::exchange(unheard_, {})) host_->notify(characteristic, value);
        call([&](auto& device) { device.subscribed(characteristic, enabled); });
    }
    void written(const CBUUID& characteristic, Bytes value, CBCharacteristicWriteType type) override {
        call([&](auto& device) { device.written(characteristic, value, type); });
    }

private:
    void notify(const CBUUID& characteristic, Bytes value) override {
        if (spoiler_.is("unsubscribedValuesAreKept") && !subscribed_) {
            unheard_.emplace_back(value.begin(), value.end());
        }
        host_->notify(characteristic, value);
    }
    void after(std::chrono::nanoseconds delay, std::function<void()> task) override {
        if (spoiler_.is("deviceTasksRunAtOnce")) return task();
        if (!spoiler_.is("deviceTasksOutliveTheLink")) return host_->after(delay, std::move(task));
        spoiler_.radio.mainQueue().at(spoiler_.radio.now() + delay, std::move(task));
    }
    void disconnect() override {
        host_->disconnect();
        if (spoiler_.is("devicesAreToldOfTheEndInsideTheirCall")) disconnected();
    }

    /// Keeps the device by `kept_`, or not at all.
    template <class Call>
    void call(Call call) {
        if (PeripheralDevice* device = device_.lock().get()) call(*device);
    }

    Spoiler& spoiler_;
    const std::weak_ptr<PeripheralDevice> device_;
    std::shared_ptr<PeripheralDevice> kept_;
    PeripheralHost* host_ = nullptr;
    bool subscribed_ = false;
    std::vector<Value> unheard_;
};

}  // namespace

class WrongBackEnd::Spoiled final : public Platform {
public:
    Spoiled(std::string_view wrong, SimulatedRadio& radio) : spoiler{wrong, radio}, queue_(spoiler) {}

    std::shared_ptr<CBCentralManager>
    makeCentralManager(std::weak_ptr<CBCentralManagerDelegate> delegate) override {
        const auto central = std::make_shared<SpoiledCentral>(spoiler, std::move(delegate));
        central->inner = spoiler.radio.makeCentralManager(central);
        if (spoiler.is("linksOutliveTheirCentral")) spoiler.kept.push_back(central->inner);
        if (spoiler.is("eventsOutliveTheirCentral")) spoiler.kept.push_back(central);
        return central;
    }
    MainQueue& mainQueue() override { return queue_; }
    void log(std::string_view line) override {
        if (spoiler.is("linesAreEscapedForTheSink")) return Platform::log(printable(line));
        Platform::log(line);
    }
    void preconditionFailed(std::string_view driver, std::string_view what) override {
        if (!spoiler.is("violationsAreSwallowed")) Platform::preconditionFailed(driver, what);
    }

    Spoiler spoiler;

private:
    SpoiledQueue queue_;
};

WrongBackEnd::WrongBackEnd(std::string_view wrong) : platform_(std::make_unique<Spoiled>(wrong, radio)) {}
WrongBackEnd::~WrongBackEnd() = default;

Platform& WrongBackEnd::platform() { return *platform_; }

void WrongBackEnd::add(std::shared_ptr<PeripheralDevice> device) {
    auto& wrapper = devices_[device.get()];
    if (!wrapper) wrapper = std::make_shared<SpoiledDevice>(platform_->spoiler, device);
    radio.add(wrapper);
}

void WrongBackEnd::remove(const PeripheralDevice& device) { radio.remove(wrapped(device)); }

void WrongBackEnd::nameChanged(const PeripheralDevice& device) { radio.nameChanged(wrapped(device)); }

const PeripheralDevice& WrongBackEnd::wrapped(const PeripheralDevice& device) const {
    const auto found = devices_.find(&device);
    return found == devices_.end() ? device : *found->second;
}

}  // namespace corvane::conformance
