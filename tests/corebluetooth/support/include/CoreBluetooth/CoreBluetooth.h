// Stand-in declarations: what the back end uses of CoreBluetooth, no more.
#pragma once

#import <Foundation/Foundation.h>

NS_ASSUME_NONNULL_BEGIN

@class CBCentralManager, CBPeripheral, CBService, CBCharacteristic;

typedef NS_ENUM(NSInteger, CBManagerState) {
    CBManagerStateUnknown = 0,
    CBManagerStateResetting,
    CBManagerStateUnsupported,
    CBManagerStateUnauthorized,
    CBManagerStatePoweredOff,
    CBManagerStatePoweredOn,
};

typedef NS_ENUM(NSInteger, CBPeripheralState) {
    CBPeripheralStateDisconnected = 0,
    CBPeripheralStateConnecting,
    CBPeripheralStateConnected,
    CBPeripheralStateDisconnecting,
};

typedef NS_ENUM(NSInteger, CBCharacteristicWriteType) {
    CBCharacteristicWriteWithResponse = 0,
    CBCharacteristicWriteWithoutResponse,
};

@interface CBUUID : NSObject
+ (CBUUID*)UUIDWithString:(NSString*)text;
@property(readonly, nonatomic) NSString* UUIDString;
@end

@interface CBPeer : NSObject
@property(readonly, nonatomic) NSUUID* identifier;
@end

@interface CBAttribute : NSObject
@property(readonly, nonatomic) CBUUID* UUID;
@end

@interface CBCharacteristic : CBAttribute
@property(readonly, nullable) NSData* value;
@end

@interface CBService : CBAttribute
@property(readonly, nullable) NSArray<CBCharacteristic*>* characteristics;
@end

@protocol CBPeripheralDelegate <NSObject>
@optional
- (void)peripheralDidUpdateName:(CBPeripheral*)peripheral;
- (void)peripheral:(CBPeripheral*)peripheral didModifyServices:(NSArray<CBService*>*)invalidatedServices;
- (void)peripheral:(CBPeripheral*)peripheral didDiscoverServices:(nullable NSError*)error;
- (void)peripheral:(CBPeripheral*)peripheral
    didDiscoverCharacteristicsForService:(CBService*)service
                                   error:(nullable NSError*)error;
- (void)peripheral:(CBPeripheral*)peripheral
    didUpdateNotificationStateForCharacteristic:(CBCharacteristic*)characteristic
                                          error:(nullable NSError*)error;
- (void)peripheral:(CBPeripheral*)peripheral
    didWriteValueForCharacteristic:(CBCharacteristic*)characteristic
                             error:(nullable NSError*)error;
- (void)peripheral:(CBPeripheral*)peripheral
    didUpdateValueForCharacteristic:(CBCharacteristic*)characteristic
                              error:(nullable NSError*)error;
@end

@interface CBPeripheral : CBPeer
@property(weak, nonatomic, nullable) id<CBPeripheralDelegate> delegate;
@property(readonly, nullable) NSString* name;
@property(readonly) CBPeripheralState state;
@property(readonly, nullable) NSArray<CBService*>* services;
- (void)discoverServices:(nullable NSArray<CBUUID*>*)serviceUUIDs;
- (void)discoverCharacteristics:(nullable NSArray<CBUUID*>*)characteristicUUIDs
                     forService:(CBService*)service;
- (void)writeValue:(NSData*)data
    forCharacteristic:(CBCharacteristic*)characteristic
                 type:(CBCharacteristicWriteType)type;
- (void)setNotifyValue:(BOOL)enabled forCharacteristic:(CBCharacteristic*)characteristic;
@end

@interface CBManager : NSObject
@property(readonly, nonatomic) CBManagerState state;
@end

@protocol CBCentralManagerDelegate <NSObject>
@required
- (void)centralManagerDidUpdateState:(CBCentralManager*)central;
@optional
- (void)centralManager:(CBCentralManager*)central
    didDiscoverPeripheral:(CBPeripheral*)peripheral
        advertisementData:(NSDictionary<NSString*, id>*)advertisementData
                     RSSI:(NSNumber*)RSSI;
- (void)centralManager:(CBCentralManager*)central didConnectPeripheral:(CBPeripheral*)peripheral;
- (void)centralManager:(CBCentralManager*)central
    didFailToConnectPeripheral:(CBPeripheral*)peripheral
                         error:(nullable NSError*)error;
- (void)centralManager:(CBCentralManager*)central
    didDisconnectPeripheral:(CBPeripheral*)peripheral
                      error:(nullable NSError*)error;
@end

@interface CBCentralManager : CBManager
@property(weak, nonatomic, nullable) id<CBCentralManagerDelegate> delegate;
- (instancetype)initWithDelegate:(nullable id<CBCentralManagerDelegate>)delegate
                           queue:(nullable dispatch_queue_t)queue
                         options:(nullable NSDictionary<NSString*, id>*)options;
- (NSArray<CBPeripheral*>*)retrievePeripheralsWithIdentifiers:(NSArray<NSUUID*>*)identifiers;
- (void)scanForPeripheralsWithServices:(nullable NSArray<CBUUID*>*)serviceUUIDs
                               options:(nullable NSDictionary<NSString*, id>*)options;
- (void)stopScan;
- (void)connectPeripheral:(CBPeripheral*)peripheral options:(nullable NSDictionary<NSString*, id>*)options;
- (void)cancelPeripheralConnection:(CBPeripheral*)peripheral;
@end

NS_ASSUME_NONNULL_END
