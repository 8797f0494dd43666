// A machine with Bluetooth for the program: its bus, and org.bluez as a stand-in that this process plays
// while the program runs.
#pragma once

#include <functional>
#include <string>

#include "shell.h"
#include "tests/bluez/stand_in.h"

namespace corvane {

class BlueZMachine {
public:
    BlueZMachine();

    /// Runs the command as `sh` does, on this machine.
    Ran run(const std::string& command);
    /// The same; once `reached` is true for the first time, the command can read a line from the pipe "go".
    Ran run(const std::string& command, const std::function<bool()>& reached);

    /// For what is still on its way; returns what `done` returned last.
    bool waitFor(const std::function<bool()>& done);
    /// What clients have left at the service in the end.
    std::string leftovers();

private:
    bluez::EventLoop loop_;

public:
    bluez::StandIn service;
};

}  // namespace corvane
