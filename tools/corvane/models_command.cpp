#include "models_command.h"

#include <nlohmann/json.hpp>

#include "corvane/devices/catalogue.h"
#include "data_output.h"
#include "text_table.h"

namespace corvane::tool {
namespace {

std::string jsonLine(const Model& model) {
    const nlohmann::ordered_json line = {
        {"id", model.id},
        {"class", model.driver},
        {"kind", model.kind},
        {"name", model.name},
        {"nameTest", model.nameTest == NameTest::equals ? "equals" : "contains"},
        {"service", model.service.uuidString()},
        {"hostNeeds", model.hostNeeds},
    };
    return line.dump();
}

std::vector<std::string> tableRow(const Model& model) {
    const std::string quoted = '"' + std::string(model.name) + '"';
    return {std::string(model.id),      std::string(model.driver),
            std::string(model.kind),    model.nameTest == NameTest::equals ? quoted : "contains " + quoted,
            model.service.uuidString(), std::string(model.hostNeeds)};
}

}  // namespace

ExitStatus listModels(const ModelsOptions& options) {
    std::vector<std::vector<std::string>> rows = {{"ID", "CLASS", "KIND", "NAME", "SERVICE", "HOST NEEDS"}};
    DataOutput out;
    for (const Model* model : models()) {
        if (options.json) {
            out.line(jsonLine(*model));
        } else {
            rows.push_back(tableRow(*model));
        }
    }
    if (!options.json) out.write(tableText(rows));
    out.close();
    return ExitStatus::done;
}

}  // namespace corvane::tool
