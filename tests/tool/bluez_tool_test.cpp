// The program on a machine's Bluetooth: measuring, and finding out why it cannot.
#include <gmock/gmock.h>

#include "bluez_machine.h"
#include "corvane/devices/catalogue.h"
#include "emulators/emulator.h"
#include "tests/bluez/peripheral_side.h"

namespace corvane {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

void addEmulator(BlueZMachine& machine, const Model& model, EmulatorFault::Kind fault = {}) {
    machine.service.add(makeEmulator(model, {.seed = 1, .fault = {.kind = fault}, .onEvent = {}}));
}

// As lines in any order, without what tells one radio's devices from another's.
std::vector<std::string> readingsIn(const std::string& jsonLines) {
    std::vector<std::string> readings;
    for (Json line : jsonLinesOf(jsonLines)) {
        line["record"].erase("uuid");
        readings.push_back(line.dump());
    }
    return readings;
}

TEST(BlueZMeasure, ReadsEveryModelAsTheSimulatedRadioDoes) {
    BlueZMachine machine;
    for (const Model* model : models()) addEmulator(machine, *model);
    const Ran ran = machine.run("corvane measure --all --json --timeout 600");
    EXPECT_EQ(ran.status, 0) << ran.err;
    EXPECT_THAT(readingsIn(ran.out), testing::UnorderedElementsAreArray(readingsIn(
                                         sh("corvane measure --all --json --platform simulated").out)));
    EXPECT_EQ(machine.leftovers(), "");
}

TEST(BlueZMeasure, TakesValuesOnTheWayThatIsChosen) {
    for (const std::string way : {"auto", "signals", "socket"}) {
        BlueZMachine machine;
        addEmulator(machine, ECGTD4257Device::model);
        const Ran ran = machine.run("corvane measure ecg-td4257 --json --timeout 600 --notify-path " + way);
        EXPECT_EQ(ran.status, 0) << way << '\n' << ran.err;
        EXPECT_EQ(readingsIn(ran.out).size(), 1u);
        EXPECT_EQ(machine.service.calls["AcquireNotify"] > 0, way == "socket");
        EXPECT_EQ(machine.service.calls["StartNotify"] > 0, way != "socket");
        EXPECT_EQ(machine.leftovers(), "");
    }
}

// As over ssh: through a pipe no descriptor passes.
TEST(BlueZMeasure, ReadsBySignalsWhereTheBusPassesNoSockets) {
    if (sh("command -v systemd-stdio-bridge").status != 0) GTEST_SKIP() << "systemd-stdio-bridge is missing";
    BlueZMachine machine;
    addEmulator(machine, TemperatureAOJ20ADevice::model);
    const Ran ran = machine.run(R"(bridge="systemd-stdio-bridge -p $DBUS_SYSTEM_BUS_ADDRESS | cat"
escaped=$(printf %s "$bridge" | od -An -v -tx1 | tr -d '\n' | sed 's/ /%/g')
export DBUS_SYSTEM_BUS_ADDRESS="unixexec:path=sh,argv1=-c,argv2=$escaped"
corvane measure temperature-aoj20a --json --timeout 600 --notify-path socket)");
    EXPECT_EQ(ran.status, 0) << ran.err;
    EXPECT_EQ(readingsIn(ran.out).size(), 1u);
    EXPECT_EQ(machine.service.calls["AcquireNotify"], 0);
    EXPECT_EQ(machine.leftovers(), "");
}

TEST(BlueZMeasure, SaysWhatIsMissingAndNeverEmulatesByItself) {
    struct Case {
        const char* arguments;
        void (*make)(bluez::StandIn&);
        const char* text;
    };
    const auto refuse = [](bluez::StandIn& service) {
        service.refusals["GetManagedObjects"].assign(
            5, {"org.freedesktop.DBus.Error.AccessDenied", "Rejected send message"});
    };
    const Case cases[] = {
        {"", [](bluez::StandIn& service) { service.vanish(); }, "there is no Bluetooth adapter (corvane"},
        {"", [](bluez::StandIn& service) { service.removeAdapter(); }, "no Bluetooth adapter (corvane"},
        {"--adapter hci7", [](bluez::StandIn&) {}, "there is no Bluetooth adapter hci7"},
        {"", [](bluez::StandIn& service) { service.setPowered(false); }, "the radio is off"},
        {"--adapter hci0", [](bluez::StandIn& service) { service.setPowered(false); }, "the radio is off"},
        {"", refuse, "the radio may not be used"},
    };
    for (const Case& c : cases) {
        for (const char* platform : {" ", " --platform bluez "}) {
            BlueZMachine machine;
            addEmulator(machine, BodyTapeDevice::model);
            c.make(machine.service);
            const Ran ran = machine.run(std::string("corvane measure body-tape") + platform + c.arguments);
            EXPECT_EQ(ran.status, 5) << platform << c.text;
            EXPECT_EQ(ran.out, "") << platform << c.text;
            EXPECT_THAT(ran.err, HasSubstr(c.text)) << platform << c.arguments;
        }
    }
}

TEST(BlueZMeasure, InterruptedItLeavesNothingAtTheService) {
    BlueZMachine machine;
    const auto runUntil = [&](const std::function<bool()>& reached) {
        const Ran ran = machine.run(R"(
            corvane measure temperature-aoj20a &
            read line < go
            kill -INT $!
            wait $!)",
                                    reached);
        EXPECT_EQ(ran.status, 130) << ran.err;
        EXPECT_THAT(ran.err, HasSubstr("interrupted"));
        EXPECT_EQ(machine.leftovers(), "");
    };
    runUntil([&] { return machine.service.discoveringClients() > 0; });
    addEmulator(machine, TemperatureAOJ20ADevice::model, EmulatorFault::Kind::silent);
    runUntil([&] { return machine.service.links() > 0; });
    runUntil([&] { return machine.service.notifySessions() > 0; });
}

