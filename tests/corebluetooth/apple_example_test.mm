#import "examples/apple/ThermometerReader.h"

#include "corvane/devices/temperature/temperature_aoj20a_device.h"
#include "emulators/emulator.h"
#include "standin_test.h"

@interface ExampleListener : NSObject <ThermometerReaderDelegate> {
@public
    std::vector<std::string> _lines;
}
@end

@implementation ExampleListener
- (void)thermometerReader:(ThermometerReader*)reader didRead:(NSString*)temperature {
    _lines.push_back("read");
}
- (void)thermometerReader:(ThermometerReader*)reader didChangeStatus:(NSString*)status {
    _lines.push_back(status.UTF8String);
}
@end

namespace {

using namespace standin;

TEST(AppleExample, ReadsAThermometerAndStops) {
    const FreshAir air;
    radio::add(corvane::makeEmulator(corvane::TemperatureAOJ20ADevice::model, {}));
    ExampleListener* listener = [ExampleListener new];
    ThermometerReader* reader = [ThermometerReader new];
    reader.delegate = listener;
    [reader start];
    mainLoop::runFor(std::chrono::seconds(6));
    const std::vector<std::string> reading{"Waiting for Bluetooth", "Looking for the thermometer",
                                           "Connected", "Press the button of the thermometer", "read"};
    EXPECT_EQ(std::exchange(listener->_lines, {}), reading);
    [reader stop];
    radio::setState(corvane::CBManagerState::poweredOff);
    mainLoop::runFor(std::chrono::seconds(60));
    radio::setState(corvane::CBManagerState::poweredOn);
    mainLoop::runFor(std::chrono::seconds(60));
    EXPECT_THAT(listener->_lines, testing::IsEmpty());
    EXPECT_EQ(radio::scans() + radio::links(), 0u);
    [reader start];
    mainLoop::runFor(std::chrono::seconds(6));
    EXPECT_EQ(listener->_lines, reading);
}

}  // namespace
