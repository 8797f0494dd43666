#pragma once

#include <memory>
#include <span>
#include <string>
#include <vector>

#include "console.h"
#include "data_output.h"
#include "measurement.h"

namespace corvane::tool {

/// What `measure` shows: the readings as they come, or in one table at the end where several devices are
/// read; how it goes meanwhile; and why there is no reading.
class MeasureReport final : public MeasurementObserver {
public:
    enum class Form { lines, json, table };

    MeasureReport(Form form, std::size_t measurements, Console& console)
        : form_(form), measurements_(measurements), console_(console) {}

    void stageChanged(const Measurement& measurement) override;
    void recordTaken(const Measurement& measurement, const sessions::Json& record) override;

    /// Whether readings could not be written.
    bool failed() const { return out_.failed(); }

    void finish(std::span<const std::unique_ptr<Measurement>> measurements);

private:
    using Row = std::vector<std::string>;
    struct Reading {
        const Measurement* of;
        Row row;
    };

    std::string table(std::span<const std::unique_ptr<Measurement>> measurements) const;

    const Form form_;
    const std::size_t measurements_;
    Console& console_;
    DataOutput out_;
    std::size_t ended_ = 0;
    std::vector<Reading> readings_;  ///< For the table.
};

}  // namespace corvane::tool
