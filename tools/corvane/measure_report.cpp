#include "measure_report.h"

#include "record_text.h"
#include "sessions/json.h"
#include "text_table.h"

namespace corvane::tool {

void MeasureReport::stageChanged(const Measurement& measurement) {
    if (measurement.ended()) ++ended_;
    console_.progress('[' + std::to_string(ended_) + '/' + std::to_string(measurements_) + "] " +
                      std::string(measurement.model().id) + ": " + std::string(measurement.stage()));
}

void MeasureReport::recordTaken(const Measurement& measurement, const sessions::Json& record) {
    const std::string model(measurement.model().id);
    const std::string device = record.value("uuid", "");
    if (form_ == Form::table) {
        readings_.push_back({&measurement, {model, recordText(record), device}});
        return;
    }
    console_.clearProgress();
    if (form_ == Form::json) {
        out_.line(jsonLine({{"model", model}, {"record", record}}));
    } else {
        out_.line(recordText(record) + "  " + device);
    }
}

void MeasureReport::finish(std::span<const std::unique_ptr<Measurement>> measurements) {
    console_.clearProgress();
    for (const auto& measurement : measurements) {
        if (form_ == Form::table || measurement->text().empty()) continue;
        console_.message(std::string(measurement->model().id) + ": " + measurement->text());
    }
    if (form_ == Form::table) out_.write(table(measurements));
    out_.close();
}

std::string MeasureReport::table(std::span<const std::unique_ptr<Measurement>> measurements) const {
    std::vector<Row> rows = {{"MODEL", "READING", "DEVICE"}};
    for (const auto& measurement : measurements) {
        for (const Reading& reading : readings_) {
            if (reading.of == measurement.get()) rows.push_back(reading.row);
        }
        if (!measurement->text().empty())
            rows.push_back({std::string(measurement->model().id), printable(measurement->text())});
    }
    return tableText(rows);
}

}  // namespace corvane::tool
