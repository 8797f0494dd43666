// The players of a check: an application that notes what it hears, and a device that notes what it is told.
#pragma once

#include <list>
#include <optional>

#include "tests/conformance/contracts.h"

namespace corvane::conformance {

using Value = std::vector<std::uint8_t>;

/// What an application hears.
struct Event {
    enum class Kind { state, discovered, connected, services, characteristics, value, disconnected };

    Kind kind{};
    CBManagerState state{};  ///< What the central said at that moment.
    PeripheralRef peripheral{};
    ServiceRef service{};
    CharacteristicRef characteristic{};
    std::optional<Value> value{};
    bool error = false;
};

/// A delegate for everything. Whatever it hears while `asking` is an event from inside a call.
class Client final : public CBCentralManagerDelegate,
                     public CBPeripheralDelegate,
                     public std::enable_shared_from_this<Client> {
public:
    std::shared_ptr<CBCentralManager> central;
    std::vector<Event> events;
    /// Takes each event; if it is absent, events are noted.
    std::function<void(Event)> onEvent;
    bool asking = false;
    bool heardWhileAsking = false;
    bool nested = false;  ///< Heard something while it was hearing something.

    /// Does what usually follows the event, up to ending the link after the first value.
    void proceed(const Event& event);

    std::size_t count(Event::Kind kind) const;
    /// The last of its kind, or null.
    const Event* last(Event::Kind kind) const;
    std::vector<Value> values() const;

private:
    void didUpdateState() override;
    void didDiscover(const PeripheralRef& peripheral) override;
    void didConnect(const PeripheralRef& peripheral) override;
    void didDisconnectPeripheral(const PeripheralRef& peripheral, const CBError* error) override;
    void didDiscoverServices(const PeripheralRef& peripheral, const CBError* error) override;
    void didDiscoverCharacteristicsFor(const PeripheralRef& peripheral, const ServiceRef& service,
                                       const CBError* error) override;
    void didUpdateValueFor(const PeripheralRef& peripheral, const CharacteristicRef& characteristic,
                           std::optional<Bytes> value, const CBError* error) override;
    void hear(Event event);

    bool hearing_ = false;
};

/// Two services: the first can be subscribed to, written to in both ways, and indicates on a second
/// characteristic; the other has one characteristic.
class Sample final : public PeripheralDevice, public std::enable_shared_from_this<Sample> {
public:
    static constexpr CBUUID service{"0000fa00-0000-1000-8000-00805f9b34fb"};
    static constexpr CBUUID notified{"0000fa01-0000-1000-8000-00805f9b34fb"};
    static constexpr CBUUID indicated{"0000fa02-0000-1000-8000-00805f9b34fb"};
    static constexpr CBUUID writable{"0000fa03-0000-1000-8000-00805f9b34fb"};
    static constexpr CBUUID otherService{"0000fb00-0000-1000-8000-00805f9b34fb"};
    static constexpr CBUUID otherCharacteristic{"0000fb01-0000-1000-8000-00805f9b34fb"};

    explicit Sample(std::string name = "Sample") : advertised(std::move(name)) {}

    std::string name() const override { return advertised; }
    std::vector<GattService> services() const override;
    void connected(PeripheralHost& host) override;
    void disconnected() override;
    void subscribed(const CBUUID& characteristic, bool enabled) override;
    void written(const CBUUID& characteristic, Bytes value, CBCharacteristicWriteType type) override;

    void send(std::initializer_list<std::uint8_t> value, const CBUUID& characteristic = notified);

    struct Write {
        Value value;
        CBCharacteristicWriteType type;
    };
    std::string advertised;
    PeripheralHost* host = nullptr;  ///< Null while there is no link.
    std::vector<std::string> told;   ///< Names of the calls, in their order.
    std::vector<Write> writes;
    std::size_t links = 0;
    std::size_t subscriptions = 0;  ///< How often it was turned on.
    bool isSubscribed = false;
    bool nested = false;  ///< Was called while it was being called.
    std::function<void(Sample&)> onConnected, onSubscribed;

private:
    template <class Call>
    void note(std::string what, Call call);
    bool busy_ = false;
};

/// One device, one application, and the way they go together, step by step.
class Scene {
public:
    Scene(BackEnd& backEnd, Findings& findings);
    ~Scene();

    /// Takes the application up to an event of this kind, by the usual steps.
    void reach(Event::Kind kind);
    void subscribe(bool enabled = true);

    /// Makes a central for the client, or asks it or the peripheral for something.
    void makeCentral();
    template <class Operation>
    void ask(Operation operation) {
        client->asking = true;
        operation();
        client->asking = false;
    }
    void scan();
    void discoverServices(std::span<const CBUUID> wanted = {});
    void discoverCharacteristics(std::span<const CBUUID> wanted = {});
    void write(std::initializer_list<std::uint8_t> value,
               CBCharacteristicWriteType type = CBCharacteristicWriteType::withResponse);
    void cancel();

    void waitFor(const std::function<bool()>& done, std::string_view what);
    /// Waits until one more event of the kind has come than there were.
    void waitForOneMore(Event::Kind kind, std::size_t before);
    void settle() { backEnd.settle(); }
    // What was discovered last. The check ends where that is missing.
    std::vector<ServiceRef> services() const;
    ServiceRef service() const;
    std::vector<CharacteristicRef> characteristics() const;
    CharacteristicRef characteristic(const CBUUID& uuid = Sample::notified) const;

    BackEnd& backEnd;
    Findings& findings;
    std::shared_ptr<Sample> device = std::make_shared<Sample>();
    std::shared_ptr<Client> client = std::make_shared<Client>();
    PeripheralRef peripheral;  ///< The device's, once it was discovered.

private:
    std::list<Value> written_;  ///< Lives on, in case a back end reads it too late.
};

}  // namespace corvane::conformance
