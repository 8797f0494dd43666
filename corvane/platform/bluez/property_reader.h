// Reading the dictionaries of D-Bus messages, each value only if it has the type that is asked for.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "corvane/platform/bluez/sd_bus.h"
#include "corvane/platform/central.h"

namespace corvane::bluez {

/// One entry of an a{sv}. Texts and bytes are valid as long as the message.
class PropertyReader {
public:
    PropertyReader(sd_bus_message* message, std::string_view name, std::string_view type)
        : message_(message), name_(name), type_(type) {}

    // Each is true if the entry has this name and its value this type; it is then in `value`.
    bool read(std::string_view name, std::optional<std::string_view>& value) {
        const char* text = nullptr;
        if (!readBasic(name, "s", &text)) return false;
        value = text;
        return true;
    }
    bool read(std::string_view name, std::optional<bool>& value) {
        int truth = 0;
        if (!readBasic(name, "b", &truth)) return false;
        value = truth != 0;
        return true;
    }
    bool read(std::string_view name, std::optional<std::int16_t>& value) {
        std::int16_t number = 0;
        if (!readBasic(name, "n", &number)) return false;
        value = number;
        return true;
    }
    bool read(std::string_view name, std::optional<std::uint16_t>& value) {
        std::uint16_t number = 0;
        if (!readBasic(name, "q", &number)) return false;
        value = number;
        return true;
    }
    bool read(std::string_view name, std::optional<Bytes>& value) {
        const void* bytes = nullptr;
        std::size_t size = 0;
        if (name != name_ || type_ != "ay" || !enter("ay")) return false;
        if (sd_bus_message_read_array(message_, 'y', &bytes, &size) < 0 || !leave()) return false;
        value = Bytes(static_cast<const std::uint8_t*>(bytes), size);
        return true;
    }

private:
    bool readBasic(std::string_view name, const char* type, void* value) {
        return name == name_ && type_ == type && enter(type) &&
               sd_bus_message_read_basic(message_, *type, value) > 0 && leave();
    }
    bool enter(const char* type) { return sd_bus_message_enter_container(message_, 'v', type) > 0; }
    bool leave() { return sd_bus_message_exit_container(message_) >= 0; }

    sd_bus_message* message_;
    std::string_view name_;
    std::string_view type_;
};

/// Calls `visit(key)` for each entry of the dictionary that comes next; `visit` reads or skips the value and
/// says whether it could. `values` is the values' type. False when the message is malformed.
template <class Visit>
bool readEntries(sd_bus_message* message, char keyType, const char* values, Visit visit) {
    const std::string entry = std::string(1, keyType) + values;
    if (sd_bus_message_enter_container(message, 'a', ('{' + entry + '}').c_str()) <= 0) return false;
    int more = 0;
    while ((more = sd_bus_message_enter_container(message, 'e', entry.c_str())) > 0) {
        const char* key = nullptr;
        if (sd_bus_message_read_basic(message, keyType, &key) <= 0 || !visit(std::string_view(key)) ||
            sd_bus_message_exit_container(message) < 0)
            return false;
    }
    return more == 0 && sd_bus_message_exit_container(message) >= 0;
}

/// Calls `visit(PropertyReader&)` for each entry of the a{sv} that comes next; `visit` says whether it has
/// read it. False when the message is malformed.
template <class Visit>
bool readProperties(sd_bus_message* message, Visit visit) {
    return readEntries(message, 's', "v", [&](std::string_view name) {
        char type = 0;
        const char* contents = nullptr;
        if (sd_bus_message_peek_type(message, &type, &contents) <= 0 || type != 'v') return false;
        PropertyReader property(message, name, contents);
        return visit(property) || sd_bus_message_skip(message, "v") >= 0;
    });
}

/// Calls `visit(text)` for each text of the array that comes next. False when the message is malformed.
template <class Visit>
bool readTexts(sd_bus_message* message, Visit visit) {
    if (sd_bus_message_enter_container(message, 'a', "s") <= 0) return false;
    const char* text = nullptr;
    int more = 0;
    while ((more = sd_bus_message_read_basic(message, 's', &text)) > 0) visit(std::string_view(text));
    return more == 0 && sd_bus_message_exit_container(message) >= 0;
}

}  // namespace corvane::bluez
