// What the stand-ins know of one another beyond the public interface.
#pragma once

#import <Foundation/Foundation.h>

#include <string>
#include <string_view>
#include <vector>

@interface NSString ()
@property(readonly) std::string_view bytes;
@end

@interface StoredString : NSString
- (instancetype)initWithBytes:(std::string)bytes;
@end

@interface NSData ()
- (void)overwriteWith:(const std::vector<unsigned char>&)bytes;
@end
