// What every back end promises, as checks that run on any of them.
//
// A back end under test is plugged in with one small file: a `BackEnd` for it, and one line,
//
//     static const bool registered = registerConformance("BlueZ", [] { return ...; });
//
// in a program that links `conformance_suite`.
#pragma once

#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "corvane/platform/peripheral_device.h"
#include "corvane/platform/platform.h"

namespace corvane::conformance {

/// A platform with an air of its own, on which nothing is yet, and with the adapter on.
class BackEnd {
public:
    virtual ~BackEnd() = default;

    virtual Platform& platform() = 0;
    /// On the clock of the platform's timers.
    virtual std::chrono::nanoseconds now() = 0;

    /// Brings a device into reach, for the first time or again.
    virtual void add(std::shared_ptr<PeripheralDevice> device) = 0;
    /// Takes it out of reach: its link is lost.
    virtual void remove(const PeripheralDevice& device) = 0;
    /// Its name is another than when it was added.
    virtual void nameChanged(const PeripheralDevice& device) = 0;
    /// `poweredOn` and `poweredOff` at least.
    virtual void setState(CBManagerState state) = 0;

    /// Runs the main queue until `done`, which it asks after each item. False when that takes longer than
    /// anything ought to.
    virtual bool runUntil(const std::function<bool()>& done) = 0;
    /// Runs the main queue for as long as anything that is still under way can take.
    virtual void settle() = 0;
};

using MakeBackEnd = std::function<std::unique_ptr<BackEnd>()>;

/// Collects what a check finds wrong.
class Findings {
public:
    void expect(bool holds, std::string_view what) {
        if (!holds) failures.emplace_back(what);
    }
    /// Ends the check if it does not hold. Not from inside an event.
    void require(bool holds, std::string_view what) {
        expect(holds, what);
        if (!holds) throw Broken{};
    }
    struct Broken {};

    std::vector<std::string> failures;
};

struct Contract {
    std::string_view name;  ///< A sentence, in the letters of an identifier.
    void (*check)(BackEnd&, Findings&);
};

std::vector<Contract> contracts();

/// What the check finds on a fresh back end.
std::vector<std::string> failuresOf(const Contract& contract, const MakeBackEnd& make);

/// Makes a test of each contract, except of those that the system behind the back end makes impossible.
bool registerConformance(const char* backEnd, const MakeBackEnd& make,
                         const std::vector<std::string_view>& except = {});

}  // namespace corvane::conformance
