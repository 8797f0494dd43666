#include "tests/bluez/exported_objects.h"

namespace corvane::bluez {
namespace {

constexpr const char* objectManager = "org.freedesktop.DBus.ObjectManager";
constexpr const char* propertiesInterface = "org.freedesktop.DBus.Properties";

struct VariantAppender {
    sd_bus_message* message;

    void operator()(bool value) const { sd_bus_message_append(message, "v", "b", value ? 1 : 0); }
    void operator()(std::int16_t value) const { sd_bus_message_append(message, "v", "n", value); }
    void operator()(const std::string& value) const {
        sd_bus_message_append(message, "v", "s", value.c_str());
    }
    void operator()(const ObjectPath& value) const {
        sd_bus_message_append(message, "v", "o", value.path.c_str());
    }
    void operator()(const std::vector<std::string>& values) const {
        sd_bus_message_open_container(message, 'v', "as");
        sd_bus_message_open_container(message, 'a', "s");
        for (const std::string& value : values) sd_bus_message_append_basic(message, 's', value.c_str());
        sd_bus_message_close_container(message);
        sd_bus_message_close_container(message);
    }
    void operator()(const std::vector<std::uint8_t>& bytes) const {
        sd_bus_message_open_container(message, 'v', "ay");
        sd_bus_message_append_array(message, 'y', bytes.data(), bytes.size());
        sd_bus_message_close_container(message);
    }
};

/// The last part of a path, which tells the objects of one test apart.
std::string nameOf(const std::string& path) { return path.substr(path.rfind('/') + 1); }

}  // namespace

void ExportedObjects::add(const std::string& path, const std::string& interface, Properties properties) {
    const Object& object =
        objects_.insert_or_assign(path, Object{interface, std::move(properties)}).first->second;
    signal("/", objectManager, "InterfacesAdded", nameOf(path), [&](sd_bus_message* message) {
        sd_bus_message_append_basic(message, 'o', path.c_str());
        append(message, object);
    });
}

void ExportedObjects::remove(const std::string& path) {
    // What is below goes first.
    for (auto object = objects_.lower_bound(path + '/');
         object != objects_.end() && object->first.starts_with(path + '/');
         object = objects_.lower_bound(path + '/'))
        remove(std::string(object->first));
    const auto found = objects_.find(path);
    if (found == objects_.end()) return;
    const std::string interface = found->second.interface;
    objects_.erase(found);
    signal("/", objectManager, "InterfacesRemoved", nameOf(path), [&](sd_bus_message* message) {
        sd_bus_message_append(message, "oas", path.c_str(), 2, interface.c_str(), propertiesInterface);
    });
}

void ExportedObjects::set(const std::string& path, const std::string& property, Property value) {
    set(path, Properties{{property, std::move(value)}});
}

void ExportedObjects::set(const std::string& path, const Properties& changed) {
    const auto found = objects_.find(path);
    if (found == objects_.end()) return;
    std::string what = nameOf(path);
    for (const auto& [name, value] : changed) {
        found->second.properties[name] = value;
        what += ' ' + name;
    }
    signal(path, propertiesInterface, "PropertiesChanged", what, [&](sd_bus_message* message) {
        sd_bus_message_append_basic(message, 's', found->second.interface.c_str());
        append(message, changed);
        sd_bus_message_append(message, "as", 0);
    });
}

void ExportedObjects::setSilently(const std::string& path, const std::string& property, Property value) {
    const auto found = objects_.find(path);
    if (found != objects_.end()) found->second.properties[property] = std::move(value);
}

void ExportedObjects::invalidate(const std::string& path, const std::string& property) {
    const auto found = objects_.find(path);
    if (found == objects_.end() || !found->second.properties.erase(property)) return;
    const std::string what = nameOf(path) + " without " + property;
    signal(path, propertiesInterface, "PropertiesChanged", what, [&](sd_bus_message* message) {
        sd_bus_message_append(message, "sa{sv}as", found->second.interface.c_str(), 0, 1, property.c_str());
    });
}

bool ExportedObjects::hasProperty(const std::string& path, const std::string& property) const {
    const auto found = objects_.find(path);
    return found != objects_.end() && found->second.properties.count(property) > 0;
}

void ExportedObjects::appendAll(sd_bus_message* message) const {
    sd_bus_message_open_container(message, 'a', "{oa{sa{sv}}}");
    for (const auto& [path, object] : objects_) {
        sd_bus_message_open_container(message, 'e', "oa{sa{sv}}");
        sd_bus_message_append_basic(message, 'o', path.c_str());
        append(message, object);
        sd_bus_message_close_container(message);
    }
    sd_bus_message_close_container(message);
}

const ExportedObjects::Object* ExportedObjects::find(const std::string& path,
                                                     std::string_view interface) const {
    const auto found = objects_.find(path);
    return found != objects_.end() && found->second.interface == interface ? &found->second : nullptr;
}

bool ExportedObjects::appendProperty(sd_bus_message* message, const std::string& path,
                                     std::string_view interface, const std::string& property) const {
    const Object* object = find(path, interface);
    if (!object || !object->properties.count(property)) return false;
    std::visit(VariantAppender{message}, object->properties.at(property));
    return true;
}

bool ExportedObjects::appendProperties(sd_bus_message* message, const std::string& path,
                                       std::string_view interface) const {
    const Object* object = find(path, interface);
    if (object) append(message, object->properties);
    return object;
}

void ExportedObjects::append(sd_bus_message* message, const Object& object) {
    sd_bus_message_open_container(message, 'a', "{sa{sv}}");
    // As on the real bus, an interface that says nothing comes first.
    sd_bus_message_append(message, "{sa{sv}}", "org.freedesktop.DBus.Introspectable", 0);
    sd_bus_message_open_container(message, 'e', "sa{sv}");
    sd_bus_message_append_basic(message, 's', object.interface.c_str());
    append(message, object.properties);
    sd_bus_message_close_container(message);
    sd_bus_message_close_container(message);
}

void ExportedObjects::append(sd_bus_message* message, const Properties& properties) {
    sd_bus_message_open_container(message, 'a', "{sv}");
    for (const auto& [name, value] : properties) {
        sd_bus_message_open_container(message, 'e', "sv");
        sd_bus_message_append_basic(message, 's', name.c_str());
        std::visit(VariantAppender{message}, value);
        sd_bus_message_close_container(message);
    }
    sd_bus_message_close_container(message);
}

void ExportedObjects::signal(const std::string& path, const char* interface, const char* member,
                             const std::string& name, const std::function<void(sd_bus_message*)>& append) {
    if (!bus_) return;
    sd_bus_message* message = nullptr;
    sd_bus_message_new_signal(bus_, &message, path.c_str(), interface, member);
    const Message kept(message);
    append(message);
    outbox_.send(kept, std::string(member) + ' ' + name);
}

}  // namespace corvane::bluez
