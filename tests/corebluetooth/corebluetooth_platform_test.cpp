// What is special about this back end, beside the rules that every back end keeps.
#include "corvane/platform/corebluetooth/corebluetooth_platform.h"

#include <stdexcept>

#include "corvane/framework/hexadecimal_text.h"
#include "standin_test.h"

using namespace corvane;
using namespace standin;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using Lines = std::vector<std::string>;

namespace {

constexpr CBUUID shortService{"180D"};
constexpr CBUUID longService{"6E400001-B5A3-F393-E0A9-E50E24DCCA9E"};
constexpr CBUUID mediumService{"1234ABCD"};
constexpr CBUUID measurement{"2A37"};
constexpr CBUUID control{"6E400002-B5A3-F393-E0A9-E50E24DCCA9E"};

std::string text(const std::optional<std::string>& name) { return name ? '"' + *name + '"' : "none"; }

std::string ending(const CBError* error) { return error ? ": " + error->localizedDescription : ""; }

/// A device that keeps what it hears, and answers a write with the same bytes.
class EchoDevice final : public PeripheralDevice {
public:
    std::string name() const override { return "Echo"; }
    std::vector<GattService> services() const override {
        const GattService first{shortService, {{measurement, gatt::notify}, {control, gatt::write}}};
        if (hasTwins) return {first, first};
        return {first, {longService, {}}, {mediumService, {}}};
    }
    void connected(PeripheralHost& host) override {
        heard.push_back("connected");
        host_ = &host;
    }
    void disconnected() override { heard.push_back("disconnected"); }
    void subscribed(const CBUUID&, bool enabled) override {
        heard.push_back(enabled ? "subscribed" : "unsubscribed");
    }
    void written(const CBUUID&, Bytes value, CBCharacteristicWriteType) override {
        heard.push_back("written " + hexadecimalText(value));
        host_->notify(measurement, value);
    }

    Lines heard;
    bool hasTwins = false;

private:
    PeripheralHost* host_ = nullptr;
};

/// An application that writes down each event, and may react to it.
class Owner final : public CBCentralManagerDelegate,
                    public CBPeripheralDelegate,
                    public std::enable_shared_from_this<Owner> {
public:
    void open(Platform& platform) { central = platform.makeCentralManager(weak_from_this()); }

    void didUpdateState() override { note("state " + std::to_string(static_cast<int>(central->state()))); }
    void didDiscover(const PeripheralRef& found) override {
        peripheral = found;
        found->setDelegate(weak_from_this());
        note("found " + text(found->name()));
    }
    void didConnect(const PeripheralRef&) override { note("connected"); }
    void didDisconnectPeripheral(const PeripheralRef& from, const CBError* error) override {
        EXPECT_FALSE(from->services());
        note("disconnected" + ending(error));
    }
    void didDiscoverServices(const PeripheralRef& from, const CBError* error) override {
        const auto services = from->services();
        note("services " + (services ? std::to_string(services->size()) : "none") + ending(error));
    }
    void didDiscoverCharacteristicsFor(const PeripheralRef& from, const ServiceRef& service,
                                       const CBError* error) override {
        EXPECT_THAT(*from->services(), testing::Contains(service));
        const auto& list = service->characteristics;
        note("characteristics " + (list ? std::to_string(list->size()) : "none") + ending(error));
    }
    void didUpdateValueFor(const PeripheralRef&, const CharacteristicRef& characteristic,
                           std::optional<Bytes> value, const CBError* error) override {
        EXPECT_EQ(characteristic->uuid, measurement);
        note("value " + (value ? hexadecimalText(*value) : "none") + ending(error));
    }

    CharacteristicRef characteristic(std::size_t index) const {
        return peripheral->services()->at(0)->characteristics->at(index);
    }
    Lines take() { return std::exchange(lines, {}); }

    std::shared_ptr<CBCentralManager> central;
    PeripheralRef peripheral;
    Lines lines;
    std::function<void(const std::string&)> react;

private:
    void note(const std::string& line) {
        lines.push_back(line);
        if (react) react(line);
    }
};

class CoreBluetoothPlatformTest : public testing::Test {
protected:
    FreshAir air;

