// What bluetoothd says there is: adapters, devices, and the GATT objects of connected devices, kept up to
// date from its signals.
//
// Messages are taken as they come from the bus: of any shape, in any order, about any object. What is not of
// the documented shape is ignored as a whole; what is out of bounds is ignored by itself.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "corvane/platform/bluez/sd_bus.h"
#include "corvane/platform/central.h"

namespace corvane::bluez {

/// The path without its last part.
std::string_view parentOf(std::string_view path);

struct AdapterNode {
    std::string path;
    bool powered = false;
    /// By whoever's wish.
    bool discovering = false;

    /// "hci0"
    std::string_view name() const;
};

struct DeviceNode {
    std::string path;
    CBUUID identifier;
    /// What the device calls itself. Never the alias, which BlueZ makes up for a device without a name.
    std::optional<std::string> name;
    bool connected = false;
    /// Never true without `connected`.
    bool servicesResolved = false;
    /// Heard not long ago: BlueZ knows its signal strength.
    bool inReach = false;
    /// For whoever tells the application: at which count everybody who scans had been told of this device.
    std::uint64_t toldAt = 0;

    std::string_view adapterPath() const;
};

struct GattNode {
    std::string path;
    CBUUID uuid;
};

class ObjectTree {
public:
    /// What a message said about a device, whether or not it was news.
    struct DeviceChange {
        bool heard = false;
        bool renamed = false;
        bool connection = false;
        bool services = false;
    };

    /// Told after the change. References are valid during the call.
    class Observer {
    public:
        /// One came or went, or was switched on or off.
        virtual void adaptersChanged() = 0;
        /// Not told of an adapter that comes. For those who scan.
        virtual void discoveringChanged(const AdapterNode& /*adapter*/) {}
        virtual void deviceAppeared(DeviceNode& device) = 0;
        virtual void deviceChanged(DeviceNode& device, const DeviceChange& change) = 0;
        virtual void deviceVanished(const DeviceNode& device) = 0;
        /// A characteristic's value was signalled, in answer to whoever's doing.
        virtual void valueChanged(std::string_view characteristic, Bytes value) = 0;
        virtual void notifyingChanged(std::string_view characteristic, bool notifying) = 0;

    protected:
        ~Observer() = default;
    };

    explicit ObjectTree(Observer& observer) : observer_(observer) {}

    /// Takes a reply to GetManagedObjects in place of everything known. Tells nobody. A malformed one leaves
    /// nothing.
    bool load(sd_bus_message* managedObjects);
    void clear();

    // The three signals that tell of changes.
    void interfacesAdded(sd_bus_message* signal);
    void interfacesRemoved(sd_bus_message* signal);
    void propertiesChanged(sd_bus_message* signal);

    const std::map<std::string, AdapterNode, std::less<>>& adapters() const { return adapters_; }
    /// The adapter of this name, or where none is named, the first that is on, or else the first. Null when
    /// there is none.
    const AdapterNode* chooseAdapter(std::string_view named) const;
    DeviceNode* device(std::string_view path);
    /// Calls `visit(DeviceNode&)` for each device of the adapter.
    template <class Visit>
    void forEachDevice(std::string_view adapter, Visit visit) {
        for (auto& [path, device] : devices_) {
            if (device.adapterPath() == adapter) visit(device);
        }
    }
    /// The primary services of a device, in the order of their handles.
    std::vector<GattNode> services(std::string_view device) const;
    std::vector<GattNode> characteristics(std::string_view service) const;

    /// Objects of all kinds.
    std::size_t size() const { return adapters_.size() + devices_.size() + gatt_.size(); }

private:
    struct GattObject {
        enum class Kind { primaryService, secondaryService, characteristic } kind;
        CBUUID uuid;
    };
    struct PathHash {
        using is_transparent = void;
        std::size_t operator()(std::string_view path) const { return std::hash<std::string_view>{}(path); }
    };

    bool readInterfaces(sd_bus_message* message, std::string_view path, bool tell);
    bool addInterface(sd_bus_message* message, std::string_view path, std::string_view interface, bool tell);
    bool addAdapter(sd_bus_message* message, std::string_view path, bool tell);
    bool addDevice(sd_bus_message* message, std::string_view path, bool tell);
    bool addGattObject(sd_bus_message* message, std::string_view path, bool service);
    void removeDevice(const std::string& path);
    void removeInterface(const std::string& path, std::string_view interface);
    void adapterPropertiesChanged(sd_bus_message* signal, std::string_view path);
    void devicePropertiesChanged(sd_bus_message* signal, std::string_view path);
    void characteristicPropertiesChanged(sd_bus_message* signal, std::string_view path);
    std::vector<GattNode> children(std::string_view parent, GattObject::Kind kind) const;
    bool hasRoom() const;

    Observer& observer_;
    std::map<std::string, AdapterNode, std::less<>> adapters_;
    std::unordered_map<std::string, DeviceNode, PathHash, std::equal_to<>> devices_;
    // Ordered, so that a service stands before its characteristics, and all stand in the order of handles.
    std::map<std::string, GattObject, std::less<>> gatt_;
};

}  // namespace corvane::bluez
