#include "doctor_command.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <vector>

#include "corvane/platform/bluez/bluez_names.h"
#include "corvane/platform/bluez/bus.h"
#include "corvane/platform/bluez/object_tree.h"
#include "corvane/platform/bluez/property_reader.h"
#include "corvane/platform/platform.h"
#include "data_output.h"

namespace corvane::tool {
namespace {

using namespace std::chrono_literals;
using bluez::AdapterNode;

constexpr auto patience = 10s;

/// What was found wrong, and what helps.
struct Finding {
    std::string complaint;
    std::string remedy;
};
using Diagnosis = std::optional<Finding>;  ///< Nothing where all is well.

struct NoObserver final : bluez::ObjectTree::Observer {
    void adaptersChanged() override {}
    void deviceAppeared(bluez::DeviceNode&) override {}
    void deviceChanged(bluez::DeviceNode&, const bluez::ObjectTree::DeviceChange&) override {}
    void deviceVanished(const bluez::DeviceNode&) override {}
    void valueChanged(std::string_view, Bytes) override {}
};

std::string firstWord(const std::filesystem::path& file) {
    std::string word;
    std::ifstream(file) >> word;
    return word;
}

/// Nothing where there is no such folder.
std::vector<std::filesystem::path> entriesOf(const std::string& folder) {
    std::vector<std::filesystem::path> entries;
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator(folder, ignored))
        entries.push_back(entry.path());
    return entries;
}

/// Others than the adapters have switches too: "tpacpi_bluetooth_sw".
bool isAdapterName(std::string_view name) { return name.starts_with("hci"); }

class Examination {
public:
    explicit Examination(const DoctorOptions& options) : options_(options) {}

