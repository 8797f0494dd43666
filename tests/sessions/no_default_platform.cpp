#include <cstdlib>

#include "corvane/platform/platform.h"

corvane::Platform& corvane::defaultPlatform() { std::abort(); }
