#include "corvane/platform/bluez/object_tree.h"

#include <algorithm>

#include "corvane/platform/bluez/bluez_names.h"
#include "corvane/platform/bluez/device_identifier.h"
#include "corvane/platform/bluez/property_reader.h"

namespace corvane::bluez {
namespace {

// More than any real neighbourhood, and little enough memory to bear.
constexpr std::size_t mostObjects = 65'536;
constexpr std::size_t longestPath = 255;
// As the Bluetooth standard has it.
constexpr std::size_t longestName = 248;

// hci2 before hci10.
bool comesBefore(const AdapterNode& a, const AdapterNode& b) {
    return std::pair(a.path.size(), a.path) < std::pair(b.path.size(), b.path);
}

bool isAddress(std::string_view text) {
    if (text.size() != 17) return false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        const bool fits = i % 3 == 2 ? c == ':' : (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F');
        if (!fits) return false;
    }
    return true;
}

bool isAddressType(std::string_view text) { return text == "public" || text == "random"; }

bool readAdapter(sd_bus_message* message, AdapterNode& adapter) {
    std::optional<bool> powered;
    if (!readProperties(message, [&](PropertyReader& property) { return property.read("Powered", powered); }))
        return false;
    adapter.powered = powered.value_or(adapter.powered);
    return true;
}

// What one a{sv} of a device says; nothing where it says nothing.
struct DeviceProperties {
    std::optional<std::string_view> address;
    std::optional<std::string_view> addressType;
    std::optional<std::string_view> name;
    std::optional<bool> connected;
    std::optional<bool> servicesResolved;
    bool heard = false;
    bool unheard = false;
    bool nameless = false;

    bool read(sd_bus_message* message) {
        return readProperties(message, [this](PropertyReader& property) {
            return property.read("Address", address) || property.read("AddressType", addressType) ||
                   property.read("Name", name) || property.read("Connected", connected) ||
                   property.read("ServicesResolved", servicesResolved) || readSignalStrength(property);
        });
    }

    bool readInvalidated(sd_bus_message* message) {
        return readTexts(message, [this](std::string_view property) {
            if (property == "RSSI") unheard = true;
            if (property == "Name") nameless = true;
        });
    }