// The example, in which the host owns the loop.
TEST(HostLoop, ReadsADeviceAndLeavesNothing) {
    BlueZMachine machine;
    addEmulator(machine, TemperatureAOJ20ADevice::model);
    const Ran ran = machine.run("mkfifo user; " HOST_LOOP " <> user");
    EXPECT_EQ(ran.status, 0) << ran.err;
    EXPECT_THAT(ran.out, testing::ContainsRegex("[0-9][0-9]\\.[0-9] degrees\n$"));
    EXPECT_EQ(machine.leftovers(), "");
}

TEST(Emulate, PutsTheDeviceOnTheAirUntilItIsInterrupted) {
    BlueZMachine machine;
    bluez::PeripheralSide side(machine.service);
    bool subscribed = false;
    const Ran ran = machine.run(
        R"(
        corvane emulate temperature-aoj20a --fault duplicate &
        read line < go
        kill -INT $!
        wait $!)",
        [&] {
            if (!side.isOnTheAir()) return false;
            if (!std::exchange(subscribed, true)) {
                EXPECT_EQ(side.advertised, TemperatureAOJ20ADevice::deviceName);
                EXPECT_EQ(machine.service.alias(), TemperatureAOJ20ADevice::deviceName);
                side.link();
                side.call(side.find(TemperatureAOJ20ADevice::characteristicCBUUID), "StartNotify");
            }
            return side.values.size() >= 2;
        });
    EXPECT_EQ(ran.status, 130);
    EXPECT_EQ(ran.out, "");
    ASSERT_GE(side.values.size(), 2u);
    EXPECT_EQ(side.values[0], side.values[1]);
    EXPECT_THAT(ran.err, testing::ContainsRegex("registering on hci0\n"
                                                "advertising \"AOJ-20A\" on hci0\n"
                                                "linked\n"));
    const std::vector<std::string> lines = linesOf(ran.err);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "linked"), 1);
    EXPECT_EQ(lines.back(), "withdrawn");
    EXPECT_TRUE(machine.waitFor([&] { return side.isEmpty() && machine.service.alias() == "stand-in"; }));
    EXPECT_EQ(machine.service.calls["Disconnect"], 1);
}

TEST(Emulate, SaysWhatKeepsItOffTheAir) {
    BlueZMachine machine;
    bluez::PeripheralSide side(machine.service);
    machine.service.refusals["RegisterAdvertisement"] = {
        {"org.bluez.Error.NotPermitted", "Maximum \x1b advertisements reached"}};
    const Ran ran = machine.run("corvane emulate body-tape");
    EXPECT_EQ(ran.status, 5);
    EXPECT_THAT(ran.err, HasSubstr("registering the advertisement: Maximum \\x1b advertisements reached\n"));
    EXPECT_THAT(ran.err, HasSubstr("corvane: this device cannot be put on the air of hci0"));
    EXPECT_EQ(sh("DBUS_SYSTEM_BUS_ADDRESS=unix:path=/nowhere corvane emulate body-tape").status, 5);
    for (const char* wrong : {"thermos", "body-tape --fault adapter-cycle", "body-tape --fault gremlins"}) {
        EXPECT_EQ(sh(std::string("corvane emulate ") + wrong).status, 2) << wrong;
    }
}

