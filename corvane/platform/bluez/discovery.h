// The one discovery of this process on the adapter: on while somebody scans, and nobody needs the air.
#pragma once

#include <memory>
#include <string>

#include "corvane/platform/bluez/bluez_service.h"

namespace corvane::bluez {

class Discovery {
public:
    /// While one is held there is no discovery: most controllers cannot connect while they scan.
    using Pause = std::shared_ptr<void>;

    class Observer {
    public:
        /// Discovery is off while it is paused. Called again whenever that is looked at.
        virtual void airIsQuiet() = 0;
        /// Discovery went off: BlueZ forgets what it has heard.
        virtual void discoveryEnded() = 0;
        /// This process may not scan.
        virtual void discoveryRefused() = 0;
        virtual void diagnose(const char* call, const Reply& reply) = 0;

    protected:
        ~Observer() = default;
    };

    Discovery(BlueZService& service, EventLoop& loop, Observer& observer)
        : service_(service), loop_(loop), observer_(observer) {}

    /// Whether anybody scans.
    void want(bool wanted);
    bool isWanted() const { return wanted_; }
    /// `airIsQuiet` follows, perhaps before this returns.
    [[nodiscard]] Pause pause();

    /// The adapter that everything is about from now on; empty for none. Discovery is off on it.
    void useAdapter(std::string path);

private:
    enum class State { off, starting, on, stopping };

    bool isPaused() const { return !pause_.expired(); }
    void reconcile();
    void setFilter();
    void start();
    void started(const Reply& reply);
    void stop();
    void stopped(const Reply& reply);
    void startUnanswered();
    void stopUnanswered();
    void begun();
    void ended();
    void retryLater();

    BlueZService& service_;
    EventLoop& loop_;
    Observer& observer_;
    std::string adapter_;
    State state_ = State::off;
    bool wanted_ = false;
    std::weak_ptr<void> pause_;
    bool mayBeOn_ = false;  // BlueZ says that it is in progress; only a stop makes sure that it is not.
    bool filterIsSet_ = false;
    Call filterCall_;
    Call call_;
    unsigned failures_ = 0;
    std::unique_ptr<Timer> retry_;
};

}  // namespace corvane::bluez
