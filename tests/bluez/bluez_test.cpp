// What BlueZ and its surroundings do, and what becomes of it in the application.
#include <gtest/gtest.h>

#include <sys/epoll.h>

#include <array>
#include <csignal>

#include "corvane/platform/bluez/device_identifier.h"
#include "tests/bluez/ward.h"

namespace corvane::bluez {
namespace {

using namespace std::chrono_literals;

constexpr const char* reading = "poweredOn connect loading 36.6 disconnect";

Refusal inProgress() { return {"org.bluez.Error.InProgress", "In Progress"}; }
Refusal failed(const char* text) { return {"org.bluez.Error.Failed", text}; }

// An application without a driver: it connects when the test says so, and subscribes to what it finds.
class Client final : public CBCentralManagerDelegate,
                     public CBPeripheralDelegate,
                     public std::enable_shared_from_this<Client> {
public:
    static std::shared_ptr<Client> make(Ward& ward) {
        const auto client = std::make_shared<Client>();
        client->central = ward.air.platform.makeCentralManager(client);
        ward.air.runFor(1s);
        return client;
    }
    /// The scan goes on.
    PeripheralRef find(Ward& ward, std::string_view name = TemperatureAOJ20ADevice::deviceName) {
        central->scanForPeripherals();
        ward.air.runFor(1s);
        return found[std::string(name)];
    }
    void subscribe() { peripheral->setNotifyValue(true, *characteristic); }

    void didUpdateState() override {}
    void didDiscover(const PeripheralRef& device) override { found[device->name().value_or("")] = device; }
    void didConnect(const PeripheralRef& device) override {
        peripheral = device;
        device->setDelegate(weak_from_this());
        device->discoverServices({});
    }
    void didDisconnectPeripheral(const PeripheralRef&, const CBError* error) override {
        ends.push_back(error ? error->localizedDescription : "asked for");
    }
    void didDiscoverServices(const PeripheralRef& device, const CBError*) override {
        const auto services = device->services().value();
        device->discoverCharacteristics({}, *services.front());
    }
    void didDiscoverCharacteristicsFor(const PeripheralRef&, const ServiceRef& service,
                                       const CBError*) override {
        characteristic = service->characteristics->front();
        if (subscribes) subscribe();
    }
    void didUpdateValueFor(const PeripheralRef&, const CharacteristicRef&, std::optional<Bytes>,
                           const CBError*) override {
        ++values;
        if (whenValueComes) whenValueComes();
    }

    std::shared_ptr<CBCentralManager> central;
    std::map<std::string, PeripheralRef> found;
    PeripheralRef peripheral;
    CharacteristicRef characteristic;
    bool subscribes = true;
    int values = 0;
    std::vector<std::string> ends;
    std::function<void()> whenValueComes;
};

// States.

TEST(BlueZState, IsNotTakenFromAnswersOfAnotherShape) {
    std::vector<std::string> lines;
    Ward ward;
    ward.air.platform.diagnostics = [&](std::string_view line) { lines.emplace_back(line); };
    ward.air.service.emptyReplies["GetManagedObjects"] = 1;
    ward.reader.driver->startScan();
    EXPECT_TRUE(ward.waitFor("36.6"));
    EXPECT_EQ(lines, std::vector<std::string>{"GetManagedObjects: malformed"});
}

TEST(BlueZState, FollowsTheAdapter) {
    Ward ward;
    ward.reader.driver->startScan();
    EXPECT_TRUE(ward.waitFor("poweredOn"));
    ward.air.service.setPowered(false);
    EXPECT_TRUE(ward.waitFor("poweredOff"));
    ward.air.service.removeAdapter();
    EXPECT_TRUE(ward.waitFor("unsupported"));
    ward.air.service.addAdapter();
    ward.reader.news();
    EXPECT_TRUE(ward.waitFor("poweredOff"));
    ward.air.service.setPowered(true);
    EXPECT_TRUE(ward.waitFor("36.6"));
}

TEST(BlueZState, IsUnsupportedWithoutAServiceUntilItStarts) {
    Ward ward;
    ward.air.service.vanish();
    ward.air.runFor(1s);
    ward.reader.driver->startScan();
    EXPECT_TRUE(ward.waitFor("unsupported"));
    ward.air.service.comeBack();
    EXPECT_TRUE(ward.waitFor("36.6"));
}

TEST(BlueZState, IsUnauthorizedWhereTheServiceMayNotBeCalled) {
    for (const char* method : {"GetManagedObjects", "StartDiscovery"}) {
        Ward ward;
        ward.air.service.refusals[method] = {{"org.freedesktop.DBus.Error.AccessDenied", "Rejected"}};
        ward.reader.driver->startScan();
        EXPECT_TRUE(ward.waitFor("unauthorized")) << method;
    }
}

TEST(BlueZState, IsResettingWhileTheServiceRestartsAndUnsupportedIfItStaysAway) {
    Ward ward;
    ward.reader.driver->startScan();
    ASSERT_TRUE(ward.waitFor("36.6"));
    ward.reader.news();
    ward.air.service.vanish();
    ASSERT_TRUE(ward.waitFor("resetting"));
    ward.air.service.comeBack();
    ASSERT_TRUE(ward.waitFor("36.6"));
    EXPECT_EQ(ward.reader.news(), "resetting disconnect poweredOn connect loading 36.6");
    ward.air.service.vanish();
    ASSERT_TRUE(ward.waitFor("unsupported"));
    ward.air.service.comeBack();
    EXPECT_TRUE(ward.waitFor("36.6"));
}

TEST(BlueZState, IsThatOfTheAdapterThatWasAskedFor) {
    Ward ward({.adapter = "hci7"});
    ward.reader.driver->startScan();
    EXPECT_TRUE(ward.waitFor("unsupported"));
    ward.air.service.objects().add("/org/bluez/hci7", "org.bluez.Adapter1", {{"Powered", false}});
    EXPECT_TRUE(ward.waitFor("poweredOff"));
    ward.air.service.objects().set("/org/bluez/hci7", "Powered", true);
    EXPECT_TRUE(ward.waitFor("poweredOn"));
}

TEST(BlueZState, IsThatOfAnAdapterThatIsOnIfThereIsOne) {
    Ward ward;
    ward.air.service.objects().add("/org/bluez/hci10", "org.bluez.Adapter1", {{"Powered", true}});
    ward.air.service.objects().add("/org/bluez/hci2", "org.bluez.Adapter1", {{"Powered", true}});
    ward.air.service.setPowered(false);
    ward.air.runFor(1s);
    ward.reader.driver->startScan();
    EXPECT_TRUE(ward.waitFor("poweredOn"));
    ward.air.service.objects().set("/org/bluez/hci2", "Powered", false);
    ward.air.runFor(1s);
    EXPECT_EQ(ward.reader.news(), "unknown poweredOn poweredOff poweredOn");
    ward.air.service.objects().remove("/org/bluez/hci10");
    ward.air.runFor(1s);
    EXPECT_EQ(ward.reader.news(), "unsupported poweredOff");
}

// What goes wrong on the way to a reading.

struct Trouble {
    const char* name;
    void (*make)(StandIn& service);
    BlueZNotifyPath notifyPath = BlueZNotifyPath::automatic;
};

const Trouble troubles[] = {
    {"None", [](StandIn&) {}},
    {"ObjectsAreNotCached", [](StandIn& service) { service.habits.cachesObjects = false; }},
    {"ServicesAreResolvedFirst", [](StandIn& service) { service.habits.resolvesBeforeReply = true; }},
    {"TheEndOfALinkTakesTime", [](StandIn& service) { service.habits.disconnectTime = 2s; }},
    {"DiscoveryIsInProgress",
     [](StandIn& service) { service.refusals["StartDiscovery"].assign(3, inProgress()); }},
    {"TheFilterIsRefused",
     [](StandIn& service) { service.refusals["SetDiscoveryFilter"].assign(2, failed("no")); }},
    {"ConnectIsInProgress", [](StandIn& service) { service.refusals["Connect"].assign(4, inProgress()); }},
    {"ConnectIsAborted",
     [](StandIn& service) { service.refusals["Connect"].assign(6, failed("le-connection-abort-by-local")); }},
    {"TheLinkIsThereAlready",
     [](StandIn& service) {
         service.leaveLinks();
         service.refusals["Connect"] = {{"org.bluez.Error.AlreadyConnected", "Already Connected"}};
     }},
    {"StartNotifyIsInProgress",
     [](StandIn& service) { service.refusals["StartNotify"].assign(3, inProgress()); }},
    {"AnEarlierRunLeftTheLink", [](StandIn& service) { service.leaveLinks(); }},
    {"Socket", [](StandIn& service) { service.habits.keepsEarlyValuesOnSocket = true; },
     BlueZNotifyPath::socket},
    {"TheSocketIsAcquiredBySomebodyElse",
     [](StandIn& service) {
         service.refusals["AcquireNotify"] = {{"org.bluez.Error.NotPermitted", "Notify acquired"}};
     },
     BlueZNotifyPath::socket},
    {"TheReplyHoldsNoSocket", [](StandIn& service) { service.emptyReplies["AcquireNotify"] = 1; },
     BlueZNotifyPath::socket},
    {"SomebodyElseHasSubscribed",
     [](StandIn& service) { service.refusals["AcquireNotify"] = {inProgress()}; }, BlueZNotifyPath::socket},
};

class BlueZTrouble : public testing::TestWithParam<Trouble> {};

TEST_P(BlueZTrouble, EndsInAReadingEachTime) {
    Ward ward({.notifyPath = GetParam().notifyPath});
    GetParam().make(ward.air.service);
    EXPECT_EQ(ward.measure(), "unknown " + std::string(reading));
    EXPECT_EQ(ward.leftovers(), "");
    GetParam().make(ward.air.service);
    EXPECT_EQ(ward.measure(), reading);
    EXPECT_EQ(ward.leftovers(), "");
    EXPECT_EQ(ward.air.service.connectsWhileDiscovering, 0);
}

INSTANTIATE_TEST_SUITE_P(Each, BlueZTrouble, testing::ValuesIn(troubles),
                         [](const auto& trouble) { return std::string(trouble.param.name); });

// What ends a link that does not get on. The driver is told, and begins again.

struct Setback {
    const char* name;
    void (*make)(StandIn& service);
    const char* line;
    const char* heard;
    BlueZNotifyPath notifyPath = BlueZNotifyPath::automatic;
};

const Setback setbacks[] = {
    {"ServicesAreNotResolved", [](StandIn& service) { service.unresolvedLinks = 1; }, "no services",
     "connect disconnect"},
    {"TheServiceIsMissing",
     [](StandIn& service) {
         service.habits.cachesObjects = false;
         service.habits.exportDelay = 20s;
     },
     "no wanted service", "connect disconnect"},
    {"TheSubscriptionIsRefused",
     [](StandIn& service) { service.refusals["StartNotify"] = {failed("Operation failed")}; },
     "no subscription (Operation failed)", "connect loading disconnect"},
    {"TheDeviceDemandsPairing",
     [](StandIn& service) {
         service.refusals["StartNotify"] = {{"org.bluez.Error.NotPermitted", "Not paired"}};
     },
     "the device demands pairing", "connect loading disconnect"},
    {"TheSubscriptionIsNeverAnswered", [](StandIn& service) { service.lostCalls["StartNotify"] = 1; },
     "no subscription (No answer from the service.)", "connect loading disconnect"},
};

class BlueZSetback : public testing::TestWithParam<Setback> {};

TEST_P(BlueZSetback, IsToldAndTheNextLinkEndsInAReading) {
    Ward ward({.notifyPath = GetParam().notifyPath});
    std::string lines;
    ward.air.platform.diagnostics = [&](std::string_view line) { lines += std::string(line) + '\n'; };
    GetParam().make(ward.air.service);
    ward.reader.driver->startScan();
    ASSERT_TRUE(ward.waitFor("disconnect"));
    EXPECT_EQ(ward.reader.news(), "unknown poweredOn " + std::string(GetParam().heard));
    EXPECT_NE(lines.find(TemperatureAOJ20ADevice::deviceName), std::string::npos) << lines;
    EXPECT_NE(lines.find(GetParam().line), std::string::npos) << lines;
    ward.air.service.habits = {};
    EXPECT_EQ(ward.measure(), reading);
    EXPECT_EQ(ward.leftovers(), "");
}

INSTANTIATE_TEST_SUITE_P(Each, BlueZSetback, testing::ValuesIn(setbacks),
                         [](const auto& setback) { return std::string(setback.param.name); });

TEST(BlueZSetbacks, OfADeviceThatRefusesForGoodComeSlowerEachTime) {
    Ward ward;
    ward.air.service.refusals["StartNotify"].assign(10'000, failed("no"));
    ward.reader.driver->stateConnection = [&](StateDeviceConnection state) {
        if (state == StateDeviceConnection::disconnect) ward.reader.driver->startScan();
    };
    ward.reader.driver->startScan();
    ward.air.runFor(1h);
    EXPECT_GT(ward.air.service.calls["Connect"], 500) << "it is tried all the same";
    EXPECT_LT(ward.air.service.calls["Connect"], 800) << "every five seconds at most";
}

TEST(BlueZState, IsToldBeforeTheEndOfTheLinksThatWentWithTheAdapter) {
    Ward ward;
    ward.reader.driver->startScan();
    ASSERT_TRUE(ward.waitFor("36.6"));
    ward.reader.news();
    ward.air.service.setPowered(false);
    ward.air.runFor(1s);
    EXPECT_EQ(ward.reader.news(), "poweredOff disconnect");
}

// What the service says that is not what it seems.

TEST(BlueZMemory, ADeviceThatIsOnlyRememberedIsNotInReach) {
    Ward ward;
    ASSERT_EQ(ward.measure(), "unknown " + std::string(reading));
    ward.air.service.remove(*ward.thermometer);
    ASSERT_TRUE(ward.air.service.objects().has(ward.air.service.pathOf(*ward.thermometer)));
    ward.reader.driver->startScan();
    ward.air.runFor(60s);
    EXPECT_EQ(ward.reader.news(), "poweredOn");
    ward.air.service.add(ward.thermometer);
    EXPECT_TRUE(ward.waitFor("36.6"));
}

TEST(BlueZMemory, WhatTheUserCallsADeviceIsNotItsName) {
    Ward ward;
    ward.thermometer->advertised.clear();
    ward.reader.driver->startScan();
    ward.air.runFor(1s);
    ward.air.service.objects().set(ward.air.service.pathOf(*ward.thermometer), "Alias",
                                   std::string(TemperatureAOJ20ADevice::deviceName));
    ward.air.runFor(60s);
    EXPECT_EQ(ward.reader.news(), "unknown poweredOn");
}

TEST(BlueZMemory, WhatSomebodyElseReadsIsNoNotification) {
    Ward ward({.notifyPath = BlueZNotifyPath::socket});
    ward.air.service.habits.keepsEarlyValuesOnSocket = true;
    ward.reader.driver->startScan();
    ASSERT_TRUE(ward.waitFor("36.6"));
    ward.reader.news();
    const std::vector<std::uint8_t> value{0x01, 0x02, 0x03, 0x04, 0x0E, 0x4C};
    ward.air.service.objects().set(ward.air.service.pathOf(*ward.thermometer) + "/service0001/char0002",
                                   "Value", value);
    ward.air.runFor(1s);
    EXPECT_EQ(ward.reader.news(), "");
}

TEST(BlueZMemory, ADeviceThatIsBondedHasItsLastingIdentifierWhenItIsFoundAgain) {
    Ward ward;
    ASSERT_EQ(ward.measure(), "unknown " + std::string(reading));
    const std::string before = ward.reader.driver->getResult()->uuid;
    ward.air.service.objects().set(
        ward.air.service.pathOf(*ward.thermometer),
        Properties{{"Address", std::string("00:11:22:33:44:55")}, {"AddressType", std::string("public")}});
    ASSERT_EQ(ward.measure(), reading);
    EXPECT_EQ(ward.reader.driver->getResult()->uuid,
              deviceIdentifier("00:11:22:33:44:55", "public").uuidString());
    EXPECT_NE(ward.reader.driver->getResult()->uuid, before);
}

// What ends a link, at which step.

using Blow = void (*)(Ward& ward);

struct NamedBlow {
    const char* name;
    Blow strike;
};

const NamedBlow blows[] = {
    {"TheDeviceEndsTheLink", [](Ward& ward) { ward.thermometer->host->disconnect(); }},
    {"TheDeviceIsRemoved", [](Ward& ward) { ward.air.service.forget(*ward.thermometer); }},
    {"TheAdapterGoesOff",
     [](Ward& ward) {
         ward.air.service.setPowered(false);
         ward.air.service.setPowered(true);
     }},
    {"TheAdapterIsUnplugged",
     [](Ward& ward) {
         ward.air.service.removeAdapter();
         ward.air.service.addAdapter();
     }},
    {"TheServiceIsKilled",
     [](Ward& ward) {
         ward.air.loop.post([&ward] {
             ward.air.service.vanish();
             ward.air.service.comeBack();
         });
     }},
};

class BlueZBlow : public testing::TestWithParam<NamedBlow> {};

TEST_P(BlueZBlow, AtEachStepIsRecoveredFrom) {
    constexpr std::array<std::function<void()> Thermometer::*, 2> steps{&Thermometer::whenConnected,
                                                                        &Thermometer::whenSubscribed};
    for (const auto step : steps) {
        Ward ward;
        auto& hook = (*ward.thermometer).*step;
        hook = [&] {
            const auto keep = std::exchange(hook, nullptr);
            GetParam().strike(ward);
        };
        ward.reader.driver->startScan();
        ASSERT_TRUE(ward.waitFor("disconnect")) << ward.reader.news();
        ward.air.runFor(20s);
        ward.reader.news();
        EXPECT_EQ(ward.measure().find("poweredOn"), 0u);
        EXPECT_TRUE(ward.reader.driver->getResult().has_value());
        EXPECT_EQ(ward.leftovers(), "");
        EXPECT_EQ(ward.air.platform.radio().tree().size(), ward.air.service.objects().size());
    }
}

INSTANTIATE_TEST_SUITE_P(Each, BlueZBlow, testing::ValuesIn(blows),
                         [](const auto& blow) { return std::string(blow.param.name); });

// Links that come and go otherwise than in a measurement.

TEST(BlueZLink, IsMadeOnTheAdapterInUseAndCanBeCancelled) {
    for (const bool scans : {false, true}) {
        SCOPED_TRACE(scans);
        Ward ward;
        StandIn& service = ward.air.service;
        const auto client = Client::make(ward);
        const auto device = client->find(ward);
        const std::string path = service.pathOf(*ward.thermometer);
        service.removeAdapter();
        service.objects().add("/org/bluez/hci1", "org.bluez.Adapter1", {{"Powered", true}});
        ward.air.runFor(1s);
        client->central->connect(device);
        if (scans) client->central->scanForPeripherals();
        ward.air.runFor(1s);
        service.objects().add(
            "/org/bluez/hci1" + path.substr(path.rfind('/')), "org.bluez.Device1",
            {{"Address", std::string("C0:FF:EE:00:00:01")}, {"AddressType", std::string("random")}});
        ward.air.runFor(1s);
        EXPECT_GT(service.calls["Connect"], 0);
        client->central->stopScan();
        client->central->cancelPeripheralConnection(device);
        ward.air.runFor(60s);
        EXPECT_EQ(ward.air.loop.timeout(), std::nullopt) << "nobody wants anything";
    }
}

TEST(BlueZLink, ThatIsAskedForWhileTheFormerEndsCanBeCancelled) {
    Ward ward({.notifyPath = BlueZNotifyPath::socket});
    ward.air.service.habits.keepsEarlyValuesOnSocket = true;
    const auto client = Client::make(ward);
    const auto device = client->find(ward);
    client->central->stopScan();
    client->central->connect(device);
    ward.air.runFor(1s);
    ASSERT_EQ(client->values, 1);
    client->whenValueComes = [&] {
        client->central->cancelPeripheralConnection(device);
        client->central->connect(device);
    };
    const std::string path = ward.air.service.pathOf(*ward.thermometer);
    ward.air.service.objects().set(path, Properties{{"Connected", false}, {"ServicesResolved", false}});
    ward.air.service.objects().setSilently(path, "Connected", true);
    ward.air.passOn();
    ward.thermometer->send();
    ward.air.runUntil([&] { return client->values == 2; });
    client->whenValueComes = nullptr;
    ward.air.runFor(1s);
    EXPECT_EQ(client->ends.size(), 1u);
    client->central->cancelPeripheralConnection(device);
    ward.air.runFor(10s);
    EXPECT_EQ(ward.leftovers(), "");
}

TEST(BlueZLink, ThatIsThereAlreadyIsAskedForOnceWhileAnotherHasTheAir) {
    Ward ward;
    ward.air.service.leaveLinks();
    const auto absent = std::make_shared<Thermometer>();
    absent->advertised = "absent";
    ward.air.service.add(absent);
    ward.air.service.habits.connectTime = 40s;
    const auto client = Client::make(ward);
    const auto sought = client->find(ward, "absent");
    client->central->stopScan();
    ward.air.service.remove(*absent);
    client->central->connect(sought);
    ward.air.runFor(1s);
    client->central->connect(client->found[std::string(TemperatureAOJ20ADevice::deviceName)]);
    ward.air.runFor(1s);
    EXPECT_EQ(client->values, 1);
    EXPECT_EQ(ward.air.service.calls["Connect"], 2);
}

TEST(BlueZLink, IsNotAskedForBeforeDiscoveryHasEnded) {
    const std::pair<const char*, void (*)(ExportedObjects&)> others[] = {
        {"its Alias",
         [](ExportedObjects& objects) { objects.set("/org/bluez/hci0", "Alias", std::string("ward")); }},
        {"another one", [](ExportedObjects& objects) {
             objects.add("/org/bluez/hci1", "org.bluez.Adapter1", {{"Powered", true}});
         }}};
    for (const auto& [name, tell] : others) {
        SCOPED_TRACE(name);
        Ward ward;
        StandIn& service = ward.air.service;
        const auto client = Client::make(ward);
        const auto device = client->find(ward);
        service.objects().set(service.adapter(), "Discovering", false);
        ward.air.runFor(1s);
        service.lostCalls["StopDiscovery"] = 1;
        tell(service.objects());
        client->central->connect(device);
        ward.air.runFor(2s);
        EXPECT_EQ(service.connectsWhileDiscovering, 0);
    }
}

TEST(BlueZLink, ThatStoodAfterItsAttemptHadFailedIsEnded) {
    Ward ward;
    const auto client = Client::make(ward);
    const auto device = client->find(ward);
    client->central->stopScan();
    ward.air.service.refusals["Connect"].assign(100, failed("Operation already in progress"));
    client->central->connect(device);
    ward.air.runFor(12s);  // The next attempt is seconds away.
    ward.air.service.leaveLinks();
    ward.air.runFor(10ms);
    client->central->cancelPeripheralConnection(device);
    ward.air.runFor(10s);
    EXPECT_EQ(ward.leftovers(), "");
}

TEST(BlueZLink, ToldOfItsLossGivesTheReasonThatStillHolds) {
    const struct {
        BlueZNotifyPath notifyPath;
        const char* method;
        Refusal refusal;
        std::size_t times;
        const char* reason;
    } cases[] = {
        {BlueZNotifyPath::socket, "AcquireNotify", inProgress(), 1, "The link to the device was lost."},
        {BlueZNotifyPath::busSignals, "StartNotify", inProgress(), 1, "The link to the device was lost."},
        {BlueZNotifyPath::busSignals, "StartNotify", inProgress(), 100, "In Progress"},
        {BlueZNotifyPath::busSignals, "StartNotify", failed("Insufficient"), 1, "Insufficient"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.reason);
        Ward ward({.notifyPath = c.notifyPath});
        const auto client = Client::make(ward);
        client->central->connect(client->find(ward));
        ward.air.service.refusals[c.method].assign(c.times, c.refusal);
        ward.air.runFor(10s);
        if (ward.thermometer->host) ward.thermometer->host->disconnect();
        ward.air.runFor(1s);
        EXPECT_EQ(client->ends, std::vector<std::string>{c.reason});
    }
}

TEST(BlueZSubscription, EndsWithTheOneWhoHasItAlsoWhereTheLinkStays) {
    Ward ward;
    const auto client = Client::make(ward);
    const auto other = Client::make(ward);
    other->subscribes = false;
    const auto device = client->find(ward);
    other->central->connect(other->find(ward));
    client->central->connect(device);
    ward.air.runFor(1s);
    ASSERT_EQ(client->values, 1);
    client->central->cancelPeripheralConnection(device);
    ward.air.runFor(1s);
    EXPECT_EQ(ward.air.service.links(), 1u);
    EXPECT_EQ(ward.air.service.notifySessions(), 0u);
    client->central->connect(device);
    ward.air.runFor(1s);
    EXPECT_EQ(client->values, 2);
}

// Several who want something.

TEST(BlueZSharing, TwoDriversShareOneLinkUntilTheLastLetsGo) {
    Ward ward;
    Reader other(ward.air.platform);
    ward.reader.driver->startScan();
    other.driver->startScan();
    ASSERT_TRUE(ward.waitFor("36.6"));
    ASSERT_TRUE(ward.waitFor(other, "36.6"));
    EXPECT_EQ(ward.air.service.links(), 1u);
    EXPECT_EQ(ward.thermometer->subscriptions, 1);
    ward.reader.driver->disconnect();
    ASSERT_TRUE(ward.waitFor("disconnect"));
    ward.air.runFor(5s);
    EXPECT_EQ(ward.air.service.links(), 1u);
    other.news();
    ward.reader.news();
    ward.thermometer->send();
    ward.air.runFor(1s);
    EXPECT_EQ(other.news(), "36.6");
    EXPECT_EQ(ward.reader.news(), "");
    other.driver.reset();
    ward.air.runFor(5s);
    EXPECT_EQ(ward.leftovers(), "");
}

TEST(BlueZSharing, DiscoveryGoesOnForOthersAfterItPausedForALink) {
    Ward ward;
    Reader other(ward.air.platform);
    ward.reader.driver->startScan();
    ASSERT_TRUE(ward.waitFor("36.6"));
    other.driver->startScan();
    ward.air.runFor(60s);
    EXPECT_EQ(other.news(), "unknown poweredOn") << "the device is linked and does not advertise";
    const auto second = std::make_shared<Thermometer>();
    ward.air.service.add(second);
    EXPECT_TRUE(ward.waitFor(other, "36.6"));
    EXPECT_EQ(ward.air.service.links(), 2u);
    EXPECT_EQ(ward.air.service.connectsWhileDiscovering, 0);
}

TEST(BlueZSharing, AnAttemptAtAnAbsentDeviceLeavesOthersTheAir) {
    Ward ward;
    ward.air.service.habits.connectTime = 40s;
    ward.thermometer->whenConnected = [&] { ward.thermometer->host->disconnect(); };
    ward.reader.driver->startScan();
    ASSERT_TRUE(ward.waitFor("disconnect"));
    Reader other(ward.air.platform);
    ward.reader.driver->startScan();
    ward.air.service.remove(*ward.thermometer);
    const auto second = std::make_shared<Thermometer>();
    ward.air.service.add(second);
    other.driver->startScan();
    EXPECT_TRUE(ward.waitFor(other, "36.6"));
}

// Strangers on the bus.

TEST(BlueZStranger, IsNotTakenForTheService) {
    Ward ward;
    ward.reader.driver->startScan();
    ASSERT_TRUE(ward.waitFor("36.6"));
    ward.reader.news();

    int error = 0;
    const auto stranger = Bus::open(privateBus().address(), error);
    ward.air.loop.attach(stranger);
    const std::string device = ward.air.service.pathOf(*ward.thermometer);
    const auto say = [&](const std::string& path, const char* interface, const char* member,
                         const char* types, auto... arguments) {
        sd_bus_message* signal = nullptr;
        ASSERT_GE(sd_bus_message_new_signal(stranger->handle(), &signal, path.c_str(), interface, member), 0);
        const Message kept(signal);
        ASSERT_GE(sd_bus_message_append(signal, types, arguments...), 0);
        ASSERT_GE(sd_bus_message_set_destination(signal, ward.air.platform.radio().busName().c_str()), 0);
        ASSERT_GE(sd_bus_send(stranger->handle(), signal, nullptr), 0);
    };
    const char* properties = "org.freedesktop.DBus.Properties";
    say(device, properties, "PropertiesChanged", "sa{sv}as", "org.bluez.Device1", 1, "Connected", "b", 0, 0);
    say("/org/bluez/hci0", properties, "PropertiesChanged", "sa{sv}as", "org.bluez.Adapter1", 1, "Powered",
        "b", 0, 0);
    say(device + "/service0001/char0002", properties, "PropertiesChanged", "sa{sv}as",
        "org.bluez.GattCharacteristic1", 1, "Value", "ay", 1, 0, 0);
    say("/", "org.freedesktop.DBus.ObjectManager", "InterfacesRemoved", "oas", device.c_str(), 1,
        "org.bluez.Device1");
    say("/org/freedesktop/DBus", "org.freedesktop.DBus", "NameOwnerChanged", "sss", "org.bluez", ":1.1", "");
    ward.air.runFor(1s);
    EXPECT_EQ(ward.reader.news(), "");
    ward.air.loop.detach(*stranger);
}

// Costs.

TEST(BlueZCost, AReadingTakesNoMoreThanSixCalls) {
    Ward ward;
    ward.reader.driver->startScan();
    ASSERT_TRUE(ward.waitFor("36.6"));
    int calls = 0;
    for (const auto& [method, count] : ward.air.service.calls) calls += count;
    EXPECT_LE(calls, 6);
}

TEST(BlueZCost, NothingWakesAnIdleProcess) {
    Ward ward;
    ward.reader.driver->startScan();
    ASSERT_TRUE(ward.waitFor("36.6"));
    ward.air.runFor(60s);
    EXPECT_EQ(ward.air.loop.timeout(), std::nullopt);
}

TEST(BlueZIdentifier, IsAVersion5UuidOfAddressAndType) {
    EXPECT_EQ(deviceIdentifier("00:AA:01:01:00:01", "public").uuidString(),
              "B43F8E51-CCFD-5DCC-A41D-A3A6252190C4");
    EXPECT_EQ(deviceIdentifier("F0:AA:01:01:00:01", "random").uuidString(),
              "FCA68435-CE82-55FB-8937-44FAFB9B93C7");
}

// A regression hangs.
TEST(BlueZBus, ThatNobodyReadsKeepsNoProcessFromEnding) {
    PrivateBus daemon;
    int error = 0;
    auto bus = Bus::open(daemon.address(), error);
    ASSERT_TRUE(bus);
    while (bus->uniqueName().empty()) bus->dispatch();
    sd_bus_creds* creds = nullptr;
    pid_t pid = 0;
    ASSERT_GE(sd_bus_get_owner_creds(bus->handle(), SD_BUS_CREDS_PID, &creds), 0);
    ASSERT_GE(sd_bus_creds_get_pid(creds, &pid), 0);
    sd_bus_creds_unref(creds);
    ::kill(pid, SIGSTOP);
    const std::string much(1'000'000, 'x');
    while (!(bus->events() & EPOLLOUT)) {
        Message message = bus->newCall("org.freedesktop.DBus", "/", "org.freedesktop.DBus", "Nothing");
        message.append("s", much.c_str());
        bus->send(message);
    }
    bus.reset();
    ::kill(pid, SIGCONT);
}

// A regression ends in the test runner's own limit: the wait has no end of its own.
TEST(EventLoop, DoesNotSleepBetweenATaskAndWhoeverWaitsForIt) {
    EventLoop loop;
    bool done = false;
    loop.post([&] { done = true; });
    while (!done) loop.step();
    EXPECT_TRUE(done);
}

}  // namespace
}  // namespace corvane::bluez