    /// In a reply that holds all properties, one that is absent has no value.
    void isComplete() {
        unheard = !heard;
        nameless = !name;
    }

private:
    bool readSignalStrength(PropertyReader& property) {
        std::optional<std::int16_t> strength;
        if (!property.read("RSSI", strength)) return false;
        heard = true;
        return true;
    }
};

// Takes over what the properties say, and tells what that was.
ObjectTree::DeviceChange apply(DeviceNode& device, const DeviceProperties& properties) {
    ObjectTree::DeviceChange change;
    if (properties.heard) device.inReach = change.heard = true;
    if (properties.unheard) device.inReach = false;
    if (properties.nameless || properties.name) {
        const bool usable =
            properties.name && !properties.name->empty() && properties.name->size() <= longestName;
        std::optional<std::string> name;
        if (usable) name = *properties.name;
        change.renamed = name != device.name;
        device.name = std::move(name);
    }
    if (properties.servicesResolved) {
        device.servicesResolved = *properties.servicesResolved;
        change.services = true;
        change.doubtful = !properties.connected && device.servicesResolved != device.connected;
    }
    change.connection = properties.connected || (change.doubtful && device.servicesResolved);
    // Services are resolved on a link only, and are none without it.
    if (change.connection) device.connected = properties.connected.value_or(true);
    device.servicesResolved = device.servicesResolved && device.connected;
    return change;
}

// Once bluetoothd is bonded with a device it resolves its private address, and tells of another address.
// False where what it says is no address.
bool readIdentity(DeviceNode& device, const DeviceProperties& properties) {
    if (!properties.address && !properties.addressType) return true;
    const std::string_view address = properties.address.value_or(device.address);
    const std::string_view type = properties.addressType.value_or(device.addressType);
    if (!isAddress(address) || !isAddressType(type)) return false;
    device.identifier = deviceIdentifier(address, type);
    if (properties.address) device.address = address;
    if (properties.addressType) device.addressType = type;
    return true;
}

}  // namespace

std::string_view parentOf(std::string_view path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string_view::npos ? std::string_view() : path.substr(0, slash);
}

std::string_view AdapterNode::name() const { return std::string_view(path).substr(path.rfind('/') + 1); }

std::string_view DeviceNode::adapterPath() const { return parentOf(path); }

bool ObjectTree::load(sd_bus_message* message) {
    clear();
    if (!sd_bus_message_has_signature(message, "a{oa{sa{sv}}}")) return false;
    const bool read = readEntries(message, 'o', "a{sa{sv}}", [&](std::string_view path) {
        return readInterfaces(message, path, Taking::load);
    });
    if (!read) clear();
    return read;
}

bool ObjectTree::refresh(sd_bus_message* message) {
    std::set<std::string, std::less<>> paths;
    if (!sd_bus_message_has_signature(message, "a{oa{sa{sv}}}")) return false;
    const bool read = readEntries(message, 'o', "a{sa{sv}}", [&](std::string_view path) {
        paths.emplace(path);
        return readInterfaces(message, path, Taking::refresh);
    });
    if (read) removeAllBut(paths);
    return read;
}

void ObjectTree::removeAllBut(const std::set<std::string, std::less<>>& paths) {
    std::erase_if(gatt_, [&](const auto& entry) { return !paths.contains(entry.first); });
    std::vector<std::string> gone;
    for (const auto& [path, device] : devices_) {
        if (!paths.contains(path)) gone.push_back(path);
    }
    for (const std::string& path : gone) removeDevice(path);
    if (std::erase_if(adapters_, [&](const auto& entry) { return !paths.contains(entry.first); }) > 0)
        observer_.adaptersChanged();
}

void ObjectTree::deviceRead(std::string_view path, sd_bus_message* message) {
    DeviceNode* read = device(path);
    DeviceProperties properties;
    if (!read || !sd_bus_message_has_signature(message, "a{sv}") || !properties.read(message)) return;
    properties.isComplete();
    readIdentity(*read, properties);
    observer_.deviceChanged(*read, apply(*read, properties));
}

void ObjectTree::deviceIsConnected(std::string_view path) {
    if (DeviceNode* connected = device(path)) connected->connected = true;
}

void ObjectTree::clear() {
    adapters_.clear();
    devices_.clear();
    gatt_.clear();
}

void ObjectTree::interfacesAdded(sd_bus_message* signal) {
    const char* path = nullptr;
    if (!sd_bus_message_has_signature(signal, "oa{sa{sv}}")) return;
    if (sd_bus_message_read_basic(signal, 'o', &path) > 0) readInterfaces(signal, path, Taking::signal);
}

bool ObjectTree::readInterfaces(sd_bus_message* message, std::string_view path, Taking taking) {
    return readEntries(message, 's', "a{sv}", [&](std::string_view interface) {
        return addInterface(message, path, interface, taking);
    });
}

bool ObjectTree::addInterface(sd_bus_message* message, std::string_view path, std::string_view interface,
                              Taking taking) {
    if (hasRoom() && path.size() <= longestPath) {
        if (interface == adapterInterface) return addAdapter(message, path, taking);
        if (interface == deviceInterface) return addDevice(message, path, taking);
        if (interface == serviceInterface) return addGattObject(message, path, true, taking);
        if (interface == characteristicInterface) return addGattObject(message, path, false, taking);
    }
    return sd_bus_message_skip(message, "a{sv}") >= 0;
}

bool ObjectTree::hasRoom() const { return size() < mostObjects; }

bool ObjectTree::addAdapter(sd_bus_message* message, std::string_view path, Taking taking) {
    AdapterNode adapter{.path = std::string(path)};
    if (!readAdapter(message, adapter)) return false;
    const auto known = adapters_.find(path);
    const bool isSame = known != adapters_.end() && known->second.powered == adapter.powered;
    adapters_.insert_or_assign(adapter.path, adapter);
    if (taking != Taking::load && !isSame) observer_.adaptersChanged();
    return true;
}

bool ObjectTree::addDevice(sd_bus_message* message, std::string_view path, Taking taking) {
    DeviceProperties properties;
    if (!properties.read(message)) return false;
    if (DeviceNode* known = device(path); known && taking == Taking::refresh) {
        properties.isComplete();
        readIdentity(*known, properties);
        observer_.deviceChanged(*known, apply(*known, properties));
        return true;
    }
    DeviceNode device;
    device.path = path;
    if (!properties.address || !readIdentity(device, properties)) return true;
    apply(device, properties);
    DeviceNode& added = devices_.insert_or_assign(std::string(path), std::move(device)).first->second;
    if (taking != Taking::load) observer_.deviceAppeared(added);
    return true;
}

bool ObjectTree::addGattObject(sd_bus_message* message, std::string_view path, bool service, Taking taking) {
    std::optional<std::string_view> uuidText;
    std::optional<bool> primary;
    if (!readProperties(message, [&](PropertyReader& property) {
            return property.read("UUID", uuidText) || property.read("Primary", primary);
        }))
        return false;
    using Kind = GattObject::Kind;
    const Kind kind = !service                 ? Kind::characteristic
                      : primary.value_or(true) ? Kind::primaryService
                                               : Kind::secondaryService;
    const auto uuid = CBUUID::parse(uuidText.value_or(""));
    if (!uuid) return true;
    const bool isNew = gatt_.insert_or_assign(std::string(path), GattObject{kind, *uuid}).second;
    if (isNew && taking != Taking::load)
        observer_.attributesAdded(service ? parentOf(path) : parentOf(parentOf(path)));
    return true;
}

void ObjectTree::interfacesRemoved(sd_bus_message* signal) {
    const char* path = nullptr;
    if (!sd_bus_message_has_signature(signal, "oas")) return;
    if (sd_bus_message_read_basic(signal, 'o', &path) <= 0) return;
    readTexts(signal, [&](std::string_view interface) { removeInterface(path, interface); });
}

void ObjectTree::removeInterface(const std::string& path, std::string_view interface) {
    if (interface == serviceInterface || interface == characteristicInterface) gatt_.erase(path);
    if (interface == deviceInterface) removeDevice(path);
    if (interface == adapterInterface && adapters_.erase(path)) observer_.adaptersChanged();
}

void ObjectTree::removeDevice(const std::string& path) {
    const auto removed = devices_.extract(path);
    if (removed.empty()) return;
    gatt_.erase(gatt_.lower_bound(path + '/'), gatt_.lower_bound(path + char('/' + 1)));
    observer_.deviceVanished(removed.mapped());
}

void ObjectTree::propertiesChanged(sd_bus_message* signal) {
    const char* text = nullptr;
    const char* path = sd_bus_message_get_path(signal);
    if (!path || !sd_bus_message_has_signature(signal, "sa{sv}as")) return;
    if (sd_bus_message_read_basic(signal, 's', &text) <= 0) return;
    const std::string_view interface = text;
    if (interface == deviceInterface) devicePropertiesChanged(signal, path);
    if (interface == characteristicInterface) characteristicPropertiesChanged(signal, path);
    if (interface == adapterInterface) adapterPropertiesChanged(signal, path);
}

void ObjectTree::adapterPropertiesChanged(sd_bus_message* signal, std::string_view path) {
    const auto adapter = adapters_.find(path);
    if (adapter == adapters_.end()) return;
    AdapterNode& node = adapter->second;
    const bool wasPowered = node.powered;
    if (readAdapter(signal, node) && node.powered != wasPowered) observer_.adaptersChanged();
}

void ObjectTree::devicePropertiesChanged(sd_bus_message* signal, std::string_view path) {
    DeviceNode* changed = device(path);
    DeviceProperties properties;
    if (!changed) return observer_.unknownDeviceSignalled(path);
    if (!properties.read(signal) || !properties.readInvalidated(signal)) return;
    readIdentity(*changed, properties);
    observer_.deviceChanged(*changed, apply(*changed, properties));
}

void ObjectTree::characteristicPropertiesChanged(sd_bus_message* signal, std::string_view path) {
    std::optional<Bytes> value;
    if (!readProperties(signal, [&](PropertyReader& property) { return property.read("Value", value); }))
        return;
    if (value && value->size() <= longestValue) observer_.valueChanged(path, *value);
}

const AdapterNode* ObjectTree::chooseAdapter(std::string_view named) const {
    const AdapterNode* best = nullptr;
    for (const auto& [path, candidate] : adapters_) {
        if (!named.empty() && candidate.name() != named) continue;
        const bool isBetter = !best || candidate.powered > best->powered ||
                              (candidate.powered == best->powered && comesBefore(candidate, *best));
        if (isBetter) best = &candidate;
    }
    return best;
}

DeviceNode* ObjectTree::device(std::string_view path) {
    const auto found = devices_.find(path);
    return found == devices_.end() ? nullptr : &found->second;
}

std::vector<GattNode> ObjectTree::services(std::string_view device) const {
    return children(device, GattObject::Kind::primaryService);
}

std::vector<GattNode> ObjectTree::characteristics(std::string_view service) const {
    return children(service, GattObject::Kind::characteristic);
}

std::vector<GattNode> ObjectTree::children(std::string_view parent, GattObject::Kind kind) const {
    std::vector<GattNode> found;
    const std::string prefix = std::string(parent) + '/';
    for (auto at = gatt_.lower_bound(prefix); at != gatt_.end() && at->first.starts_with(prefix); ++at) {
        if (at->second.kind == kind && parentOf(at->first) == parent)
            found.push_back({at->first, at->second.uuid});
    }
    return found;
}

}  // namespace corvane::bluez
