// Stand-in declarations: what the back end and the example application use of Foundation, no more. With them
// those sources compile, and run, where the vendor's frameworks are not installed.
#pragma once

#include <dispatch/dispatch.h>
#include <objc/objc.h>
#include <stddef.h>

#define NS_ENUM(type, name)                                                                                  \
    enum name : type name;                                                                                   \
    enum name : type
#define FOUNDATION_EXPORT extern "C"
#define NS_ASSUME_NONNULL_BEGIN _Pragma("clang assume_nonnull begin")
#define NS_ASSUME_NONNULL_END _Pragma("clang assume_nonnull end")

typedef long NSInteger;
typedef unsigned long NSUInteger;
typedef double NSTimeInterval;

NS_ASSUME_NONNULL_BEGIN

@class NSString;

@protocol NSObject
@end

@protocol NSCopying
- (id)copyWithZone:(nullable void*)zone;
@end

__attribute__((objc_root_class))
@interface NSObject<NSObject> {
    Class isa;
}
+ (instancetype)alloc;
+ (instancetype)new;
- (instancetype)init;
- (void)dealloc;
- (id)copy;
@end

typedef struct {
    unsigned long state;
    id __unsafe_unretained _Nullable* _Nullable itemsPtr;
    unsigned long* _Nullable mutationsPtr;
    unsigned long extra[5];
} NSFastEnumerationState;

@class NSData;

typedef NS_ENUM(NSUInteger, NSStringEncoding) { NSUTF8StringEncoding = 4 };

@interface NSString : NSObject <NSCopying>
+ (nullable instancetype)stringWithUTF8String:(const char*)text;
@property(readonly, nullable) const char* UTF8String;
- (nullable NSData*)dataUsingEncoding:(NSStringEncoding)encoding allowLossyConversion:(BOOL)lossy;
- (BOOL)isEqualToString:(NSString*)other;
@end

FOUNDATION_EXPORT void NSLog(NSString* format, ...);  // declared only

@interface NSData : NSObject
+ (instancetype)dataWithBytes:(nullable const void*)bytes length:(NSUInteger)length;
@property(readonly) NSUInteger length;
@property(readonly) const void* bytes;
@end

@interface NSNumber : NSObject
+ (instancetype)numberWithInt:(int)value;
@end

@interface NSArray<__covariant ObjectType> : NSObject <NSCopying>
+ (instancetype)array;
+ (instancetype)arrayWithObject:(ObjectType)object;
@property(readonly, nullable) ObjectType firstObject;
- (NSUInteger)countByEnumeratingWithState:(NSFastEnumerationState*)state
                                  objects:(id __unsafe_unretained _Nullable[_Nonnull])buffer
                                    count:(NSUInteger)count;
@end

@interface NSMutableArray<ObjectType> : NSArray <ObjectType>
- (void)addObject:(ObjectType)object;
@end

@interface NSDictionary<__covariant KeyType, __covariant ObjectType> : NSObject
+ (instancetype)dictionaryWithObjects:(const ObjectType _Nonnull __unsafe_unretained[_Nullable])objects
                              forKeys:(const KeyType _Nonnull __unsafe_unretained[_Nullable])keys
                                count:(NSUInteger)count;
- (nullable ObjectType)objectForKeyedSubscript:(KeyType)key;
@end

@interface NSUUID : NSObject
- (nullable instancetype)initWithUUIDString:(NSString*)text;
@property(readonly, copy) NSString* UUIDString;
@end

@interface NSError : NSObject
+ (instancetype)errorWithDomain:(NSString*)domain code:(NSInteger)code userInfo:(nullable NSDictionary*)info;
@property(readonly, copy) NSString* localizedDescription;
@end

FOUNDATION_EXPORT NSString* const NSLocalizedDescriptionKey;

typedef NSString* NSRunLoopMode;
FOUNDATION_EXPORT NSRunLoopMode const NSDefaultRunLoopMode;
FOUNDATION_EXPORT NSRunLoopMode const NSRunLoopCommonModes;

@interface NSTimer : NSObject
+ (NSTimer*)timerWithTimeInterval:(NSTimeInterval)seconds
                          repeats:(BOOL)repeats
                            block:(void (^)(NSTimer* timer))block;
- (void)invalidate;
@end

@interface NSRunLoop : NSObject
@property(class, readonly, strong) NSRunLoop* mainRunLoop;
- (void)addTimer:(NSTimer*)timer forMode:(NSRunLoopMode)mode;
@end

@interface NSRunLoop (Conveniences)  // declared only
- (void)run;
@end

NS_ASSUME_NONNULL_END
