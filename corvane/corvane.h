// Everything an application needs.
#pragma once

#include "corvane/devices/catalogue.h"
#include "corvane/framework/device_contract.h"
#include "corvane/platform/platform.h"