TEST(Doctor, FindsWhatIsMissingAndSaysWhatHelps) {
    struct Case {
        const char* arguments;
        void (*make)(bluez::StandIn&);
        const char* complaint;
        const char* remedy;
    };
    const auto nothing = [](bluez::StandIn&) {};
    const auto remove = [](bluez::StandIn& service) { service.removeAdapter(); };
    const auto refuse = [](bluez::StandIn& service) {
        service.refusals["GetManagedObjects"] = {
            {"org.freedesktop.DBus.Error.AccessDenied", "Rejected \x1b send message"}};
    };
    const Case cases[] = {
        {"none", [](bluez::StandIn& service) { service.vanish(); }, "service org.bluez: nobody",
         "bluetoothd"},
        {"none", refuse, R"(permission: Rejected \x1b send)", "adduser YOU bluetooth"},
        {"none",
         [](bluez::StandIn& service) {
             service.refusals["GetManagedObjects"] = {{"org.freedesktop.DBus.Error.NoReply", "Timed out"}};
         },
         "permission: the service does not answer: Timed out", "systemctl restart bluetooth"},
        {"hard", nothing, "radio switch: hci0 is blocked by a switch", "Turn that switch"},
        {"soft", remove, "radio switch: a_bluetooth_sw is blocked by software", "rfkill unblock"},
        {"empty", remove, "adapter: neither the service nor the kernel knows of one", "dmesg"},
        {"unseen", remove, "adapter: the kernel has one that the service does not", "restart bluetooth"},
        {"none --adapter hci7", nothing, "adapter: there is no hci7, but hci0", "--adapter"},
        {"none", [](bluez::StandIn& service) { service.setPowered(false); }, "power: hci0 is off",
         "power on"},
    };
    const std::string doctor = R"(
        place() { mkdir -p $1/class/rfkill/rfkill$2 && cd $1/class/rfkill/rfkill$2
            echo $3 > type; echo $4 > name; echo $5 > hard; echo $6 > soft; cd ../../../..; }
        place none 0 bluetooth hci0 0 0; place none 1 wlan phy0 1 1; place none 2 bluetooth hci9 1 1
        place hard 0 bluetooth hci0 1 0
        place soft 0 bluetooth a_bluetooth_sw 0 1
        mkdir -p unseen/class/bluetooth/hci0
        corvane doctor --sys )";
    for (const Case& c : cases) {
        BlueZMachine machine;
        c.make(machine.service);
        const Ran ran = machine.run(doctor + c.arguments);
        EXPECT_EQ(ran.status, 5) << c.complaint;
        EXPECT_THAT(ran.out, HasSubstr(std::string("\nmissing  ") + c.complaint));
        EXPECT_THAT(linesOf(ran.out).back(), HasSubstr(c.remedy));
        EXPECT_EQ(ran.err, "");
    }
    const Ran busless = sh("DBUS_SYSTEM_BUS_ADDRESS=unix:path=/nowhere corvane doctor");
    EXPECT_EQ(busless.status, 5);
    EXPECT_THAT(busless.out, StartsWith("missing  system bus: "));

    BlueZMachine machine;
    for (const char* paired : {"no device", "AOJ-20A"}) {
        for (const std::string arguments : {"none", "none --adapter hci0"}) {
            const Ran well = machine.run(doctor + arguments);
            EXPECT_EQ(well.status, 0);
            EXPECT_THAT(well.out, StartsWith("ok       system bus\nok       service org.bluez\n"
                                             "ok       permission\nok       radio switch\n"
                                             "ok       adapter\nok       power\n"
                                             "note     paired with " +
                                             std::string(paired) + '\n'));
            EXPECT_THAT(linesOf(well.out).back(), HasSubstr("bluetoothctl pair"));
        }
        machine.service.objects().add("/org/bluez/hci0/dev_AA", "org.bluez.Device1",
                                      {{"Alias", std::string("AOJ-20A")}, {"Paired", true}});
    }
}

}  // namespace
}  // namespace corvane
