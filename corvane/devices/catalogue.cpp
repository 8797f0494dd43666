#include "corvane/devices/catalogue.h"

namespace corvane {

std::span<const Model* const> models() {
#define CORVANE_MODEL(Driver) &Driver::model,
    static constexpr const Model* list[] = {CORVANE_DRIVERS(CORVANE_MODEL)};
#undef CORVANE_MODEL
    return list;
}

const Model* findModel(std::string_view idOrDriver) {
    for (const Model* model : models()) {
        if (model->id == idOrDriver || model->driver == idOrDriver) return model;
    }
    return nullptr;
}

std::shared_ptr<DeviceBase> makeDevice(const Model& model, const DriverArguments& arguments,
                                       Platform& platform) {
    std::shared_ptr<DeviceBase> device;
    forEachDriver([&]<class Driver>() {
        if (&model == &Driver::model) device = makeDriver<Driver>(arguments, platform);
    });
    return device;
}

}  // namespace corvane
