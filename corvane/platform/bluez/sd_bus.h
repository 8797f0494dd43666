// The C interface of sd-bus, from whichever library has it.
#pragma once

#ifdef CORVANE_SD_BUS_FROM_BASU
#include <basu/sd-bus.h>
#else
#include <systemd/sd-bus.h>
#endif
