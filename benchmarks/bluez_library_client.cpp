#include "benchmarks/bluez_clients.h"
#include "corvane/platform/bluez/bluez_platform.h"

namespace corvane::benchmarks {
namespace {

class LibraryClient final : public CBCentralManagerDelegate, public CBPeripheralDelegate {
public:
    explicit LibraryClient(const Task& task) : task_(task) {}

    void begin(const std::shared_ptr<CBCentralManager>& central, std::weak_ptr<LibraryClient> self) {
        central_ = central.get();
        self_ = std::move(self);
        start_ = now();
    }
    const Result& result() const { return result_; }

private:
    void didUpdateState() override {
        if (central_->state() == CBManagerState::poweredOn) central_->scanForPeripherals();
    }
    void didDiscover(const PeripheralRef& peripheral) override {
        if (task_.values == 0 && found_++ == 0) processorBefore_ = processorTime();
        if (peripheral->name() != task_.deviceName) return;
        if (task_.values == 0) return finish();
        peripheral_ = peripheral;
        peripheral->setDelegate(self_);
        central_->connect(peripheral);
        central_->stopScan();
    }
    void didConnect(const PeripheralRef& peripheral) override { peripheral->discoverServices({}); }
    void didDisconnectPeripheral(const PeripheralRef& /*peripheral*/, const CBError* /*error*/) override {}
    void didDiscoverServices(const PeripheralRef& peripheral, const CBError* /*error*/) override {
        peripheral->discoverCharacteristics({}, *peripheral->services()->front());
    }
    void didDiscoverCharacteristicsFor(const PeripheralRef& peripheral, const ServiceRef& service,
                                       const CBError* /*error*/) override {
        peripheral->setNotifyValue(true, *service->characteristics->front());
    }
    void didUpdateValueFor(const PeripheralRef& /*peripheral*/, const CharacteristicRef& /*characteristic*/,
                           std::optional<Bytes> /*value*/, const CBError* /*error*/) override {
        if (values_++ == 0) {
            result_.firstValue = now() - start_;
            processorBefore_ = processorTime();
        }
        if (values_ == task_.values) finish();
    }
    void finish() {
        result_.processor = processorTime() - processorBefore_;
        result_.done = true;
    }

    const Task& task_;
    CBCentralManager* central_ = nullptr;
    std::weak_ptr<LibraryClient> self_;
    PeripheralRef peripheral_;
    std::size_t values_ = 0, found_ = 0;
    double start_ = 0.0, processorBefore_ = 0.0;
    Result result_;
};

}  // namespace

Result runLibraryClient(const Task& task) {
    const auto client = std::make_shared<LibraryClient>(task);
    BlueZPlatform platform(
        {.busAddress = task.busAddress,
         .notifyPath = task.bySocket ? BlueZNotifyPath::socket : BlueZNotifyPath::busSignals});
    const auto central = platform.makeCentralManager(client);
    client->begin(central, client);
    platform.runUntil([&] { return client->result().done; }, std::chrono::minutes(1));
    return client->result();
}

}  // namespace corvane::benchmarks
