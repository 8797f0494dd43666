#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "exit_status.h"
#include "sessions/host_device.h"

namespace corvane::tool {

class Measurement;

/// Is told how measurements go, often from inside a driver's callback: it must not throw.
class MeasurementObserver {
public:
    virtual void stageChanged(const Measurement& measurement) = 0;
    virtual void recordTaken(const Measurement& measurement, const sessions::Json& record) = 0;

protected:
    ~MeasurementObserver() = default;
};

struct MeasurementPlan {
    const Model* model;
    /// Makes the driver.
    std::function<std::unique_ptr<sessions::HostDevice>(sessions::HostListener)> makeDevice;
    /// Whether a lost link is followed by a new driver: some models serve one link only with theirs.
    bool renewsDevice = true;
    unsigned count = 1;
    std::chrono::nanoseconds timeout{};  ///< For each reading.
    /// What a text about a radio that cannot be used ends with.
    std::string helpWithRadio{};
};

/// Reads one device: finds it, asks it where it has to be asked, finds it again when the link is lost, until
/// it has given its readings or cannot. It must outlive every run of the platform's queue.
class Measurement {
public:
    Measurement(MeasurementPlan plan, Platform& platform, MeasurementObserver& observer);

    void begin();

    /// Ends it and its link, and then lets the driver go, if it has not ended already. The text is empty, or
    /// says why.
    void end(ExitStatus status, std::string text);

    /// Lets the driver go at once, with whatever it still has.
    void close() { device_.reset(); }

    const Model& model() const { return *plan_.model; }
    /// In a word, for progress.
    std::string_view stage() const { return stage_; }
    bool ended() const { return ended_; }
    bool linked() const { return linked_; }
    // Once it has ended:
    ExitStatus status() const { return status_; }
    const std::string& text() const { return text_; }

private:
    void heard(const sessions::HostReport& report);
    void radioChanged(std::string_view state);
    void connectionChanged(bool linked);
    void recordTaken(const sessions::Json& record);
    void awaitNext();

    void makeDevice();
    void beginAgain();
    void call(std::string_view operation);
    void after(std::function<void()> task);
    void endWithoutRadio();
    void setDeadline();
    void setStage(std::string_view stage);
    bool radioOn() const { return radio_ == "poweredOn"; }

    const MeasurementPlan plan_;
    Platform& platform_;
    MeasurementObserver& observer_;
    std::unique_ptr<sessions::HostDevice> device_;
    std::unique_ptr<Timer> deadline_;
    std::unique_ptr<Timer> silence_;

    std::string_view stage_ = "starting";
    std::string radio_ = "unknown";  ///< Name of the adapter's state.
    bool radioWasOn_ = false;
    bool linked_ = false;
    unsigned taken_ = 0;

    bool ended_ = false;
    ExitStatus status_ = ExitStatus::done;
    std::string text_;
};

}  // namespace corvane::tool