    void open() {
        owner->open(*platform);
        mainLoop::runUntilIdle();
    }
    void discover() {
        owner->central->scanForPeripherals();
        mainLoop::runUntilIdle();
        owner->central->stopScan();
    }
    void connect() {
        owner->central->connect(owner->peripheral);
        mainLoop::runUntilIdle();
    }
    void discoverServices() {
        owner->peripheral->discoverServices({});
        mainLoop::runUntilIdle();
        owner->peripheral->discoverCharacteristics({}, *owner->peripheral->services()->at(0));
        mainLoop::runUntilIdle();
    }
    void subscribe() {
        owner->peripheral->setNotifyValue(true, *owner->characteristic(0));
        mainLoop::runUntilIdle();
    }
    void write(Bytes value) {
        owner->peripheral->writeValue(value, *owner->characteristic(1),
                                      CBCharacteristicWriteType::withResponse);
        mainLoop::runUntilIdle();
    }
    /// Up to the subscription; what happens then is what the test is about.
    void begin() {
        radio::add(device);
        open();
        discover();
        connect();
        discoverServices();
        subscribe();
        owner->take();
    }
    void power(CBManagerState state) {
        radio::setState(state);
        mainLoop::runUntilIdle();
    }

    const std::shared_ptr<EchoDevice> device = std::make_shared<EchoDevice>();
    std::unique_ptr<Platform> platform = makeCoreBluetoothPlatform();
    std::shared_ptr<Owner> owner = std::make_shared<Owner>();
};

TEST_F(CoreBluetoothPlatformTest, ShortAndLongUuidsAreFoundAndEqual) {
    radio::add(device);
    open();
    discover();
    connect();
    for (const CBUUID& wanted : {shortService, mediumService, longService}) {
        owner->peripheral->discoverServices({&wanted, 1});
        mainLoop::runUntilIdle();
        ASSERT_EQ(owner->peripheral->services()->size(), 1u);
        EXPECT_EQ(owner->peripheral->services()->at(0)->uuid, wanted);
    }
}

TEST_F(CoreBluetoothPlatformTest, AbsentAndEmptyAreDifferent) {
    begin();
    radio::sendValue(*device, measurement, std::nullopt, "broken");
    radio::sendValue(*device, measurement, Bytes{}, std::nullopt);
    mainLoop::runUntilIdle();
    EXPECT_THAT(owner->take(), ElementsAre("value none: broken", "value "));

    radio::failDiscovery(*device);
    owner->peripheral->discoverCharacteristics({}, *owner->peripheral->services()->at(0));
    mainLoop::runUntilIdle();
    owner->peripheral->discoverServices({});
    mainLoop::runUntilIdle();
    EXPECT_THAT(owner->take(),
                ElementsAre("characteristics none: Discovery failed.", "services none: Discovery failed."));

    for (const std::optional<std::string>& name :
         {std::optional<std::string>(), std::optional<std::string>("")}) {
        radio::setName(*device, name);
        EXPECT_EQ(owner->peripheral->name(), name);
    }
}

TEST_F(CoreBluetoothPlatformTest, ANameIsReadToItsEndAndIsValidUtf8) {
    const std::string hidden("Echo\0nomore", 11);
    const std::pair<std::string, std::string> cases[] = {{hidden, hidden}, {"a\xED\xA0\x80z", "a?z"}};
    radio::add(device);
    open();
    discover();
    for (const auto& [sent, seen] : cases) {
        radio::setName(*device, sent);
        EXPECT_EQ(owner->peripheral->name(), seen);
    }
}

TEST_F(CoreBluetoothPlatformTest, EveryStateIsPassedOnAndANewOneIsUnknown) {
    open();
    for (const long state : {0, 1, 2, 3, 4, 9, 5}) {
        radio::setState(state);
        mainLoop::runUntilIdle();
    }
    EXPECT_THAT(owner->take(), ElementsAre("state 5", "state 0", "state 1", "state 2", "state 3", "state 4",
                                           "state 0", "state 5"));
}

TEST_F(CoreBluetoothPlatformTest, WithoutPowerNothingIsAsked) {
    begin();
    const auto characteristic = owner->characteristic(1);
    const auto service = owner->peripheral->services()->at(0);
    const auto everything = [&] {
        owner->central->scanForPeripherals();
        owner->central->connect(owner->peripheral);
        owner->central->cancelPeripheralConnection(owner->peripheral);
        owner->central->stopScan();
        owner->peripheral->discoverServices({});
        owner->peripheral->discoverCharacteristics({}, *service);
        owner->peripheral->setNotifyValue(true, *characteristic);
        owner->peripheral->writeValue({}, *characteristic, CBCharacteristicWriteType::withResponse);
    };
    radio::setState(CBManagerState::poweredOff);
    everything();  // the state event is still on its way
    mainLoop::runUntilIdle();
    everything();
    radio::setState(CBManagerState::poweredOn);
    owner->central->scanForPeripherals();  // this one, too
    mainLoop::runUntilIdle();
    EXPECT_EQ(radio::scans() + radio::links(), 0u);
    EXPECT_THAT(device->heard, ElementsAre("connected", "subscribed", "disconnected"));

    const auto quiet = std::make_shared<Owner>();
    quiet->open(*platform);
    quiet->central->scanForPeripherals();  // its first state event is still to come
    EXPECT_EQ(radio::scans(), 0u);
    mainLoop::runUntilIdle();
}

TEST_F(CoreBluetoothPlatformTest, LinksThatEndWithTheAdapterAreReportedOnceAndAfterIt) {
    using PowerOff = StackBehaviour::PowerOff;
    for (const auto order : {PowerOff::silent, PowerOff::linksBeforeState, PowerOff::linksAfterState}) {
        owner = std::make_shared<Owner>();
        radio::reset({.powerOff = order});
        begin();
        power(CBManagerState::poweredOff);
        power(CBManagerState::poweredOn);
        const Lines lines = owner->take();
        EXPECT_THAT(lines, ElementsAre("state 4", testing::StartsWith("disconnected: "), "state 5"));
    }
}

TEST_F(CoreBluetoothPlatformTest, AnAdapterThatIsBackBeforeItsEventsHasLostItsLinks) {
    for (const auto state : {CBManagerState::poweredOff, CBManagerState::resetting}) {
        owner = std::make_shared<Owner>();
        radio::reset();
        begin();
        radio::setState(state);
        radio::setState(CBManagerState::poweredOn);
        connect();  // asks before the old link's end is told
        EXPECT_THAT(owner->take(), ElementsAre("state 5", "disconnected: Bluetooth is not available."));
        EXPECT_EQ(radio::links(), 0u);
    }
}

TEST_F(CoreBluetoothPlatformTest, WhatIsAskedForBetweenTheEventsOfTheAdapterEndsInTheSystemToo) {
    const auto operations =
        std::to_array<std::function<void()>>({[] {}, [&] { owner->central->scanForPeripherals(); },
                                              [&] { owner->central->connect(owner->peripheral); }});
    radio::add(device);
    open();
    discover();
    radio::remove(*device);
    owner->take();
    for (const auto& ask : operations) {
        radio::setState(CBManagerState::poweredOff);
        radio::setState(CBManagerState::poweredOn);
        mainLoop::stepUntil(mainLoop::now());  // the event of the first
        EXPECT_THAT(owner->take(), IsEmpty());
        ask();
        const bool asked = radio::scans() + radio::links() > 0;
        mainLoop::runUntilIdle();
        EXPECT_THAT(owner->take(), asked ? Lines{"state 5"} : Lines{});
        EXPECT_EQ(radio::scans() + radio::links(), 0u);
    }
}

TEST_F(CoreBluetoothPlatformTest, ScansAndAttemptsEndWithTheAdapter) {
    radio::add(device);
    open();
    discover();
    radio::remove(*device);
    connect();
    owner->central->scanForPeripherals();
    power(CBManagerState::resetting);
    power(CBManagerState::poweredOn);
    owner->take();
    radio::setName(*device, "New");
    radio::add(device);
    mainLoop::runUntilIdle();
    EXPECT_THAT(owner->take(), IsEmpty());
    discover();  // shows the device by another object
    mainLoop::runUntilIdle();
    EXPECT_THAT(owner->take(), ElementsAre("found \"New\""));
}

TEST_F(CoreBluetoothPlatformTest, AfterAResetTheSameObjectStandsForTheDevice) {
    begin();
    const PeripheralRef before = owner->peripheral;
    for (const bool isFoundAnew : {true, false}) {
        power(CBManagerState::resetting);
        power(CBManagerState::poweredOn);
        if (isFoundAnew) discover();
        EXPECT_EQ(owner->peripheral, before);
        owner->take();
        connect();
        discoverServices();
        subscribe();
        write(std::vector<std::uint8_t>{7});
        EXPECT_THAT(owner->take(), ElementsAre("connected", "services 3", "characteristics 2", "value 07"));
    }
}

TEST_F(CoreBluetoothPlatformTest, AnAttemptLastsUntilTheLinkStands) {
    radio::add(device);
    open();
    discover();
    radio::remove(*device);
    connect();
    owner->peripheral.reset();
    discover();  // forgets what nobody needs
    mainLoop::runFor(1h);
    radio::failNextConnect(*device);
    radio::failNextConnect(*device);
    radio::add(device);
    owner->take();
    mainLoop::runFor(10s);
    EXPECT_THAT(owner->take(), ElementsAre("connected"));
}

TEST_F(CoreBluetoothPlatformTest, AnAttemptThatIsCancelledEndsWithoutAnEvent) {
    radio::add(device);
    open();
    discover();
    owner->take();
    radio::failNextConnect(*device);
    connect();
    owner->central->cancelPeripheralConnection(owner->peripheral);
    mainLoop::runFor(10s);  // it is not tried again

    owner->central->connect(owner->peripheral);
    owner->central->cancelPeripheralConnection(owner->peripheral);
    mainLoop::runUntilIdle();
    EXPECT_THAT(owner->take(), IsEmpty());
    EXPECT_EQ(radio::links(), 0u);

    owner->central->connect(owner->peripheral);
    owner->central->cancelPeripheralConnection(owner->peripheral);
    owner->central->connect(owner->peripheral);  // while the system still ends the first
    mainLoop::runUntilIdle();
    EXPECT_THAT(owner->take(), ElementsAre("connected"));
}

TEST_F(CoreBluetoothPlatformTest, ARefusedAttemptIsToldAndMadeAgainEverMoreSlowly) {
    Lines told;
    platform->diagnostics = [&](std::string_view line) { told.emplace_back(line); };
    radio::add(device);
    open();
    discover();
    owner->take();
    radio::refusals(*device).connection = "Peer removed pairing information";
    for (int i = 0; i < 5; ++i) {
        owner->central->cancelPeripheralConnection(owner->peripheral);
        connect();
    }
    told.clear();
    const std::size_t before = radio::operations();
    mainLoop::runFor(1h);
    EXPECT_THAT(told, testing::SizeIs(testing::Lt(70u)));
    EXPECT_EQ(radio::operations() - before, told.size());
    EXPECT_EQ(told.back(), "\"Echo\" (C0DE0000-0000-4000-8000-000000000001): connecting: "
                           "Peer removed pairing information; next attempt in 60 s");
    EXPECT_THAT(owner->take(), IsEmpty());

    radio::refusals(*device).connection.reset();
    mainLoop::runFor(1min);
    EXPECT_THAT(owner->take(), ElementsAre("connected"));
    radio::loseLink(*device);
    mainLoop::runUntilIdle();
    radio::failNextConnect(*device);
    connect();
    EXPECT_THAT(told.back(), testing::EndsWith("next attempt in 1 s"));
}

TEST_F(CoreBluetoothPlatformTest, ARefusedSubscriptionOrWriteIsToldOnceALink) {
    const std::string echo(R"("Echo" (C0DE0000-0000-4000-8000-000000000001): )");
    Lines told;
    platform->diagnostics = [&](std::string_view line) { told.emplace_back(line); };
    begin();
    EXPECT_THAT(told, IsEmpty());
    radio::refusals(*device) = {.subscription = "Authentication is insufficient.", .write = "Write refused."};
    for (int link = 0; link < 2; ++link) {
        for (int i = 0; i < 3; ++i) {
            subscribe();
            write({});
        }
        EXPECT_THAT(std::exchange(told, {}),
                    ElementsAre(echo + "subscribing to " + measurement.uuidString() +
                                    ": Authentication is insufficient.",
                                echo + "writing to " + control.uuidString() + ": Write refused."));
        radio::loseLink(*device);
        connect();
        discoverServices();
    }
}

TEST_F(CoreBluetoothPlatformTest, AnAttemptThatIsToBeTriedAgainEndsWithItsCentral) {
    radio::add(device);
    open();
    discover();
    radio::failNextConnect(*device);
    connect();
    owner->central.reset();
    EXPECT_EQ(radio::managers(), 0u);
    mainLoop::runFor(10s);
    EXPECT_THAT(device->heard, IsEmpty());
}

TEST_F(CoreBluetoothPlatformTest, ALinkThatStoodJustBeforeItsAttemptWasCancelledIsEnded) {
    radio::reset({.deliversLate = true});
    radio::add(device);
    open();
    discover();
    owner->take();
    owner->central->connect(owner->peripheral);
    owner->central->cancelPeripheralConnection(owner->peripheral);
    mainLoop::runUntilIdle();
    EXPECT_THAT(owner->take(), IsEmpty());
    EXPECT_EQ(radio::links(), 0u);
    EXPECT_THAT(device->heard, ElementsAre("connected", "disconnected"));

    owner->central->connect(owner->peripheral);
    owner->central->cancelPeripheralConnection(owner->peripheral);
    connect();
    EXPECT_THAT(owner->take(), ElementsAre("connected"));
    EXPECT_EQ(radio::links(), 1u);
}

TEST_F(CoreBluetoothPlatformTest, ALinkCanBeAskedForWhileTheOldOneEnds) {
    for (const bool late : {false, true}) {
        owner = std::make_shared<Owner>();
        radio::reset({.showsLinksToTheirEnd = late});
        begin();
        owner->central->cancelPeripheralConnection(owner->peripheral);
        owner->central->connect(owner->peripheral);
        mainLoop::runUntilIdle();
        EXPECT_THAT(owner->take(), ElementsAre("disconnected", "connected"));
    }

    owner->central->connect(owner->peripheral);
    mainLoop::runUntilIdle();
    radio::loseLink(*device);
    mainLoop::runUntilIdle();  // which nobody asked to have again
    EXPECT_THAT(owner->take(), ElementsAre("disconnected: The specified device has disconnected from us."));
}

TEST_F(CoreBluetoothPlatformTest, WhatBelongsToAnOldLinkDoesNothingOnTheNext) {
    radio::reset({.deliversLate = true});
    begin();
    const auto service = owner->peripheral->services()->at(0);
    const auto characteristic = owner->characteristic(1);
    owner->peripheral->discoverServices({});
    radio::loseLink(*device);
    connect();
    EXPECT_THAT(owner->take(), ElementsAre(testing::StartsWith("disconnected: "), "connected"));
    device->heard.clear();
    owner->peripheral->discoverCharacteristics({}, *service);
    owner->peripheral->setNotifyValue(true, *characteristic);
    owner->peripheral->writeValue({}, *characteristic, CBCharacteristicWriteType::withResponse);
    mainLoop::runUntilIdle();
    EXPECT_THAT(device->heard, IsEmpty());
}

TEST_F(CoreBluetoothPlatformTest, ASnapshotServesUntilItsServiceIsWithdrawn) {
    begin();
    const auto service = owner->peripheral->services()->at(0);
    const auto oldControl = owner->characteristic(1);
    const auto writeOld = [&] {
        owner->peripheral->writeValue(std::vector<std::uint8_t>{5}, *oldControl,
                                      CBCharacteristicWriteType::withResponse);
        mainLoop::runUntilIdle();
    };
    owner->peripheral->discoverServices({&longService, 1});
    mainLoop::runUntilIdle();
    writeOld();
    EXPECT_EQ(device->heard.back(), "written 05");
    EXPECT_THAT(owner->take(), ElementsAre("services 1"));

    discoverServices();
    EXPECT_NE(owner->characteristic(1), oldControl);
    writeOld();
    EXPECT_THAT(owner->take(), ElementsAre("services 3", "characteristics 2", "value 05"));

    radio::changeService(*device, shortService);
    mainLoop::runUntilIdle();
    EXPECT_EQ(owner->peripheral->services()->size(), 2u);
    EXPECT_EQ(service->characteristics->size(), 2u);
    writeOld();
    EXPECT_THAT(owner->take(), IsEmpty());

    discoverServices();
    subscribe();
    write(std::vector<std::uint8_t>{6});
    EXPECT_THAT(owner->take(), ElementsAre("services 3", "characteristics 2", "value 06"));
}

TEST_F(CoreBluetoothPlatformTest, ServicesOfOneUuidAreToldApart) {
    device->hasTwins = true;
    radio::add(device);
    open();
    discover();
    connect();
    owner->peripheral->discoverServices({});
    mainLoop::runUntilIdle();
    owner->peripheral->discoverCharacteristics({}, *owner->peripheral->services()->at(1));
    mainLoop::runUntilIdle();
    const auto services = *owner->peripheral->services();
    EXPECT_FALSE(services.at(0)->characteristics);
    EXPECT_TRUE(services.at(1)->characteristics);

    owner->take();
    radio::sendValue(*device, measurement, Bytes{}, std::nullopt);  // of the first
    mainLoop::runUntilIdle();
    EXPECT_THAT(owner->take(), IsEmpty());
}

TEST_F(CoreBluetoothPlatformTest, AValueStaysWhatItIsWhileItsEventLasts) {
    begin();
    class Nested final : public CBPeripheralDelegate {
    public:
        void didDiscoverServices(const PeripheralRef&, const CBError*) override {}
        void didDiscoverCharacteristicsFor(const PeripheralRef&, const ServiceRef&, const CBError*) override {
        }
        void didUpdateValueFor(const PeripheralRef&, const CharacteristicRef&, std::optional<Bytes> value,
                               const CBError*) override {
            mainLoop::runUntilIdle();  // as a host does that shows a dialog
            seen += hexadecimalText(*value) + ' ';
        }
        std::string seen;
    };
    const auto nested = std::make_shared<Nested>();
    owner->peripheral->setDelegate(nested);
    for (const std::uint8_t byte : std::vector<std::uint8_t>{1, 2})
        radio::sendValue(*device, measurement, Bytes(&byte, 1), std::nullopt);
    mainLoop::runUntilIdle();
    EXPECT_EQ(nested->seen, "02 01 ");
}

TEST_F(CoreBluetoothPlatformTest, TwoCentralsScanEachForItself) {
    const auto other = std::make_shared<Owner>();
    open();
    other->open(*platform);
    mainLoop::runUntilIdle();
    owner->central->scanForPeripherals();
    other->central->scanForPeripherals();
    other->central->stopScan();
    radio::add(device);
    mainLoop::runUntilIdle();
    EXPECT_THAT(owner->take(), ElementsAre("state 5", "found \"Echo\""));
    EXPECT_THAT(other->take(), ElementsAre("state 5"));
}

TEST_F(CoreBluetoothPlatformTest, NothingReachesAnOwnerThatHasLetGo) {
    for (const bool late : {false, true}) {
        owner = std::make_shared<Owner>();
        radio::reset({.deliversLate = late});
        open();
        owner->take();
        owner->central->scanForPeripherals();
        radio::add(std::make_shared<EchoDevice>());
        owner->central.reset();
        EXPECT_EQ(radio::scans(), 0u);
        mainLoop::runUntilIdle();
        EXPECT_THAT(owner->take(), IsEmpty());
        EXPECT_EQ(radio::managers(), 0u);
    }
}

// With two links to report, the first report lets go of the central.
TEST_F(CoreBluetoothPlatformTest, NoFurtherLinkIsReportedToWhoLetsGoInBetween) {
    radio::add(device);
    radio::add(std::make_shared<EchoDevice>());
    open();
    owner->react = [&](const std::string& event) {
        if (event.starts_with("found")) owner->central->connect(owner->peripheral);
        if (event.starts_with("disconnected")) owner->central.reset();
    };
    discover();
    EXPECT_EQ(radio::links(), 2u);
    owner->take();
    power(CBManagerState::poweredOff);
    EXPECT_THAT(owner->take(), ElementsAre("state 4", testing::StartsWith("disconnected: ")));
    owner->react = nullptr;
}

TEST_F(CoreBluetoothPlatformTest, ADeviceThatNobodyHoldsIsForgottenByTheNextScan) {
    radio::add(device);
    open();
    discover();
    const std::size_t before = objc::liveObjects();
    owner->peripheral.reset();
    radio::remove(*device);
    owner->central->scanForPeripherals();
    mainLoop::runUntilIdle();
    EXPECT_LT(objc::liveObjects(), before);
}

TEST_F(CoreBluetoothPlatformTest, DevicesThatNobodyHoldsDoNotAddUpInTheCourseOfAScan) {
    open();
    owner->central->scanForPeripherals();
    std::vector<std::weak_ptr<CBPeripheral>> strangers;
    for (int i = 0; i < 3000; ++i) {
        const auto stranger = std::make_shared<EchoDevice>();
        radio::add(stranger);
        mainLoop::runUntilIdle();
        radio::remove(*stranger);
        strangers.push_back(owner->peripheral);
    }
    EXPECT_LT(std::count_if(strangers.begin(), strangers.end(),
                            [](const auto& stranger) { return !stranger.expired(); }),
              1500);
}

TEST_F(CoreBluetoothPlatformTest, TheEndOfALinkIsReportedAlsoOfADeviceThatNobodyHolds) {
    begin();
    owner->peripheral.reset();
    radio::loseLink(*device);
    owner->central->scanForPeripherals();
    mainLoop::runUntilIdle();
    EXPECT_THAT(owner->take(), ElementsAre(testing::StartsWith("disconnected: "), "found \"Echo\""));
}

TEST_F(CoreBluetoothPlatformTest, TimersKeepTheirTimeWhileAFingerIsOnTheScreen) {
    int ticks = 0;
    const auto timer = platform->mainQueue().scheduleTimer(1s, [&] { ++ticks; });
    mainLoop::setTracking(true);
    mainLoop::runFor(2s);
    mainLoop::setTracking(false);
    EXPECT_EQ(ticks, 2);
}

TEST_F(CoreBluetoothPlatformTest, TasksDieWithThePlatform) {
    bool ran = false;
    platform->mainQueue().post([&] { ran = true; });
    platform.reset();
    mainLoop::runUntilIdle();
    EXPECT_FALSE(ran);
}

TEST_F(CoreBluetoothPlatformTest, AnExceptionDoesNotCrossTheSystemsFrames) {
    const auto fail = [] { throw std::runtime_error("from the host"); };
    const auto escapes = [](auto&& run) {
        try {
            run();
        } catch (...) {
            std::_Exit(0);  // it came through
        }
    };
    const auto dies = testing::KilledBySignal(SIGABRT);
    EXPECT_EXIT(escapes([&] { platform->mainQueue().post(fail), mainLoop::runUntilIdle(); }), dies, "");
    EXPECT_EXIT(escapes([&] {
                    const auto timer = platform->mainQueue().scheduleTimer(1s, fail);
                    mainLoop::runFor(1s);
                }),
                dies, "");
    owner->react = [&](const std::string&) { fail(); };
    EXPECT_EXIT(escapes([&] { open(); }), dies, "");
    owner->react = nullptr;
}

}  // namespace
