// What bluetoothd says there is: adapters, devices, and the GATT objects of connected devices, kept up to
// date from its signals.
//
// Messages are taken as they come from the bus: of any shape, in any order, about any object. What is not of
// the documented shape is ignored as a whole; what is out of bounds is ignored by itself.
//
// bluetoothd leaves signals out: most often `Connected: true`, when the kernel reports the link after the
// call that asked for it has ended. So a property is what was said of it last, what another property implies
// counts as said, and a change that contradicts what was known is marked as doubtful, to be settled by a
// read.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
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

    /// "hci0"
    std::string_view name() const;
};

struct DeviceNode {
    std::string path;
    /// "00:11:22:33:44:55"; another one once bluetoothd, bonded with the device, knows who it is.
    std::string address;
    std::string addressType = "public";
    CBUUID identifier;
    /// What the device calls itself. Never the alias, which BlueZ makes up for a device without a name.
    std::optional<std::string> name;
    bool connected = false;
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
    /// What a message said about a device, also where it repeats what was known.
    struct DeviceChange {
        bool heard = false;
        bool renamed = false;
        bool connection = false;
        bool services = false;
        /// One property implies what another one denies; a read of the device tells.
        bool doubtful = false;
    };

    /// Told after the change. References are valid during the call.
    class Observer {
    public:
        /// One came or went, or was switched on or off.
        virtual void adaptersChanged() = 0;
        virtual void deviceAppeared(DeviceNode& device) = 0;
        virtual void deviceChanged(DeviceNode& device, const DeviceChange& change) = 0;
        virtual void deviceVanished(const DeviceNode& device) = 0;
        /// A signal names a device that is not known: the signal of its appearance was left out.
        virtual void unknownDeviceSignalled(std::string_view /*path*/) {}
        /// A service or a characteristic of the device was added.
        virtual void attributesAdded(std::string_view /*device*/) {}
        /// A characteristic's value was signalled; any client of the service may have caused that.
        virtual void valueChanged(std::string_view characteristic, Bytes value) = 0;

    protected:
        ~Observer() = default;
    };

    explicit ObjectTree(Observer& observer) : observer_(observer) {}

    /// Takes a reply to GetManagedObjects in place of everything known. Tells nobody. A malformed one leaves
    /// nothing.
    bool load(sd_bus_message* managedObjects);
    void clear();

    // The answers to reads show what signals have left out. Observers hear of each difference.

    /// Takes over a reply to GetManagedObjects, which is the truth about every object. False where it is
    /// malformed; what was read up to there counts.
    bool refresh(sd_bus_message* managedObjects);
    /// Takes over a reply to GetAll for the device's own interface.
    void deviceRead(std::string_view path, sd_bus_message* properties);
    // The answer to a call says that the device is connected (observers do not hear of it), or that there is
    // no such object.
    void deviceIsConnected(std::string_view path);
    void deviceIsGone(const std::string& path) { removeDevice(path); }

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

    /// How the objects of a message are taken over.
    enum class Taking {
        load,     // Into an empty tree; nobody is told.
        signal,   // They are new.
        refresh,  // They may be known, and may differ from what is known.
    };

    bool readInterfaces(sd_bus_message* message, std::string_view path, Taking taking);
    bool addInterface(sd_bus_message* message, std::string_view path, std::string_view interface,
                      Taking taking);
    bool addAdapter(sd_bus_message* message, std::string_view path, Taking taking);
    bool addDevice(sd_bus_message* message, std::string_view path, Taking taking);
    bool addGattObject(sd_bus_message* message, std::string_view path, bool service, Taking taking);
    void removeAllBut(const std::set<std::string, std::less<>>& paths);
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
