// A device on the air through BlueZ: what BlueZ and a central see of it, and what it hears of them.
#include <gmock/gmock.h>

#include "corvane/devices/catalogue.h"
#include "corvane/framework/hexadecimal_text.h"
#include "corvane/platform/bluez/bluez_peripheral.h"
#include "emulators/emulator.h"
#include "tests/bluez/air.h"
#include "tests/bluez/peripheral_side.h"

namespace corvane::bluez {
namespace {

using namespace std::chrono_literals;
using State = BlueZPeripheral::State;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using Words = std::vector<std::string>;

constexpr CBUUID notifying{"fff1"}, indicating{"fff2"}, writable{"fff3"}, readable{"fff4"};

constexpr CBUUID longServices[] = {CBUUID("6e400001-b5a3-f393-e0a9-e50e24dcca9e"),
                                   CBUUID("6e400002-b5a3-f393-e0a9-e50e24dcca9e")};

/// Notes what it hears.
class Probe final : public PeripheralDevice {
public:
    std::string name() const override { return "Probe"; }
    std::vector<GattService> services() const override {
        return {{CBUUID("fff0"),
                 {{notifying, gatt::notify},
                  {indicating, gatt::indicate},
                  {writable, gatt::write | gatt::writeWithoutResponse}}},
                {longServices[0], {}},
                {longServices[1], {}},
                {CBUUID("fee0"), {{readable, gatt::read | gatt::notify}}}};
    }
    void connected(PeripheralHost& newHost) override {
        host = &newHost;
        heard.emplace_back("linked");
    }
    void disconnected() override {
        host = nullptr;
        heard.emplace_back("ended");
    }
    void subscribed(const CBUUID& characteristic, bool enabled) override {
        heard.push_back((enabled ? "on " : "off ") + nameOf(characteristic));
    }
    void written(const CBUUID& characteristic, Bytes value, CBCharacteristicWriteType type) override {
        const char* how = type == CBCharacteristicWriteType::withResponse ? "request " : "command ";
        heard.push_back(how + nameOf(characteristic) + ' ' + hexadecimalText(value));
    }
    void send(const CBUUID& characteristic, std::vector<std::uint8_t> value) {
        if (host) host->notify(characteristic, value);
    }

    Words news() { return std::exchange(heard, {}); }

    PeripheralHost* host = nullptr;
    Words heard;

private:
    static std::string nameOf(const CBUUID& characteristic) {
        return characteristic.uuidString().substr(4, 4);
    }
};

class BlueZPeripheralTest : public testing::Test {
protected:
    explicit BlueZPeripheralTest(std::string bus = privateBus().address()) : address(std::move(bus)) {}

    const std::string address;
    EventLoop loop;
    StandIn service{address, loop};
    PeripheralSide side{service};
    std::shared_ptr<Probe> device = std::make_shared<Probe>();
    Words lines;
    std::unique_ptr<BlueZPeripheral> peripheral;

    void start() { start(device); }
    void start(std::shared_ptr<PeripheralDevice> with) {
        peripheral = std::make_unique<BlueZPeripheral>(
            std::move(with),
            BlueZPeripheralOptions{.adapter = "hci0",
                                   .busAddress = address,
                                   .onChange = [this](std::string_view line) { lines.emplace_back(line); }});
    }
    ~BlueZPeripheralTest() override { loop.discardTasks(); }

    bool runUntil(const std::function<bool()>& done) {
        for (const auto end = Clock::now() + 20s; Clock::now() < end;) {
            if (done()) return true;
            if (peripheral) peripheral->runUntil([] { return false; }, 1ms);
            loop.step(0ns);
        }
        return false;
    }
    bool reaches(State state) {
        return runUntil([&] { return peripheral->state() == state; });
    }
    bool isOnTheAir() {
        return reaches(State::advertising) && side.isOnTheAir() && side.advertised == "Probe" &&
               service.alias() == "Probe" && side.characteristics.size() == 4;
    }
    bool linksAndSubscribes() {
        side.link();
        side.call(side.find(notifying), "StartNotify");
        return runUntil([&] { return !device->heard.empty() && device->heard.back() == "on FFF1"; });
    }

