// Signals of any shape, about any object, in any order, into what the BlueZ back end makes of them. The input
// is a list of instructions that build the messages: a message that is malformed as such never gets past
// sd-bus.
#include <sys/socket.h>

#include <cstdlib>
#include <functional>

#include "corvane/platform/bluez/bluez_names.h"
#include "corvane/platform/bluez/bus.h"
#include "corvane/platform/bluez/object_tree.h"
#include "fuzz/input.h"

namespace corvane::bluez {
namespace {

constexpr const char* paths[] = {"/",
                                 "/org/bluez/hci0",
                                 "/org/bluez/hci0/dev_00_AA_01_01_00_01",
                                 "/org/bluez/hci0/dev_00_AA_01_01_00_02",
                                 "/org/bluez/hci0/dev_00_AA_01_01_00_01/service0001",
                                 "/org/bluez/hci0/dev_00_AA_01_01_00_01/service0001/char0002",
                                 "/org/bluez/hci1"};
constexpr const char* interfaces[] = {"org.bluez.Adapter1", "org.bluez.Device1", "org.bluez.GattService1",
                                      "org.bluez.GattCharacteristic1", "org.bluez.Battery1"};

enum class Kind { flag, number, address, addressType, uuid, text, bytes, structure, variant };
constexpr int kinds = 9;

struct Property {
    const char* name;
    Kind kind;
};
constexpr Property properties[] = {{"Powered", Kind::flag},
                                   {"Discovering", Kind::flag},
                                   {"Address", Kind::address},
                                   {"AddressType", Kind::addressType},
                                   {"Name", Kind::text},
                                   {"Alias", Kind::text},
                                   {"RSSI", Kind::number},
                                   {"Connected", Kind::flag},
                                   {"ServicesResolved", Kind::flag},
                                   {"UUID", Kind::uuid},
                                   {"Primary", Kind::flag},
                                   {"Value", Kind::bytes},
                                   {"Notifying", Kind::flag},
                                   {"Unknown", Kind::structure}};
constexpr const char* addressTypes[] = {"public", "random", "other"};
constexpr const char* uuids[] = {"0000ffe1-0000-1000-8000-00805f9b34fb", "ffe1", "none"};

// Looks at everything that it is told of, as the back end does.
class Witness final : public ObjectTree::Observer {
public:
    ObjectTree* tree = nullptr;

private:
    void adaptersChanged() override {
        for (const auto& [path, adapter] : tree->adapters()) must(path.ends_with(adapter.name()));
    }
    void deviceAppeared(DeviceNode& device) override { look(device); }
    void deviceChanged(DeviceNode& device, const ObjectTree::DeviceChange&) override { look(device); }
    void deviceVanished(const DeviceNode& device) override {
        must(!tree->device(device.path));
        must(tree->services(device.path).empty());
    }
    void valueChanged(std::string_view, Bytes value) override { must(value.size() <= longestValue); }

    void look(DeviceNode& device) {
        must(tree->device(device.path) == &device);
        must(!device.servicesResolved || device.connected);
        must(!device.name || (!device.name->empty() && device.name->size() <= 248));
        for (const GattNode& service : tree->services(device.path)) {
            for (const GattNode& characteristic : tree->characteristics(service.path))
                must(parentOf(parentOf(characteristic.path)) == device.path);
        }
    }
};

class MessageMaker {
public:
    MessageMaker(sd_bus* bus, Input& input) : bus_(bus), input_(input) {}

    Message make(const char* member, const char* types) {
        sd_bus_message* message = nullptr;
        sd_bus_message_new_signal(bus_, &message, pick(paths), "a.b", member);
        message_ = message;
        append(types);
        sd_bus_message_seal(message, 1, 0);
        sd_bus_message_rewind(message, 1);
        return Message(message);
    }

private:
    template <class Choice, std::size_t size>
    const Choice& pick(const Choice (&from)[size]) {
        return from[input_.byte() % size];
    }

