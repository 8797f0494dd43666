// What platform.h and main_queue.h promise.
#include "tests/conformance/contract_lists.h"

namespace corvane::conformance {

using namespace std::chrono_literals;
using Kind = Event::Kind;

std::vector<Contract> platformContracts() {
    return {
        {"PostedTasksRunLaterAndInTheOrderOfPosting",
         [](BackEnd& backEnd, Findings& findings) {
             MainQueue& queue = backEnd.platform().mainQueue();
             std::string order;
             queue.post([&] { order += 'a'; });
             queue.post([&] { order += 'b'; });
             findings.expect(order.empty(), "nothing runs inside post");
             backEnd.runUntil([&] { return order.size() == 2; });
             findings.expect(order == "ab", "order of posting, not " + order);
         }},
        {"ATaskThatATaskPostsRunsAfterThoseThatWait",
         [](BackEnd& backEnd, Findings& findings) {
             MainQueue& queue = backEnd.platform().mainQueue();
             std::string order;
             queue.post([&] {
                 queue.post([&] { order += 'c'; });
                 order += 'a';
             });
             queue.post([&] { order += 'b'; });
             backEnd.runUntil([&] { return order.size() == 3; });
             findings.expect(order == "abc", "the waiting one goes first, not " + order);
         }},
        {"ATimerFiresAfterEachIntervalAndNeverEarly",
         [](BackEnd& backEnd, Findings& findings) {
             constexpr auto interval = 30ms;
             const auto start = backEnd.now();
             int ticks = 0;
             const auto timer = backEnd.platform().mainQueue().scheduleTimer(interval, [&] {
                 ++ticks;
                 findings.expect(backEnd.now() >= start + ticks * interval, "a tick came early");
             });
             findings.expect(ticks == 0, "no tick inside the call");
             findings.expect(backEnd.runUntil([&] { return ticks == 3; }), "it goes on ticking");
         }},
        {"AReleasedTimerFiresNoMore",
         [](BackEnd& backEnd, Findings& findings) {
             int ticks = 0;
             auto timer = backEnd.platform().mainQueue().scheduleTimer(20ms, [&] { ++ticks; });
             backEnd.runUntil([&] { return ticks == 1; });
             timer.reset();
             backEnd.settle();
             findings.expect(ticks == 1, "a tick came after the release");
         }},
        {"ATimerMayBeReleasedInItsOwnTick",
         [](BackEnd& backEnd, Findings& findings) {
             int ticks = 0;
             std::unique_ptr<Timer> timer;
             const std::string kept = "of the closure that runs";
             timer = backEnd.platform().mainQueue().scheduleTimer(20ms, [&timer, &ticks, kept] {
                 timer.reset();
                 if (kept.size() == 24) ++ticks;
             });
             backEnd.settle();
             findings.expect(ticks == 1, "exactly the tick that released it");
         }},
        {"LinesGoToTheSinkThatTheHostHasSet",
         [](BackEnd& backEnd, Findings& findings) {
             std::string heard;
             backEnd.platform().logSink = [&](std::string_view line) { heard = line; };
             backEnd.platform().log("a line \x1b");
             backEnd.platform().logSink = nullptr;
             findings.expect(heard == "a line \x1b", "the line as it was written");
         }},
        {"ViolationsGoToTheHandlerThatTheHostHasSet",
         [](BackEnd& backEnd, Findings& findings) {
             std::string heard;
             backEnd.platform().onPreconditionFailed = [&](std::string_view driver, std::string_view what) {
                 heard = std::string(driver) + ": " + std::string(what);
             };
             backEnd.platform().preconditionFailed("Driver", "too short");
             backEnd.platform().onPreconditionFailed = nullptr;
             findings.expect(heard == "Driver: too short", "both texts");
         }},
        {"TheFirstEventOfACentralIsAStateEvent",
         [](BackEnd& backEnd, Findings& findings) {
             Scene scene(backEnd, findings);
             scene.makeCentral();
             scene.waitForOneMore(Kind::state, 0);
             findings.expect(scene.client->events[0].kind == Kind::state, "another event came first");
         }},
        {"TheStateIsUnknownUntilTheFirstStateEvent",
         [](BackEnd& backEnd, Findings& findings) {
             Scene scene(backEnd, findings);
             scene.makeCentral();
             findings.expect(scene.client->central->state() == CBManagerState::unknown, "before the event");
             scene.waitForOneMore(Kind::state, 0);
             findings.expect(scene.client->events[0].state == CBManagerState::poweredOn, "in the event");
         }},
        {"ADelegateOfACentralIsHeldWeakly",
         [](BackEnd& backEnd, Findings& findings) {
             Scene scene(backEnd, findings);
             scene.makeCentral();
             scene.waitForOneMore(Kind::state, 0);
             const auto central = scene.client->central;
             scene.client->central = nullptr;
             const std::weak_ptr<Client> left = scene.client;
             scene.client = nullptr;
             findings.expect(left.expired(), "the delegate lives on");
             central->scanForPeripherals();
             backEnd.settle();
         }},
    };
}

}  // namespace corvane::conformance
