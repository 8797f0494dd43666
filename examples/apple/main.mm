// The smallest program for macOS that reads a thermometer.
#import "ThermometerReader.h"

@interface Printer : NSObject <ThermometerReaderDelegate>
@end

@implementation Printer
- (void)thermometerReader:(ThermometerReader*)reader didRead:(NSString*)temperature {
    NSLog(@"%@ degrees", temperature);
}
- (void)thermometerReader:(ThermometerReader*)reader didChangeStatus:(NSString*)status {
    NSLog(@"%@", status);
}
@end

int main() {
    @autoreleasepool {
        Printer* printer = [Printer new];
        ThermometerReader* reader = [ThermometerReader new];
        reader.delegate = printer;
        [reader start];
        [NSRunLoop.mainRunLoop run];
    }
}
