#import "ThermometerReader.h"

#include "corvane/corvane.h"

@implementation ThermometerReader {
    // Absent while nothing is looked for: only a driver's destruction ends its search.
    std::unique_ptr<corvane::TemperatureAOJ20ADevice> _thermometer;
}

- (void)start {
    _thermometer = std::make_unique<corvane::TemperatureAOJ20ADevice>(/*autoResult=*/true);
    // Weakly, as this object holds the callbacks.
    __weak ThermometerReader* weakSelf = self;
    _thermometer->stateCentralManager = [weakSelf](corvane::CBManagerState state) {
        [weakSelf adapterIs:state];
    };
    _thermometer->stateConnection = [weakSelf](corvane::StateDeviceConnection state) {
        const bool connected = state == corvane::StateDeviceConnection::connect;
        [weakSelf tell:connected ? @"Connected" : @"Disconnected"];
    };
    _thermometer->stateLoading =
        [weakSelf](const corvane::StateDeviceLoading<corvane::TemperatureInfo>& state) {
            state.match([&](const corvane::TemperatureInfo& info) { [weakSelf read:info]; },
                        [&](const std::string& text) { [weakSelf tell:@(text.c_str())]; },
                        [&] { [weakSelf tell:@"Press the button of the thermometer"]; });
        };
    _thermometer->startScan();
}

- (void)stop {
    _thermometer.reset();
}

- (void)adapterIs:(corvane::CBManagerState)state {
    switch (state) {
    case corvane::CBManagerState::poweredOn:
        return [self tell:@"Looking for the thermometer"];
    case corvane::CBManagerState::unauthorized:
        return [self tell:@"Bluetooth is not allowed: see Settings"];
    case corvane::CBManagerState::unsupported:
        return [self tell:@"This device has no Bluetooth Low Energy"];
    default:
        return [self tell:@"Waiting for Bluetooth"];
    }
}

- (void)read:(const corvane::TemperatureInfo&)info {
    [self.delegate thermometerReader:self didRead:@(info.temperature.c_str())];
}

- (void)tell:(NSString*)status {
    [self.delegate thermometerReader:self didChangeStatus:status];
}

@end