    // Any other type than the documented one now and then, in each place.
    void append(std::string_view types) {
        if (input_.byte() == 0xFF) return appendVariant(Kind::text);
        if (types == "sa{sv}as") {
            appendName(pick(interfaces));
            appendProperties();
            appendNames();
        } else if (types == "oa{sa{sv}}") {
            sd_bus_message_append_basic(message_, 'o', pick(paths));
            appendInterfaces();
        } else if (types == "oas") {
            sd_bus_message_append_basic(message_, 'o', pick(paths));
            appendNames();
        } else {
            appendObjects();
        }
    }
    void appendObjects() {
        appendDictionary("oa{sa{sv}}", [this] {
            sd_bus_message_append_basic(message_, 'o', pick(paths));
            appendInterfaces();
        });
    }
    void appendInterfaces() {
        appendDictionary("sa{sv}", [this] {
            appendName(pick(interfaces));
            appendProperties();
        });
    }
    void appendProperties() {
        appendDictionary("sv", [this] {
            const Property& property = pick(properties);
            appendName(property.name);
            appendVariant(input_.byte() == 0xFF ? static_cast<Kind>(input_.byte() % kinds) : property.kind);
        });
    }
    void appendDictionary(const std::string& types, const std::function<void()>& appendEntry) {
        sd_bus_message_open_container(message_, 'a', ('{' + types + '}').c_str());
        while (more()) {
            sd_bus_message_open_container(message_, 'e', types.c_str());
            appendEntry();
            sd_bus_message_close_container(message_);
        }
        sd_bus_message_close_container(message_);
    }
    void appendNames() {
        sd_bus_message_open_container(message_, 'a', "s");
        while (more()) appendName(more() ? pick(properties).name : pick(interfaces));
        sd_bus_message_close_container(message_);
    }
    void appendVariant(Kind kind) {
        switch (kind) {
        case Kind::flag:
            sd_bus_message_append(message_, "v", "b", input_.byte() & 1);
            break;
        case Kind::number:
            sd_bus_message_append(message_, "v", "n", input_.byte());
            break;
        case Kind::address:
            sd_bus_message_append(message_, "v", "s", "00:AA:01:01:00:01");
            break;
        case Kind::addressType:
            sd_bus_message_append(message_, "v", "s", pick(addressTypes));
            break;
        case Kind::uuid:
            sd_bus_message_append(message_, "v", "s", pick(uuids));
            break;
        case Kind::text:
            sd_bus_message_append(message_, "v", "s", text().c_str());
            break;
        case Kind::bytes:
            appendBytes();
            break;
        case Kind::structure:
            sd_bus_message_append(message_, "v", "(is)", 1, "nested");
            break;
        case Kind::variant:
            sd_bus_message_append(message_, "v", "v", "s", "nested");
        }
    }
    void appendBytes() {
        // Up to a little more than a value can be long.
        const std::vector<std::uint8_t> bytes(input_.byte() * std::size_t{2} + 4);
        sd_bus_message_open_container(message_, 'v', "ay");
        sd_bus_message_append_array(message_, 'y', bytes.data(), bytes.size());
        sd_bus_message_close_container(message_);
    }
    void appendName(const char* name) { sd_bus_message_append_basic(message_, 's', name); }
    std::string text() {
        const Bytes bytes = input_.take(input_.byte());
        std::string text(bytes.begin(), bytes.end());
        // sd-bus takes no other.
        for (char& c : text) c = static_cast<char>(c & 0x7F);
        return text;
    }
    bool more() { return !input_.empty() && (input_.byte() & 1); }

    sd_bus* bus_;
    Input& input_;
    sd_bus_message* message_ = nullptr;
};

/// A connection to nobody, without which there are no messages.
sd_bus* unconnectedBus() {
    static sd_bus* const bus = [] {
        int ends[2];
        sd_bus* made = nullptr;
        if (::socketpair(AF_UNIX, SOCK_STREAM, 0, ends) < 0 || sd_bus_new(&made) < 0 ||
            sd_bus_set_fd(made, ends[0], ends[0]) < 0 || sd_bus_start(made) < 0)
            std::abort();
        return made;
    }();
    return bus;
}

}  // namespace
}  // namespace corvane::bluez

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace corvane::bluez;
    corvane::Input input{{data, size}};
    MessageMaker maker(unconnectedBus(), input);
    Witness witness;
    ObjectTree tree(witness);
    witness.tree = &tree;
    while (!input.empty()) {
        switch (input.byte() % 7) {
        case 0:
            tree.load(maker.make("Reply", "a{oa{sa{sv}}}").get());
            break;
        case 1:
        case 2:
            tree.interfacesAdded(maker.make("InterfacesAdded", "oa{sa{sv}}").get());
            break;
        case 3:
            tree.interfacesRemoved(maker.make("InterfacesRemoved", "oas").get());
            break;
        default:
            tree.propertiesChanged(maker.make("PropertiesChanged", "sa{sv}as").get());
        }
    }
    return 0;
}
