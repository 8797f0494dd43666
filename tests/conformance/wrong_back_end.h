// A back end that breaks one promise: the simulated radio behind a wrapper that spoils one thing.
#pragma once

#include "tests/conformance/simulated_back_end.h"

namespace corvane::conformance {

enum class Wrong {
    nothing,
    tasksRunAtOnce,
    tasksRunLastFirst,
    tasksOfTasksRunAtOnce,
    timersAreFast,
    timersOutliveTheirRelease,
    linesAreEscapedForTheSink,
    violationsAreSwallowed,
    theFirstStateEventIsSwallowed,
    theStateIsKnownAtOnce,
    theStateRunsAheadOfItsEvent,
    centralDelegatesAreHeldStrongly,
    eventsComeInsideTheCall,
    nothingIsKeptDuringDelivery,
    anAdapterThatGoesOffEndsLinksInSilence,
    scansGoOnAfterTheAdapterWasOff,
    discoveryIsAnsweredWithoutALink,
    namelessDevicesAreDropped,
    devicesAreReportedTwice,
    newNamesAreNotReported,
    namesAreNotChecked,
    aSecondScanIsIgnored,
    stopScanIsIgnored,
    everyAdvertIsANewPeripheral,
    centralsSharePeripherals,
    identifiersAreLowerCase,
    attemptsTimeOut,
    attemptsCannotBeCancelled,
    ownEndsAreErrors,
    lossesAreNotReported,
    linksOutliveTheirCentral,
    eventsOutliveTheirCentral,
    peripheralDelegatesAreHeldStrongly,
    peripheralDelegatesCannotBeDetached,
    servicesAreRememberedFromTheLastLink,
    nothingWantedMeansNothing,
    filtersAreIgnored,
    undiscoveredListsAreEmpty,
    listsAreChangedInPlace,
    eventsCarryCopies,
    oldHandlesAreForgotten,
    theFirstValueIsLost,
    valuesAreLostAtTheEnd,
    emptyValuesAreAbsent,
    indicationsAreUnknown,
    subscriptionsCannotBeEnded,
    writesOvertake,
    writesAreNotCopied,
    linkedDevicesAreReported,
    devicesAreToldOfTheEndInsideTheirCall,
    devicesAreNotToldOfALoss,
    unsubscribedValuesAreKept,
    devicesAreToldOfTheFirstSubscriptionOnly,
    deviceTasksRunAtOnce,
    deviceTasksOutliveTheLink,
    devicesAreNotKept,
};

class WrongBackEnd final : public SimulatedBackEnd {
public:
    explicit WrongBackEnd(Wrong wrong);
    ~WrongBackEnd() override;

    Platform& platform() override;
    void add(std::shared_ptr<PeripheralDevice> device) override;
    void remove(const PeripheralDevice& device) override;
    void nameChanged(const PeripheralDevice& device) override;

private:
    class Spoiled;

    const PeripheralDevice& wrapped(const PeripheralDevice& device) const;

    std::unique_ptr<Spoiled> platform_;
    std::map<const PeripheralDevice*, std::shared_ptr<PeripheralDevice>> devices_;
};

}  // namespace corvane::conformance
