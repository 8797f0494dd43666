// Objects on a bus, as data: their properties, and the signals that tell of changes.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <variant>
#include <vector>

#include "tests/bluez/outbox.h"

namespace corvane::bluez {

struct ObjectPath {
    std::string path;
};

using Property = std::variant<bool, std::int16_t, std::string, ObjectPath, std::vector<std::string>,
                              std::vector<std::uint8_t>>;
using Properties = std::map<std::string, Property>;

class ExportedObjects {
public:
    explicit ExportedObjects(Outbox& outbox) : outbox_(outbox) {}

    /// The bus to signal on; null while there is none.
    void useBus(sd_bus* bus) { bus_ = bus; }

    bool has(const std::string& path) const { return objects_.count(path) > 0; }
    std::size_t size() const { return objects_.size(); }

    void add(const std::string& path, const std::string& interface, Properties properties);
    /// With all that is below it.
    void remove(const std::string& path);
    void set(const std::string& path, const std::string& property, Property value);
    void set(const std::string& path, const Properties& changed);
    /// As `set`, without a signal.
    void setSilently(const std::string& path, const std::string& property, Property value);
    void invalidate(const std::string& path, const std::string& property);
    bool hasProperty(const std::string& path, const std::string& property) const;

    /// The answer to GetManagedObjects.
    void appendAll(sd_bus_message* message) const;
    /// The answers to Get and GetAll; false where there is no such property or interface.
    bool appendProperty(sd_bus_message* message, const std::string& path, std::string_view interface,
                        const std::string& property) const;
    bool appendProperties(sd_bus_message* message, const std::string& path, std::string_view interface) const;

    void clear() { objects_.clear(); }

private:
    struct Object {
        std::string interface;
        Properties properties;
    };

    const Object* find(const std::string& path, std::string_view interface) const;
    void signal(const std::string& path, const char* interface, const char* member, const std::string& name,
                const std::function<void(sd_bus_message*)>& append);
    static void append(sd_bus_message* message, const Properties& properties);
    static void append(sd_bus_message* message, const Object& object);

    Outbox& outbox_;
    sd_bus* bus_ = nullptr;
    std::map<std::string, Object> objects_;
};

}  // namespace corvane::bluez
