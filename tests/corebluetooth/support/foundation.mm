#import <Foundation/Foundation.h>

#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "foundation_private.h"
#include "objc_runtime.h"

namespace objc = standin::objc;

static objc::Object* asObject(id object) { return (__bridge objc::Object*)object; }
static objc::Class* asClass(Class cls) { return (__bridge objc::Class*)cls; }

@implementation NSObject
+ (instancetype)alloc {
    return (__bridge_transfer id)(void*)objc::create(asClass(self));
}
+ (instancetype)new {
    return [[self alloc] init];
}
- (instancetype)init {
    return self;
}
- (void)dealloc {
    objc::dispose(asObject(self));
}
- (id)copy {
    return [(id<NSCopying>)self copyWithZone:nullptr];
}
@end

// Text as the system keeps it, which can be no valid UTF-8: half of a surrogate pair stands in it as the
// three bytes that UTF-8 would have for it.
@implementation StoredString {
    std::string _text;
}
- (instancetype)initWithBytes:(std::string)bytes {
    if ((self = [super init])) _text = std::move(bytes);
    return self;
}
- (std::string_view)bytes {
    return _text;
}
@end

// What the compiler lays down for @"text".
@interface ConstantString : NSString {
    int _flags;
    const char* _text;
    long _length;
}
@end
@implementation ConstantString
- (std::string_view)bytes {
    return {_text, static_cast<std::size_t>(_length)};
}
@end
__asm__(".globl __CFConstantStringClassReference\n"
        ".set __CFConstantStringClassReference, OBJC_CLASS_$_ConstantString");

static bool isHalfPair(std::string_view text, std::size_t at) {
    return text.size() - at >= 3 && text[at] == '\xED' && static_cast<unsigned char>(text[at + 1]) >= 0xA0;
}

@implementation NSString
+ (instancetype)stringWithUTF8String:(const char*)text {
    return [[StoredString alloc] initWithBytes:text];
}
- (std::string_view)bytes {
    abort();
}
- (const char*)UTF8String {
    for (std::size_t at = 0; at < self.bytes.size(); ++at) {
        if (isHalfPair(self.bytes, at)) return nullptr;
    }
    return self.bytes.data();
}
- (NSData*)dataUsingEncoding:(NSStringEncoding)encoding allowLossyConversion:(BOOL)lossy {
    if (encoding != NSUTF8StringEncoding) abort();
    std::string utf8;
    for (std::size_t at = 0; at < self.bytes.size(); ++at) {
        const bool half = isHalfPair(self.bytes, at);
        if (half && !lossy) return nil;
        utf8 += half ? '?' : self.bytes[at];
        if (half) at += 2;
    }
    return [NSData dataWithBytes:utf8.data() length:utf8.size()];
}
- (BOOL)isEqualToString:(NSString*)other {
    return self.bytes == other.bytes;
}
- (id)copyWithZone:(void*)zone {
    return self;
}
@end

@implementation NSData {
    std::vector<unsigned char> _bytes;
}
+ (instancetype)dataWithBytes:(const void*)bytes length:(NSUInteger)length {
    NSData* data = [NSData new];
    const auto* first = static_cast<const unsigned char*>(bytes);
    data->_bytes.assign(first, first + length);
    return data;
}
- (NSUInteger)length {
    return _bytes.size();
}
- (const void*)bytes {
    return _bytes.data();
}
- (void)overwriteWith:(const std::vector<unsigned char>&)bytes {
    _bytes = bytes;
}
@end

@implementation NSNumber
+ (instancetype)numberWithInt:(int)value {
    return [NSNumber new];
}
@end

@implementation NSArray {
@protected
    std::vector<id> _items;
}
+ (instancetype)array {
    return [self new];
}
+ (instancetype)arrayWithObject:(id)object {
    NSArray* array = [self new];
    array->_items.push_back(object);
    return array;
}
- (id)firstObject {
    return _items.empty() ? nil : _items.front();
}
- (id)copyWithZone:(void*)zone {
    NSArray* array = [NSArray new];
    array->_items = _items;
    return array;
}
- (NSUInteger)countByEnumeratingWithState:(NSFastEnumerationState*)state
                                  objects:(id __unsafe_unretained[])buffer
                                    count:(NSUInteger)count {
    if (state->state) return 0;
    state->state = 1;
    state->itemsPtr = reinterpret_cast<id __unsafe_unretained*>(reinterpret_cast<void*>(_items.data()));
    state->mutationsPtr = &state->extra[0];
    return _items.size();
}
@end

@implementation NSMutableArray
- (void)addObject:(id)object {
    if (!object) abort();  // an exception on the vendor's systems
    _items.push_back(object);
}
@end

@implementation NSDictionary {
    std::vector<std::pair<NSString*, id>> _pairs;
}
+ (instancetype)dictionaryWithObjects:(const id __unsafe_unretained[])objects
                              forKeys:(const id __unsafe_unretained[])keys
                                count:(NSUInteger)count {
    NSDictionary* dictionary = [NSDictionary new];
    for (NSUInteger i = 0; i < count; ++i) dictionary->_pairs.emplace_back(keys[i], objects[i]);
    return dictionary;
}
- (id)objectForKeyedSubscript:(id)key {
    for (const auto& [known, value] : _pairs) {
        if ([known isEqualToString:key]) return value;
    }
    return nil;
}
@end

@implementation NSUUID {
    NSString* _text;
}
- (instancetype)initWithUUIDString:(NSString*)text {
    if ((self = [super init])) _text = text;
    return self;
}
- (NSString*)UUIDString {
    return _text;
}
@end

NSString* const NSLocalizedDescriptionKey = @"NSLocalizedDescription";

@implementation NSError {
    NSDictionary* _info;
}
+ (instancetype)errorWithDomain:(NSString*)domain code:(NSInteger)code userInfo:(NSDictionary*)info {
    NSError* error = [NSError new];
    error->_info = info;
    return error;
}
- (NSString*)localizedDescription {
    return _info[NSLocalizedDescriptionKey] ?: @"The operation could not be completed.";
}
@end
