#pragma once

#include <string>

#include "sessions/host_device.h"

namespace corvane::tool {

/// A record for people: "sys 120, dia 80, pluse 72", without its `uuid`. A long list is told by its length.
std::string recordText(const sessions::Json& record);

/// On one line, with nothing in it that could steer a terminal.
std::string jsonLine(const sessions::Json& value);

}  // namespace corvane::tool
