// What central.h promises of a peripheral: its lists, its values, and what is written to it.
#include <algorithm>

#include "tests/conformance/contract_lists.h"

namespace corvane::conformance {
namespace {

using Kind = Event::Kind;

std::vector<CBUUID> uuids(const std::vector<ServiceRef>& list) {
    std::vector<CBUUID> all;
    for (const ServiceRef& service : list) all.push_back(service->uuid);
    return all;
}

std::vector<CBUUID> uuids(const std::vector<CharacteristicRef>& list) {
    std::vector<CBUUID> all;
    for (const CharacteristicRef& characteristic : list) all.push_back(characteristic->uuid);
    return all;
}

template <class Ref>
bool holds(const std::optional<std::vector<Ref>>& list, const Ref& element) {
    return list && std::find(list->begin(), list->end(), element) != list->end();
}

bool isListed(const CBPeripheral& peripheral, const CharacteristicRef& characteristic) {
    const auto services = peripheral.services();
    return services && std::any_of(services->begin(), services->end(), [&](const ServiceRef& service) {
               return holds(service->characteristics, characteristic);
           });
}

}  // namespace

std::vector<Contract> peripheralContracts() {
    return {
        {"ADelegateOfAPeripheralIsHeldWeakly",
         [](BackEnd& backEnd, Findings& findings) {
             Scene scene(backEnd, findings);
             scene.reach(Kind::connected);
             std::weak_ptr<Client> left;
             {
                 const auto passing = std::make_shared<Client>();
                 passing->onEvent = [](Event) {};
                 left = passing;
                 scene.peripheral->setDelegate(passing);
             }
             findings.expect(left.expired(), "the delegate lives on");
             scene.peripheral->discoverServices({});
             scene.settle();
         }},
        {"AnEmptyPointerDetachesTheDelegate",
         [](BackEnd& backEnd, Findings& findings) {
             Scene scene(backEnd, findings);
             scene.reach(Kind::connected);
             scene.peripheral->setDelegate({});
             scene.peripheral->discoverServices({});
             scene.settle();
             findings.expect(scene.client->count(Kind::services) == 0, "it still hears");
         }},
        {"ServicesAreAbsentUntilTheyAreDiscoveredOnThisLink",
         [](BackEnd& backEnd, Findings& findings) {
             Scene scene(backEnd, findings);
             scene.reach(Kind::connected);
             findings.expect(!scene.peripheral->services(), "on the first link");
             scene.discoverServices();
             findings.expect(scene.peripheral->services().has_value(), "discovered");
             scene.cancel();
             scene.reach(Kind::connected);
             findings.expect(!scene.peripheral->services(), "on the second link");
         }},
        {"AnEmptyListOfWantedUuidsMeansAll",
         [](BackEnd& backEnd, Findings& findings) {
             Scene scene(backEnd, findings);
             scene.reach(Kind::characteristics);
             const auto services = uuids(scene.services());
             findings.expect(services.size() >= 2, "both services");
             const auto found = uuids(scene.characteristics());
             findings.expect(found.size() == 3, "all three characteristics");
         }},
        {"OnlyWantedServicesAndCharacteristicsAreListed",
         [](BackEnd& backEnd, Findings& findings) {
             Scene scene(backEnd, findings);
             scene.reach(Kind::connected);
             const CBUUID service[] = {Sample::service};
             const CBUUID characteristics[] = {Sample::writable, Sample::notified};
             scene.discoverServices(service);
             findings.expect(uuids(scene.services()) == std::vector{Sample::service}, "the wanted service");
             scene.discoverCharacteristics(characteristics);
             auto found = uuids(scene.characteristics());
             std::sort(found.begin(), found.end());
             findings.expect(found == std::vector{Sample::notified, Sample::writable},
                             "the wanted characteristics");
         }},
        {"CharacteristicsAreAbsentUntilTheyAreDiscovered",
         [](BackEnd& backEnd, Findings& findings) {
             Scene scene(backEnd, findings);
             scene.reach(Kind::services);
             findings.expect(!scene.service()->characteristics, "before");
             scene.discoverCharacteristics();
             findings.expect(scene.service()->characteristics.has_value(), "after");
         }},
        {"ANewDiscoveryMakesNewObjectsAndTheOldKeepTheirContents",
         [](BackEnd& backEnd, Findings& findings) {
             Scene scene(backEnd, findings);
             scene.reach(Kind::services);
             const auto list = scene.peripheral->services();
             const ServiceRef undiscovered = scene.service();
             scene.discoverCharacteristics();
             const ServiceRef discovered = scene.service();
             findings.expect(discovered != undiscovered, "a new object for the service");
             findings.expect(!undiscovered->characteristics, "the old one is as it was");
             findings.expect(holds(list, undiscovered), "so is the old list");
             const CBUUID one[] = {Sample::notified};
             scene.discoverCharacteristics(one);
             findings.expect(discovered->characteristics.value_or(std::vector<CharacteristicRef>{}).size() ==
                                 3,
                             "so is the one with characteristics");
         }},
        {"WhatAnEventCarriesIsInTheListAtThatMoment",
         [](BackEnd& backEnd, Findings& findings) {
             Scene scene(backEnd, findings);
             scene.reach(Kind::services);
             bool serviceListed = false;
             bool characteristicListed = false;
             const auto client = scene.client;
             client->onEvent = [&](Event event) {
                 if (event.kind == Kind::characteristics) {
                     serviceListed = holds(scene.peripheral->services(), event.service);
                 }
                 if (event.kind == Kind::value) {
                     characteristicListed = isListed(*scene.peripheral, event.characteristic);
                 }
                 client->events.push_back(std::move(event));
             };
             scene.discoverCharacteristics();
             scene.subscribe();
             scene.device->send({1});
             scene.waitForOneMore(Kind::value, 0);
             findings.expect(serviceListed, "the service");
             findings.expect(characteristicListed, "the characteristic");
         }},
        {"AHandleFromAnEarlierDiscoveryStillWorks",
         [](BackEnd& backEnd, Findings& findings) {
             Scene scene(backEnd, findings);
             scene.reach(Kind::characteristics);
             const CharacteristicRef old = scene.characteristic();
             scene.discoverServices();
             scene.discoverCharacteristics();
             scene.peripheral->setNotifyValue(true, *old);
             scene.waitFor([&] { return scene.device->isSubscribed; }, "the subscription");
         }},
        {"NoValueIsLostBetweenTheSubscriptionAndTheFirst",
         [](BackEnd& backEnd, Findings& findings) {
             Scene scene(backEnd, findings);
             scene.reach(Kind::characteristics);
             scene.device->onSubscribed = [](Sample& device) {
                 for (std::uint8_t i = 0; i < 20; ++i) device.send({i, 0xFF});
             };
             scene.subscribe();
             scene.waitForOneMore(Kind::value, 19);
             scene.settle();
             std::vector<Value> expected;
             for (std::uint8_t i = 0; i < 20; ++i) expected.push_back({i, 0xFF});
             findings.expect(scene.client->values() == expected, "all of them, in order, as they were sent");
         }},
        {"ValuesThatWereSentBeforeTheEndOfTheLinkCome",
         [](BackEnd& backEnd, Findings& findings) {
             Scene scene(backEnd, findings);
             scene.reach(Kind::characteristics);
             scene.device->onSubscribed = [](Sample& device) {
                 device.send({1});
                 device.send({2});
                 device.host->disconnect();
             };
             scene.ask([&] { scene.peripheral->setNotifyValue(true, *scene.characteristic()); });
             scene.waitForOneMore(Kind::disconnected, 0);
             findings.expect(scene.client->values() == std::vector<Value>{{1}, {2}}, "both, before the end");
         }},
        {"AnEmptyValueIsNotAnAbsentOne",
         [](BackEnd& backEnd, Findings& findings) {
             Scene scene(backEnd, findings);
             scene.reach(Kind::characteristics);
             scene.subscribe();
             scene.device->send({});
             scene.waitForOneMore(Kind::value, 0);
             const auto& value = scene.client->last(Kind::value)->value;
             findings.expect(value && value->empty(), "present and empty");
         }},
        {"IndicationsComeAsNotificationsDo",
         [](BackEnd& backEnd, Findings& findings) {
             Scene scene(backEnd, findings);
             scene.reach(Kind::characteristics);
             scene.peripheral->setNotifyValue(true, *scene.characteristic(Sample::indicated));
             scene.waitFor([&] { return scene.device->subscriptions == 1; }, "the subscription");
             scene.device->send({7}, Sample::indicated);
             scene.waitForOneMore(Kind::value, 0);
             findings.expect(scene.client->last(Kind::value)->characteristic->uuid == Sample::indicated,
                             "from the characteristic that sent it");
         }},
        {"NotificationsCanBeTurnedOff",
         [](BackEnd& backEnd, Findings& findings) {
             Scene scene(backEnd, findings);
             scene.reach(Kind::value);
             scene.subscribe(false);
             const std::size_t before = scene.client->count(Kind::value);
             scene.device->send({2});
             scene.settle();
             findings.expect(scene.client->count(Kind::value) == before, "a value came");
         }},
        {"WritesReachTheDeviceInOrderAndAsTheyWere",
         [](BackEnd& backEnd, Findings& findings) {
             Scene scene(backEnd, findings);
             scene.reach(Kind::characteristics);
             const CharacteristicRef writable = scene.characteristic(Sample::writable);
             Value buffer(20, 0);
             for (std::uint8_t i = 0; i < 6; ++i) {
                 buffer.assign(20, i);
                 scene.peripheral->writeValue(buffer, *writable,
                                              i % 2 == 0 ? CBCharacteristicWriteType::withResponse
                                                         : CBCharacteristicWriteType::withoutResponse);
             }
             buffer.assign(20, 0xEE);
             scene.waitFor([&] { return scene.device->writes.size() == 6; }, "the writes");
             for (std::uint8_t i = 0; i < 6; ++i) {
                 const Sample::Write& write = scene.device->writes[i];
                 findings.expect(write.value == Value(20, i), "in the order of the calls, copied");
                 findings.expect((write.type == CBCharacteristicWriteType::withResponse) == (i % 2 == 0),
                                 "in the way that was asked for");
             }
         }},
    };
}

}  // namespace corvane::conformance
