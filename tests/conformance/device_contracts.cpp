// What peripheral_device.h promises to a device.
#include <algorithm>

#include "tests/conformance/contract_lists.h"

namespace corvane::conformance {

using namespace std::chrono_literals;
using Kind = Event::Kind;

std::vector<Contract> deviceContracts() {
    return {
        {"ADeviceAdvertisesWheneverItIsNotLinked",
         [](BackEnd& backEnd, Findings& findings) {
             Scene scene(backEnd, findings);
             scene.reach(Kind::connected);
             scene.client->central->scanForPeripherals();
             scene.settle();
             findings.expect(scene.client->count(Kind::discovered) == 1, "not while it is linked");
             scene.cancel();
             scene.scan();
         }},
        {"ADeviceIsCalledOnceAtATime",
         [](BackEnd& backEnd, Findings& findings) {
             Scene scene(backEnd, findings);
             scene.device->onConnected = [](Sample& device) { device.send({1}); };
             scene.device->onSubscribed = [](Sample& device) {
                 device.host->after(0ms, [&device] { device.told.push_back("after"); });
                 device.send({1});
                 device.host->disconnect();
             };
             scene.reach(Kind::characteristics);
             scene.ask([&] { scene.peripheral->setNotifyValue(true, *scene.characteristic()); });
             scene.waitForOneMore(Kind::disconnected, 0);
             scene.waitFor([&] { return scene.device->host == nullptr; }, "the call of disconnected");
             findings.expect(!scene.device->nested, "called while it was being called");
         }},
        {"EachLinkBeginsWithConnectedAndEndsWithDisconnected",
         [](BackEnd& backEnd, Findings& findings) {
             Scene scene(backEnd, findings);
             scene.reach(Kind::connected);
             scene.cancel();
             scene.reach(Kind::connected);
             backEnd.remove(*scene.device);
             scene.waitForOneMore(Kind::disconnected, 1);
             scene.settle();
             findings.expect(scene.device->told == std::vector<std::string>{"connected", "disconnected",
                                                                            "connected", "disconnected"},
                             "in turn, and nothing else");
         }},
        {"AValueThatNobodySubscribedToIsLost",
         [](BackEnd& backEnd, Findings& findings) {
             Scene scene(backEnd, findings);
             scene.reach(Kind::characteristics);
             scene.device->send({1});
             scene.settle();
             scene.subscribe();
             scene.device->send({2});
             scene.waitForOneMore(Kind::value, 0);
             findings.expect(scene.client->values() == std::vector<Value>{{2}}, "only the second comes");
         }},
        {"ADeviceIsToldOfEverySubscription",
         [](BackEnd& backEnd, Findings& findings) {
             Scene scene(backEnd, findings);
             scene.reach(Kind::characteristics);
             for (const std::size_t count : {1u, 2u}) {
                 scene.peripheral->setNotifyValue(true, *scene.characteristic());
                 scene.waitFor([&] { return scene.device->subscriptions == count; }, "the subscription");
             }
             scene.subscribe(false);
         }},
        {"ADevicesTaskRunsLaterAndNotAfterTheLink",
         [](BackEnd& backEnd, Findings& findings) {
             Scene scene(backEnd, findings);
             scene.reach(Kind::connected);
             std::string ran;
             const auto start = backEnd.now();
             scene.device->host->after(50ms, [&] {
                 findings.expect(backEnd.now() >= start + 50ms, "not early");
                 ran += 'b';
             });
             scene.device->host->after(0ms, [&] { ran += 'a'; });
             findings.expect(ran.empty(), "not inside the call");
             scene.waitFor([&] { return ran.size() == 2; }, "both tasks");
             findings.expect(ran == "ab", "in the order of their times");
             scene.device->host->after(1ms, [&] { ran += 'c'; });
             scene.device->host->disconnect();
             scene.settle();
             findings.expect(ran == "ab", "a task ran after the link");
         }},
        {"ADeviceHearsOfTheEndThatItAskedForLater",
         [](BackEnd& backEnd, Findings& findings) {
             Scene scene(backEnd, findings);
             scene.reach(Kind::connected);
             scene.device->host->disconnect();
             findings.expect(scene.device->host != nullptr, "not inside the call");
             scene.waitFor([&] { return scene.device->host == nullptr; }, "the call of disconnected");
         }},
        {"ADeviceIsKeptWhileItIsCalled",
         [](BackEnd& backEnd, Findings& findings) {
             Scene scene(backEnd, findings);
             bool kept = false;
             scene.device->onConnected = [&, weak = std::weak_ptr(scene.device)](Sample& device) {
                 backEnd.remove(device);
                 scene.device = std::make_shared<Sample>();
                 kept = !weak.expired();
             };
             scene.reach(Kind::discovered);
             scene.client->central->connect(scene.peripheral);
             scene.waitFor([&] { return kept; }, "the call");
             scene.settle();
         }},
    };
}

}  // namespace corvane::conformance
