// What central.h promises of the adapter, of scanning, and of making and ending links.
#include <algorithm>

#include "tests/conformance/contract_lists.h"

namespace corvane::conformance {
namespace {

using namespace std::chrono_literals;
using Kind = Event::Kind;

bool isUuidText(const std::string& text) {
    const auto uuid = CBUUID::parse(text);
    return text.size() == 36 && uuid && uuid->uuidString() == text;
}

std::size_t discoveriesOf(const Client& client, std::string_view name) {
    return static_cast<std::size_t>(
        std::count_if(client.events.begin(), client.events.end(), [&](const Event& event) {
            return event.kind == Kind::discovered && event.peripheral->name() == name;
        }));
}

/// An application that does everything inside the events lets go of all it holds in one of this kind.
void expectKeptDuring(Kind kind, BackEnd& backEnd, Findings& findings) {
    const auto device = std::make_shared<Sample>();
    device->onSubscribed = [](Sample& sample) { sample.send({1}); };
    backEnd.add(device);
    auto client = std::make_shared<Client>();
    bool seen = false;
    client->onEvent = [&](Event event) {
        if (event.kind != kind) return client->proceed(event);
        seen = true;
        const std::weak_ptr<Client> delegate = client;
        const std::weak_ptr<CBCentralManager> central = client->central;
        const std::weak_ptr<CBPeripheral> peripheral = event.peripheral;
        client->central = nullptr;
        client = nullptr;
        event = {};
        findings.expect(!delegate.expired(), "the delegate is kept");
        findings.expect(!central.expired(), "the central is kept");
        findings.expect(kind == Kind::state || !peripheral.expired(), "the peripheral is kept");
    };
    client->central = backEnd.platform().makeCentralManager(client);
    findings.expect(backEnd.runUntil([&] { return seen; }), "the event comes");
    backEnd.remove(*device);
    backEnd.settle();
}

std::vector<Contract> adapterContracts() {
    return {
        {"EventsNeverComeFromInsideTheCallThatAskedForThem",
         [](BackEnd& backEnd, Findings& findings) {
             Scene scene(backEnd, findings);
             scene.reach(Kind::disconnected);
             findings.expect(!scene.client->heardWhileAsking, "an event came inside a call");
         }},
        {"EventsComeOneAtATime",
         [](BackEnd& backEnd, Findings& findings) {
             Scene scene(backEnd, findings);
             scene.device->onSubscribed = [](Sample& device) { device.send({1}); };
             const auto client = scene.client;
             bool ended = false;
             client->onEvent = [&](Event event) {
                 client->proceed(event);
                 ended |= event.kind == Kind::disconnected;
             };
             scene.makeCentral();
             scene.waitFor([&] { return ended; }, "the end of a link that is driven inside events");
             findings.expect(!client->nested, "an event came inside another");
         }},
        {"DelegateCentralAndPeripheralAreKeptWhileAnEventIsDelivered",
         [](BackEnd& backEnd, Findings& findings) {
             for (const Kind kind : {Kind::state, Kind::discovered, Kind::connected, Kind::services,
                                     Kind::characteristics, Kind::value, Kind::disconnected})
                 expectKeptDuring(kind, backEnd, findings);
         }},
        {"EachChangeOfTheStateIsAnEventAndTheStateIsWhatThatEventSaid",
         [](BackEnd& backEnd, Findings& findings) {
             Scene scene(backEnd, findings);
             scene.reach(Kind::state);
             for (const auto state : {CBManagerState::poweredOff, CBManagerState::poweredOn}) {
                 const std::size_t before = scene.client->count(Kind::state);
                 const CBManagerState old = scene.client->central->state();
                 backEnd.setState(state);
                 findings.expect(scene.client->central->state() == old, "not before the event");
                 scene.waitForOneMore(Kind::state, before);
                 findings.expect(scene.client->last(Kind::state)->state == state, "in the event");
             }
         }},
        {"AnAdapterThatGoesOffTellsItsStateAndThenTheEndOfTheLink",
         [](BackEnd& backEnd, Findings& findings) {
             Scene scene(backEnd, findings);
             scene.reach(Kind::connected);
             const std::size_t before = scene.client->events.size();
             // As drivers do when they hear of a new state.
             scene.client->onEvent = [&](Event event) {
                 const bool isState = event.kind == Kind::state;
                 scene.client->events.push_back(std::move(event));
                 if (isState) scene.client->central->cancelPeripheralConnection(scene.peripheral);
             };
             backEnd.setState(CBManagerState::poweredOff);
             scene.waitForOneMore(Kind::disconnected, 0);
             scene.settle();
             const std::vector<Event> heard(scene.client->events.begin() + static_cast<long>(before),
                                            scene.client->events.end());
             findings.require(heard.size() == 2, "two events");
             findings.expect(heard[0].kind == Kind::state, "the state first");
             findings.expect(heard[1].state == CBManagerState::poweredOff, "the adapter is off at the end");
             findings.expect(scene.device->host == nullptr, "the device has heard of it");
         }},
        {"AnAdapterThatWasOffNeitherScansNorConnectsByItself",
         [](BackEnd& backEnd, Findings& findings) {
             Scene scene(backEnd, findings);
             scene.reach(Kind::discovered);
             backEnd.remove(*scene.device);
             scene.client->central->connect(scene.peripheral);
             scene.client->central->scanForPeripherals();
             backEnd.settle();
             backEnd.setState(CBManagerState::poweredOff);
             scene.waitForOneMore(Kind::state, 1);
             backEnd.setState(CBManagerState::poweredOn);
             scene.waitForOneMore(Kind::state, 2);
             const std::size_t before = scene.client->count(Kind::discovered);
             backEnd.add(scene.device);
             scene.settle();
             findings.expect(scene.client->count(Kind::discovered) == before, "the scan was over");
             findings.expect(scene.device->links == 0, "the attempt was over");
         }},
        {"NothingIsDoneWhileTheAdapterIsOff",
         [](BackEnd& backEnd, Findings& findings) {
             Scene scene(backEnd, findings);
             scene.reach(Kind::characteristics);
             backEnd.setState(CBManagerState::poweredOff);
             scene.waitForOneMore(Kind::state, 1);
             scene.settle();
             const std::size_t before = scene.client->events.size();
             const std::size_t told = scene.device->told.size();
             scene.client->central->scanForPeripherals();
             scene.client->central->connect(scene.peripheral);
             scene.peripheral->discoverServices({});
             scene.peripheral->setNotifyValue(true, *scene.characteristic());
             scene.write({1});
             scene.client->central->cancelPeripheralConnection(scene.peripheral);
             scene.client->central->stopScan();
             scene.settle();
             findings.expect(scene.client->events.size() == before, "an event came");
             findings.expect(scene.device->told.size() == told, "the device was called");
         }},
    };
}

std::vector<Contract> scanContracts() {
    return {
        {"AScanReportsEveryAdvertiserAlsoOneWithoutName",
         [](BackEnd& backEnd, Findings& findings) {
             Scene scene(backEnd, findings);
             const auto nameless = std::make_shared<Sample>("");
             const auto late = std::make_shared<Sample>("Late");
             backEnd.add(nameless);
             scene.reach(Kind::state);
             scene.client->central->scanForPeripherals();
             scene.waitForOneMore(Kind::discovered, 1);
             backEnd.add(late);
             scene.waitForOneMore(Kind::discovered, 2);
             findings.expect(discoveriesOf(*scene.client, "Sample") == 1, "the one that was there");
             findings.expect(discoveriesOf(*scene.client, "Late") == 1, "the one that came later");
             findings.expect(std::any_of(scene.client->events.begin(), scene.client->events.end(),
                                         [](const Event& event) {
                                             return event.kind == Kind::discovered &&
                                                    !event.peripheral->name();
                                         }),
                             "the one without name has none");
             backEnd.remove(*nameless);
             backEnd.remove(*late);
         }},
        {"ADeviceIsReportedOncePerScan",
         [](BackEnd& backEnd, Findings& findings) {
             Scene scene(backEnd, findings);
             scene.reach(Kind::state);
             scene.scan();
             scene.settle();
             findings.expect(scene.client->count(Kind::discovered) == 1, "reported more than once");
         }},
        {"ADeviceIsReportedAgainWhenItsNameComesOrChanges",
         [](BackEnd& backEnd, Findings& findings) {
             Scene scene(backEnd, findings);
             scene.device->advertised.clear();
             scene.reach(Kind::state);
             scene.scan();
             findings.expect(!scene.client->last(Kind::discovered)->peripheral->name(), "no name at first");
             for (const char* name : {"Came", "Changed"}) {
                 const std::size_t before = scene.client->count(Kind::discovered);
                 scene.device->advertised = name;
                 backEnd.nameChanged(*scene.device);
                 scene.waitForOneMore(Kind::discovered, before);
                 findings.expect(scene.client->last(Kind::discovered)->peripheral->name() == name,
                                 "the peripheral has the new name");
             }
         }},
        {"NamesAreValidUtf8",
         [](BackEnd& backEnd, Findings& findings) {
             Scene scene(backEnd, findings);
             scene.device->advertised = "A\xC3(\xFF";
             backEnd.nameChanged(*scene.device);
             scene.reach(Kind::discovered);
             const std::string name = scene.peripheral->name().value_or("");
             findings.expect(name.find_first_of("\xC3\xFF") == name.npos, "bytes that are no text are gone");
             findings.expect(name.find("A") == 0 && name.find("(") != name.npos, "the text stays");
         }},
        {"ScanningWhileScanningReportsEveryDeviceAgain",
         [](BackEnd& backEnd, Findings& findings) {
             Scene scene(backEnd, findings);
             scene.reach(Kind::state);
             scene.scan();
             scene.scan();
             findings.expect(scene.client->count(Kind::discovered) == 2, "once for each scan");
         }},
        {"NothingIsReportedAfterStopScan",
         [](BackEnd& backEnd, Findings& findings) {
             Scene scene(backEnd, findings);
             scene.reach(Kind::state);
             scene.scan();
             scene.client->central->stopScan();
             scene.client->central->stopScan();
             scene.device->advertised = "Another";
             backEnd.nameChanged(*scene.device);
             scene.settle();
             scene.client->central->scanForPeripherals();
             scene.client->central->stopScan();
             scene.settle();
             findings.expect(scene.client->count(Kind::discovered) == 1, "the scan goes on");
         }},
        {"OneDeviceIsOnePeripheralObjectOfItsCentral",
         [](BackEnd& backEnd, Findings& findings) {
             Scene scene(backEnd, findings);
             scene.reach(Kind::disconnected);
             scene.scan();
             findings.expect(scene.client->last(Kind::discovered)->peripheral == scene.peripheral,
                             "the same object after a link and a new scan");
             findings.expect(scene.client->last(Kind::disconnected)->peripheral == scene.peripheral,
                             "the same object in the events");
         }},
        {"APeripheralObjectBelongsToOneCentral",
         [](BackEnd& backEnd, Findings& findings) {
             Scene scene(backEnd, findings);
             Scene other(backEnd, findings);
             backEnd.remove(*other.device);
             scene.reach(Kind::discovered);
             other.reach(Kind::discovered);
             findings.expect(scene.peripheral != other.peripheral, "each central has its own");
             findings.expect(scene.peripheral->identifier() == other.peripheral->identifier(),
                             "the device is the same");
         }},
        {"AnIdentifierIsUpperCaseUuidTextAndNoOtherDevicesOwn",
         [](BackEnd& backEnd, Findings& findings) {
             Scene scene(backEnd, findings);
             const auto second = std::make_shared<Sample>("Second");
             backEnd.add(second);
             scene.reach(Kind::state);
             scene.client->central->scanForPeripherals();
             scene.waitForOneMore(Kind::discovered, 1);
             std::vector<std::string> identifiers;
             for (const Event& event : scene.client->events) {
                 if (event.kind == Kind::discovered) identifiers.push_back(event.peripheral->identifier());
             }
             findings.expect(std::all_of(identifiers.begin(), identifiers.end(), isUuidText),
                             "upper-case UUID text");
             findings.expect(identifiers[0] != identifiers[1], "two devices, two identifiers");
             backEnd.remove(*second);
         }},
    };
}

std::vector<Contract> linkContracts() {
    return {
        {"AnAttemptLastsUntilTheDeviceComes",
         [](BackEnd& backEnd, Findings& findings) {
             Scene scene(backEnd, findings);
             scene.reach(Kind::discovered);
             backEnd.remove(*scene.device);
             scene.client->central->connect(scene.peripheral);
             for (int i = 0; i < 3; ++i) scene.settle();
             findings.expect(scene.client->count(Kind::connected) == 0, "there was nothing to connect to");
             backEnd.add(scene.device);
             scene.waitForOneMore(Kind::connected, 0);
         }},
        {"ACancelledAttemptIsOverWithoutAnEvent",
         [](BackEnd& backEnd, Findings& findings) {
             Scene scene(backEnd, findings);
             scene.reach(Kind::discovered);
             backEnd.remove(*scene.device);
             scene.client->central->connect(scene.peripheral);
             scene.settle();
             scene.client->central->cancelPeripheralConnection(scene.peripheral);
             backEnd.add(scene.device);
             scene.settle();
             findings.expect(scene.device->links == 0, "the device was linked all the same");
             findings.expect(scene.client->count(Kind::connected) == 0, "a connection was reported");
             findings.expect(scene.client->count(Kind::disconnected) == 0, "there was no link to end");
         }},
        {"AnEndThatThisSideAskedForIsNoError",
         [](BackEnd& backEnd, Findings& findings) {
             Scene scene(backEnd, findings);
             scene.reach(Kind::connected);
             scene.client->central->cancelPeripheralConnection(scene.peripheral);
             scene.cancel();
             scene.settle();
             findings.expect(scene.client->count(Kind::disconnected) == 1, "asked twice, ended once");
             findings.expect(!scene.client->last(Kind::disconnected)->error, "no error");
             findings.expect(scene.device->host == nullptr, "the device has heard of it");
         }},
        {"ALinkThatIsLostIsReported",
         [](BackEnd& backEnd, Findings& findings) {
             Scene scene(backEnd, findings);
             scene.reach(Kind::connected);
             backEnd.remove(*scene.device);
             scene.waitForOneMore(Kind::disconnected, 0);
             findings.expect(scene.client->last(Kind::disconnected)->error, "this side did not ask for it");
         }},
        {"ALinkThatTheDeviceEndsIsReported",
         [](BackEnd& backEnd, Findings& findings) {
             Scene scene(backEnd, findings);
             scene.reach(Kind::connected);
             scene.device->host->disconnect();
             scene.waitForOneMore(Kind::disconnected, 0);
             findings.expect(scene.client->last(Kind::disconnected)->error, "this side did not ask for it");
         }},
        {"OperationsOnALinkThatIsGoneDoNothing",
         [](BackEnd& backEnd, Findings& findings) {
             Scene scene(backEnd, findings);
             scene.reach(Kind::disconnected);
             scene.settle();
             const std::size_t told = scene.device->told.size();
             const std::size_t heard = scene.client->events.size();
             scene.peripheral->discoverServices({});
             scene.peripheral->discoverCharacteristics({},
                                                       *scene.client->last(Kind::characteristics)->service);
             scene.peripheral->setNotifyValue(true, *scene.characteristic());
             scene.write({1});
             scene.client->central->cancelPeripheralConnection(scene.peripheral);
             scene.settle();
             findings.expect(scene.device->told.size() == told, "the device was called");
             findings.expect(scene.client->events.size() == heard, "an event came");
         }},
        {"LettingGoOfACentralEndsItsLink",
         [](BackEnd& backEnd, Findings& findings) {
             Scene scene(backEnd, findings);
             scene.reach(Kind::value);
             scene.client->central = nullptr;
             scene.waitFor([&] { return scene.device->host == nullptr; }, "the end of the link");
         }},
        {"LettingGoOfACentralEndsItsAttempt",
         [](BackEnd& backEnd, Findings& findings) {
             Scene scene(backEnd, findings);
             scene.reach(Kind::discovered);
             backEnd.remove(*scene.device);
             scene.client->central->connect(scene.peripheral);
             scene.settle();
             scene.client->central = nullptr;
             backEnd.add(scene.device);
             scene.settle();
             findings.expect(scene.device->links == 0, "the device was linked all the same");
         }},
        {"NoEventFollowsTheCentral",
         [](BackEnd& backEnd, Findings& findings) {
             Scene scene(backEnd, findings);
             scene.reach(Kind::value);
             scene.client->central->scanForPeripherals();
             scene.peripheral->discoverServices({});
             scene.device->send({2});
             const std::size_t before = scene.client->events.size();
             scene.client->central = nullptr;
             scene.device->send({3});
             scene.peripheral->discoverServices({});
             backEnd.setState(CBManagerState::poweredOff);
             scene.settle();
             findings.expect(scene.client->events.size() == before, "an event came");
             backEnd.setState(CBManagerState::poweredOn);
         }},
    };
}

}  // namespace

std::vector<Contract> centralContracts() {
    std::vector<Contract> all = adapterContracts();
    for (const auto& list : {scanContracts(), linkContracts()})
        all.insert(all.end(), list.begin(), list.end());
    return all;
}

}  // namespace corvane::conformance