    /// Each rests on those before it.
    ExitStatus run(DataOutput& out) {
        struct Check {
            const char* name;
            Diagnosis (Examination::*examine)();
        };
        constexpr Check checks[] = {
            {"system bus", &Examination::systemBus},  {"service org.bluez", &Examination::service},
            {"permission", &Examination::permission}, {"radio switch", &Examination::radioSwitch},
            {"adapter", &Examination::adapter},       {"power", &Examination::power},
        };
        for (const Check& check : checks) {
            const Diagnosis diagnosis = (this->*check.examine)();
            if (!diagnosis) {
                out.line("ok       " + std::string(check.name));
                continue;
            }
            out.line("missing  " + std::string(check.name) + ": " + printable(diagnosis->complaint));
            out.line("         " + diagnosis->remedy);
            return ExitStatus::noRadio;
        }
        out.line("note     paired with " + printable(pairedDevices()));
        out.line(
            "         A device that demands pairing refuses everything until it is paired. Pair it once: "
            "bluetoothctl pair ADDRESS.");
        return ExitStatus::done;
    }

private:
    Diagnosis systemBus() {
        int error = 0;
        bus_ = bluez::Bus::open({}, error);
        if (bus_ &&
            ask("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "GetId", nullptr))
            return {};
        return Finding{bus_ ? error_ : std::strerror(-error),
                       "Install and start D-Bus: apt-get install dbus; systemctl start dbus. In a container, "
                       "share the host's system bus socket."};
    }

    Diagnosis service() {
        sd_bus_message* reply = nullptr;
        int owned = 0;
        if (ask("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "NameHasOwner",
                &reply, "org.bluez"))
            sd_bus_message_read_basic(reply, 'b', &owned);
        sd_bus_message_unref(reply);
        if (owned) return {};
        return Finding{
            "nobody has this name on the bus",
            "Install and start bluetoothd: apt-get install bluez; systemctl enable --now bluetooth."};
    }

    Diagnosis permission() {
        sd_bus_message* reply = nullptr;
        const bool answered =
            ask("org.bluez", "/", "org.freedesktop.DBus.ObjectManager", "GetManagedObjects", &reply);
        if (answered) {
            tree_.load(reply);
            readPairedDevices(reply);
        }
        sd_bus_message_unref(reply);
        if (answered) return {};
        if (denied_)
            return Finding{error_, "Run this in a local login session, or join the group of the bus policy: "
                                   "adduser YOU bluetooth, and log in again."};
        return Finding{"the service does not answer: " + error_,
                       "Restart it and look into its log: systemctl restart bluetooth; "
                       "journalctl -u bluetooth."};
    }

    /// Some machines take a blocked adapter off the bus of its computer, so this comes before the adapter.
    Diagnosis radioSwitch() {
        const std::string wanted = chosen() ? std::string(chosen()->name()) : options_.adapter;
        for (const auto& folder : entriesOf(options_.sys + "/class/rfkill")) {
            if (firstWord(folder / "type") != "bluetooth") continue;
            const std::string name = firstWord(folder / "name");
            if (isAdapterName(name) && !wanted.empty() && name != wanted) continue;
            if (firstWord(folder / "hard") == "1")
                return Finding{name + " is blocked by a switch or key of this machine", "Turn that switch."};
            if (firstWord(folder / "soft") == "1")
                return Finding{name + " is blocked by software", "Unblock it: rfkill unblock bluetooth."};
        }
        return {};
    }

    Diagnosis adapter() {
        if (chosen()) return {};
        if (!tree_.adapters().empty())
            return Finding{"there is no " + options_.adapter + ", but " + adapterNames(),
                           "Name one of these with --adapter."};
        if (!entriesOf(options_.sys + "/class/bluetooth").empty())
            return Finding{"the kernel has one that the service does not show",
                           "Restart the service and look into its log: systemctl restart bluetooth; "
                           "journalctl -u bluetooth."};
        return Finding{"neither the service nor the kernel knows of one",
                       "Plug one in, or look into the kernel's messages for a driver or firmware that is "
                       "missing: dmesg | grep -i bluetooth. A virtual machine needs one passed through."};
    }

    Diagnosis power() {
        if (chosen()->powered) return {};
        return Finding{std::string(chosen()->name()) + " is off",
                       "Turn it on: bluetoothctl power on. To have it on after each start, set "
                       "AutoEnable=true in /etc/bluetooth/main.conf."};
    }

    void readPairedDevices(sd_bus_message* objects) {
        sd_bus_message_rewind(objects, 1);
        bluez::readEntries(objects, 'o', "a{sa{sv}}", [&](std::string_view) {
            return bluez::readEntries(objects, 's', "a{sv}", [&](std::string_view interface) {
                std::optional<std::string_view> alias;
                std::optional<bool> paired;
                const bool read = bluez::readProperties(objects, [&](bluez::PropertyReader& property) {
                    return property.read("Alias", alias) || property.read("Paired", paired);
                });
                if (interface == bluez::deviceInterface && paired.value_or(false))
                    paired_.emplace_back(alias.value_or("a device without a name"));
                return read;
            });
        });
    }

    std::string pairedDevices() const {
        std::string names;
        for (const std::string& name : paired_) names += (names.empty() ? "" : ", ") + name;
        return names.empty() ? "no device" : names;
    }

    /// Blocks.
    bool ask(const char* service, const char* path, const char* interface, const char* method,
             sd_bus_message** reply, const char* argument = nullptr) {
        bluez::Message call = bus_->newCall(service, path, interface, method);
        if (argument) call.append("s", argument);
        sd_bus_error error{};
        const auto limit = std::chrono::microseconds(patience).count();
        const int result =
            sd_bus_call(bus_->handle(), call.get(), static_cast<std::uint64_t>(limit), &error, reply);
        if (result < 0) error_ = error.message ? error.message : std::strerror(-result);
        denied_ = sd_bus_error_has_name(&error, SD_BUS_ERROR_ACCESS_DENIED) > 0;
        sd_bus_error_free(&error);
        return result >= 0;
    }

    /// The one that a measurement would take.
    const AdapterNode* chosen() const { return tree_.chooseAdapter(options_.adapter); }

    std::string adapterNames() const {
        std::string names;
        for (const auto& [path, adapter] : tree_.adapters())
            names += (names.empty() ? "" : ", ") + std::string(adapter.name());
        return names;
    }

    const DoctorOptions& options_;
    std::shared_ptr<bluez::Bus> bus_;
    NoObserver nobody_;
    bluez::ObjectTree tree_{nobody_};
    std::vector<std::string> paired_;  // What the user calls them.
    // Of the last call.
    std::string error_;
    bool denied_ = false;
};

}  // namespace

ExitStatus examineBluetooth(const DoctorOptions& options) {
    DataOutput out;
    const ExitStatus status = Examination(options).run(out);
    out.close();
    return status;
}

}  // namespace corvane::tool
