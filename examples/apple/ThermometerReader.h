// A thermometer for the rest of an application. The interface is plain Objective-C, so Swift can use it too.
#import <Foundation/Foundation.h>

NS_ASSUME_NONNULL_BEGIN

@class ThermometerReader;

/// Everything is called on the main thread.
@protocol ThermometerReaderDelegate <NSObject>
/// `temperature` has one decimal, in the unit that the device is set to.
- (void)thermometerReader:(ThermometerReader*)reader didRead:(NSString*)temperature;
/// A text for the user.
- (void)thermometerReader:(ThermometerReader*)reader didChangeStatus:(NSString*)status;
@end

/// Looks for an AOJ-20A thermometer and passes its readings on. Use it on the main thread.
@interface ThermometerReader : NSObject
@property(weak, nonatomic, nullable) id<ThermometerReaderDelegate> delegate;

/// Looks for the thermometer until `stop`. The first call makes the system ask for permission.
- (void)start;

/// Stops looking and ends the link, for good. The delegate hears nothing more.
- (void)stop;
@end

NS_ASSUME_NONNULL_END
