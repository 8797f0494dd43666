#include "sessions/recorder.h"

#include "sessions/recording_platform.h"

namespace corvane::sessions {
namespace {

class RecordedDevice final : public HostDevice {
public:
    RecordedDevice(const DeviceSetup& setup, Platform& platform, HostListener listener,
                   const Recording& recording)
        : platform_(std::make_shared<RecordingPlatform>(platform, recording)),
          device_(makeHostDevice(setup, *platform_,
                                 [platform = platform_.get(), listener = std::move(listener)](
                                     const HostReport& report) { platform->called(report, listener); })) {
        Json line = deviceLine(setup);
        line["onPrecondition"] = "ignore";
        platform_->write(line);
    }
    ~RecordedDevice() override { RecordedDevice::destroy(); }

    const Model& model() const override { return device_->model(); }
    bool alive() const override { return device_->alive(); }
    bool has(std::string_view operation) const override { return device_->has(operation); }

    std::optional<Json> call(std::string_view operation) override {
        std::optional<Json> result;
        if (!alive() || !has(operation)) return result;
        platform_->hostAction({{"call", operation}}, [&] {
            result = device_->call(operation);
            if (result) platform_->trace().result(*result);
        });
        return result;
    }

    void setCallback(HostCallback callback, bool present) override {
        if (!alive()) return;
        platform_->hostAction({{present ? "set" : "clear", nameOf(callback)}},
                              [&] { device_->setCallback(callback, present); });
    }

    void destroy() override {
        if (!alive()) return;
        platform_->hostAction({{"destroy", true}}, [&] { device_->destroy(); });
    }

private:
    const std::shared_ptr<RecordingPlatform> platform_;
    const std::unique_ptr<HostDevice> device_;
};

}  // namespace

std::unique_ptr<HostDevice> makeRecordedDevice(const DeviceSetup& setup, Platform& platform,
                                               HostListener listener, const Recording& recording) {
    return std::make_unique<RecordedDevice>(setup, platform, std::move(listener), recording);
}

}  // namespace corvane::sessions