    /// What the device answers to the service: the value, or the error's name. Whatever it sent before has
    /// come when this returns.
    std::string ask(const std::string& path, const char* member,
                    const std::function<void(Message&)>& append = {}) {
        std::string answer;
        bool answered = false;
        side.call(path, member, append, [&](const Reply& reply) {
            const void* bytes = nullptr;
            std::size_t size = 0;
            answer = reply.errorName();
            if (!reply.failed() && sd_bus_message_read_array(reply.message(), 'y', &bytes, &size) > 0)
                answer = hexadecimalText({static_cast<const std::uint8_t*>(bytes), size});
            answered = true;
        });
        EXPECT_TRUE(runUntil([&] { return answered; }));
        return answer;
    }
    std::string ask(const CBUUID& characteristic, const char* member,
                    const std::function<void(Message&)>& append = {}) {
        return ask(side.find(characteristic), member, append);
    }
    std::string write(const CBUUID& characteristic, std::vector<std::uint8_t> value, const char* type) {
        return ask(characteristic, "WriteValue", [&](Message& message) {
            message.appendBytes(value.data(), value.size());
            message.appendOptions("type", type);
        });
    }
    std::string read(const CBUUID& characteristic, unsigned offset) {
        return ask(characteristic, "ReadValue",
                   [&](Message& message) { message.append("a{sv}", 1, "offset", "q", offset); });
    }
};

Words descriptionOf(const PeripheralDevice& device) {
    const std::pair<unsigned, const char*> flags[] = {{gatt::read, " read"},
                                                      {gatt::writeWithoutResponse, " write-without-response"},
                                                      {gatt::write, " write"},
                                                      {gatt::notify, " notify"},
                                                      {gatt::indicate, " indicate"}};
    Words lines;
    for (const GattService& service : device.services()) {
        for (const GattCharacteristic& characteristic : service.characteristics) {
            lines.push_back(service.uuid.uuidString() + ' ' + characteristic.uuid.uuidString());
            for (const auto& [bit, name] : flags) {
                if (characteristic.properties & bit) lines.back() += name;
            }
        }
    }
    return lines;
}

Words descriptionOf(const PeripheralSide& side) {
    Words lines;
    for (const std::string& path : side.handles) {
        const PeripheralSide::Characteristic& of = side.characteristics.at(path);
        lines.push_back(of.service + ' ' + of.uuid);
        for (const std::string& flag : of.flags) lines.back() += ' ' + flag;
    }
    return lines;
}

// In an advert's 31 bytes there is room for one UUID of 128 bits.
Words advertisedOf(const PeripheralDevice& device) {
    Words uuids;
    for (const GattService& service : device.services()) {
        if (service.uuid != longServices[1]) uuids.push_back(service.uuid.uuidString());
    }
    return uuids;
}

TEST_F(BlueZPeripheralTest, OffersWhatTheDeviceOffersAndTakesItBack) {
    std::vector<std::shared_ptr<PeripheralDevice>> devices = {device};
    for (const Model* model : models()) devices.push_back(makeEmulator(*model, {}));
    for (const auto& of : devices) {
        start(of);
        ASSERT_TRUE(reaches(State::advertising)) << of->name();
        EXPECT_EQ(side.advertised, of->name());
        EXPECT_EQ(side.advertisedServices, advertisedOf(*of)) << of->name();
        EXPECT_EQ(service.alias(), of->name());
        EXPECT_EQ(descriptionOf(side), descriptionOf(*of)) << of->name();
        side.link();
        EXPECT_TRUE(reaches(State::linked));
        const int ends = service.calls["Disconnect"];
        peripheral.reset();
        EXPECT_TRUE(runUntil([&] { return side.isEmpty() && service.alias() == "stand-in"; })) << of->name();
        EXPECT_EQ(service.calls["Disconnect"], ends + 1);
        side.unlink();
    }
    EXPECT_THAT(device->heard, ElementsAre("linked", "ended"));
}

TEST_F(BlueZPeripheralTest, SendsValuesToWhoHasSubscribed) {
    start();
    ASSERT_TRUE(isOnTheAir());
    ASSERT_TRUE(linksAndSubscribes());
    device->send(notifying, {1});
    device->send(indicating, {2});  // Nobody has asked for these yet.
    EXPECT_EQ(ask(indicating, "StartNotify"), "");
    EXPECT_EQ(ask(readable, "StartNotify"), "");
    device->send(indicating, {3});
    device->send(notifying, {4});
    device->send(notifying, {4});
    device->send(readable, std::vector<std::uint8_t>(300, 5));
    EXPECT_EQ(ask(notifying, "StopNotify"), "");
    device->send(notifying, {6});
    EXPECT_EQ(read(readable, 0), [] {
        std::string text;
        for (int i = 0; i < 300; ++i) text += "05";
        return text;
    }());
    EXPECT_EQ(read(readable, 298), "0505") << "a long value is read in parts";
    EXPECT_EQ(read(readable, 300), "");

    Words short_;
    for (const std::string& value : side.values) short_.push_back(value.substr(4, 4) + value.substr(36, 7));
    EXPECT_THAT(short_, ElementsAre("FFF1:01", "FFF2:03", "FFF1:04", "FFF1:04", "FFF4:050505"));
    EXPECT_THAT(device->heard, ElementsAre("linked", "on FFF1", "on FFF2", "on FFF4", "off FFF1"));
}

TEST_F(BlueZPeripheralTest, HandsOverWritesWithTheirType) {
    start();
    ASSERT_TRUE(isOnTheAir());
    side.link();
    EXPECT_EQ(write(writable, {1, 2}, "request"), "");
    EXPECT_EQ(write(writable, {3}, "command"), "");
    EXPECT_EQ(write(writable, {}, "reliable"), "");
    EXPECT_EQ(write(writable, std::vector<std::uint8_t>(512, 7), "command"), "");
    EXPECT_THAT(device->heard, ElementsAre("linked", "request FFF3 0102", "command FFF3 03", "request FFF3 ",
                                           testing::StartsWith("command FFF3 070707")));
}

TEST_F(BlueZPeripheralTest, TellsTheEndOfALinkAndBeginsTheNextAnew) {
    start();
    ASSERT_TRUE(isOnTheAir());
    for (int round = 0; round < 2; ++round) {
        ASSERT_TRUE(linksAndSubscribes());
        device->host->after(0ns, [this] { device->heard.emplace_back("task"); });
        ASSERT_TRUE(runUntil([&] { return device->heard.back() == "task"; }));
        auto kept = std::make_shared<int>();
        const std::weak_ptr<int> byTask = kept;
        device->host->after(1h, [held = std::move(kept)] {});
        side.unlink();
        ASSERT_TRUE(runUntil([&] { return device->host == nullptr; }));
        EXPECT_EQ(peripheral->state(), State::advertising);
        EXPECT_TRUE(byTask.expired()) << "its tasks go with the link";
        EXPECT_THAT(device->news(), ElementsAre("linked", "on FFF1", "task", "ended"));
    }
    side.link();
    ASSERT_TRUE(reaches(State::linked));
    device->host->disconnect();
    EXPECT_TRUE(runUntil([&] { return service.calls["Disconnect"] == 1; }));
}

TEST_F(BlueZPeripheralTest, LinksToACentralThatIsQuickerThanTheAnswer) {
    side.whenAdvertised = [this] { side.link(); };
    start();
    EXPECT_TRUE(reaches(State::linked));
    EXPECT_THAT(device->heard, ElementsAre("linked"));
}

// A mouse that is linked to the adapter all the while.
TEST_F(BlueZPeripheralTest, KnowsItsCentralFromWhoWasThereBefore) {
    side.link(2);
    start();
    ASSERT_TRUE(isOnTheAir());
    EXPECT_TRUE(linksAndSubscribes());
    side.unlink(1);
    EXPECT_TRUE(reaches(State::advertising));
    side.link(1);
    EXPECT_TRUE(reaches(State::linked));
    side.unlink(2);
    EXPECT_EQ(ask(notifying, "StartNotify"), "");
    EXPECT_THAT(device->news(), ElementsAre("linked", "on FFF1", "ended", "linked", "on FFF1"));
    // Unless it is the very one that reads.
    peripheral.reset();
    start();
    ASSERT_TRUE(isOnTheAir());
    EXPECT_EQ(ask(notifying, "StartNotify"), "");
    EXPECT_THAT(device->news(), ElementsAre("ended", "linked", "on FFF1"));
}

// One that comes later is linked as a central would be, until there is one that asks for something.
TEST_F(BlueZPeripheralTest, LeavesAMouseForTheCentralThatComesAfterIt) {
    start();
    ASSERT_TRUE(isOnTheAir());
    side.link(2);
    ASSERT_TRUE(reaches(State::linked));
    EXPECT_TRUE(linksAndSubscribes());
    EXPECT_THAT(device->news(), ElementsAre("linked", "ended", "linked", "on FFF1"));
    side.unlink(1);
    EXPECT_TRUE(reaches(State::advertising));
    EXPECT_THAT(device->news(), ElementsAre("ended"));
    // Nor does a mouse get in the way of a central that is at work.
    side.unlink(2);
    EXPECT_TRUE(linksAndSubscribes());
    side.link(2);
    EXPECT_EQ(ask(notifying, "StopNotify"), "");
    EXPECT_THAT(device->news(), ElementsAre("linked", "on FFF1", "off FFF1"));
}

struct Mishap {
    const char* name;
    void (*happen)(StandIn& service, PeripheralSide& side);
    void (*mend)(StandIn& service);
};
const Mishap mishaps[] = {
    {"the service is restarted", [](StandIn& service, PeripheralSide&) { service.vanish(); },
     [](StandIn& service) { service.comeBack(); }},
    {"the adapter is off and on", [](StandIn& service, PeripheralSide&) { service.setPowered(false); },
     [](StandIn& service) { service.setPowered(true); }},
    {"the adapter is pulled out and plugged in",
     [](StandIn& service, PeripheralSide&) { service.removeAdapter(); },
     [](StandIn& service) { service.addAdapter(); }},
    {"the advertisement is released",
     [](StandIn& service, PeripheralSide& side) {
         side.releaseAdvertisement();
         service.removeAdapter();
     },
     [](StandIn& service) { service.addAdapter(); }},
};

TEST_F(BlueZPeripheralTest, IsOnTheAirAnewAfterWhateverHappensAtWhateverStep) {
    const char* const steps[] = {"Get", "Set", "RegisterApplication", "RegisterAdvertisement", "linked"};
    for (const Mishap& mishap : mishaps) {
        for (const std::string step : steps) {
            SCOPED_TRACE(std::string(mishap.name) + " at " + step);
            service.calls.clear();
            start();
            if (step == "linked") {
                ASSERT_TRUE(isOnTheAir() && linksAndSubscribes());
            } else {
                service.lostReplies[step] = 1;
                ASSERT_TRUE(runUntil([&] { return service.calls[step] == 1 && !service.lostReplies[step]; }));
            }
            mishap.happen(service, side);
            ASSERT_TRUE(reaches(State::waiting));
            side.unlink();
            mishap.mend(service);
            ASSERT_TRUE(isOnTheAir());
            ASSERT_TRUE(linksAndSubscribes());
            const Words once = {"linked", "on FFF1"};
            const Words twice = {"linked", "on FFF1", "ended", "linked", "on FFF1"};
            EXPECT_EQ(device->news(), step == "linked" ? twice : once);
            peripheral.reset();
            EXPECT_TRUE(runUntil([&] { return side.isEmpty() && service.alias() == "stand-in"; }));
            device->news();
            side.unlink();
        }
    }
}

TEST_F(BlueZPeripheralTest, SaysWhyItIsRefusedAndTriesAgainWhenTheAdapterChanges) {
    struct Case {
        const char* method;
        const char* line;
    };
    const Case cases[] = {{"Get", "asking for the adapter's name: No"},
                          {"Set", "setting the adapter's name: No"},
                          {"RegisterApplication", "registering the services: No"},
                          {"RegisterAdvertisement", "registering the advertisement: No"}};
    for (const Case& c : cases) {
        service.refusals[c.method] = {{"org.bluez.Error.NotPermitted", "No"}};
        start();
        ASSERT_TRUE(reaches(State::refused)) << c.method;
        EXPECT_EQ(lines.back(), c.line);
        service.setPowered(false);
        ASSERT_TRUE(reaches(State::waiting));
        EXPECT_TRUE(side.isEmpty());
        service.setPowered(true);
        EXPECT_TRUE(isOnTheAir()) << c.method;
        peripheral.reset();
        // With the alias back no call of this round is under way that the next round's refusal could meet.
        EXPECT_TRUE(runUntil([&] { return side.isEmpty() && service.alias() == "stand-in"; }));
    }
    service.refusals["GetManagedObjects"] = {{"org.freedesktop.DBus.Error.AccessDenied", "No"}};
    start();
    EXPECT_TRUE(reaches(State::refused));
    EXPECT_THAT(lines, Contains("the Bluetooth service may not be used from here"));
}

TEST_F(BlueZPeripheralTest, SurvivesWhatNoHonestServiceOrCentralDoes) {
    start();
    ASSERT_TRUE(isOnTheAir());
    const std::string path = side.find(writable);
    // Before there is a link.
    EXPECT_EQ(write(writable, {1}, "request"), "");
    EXPECT_EQ(ask(notifying, "StartNotify"), "");
    EXPECT_EQ(ask(notifying, "StopNotify"), "");
    EXPECT_EQ(ask(indicating, "StartNotify"), "");
    EXPECT_THAT(device->news(), ElementsAre());
    side.link();
    ASSERT_TRUE(reaches(State::linked));
    EXPECT_THAT(device->news(), ElementsAre("linked", "on FFF2"));

    const std::string unknown = "org.freedesktop.DBus.Error.Unknown";
    const std::string wrong = "org.freedesktop.DBus.Error.InvalidArgs";
    EXPECT_THAT(ask(path + "/descriptor", "ReadValue"), HasSubstr(unknown));
    EXPECT_THAT(ask("/org/corvane", "StartNotify"), HasSubstr(unknown));
    EXPECT_THAT(ask(path, "AcquireWrite"), HasSubstr(unknown));
    EXPECT_EQ(ask(path, "WriteValue", [](Message& message) { message.append("s", "text"); }), wrong);
    EXPECT_EQ(ask(path, "WriteValue", [](Message& message) { message.append("aya{sv}", 1, 7, 0); }), "");
    EXPECT_EQ(ask(path, "WriteValue",
                  [](Message& message) { message.append("aya{sv}", 1, 8, 2, "type", "u", 5, "x", "s", ""); }),
              "");
    EXPECT_EQ(ask(path, "WriteValue",
                  [](Message& message) { message.append("aya{sv}", 1, 9, 1, "offset", "q", 65535); }),
              "org.bluez.Error.InvalidOffset");
    EXPECT_EQ(write(writable, std::vector<std::uint8_t>(513), "request"),
              "org.bluez.Error.InvalidValueLength");
    EXPECT_EQ(write(writable, std::vector<std::uint8_t>(100'000), "command"),
              "org.bluez.Error.InvalidValueLength");
    EXPECT_EQ(read(readable, 65535), "org.bluez.Error.InvalidOffset");
    EXPECT_EQ(ask(notifying, "StartNotify"), "");
    EXPECT_EQ(ask(notifying, "StartNotify"), "");
    side.link();
    EXPECT_EQ(ask(notifying, "StopNotify"), "");
    EXPECT_THAT(device->news(),
                ElementsAre("request FFF3 07", "request FFF3 08", "on FFF1", "on FFF1", "off FFF1"));

    // Somebody else on the bus.
    int error = 0;
    const auto stranger = Bus::open(privateBus().address(), error);
    loop.attach(stranger);
    const std::string client = side.client();
    for (const char* member : {"StartNotify", "StopNotify"}) {
        std::string refused;
        const Slot call =
            stranger->call(stranger->newCall(client, path, "org.bluez.GattCharacteristic1", member),
                           [&](const Reply& reply) { refused = reply.errorName(); });
        EXPECT_TRUE(runUntil([&] { return !refused.empty(); }));
        EXPECT_EQ(refused, "org.freedesktop.DBus.Error.AccessDenied");
    }
    loop.detach(*stranger);
    EXPECT_THAT(device->news(), ElementsAre());
    EXPECT_EQ(peripheral->state(), State::linked);
}

struct OwnBus {
    std::unique_ptr<PrivateBus> bus = std::make_unique<PrivateBus>();
};
struct BlueZPeripheralOnABusThatEnds : OwnBus, BlueZPeripheralTest {
    BlueZPeripheralOnABusThatEnds() : BlueZPeripheralTest(bus->address()) {}
};

TEST_F(BlueZPeripheralOnABusThatEnds, TellsTheEndOfTheLink) {
    start();
    ASSERT_TRUE(isOnTheAir());
    ASSERT_TRUE(linksAndSubscribes());
    bus.reset();
    EXPECT_TRUE(reaches(State::refused));
    EXPECT_THAT(device->heard, ElementsAre("linked", "on FFF1", "ended"));
    EXPECT_EQ(lines.back(), "there is no system bus");
}

TEST(BlueZPeripheral, WithoutABusItIsRefusedAtOnce) {
    BlueZPeripheral peripheral(std::make_shared<Probe>(),
                               {.adapter = "hci0", .busAddress = "unix:path=/nonexistent", .onChange = {}});
    EXPECT_EQ(peripheral.state(), State::refused);
}

}  // namespace
}  // namespace corvane::bluez
