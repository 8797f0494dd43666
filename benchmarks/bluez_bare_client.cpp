// The least that a client can do with sd-bus: what the library's client is measured against.
#include <poll.h>
#include <strings.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstring>

#include "benchmarks/bluez_clients.h"
#include "corvane/platform/bluez/sd_bus.h"

namespace corvane::benchmarks {
namespace {

constexpr const char* adapter = "/org/bluez/hci0";

class BareClient {
public:
    explicit BareClient(const Task& task) : task_(task) {}
    ~BareClient() {
        if (socket_ >= 0) close(socket_);
        sd_bus_flush_close_unref(bus_);
    }

    Result run() {
        start_ = now();
        open();
        call(adapter, "org.bluez.Adapter1", "SetDiscoveryFilter", "a{sv}", 1, "Transport", "s", "le");
        call(adapter, "org.bluez.Adapter1", "StartDiscovery", "");
        while (device_.empty()) turn();
        if (task_.values == 0) return finish();
        call(adapter, "org.bluez.Adapter1", "StopDiscovery", "");
        call(device_.c_str(), "org.bluez.Device1", "Connect", "");
        while (!resolved_) turn();
        objects();
        subscribe();
        while (values_ < task_.values) turn();
        return finish();
    }

private:
    void open() {
        sd_bus_new(&bus_);
        sd_bus_set_address(bus_, task_.busAddress.c_str());
        sd_bus_set_bus_client(bus_, 1);
        sd_bus_negotiate_fds(bus_, 1);
        sd_bus_start(bus_);
        sd_bus_add_match(bus_, nullptr, "type='signal',sender='org.bluez',member='InterfacesAdded'", onAdded,
                         this);
        sd_bus_add_match(bus_, nullptr, "type='signal',sender='org.bluez',member='PropertiesChanged'",
                         onChanged, this);
        objects();
    }

    template <class... Arguments>
    void call(const char* path, const char* interface, const char* method, const char* types,
              Arguments... arguments) {
        sd_bus_call_method(bus_, "org.bluez", path, interface, method, nullptr, nullptr, types, arguments...);
    }

    void subscribe() {
        constexpr const char* interface = "org.bluez.GattCharacteristic1";
        if (!task_.bySocket) return call(characteristic_.c_str(), interface, "StartNotify", "");
        sd_bus_message* reply = nullptr;
        sd_bus_call_method(bus_, "org.bluez", characteristic_.c_str(), interface, "AcquireNotify", nullptr,
                           &reply, "a{sv}", 0);
        int borrowed = -1;
        sd_bus_message_read_basic(reply, 'h', &borrowed);
        socket_ = dup(borrowed);
        sd_bus_message_unref(reply);
    }

    void turn() {
        if (sd_bus_process(bus_, nullptr) > 0) return;
        pollfd both[] = {{sd_bus_get_fd(bus_), POLLIN, 0}, {socket_, POLLIN, 0}};
        poll(both, socket_ >= 0 ? 2 : 1, 1000);
        std::uint8_t buffer[512];
        while (socket_ >= 0 && recv(socket_, buffer, sizeof buffer, MSG_DONTWAIT) > 0) value();
    }

    void value() {
        if (values_++ > 0) return;
        result_.firstValue = now() - start_;
        processorBefore_ = processorTime();
    }

    Result finish() {
        result_.processor = processorTime() - processorBefore_;
        result_.done = true;
        return result_;
    }

    void heard(const char* path) {
        if (task_.values == 0 && adverts_++ == 0) processorBefore_ = processorTime();
        lastHeard_ = path;
    }

    void objects() {
        sd_bus_message* reply = nullptr;
        const char* path = nullptr;
        if (sd_bus_call_method(bus_, "org.bluez", "/", "org.freedesktop.DBus.ObjectManager",
                               "GetManagedObjects", nullptr, &reply, "") < 0)
            return;
        sd_bus_message_enter_container(reply, 'a', "{oa{sa{sv}}}");
        while (sd_bus_message_enter_container(reply, 'e', "oa{sa{sv}}") > 0) {
            sd_bus_message_read_basic(reply, 'o', &path);
            interfaces(reply, path);
            sd_bus_message_exit_container(reply);
        }
        sd_bus_message_unref(reply);
    }

    void interfaces(sd_bus_message* message, const char* path) {
        const char* interface = nullptr;
        sd_bus_message_enter_container(message, 'a', "{sa{sv}}");
        while (sd_bus_message_enter_container(message, 'e', "sa{sv}") > 0) {
            sd_bus_message_read_basic(message, 's', &interface);
            properties(message, path, interface, false);
            sd_bus_message_exit_container(message);
        }
        sd_bus_message_exit_container(message);
    }

    void properties(sd_bus_message* message, const char* path, const char* interface, bool changed) {
        const bool ofDevice = !strcmp(interface, "org.bluez.Device1");
        const bool ofCharacteristic = !strcmp(interface, "org.bluez.GattCharacteristic1");
        const char* name = nullptr;
        const char* text = nullptr;
        int truth = 0;
        sd_bus_message_enter_container(message, 'a', "{sv}");
        while (sd_bus_message_enter_container(message, 'e', "sv") > 0) {
            sd_bus_message_read_basic(message, 's', &name);
            if (ofDevice && !strcmp(name, "Name")) {
                sd_bus_message_read(message, "v", "s", &text);
                if (task_.deviceName == text) device_ = path;
            } else if (ofDevice && !strcmp(name, "RSSI")) {
                sd_bus_message_skip(message, "v");
                if (changed) heard(path);
            } else if (ofDevice && !strcmp(name, "ServicesResolved")) {
                sd_bus_message_read(message, "v", "b", &truth);
                if (device_ == path) resolved_ = truth;
            } else if (ofCharacteristic && !strcmp(name, "UUID")) {
                sd_bus_message_read(message, "v", "s", &text);
                if (!strcasecmp(text, task_.characteristic.c_str())) characteristic_ = path;
            } else if (ofCharacteristic && !strcmp(name, "Value") && changed && characteristic_ == path) {
                const void* bytes = nullptr;
                std::size_t size = 0;
                sd_bus_message_enter_container(message, 'v', "ay");
                sd_bus_message_read_array(message, 'y', &bytes, &size);
                sd_bus_message_exit_container(message);
                value();
            } else {
                sd_bus_message_skip(message, "v");
            }
            sd_bus_message_exit_container(message);
        }
        sd_bus_message_exit_container(message);
    }

    static int onAdded(sd_bus_message* message, void* self, sd_bus_error*) {
        const char* path = nullptr;
        sd_bus_message_read_basic(message, 'o', &path);
        static_cast<BareClient*>(self)->interfaces(message, path);
        return 0;
    }

    static int onChanged(sd_bus_message* message, void* self, sd_bus_error*) {
        const char* interface = nullptr;
        sd_bus_message_read_basic(message, 's', &interface);
        static_cast<BareClient*>(self)->properties(message, sd_bus_message_get_path(message), interface,
                                                   true);
        return 0;
    }

    const Task& task_;
    sd_bus* bus_ = nullptr;
    std::string device_, characteristic_, lastHeard_;
    bool resolved_ = false;
    int socket_ = -1;
    std::size_t values_ = 0, adverts_ = 0;
    double start_ = 0.0, processorBefore_ = 0.0;
    Result result_;
};

}  // namespace

Result runBareClient(const Task& task) { return BareClient(task).run(); }

double processorTime() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_usec);
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

double now() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

}  // namespace corvane::benchmarks
