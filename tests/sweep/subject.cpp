#include "tests/sweep/subject.h"

#include "emulators/emulator.h"

namespace corvane::sweep {

std::vector<Subject> subjects() {
    std::vector<Subject> all;
    forEachDriver([&]<class Driver>() {
        all.push_back({
            std::string(Driver::model.driver),
            [](Platform& platform) -> std::unique_ptr<AnyDriver> {
                return std::make_unique<AnyDriverOf<Driver>>(makeDriver<Driver>({}, platform));
            },
            [] { return std::shared_ptr<PeripheralDevice>(makeEmulator(Driver::model, {})); },
        });
    });
    all.push_back(awkwardSubject());
    return all;
}

}  // namespace corvane::sweep
