// A back end that breaks one promise: the simulated radio behind a wrapper that spoils one thing.
#pragma once

#include "tests/conformance/simulated_back_end.h"

namespace corvane::conformance {

class WrongBackEnd final : public SimulatedBackEnd {
public:
    /// `wrong` names what it does; wrong_back_end.cpp knows the names. An empty one does all as promised.
    explicit WrongBackEnd(std::string_view wrong);
    ~WrongBackEnd() override;

    Platform& platform() override;
    void add(std::shared_ptr<PeripheralDevice> device) override;
    void remove(const PeripheralDevice& device) override;
    void nameChanged(const PeripheralDevice& device) override;

private:
    class Spoiled;

    const PeripheralDevice& wrapped(const PeripheralDevice& device) const;

    std::unique_ptr<Spoiled> platform_;
    std::map<const PeripheralDevice*, std::shared_ptr<PeripheralDevice>> devices_;
};

}  // namespace corvane::conformance
