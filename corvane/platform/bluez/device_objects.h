// A device as BlueZ sees it on the bus: an object for each service and characteristic, and one for its
// advertisement.
#pragma once

#include <memory>
#include <vector>

#include "corvane/platform/bluez/bus.h"
#include "corvane/platform/peripheral_device.h"

namespace corvane::bluez {

class DeviceObjects {
public:
    static constexpr const char* applicationPath = "/org/corvane/application";
    static constexpr const char* advertisementPath = "/org/corvane/advertisement";

    /// Told what BlueZ asks for, after it has been answered: what is sent then comes after the answer.
    class Owner {
    public:
        /// Nobody else may call.
        virtual bool isFromService(sd_bus_message* call) const = 0;
        /// Also when it is asked for again.
        virtual void subscribed(const CBUUID& characteristic, bool enabled) = 0;
        virtual void written(const CBUUID& characteristic, Bytes value, CBCharacteristicWriteType type) = 0;
        virtual void advertisementReleased() = 0;

    protected:
        ~Owner() = default;
    };

    /// Puts the objects on the bus; they go with this one. Both references must outlive it.
    DeviceObjects(sd_bus* bus, const PeripheralDevice& device, Owner& owner);
    ~DeviceObjects();

    /// Sends the value where it is subscribed to.
    void notify(const CBUUID& characteristic, Bytes value);
    std::vector<CBUUID> subscriptions() const;
    void dropSubscriptions();

private:
    struct Service;
    struct Characteristic;
    struct Calls;

    void add(const GattService& service);
    Slot add(const char* path, const char* interface, const sd_bus_vtable* table, void* object);

    sd_bus* const bus_;
    const PeripheralDevice& device_;
    Owner& owner_;
    std::vector<std::unique_ptr<Service>> services_;
    std::vector<std::unique_ptr<Characteristic>> characteristics_;
    Slot objectManager_;
    Slot advertisement_;
};

}  // namespace corvane::bluez
