// The suite is only worth something if it fails where a promise is broken.
#include "tests/conformance/wrong_back_end.h"

#include <gmock/gmock.h>

namespace corvane::conformance {
namespace {

struct Case {
    Wrong wrong;
    const char* name;
    std::vector<std::string_view> broken;  ///< Contracts that must fail, whatever else does.
};

#define WRONG(name, ...)                                                                                     \
    Case {                                                                                                   \
        Wrong::name, #name, { __VA_ARGS__ }                                                                  \
    }
const Case cases[] = {
    WRONG(nothing),
    WRONG(tasksRunAtOnce, "PostedTasksRunLaterAndInTheOrderOfPosting"),
    WRONG(tasksRunLastFirst, "PostedTasksRunLaterAndInTheOrderOfPosting"),
    WRONG(tasksOfTasksRunAtOnce, "ATaskThatATaskPostsRunsAfterThoseThatWait"),
    WRONG(timersAreFast, "ATimerFiresAfterEachIntervalAndNeverEarly"),
    WRONG(timersOutliveTheirRelease, "AReleasedTimerFiresNoMore", "ATimerMayBeReleasedInItsOwnTick"),
    WRONG(linesAreEscapedForTheSink, "LinesGoToTheSinkThatTheHostHasSet"),
    WRONG(violationsAreSwallowed, "ViolationsGoToTheHandlerThatTheHostHasSet"),
    WRONG(theFirstStateEventIsSwallowed, "TheFirstEventOfACentralIsAStateEvent"),
    WRONG(theStateIsKnownAtOnce, "TheStateIsUnknownUntilTheFirstStateEvent"),
    WRONG(theStateRunsAheadOfItsEvent, "EachChangeOfTheStateIsAnEventAndTheStateIsWhatThatEventSaid"),
    WRONG(centralDelegatesAreHeldStrongly, "ADelegateOfACentralIsHeldWeakly"),
    WRONG(eventsComeInsideTheCall, "EventsNeverComeFromInsideTheCallThatAskedForThem",
          "EventsComeOneAtATime"),
    WRONG(nothingIsKeptDuringDelivery, "DelegateCentralAndPeripheralAreKeptWhileAnEventIsDelivered"),
    WRONG(anAdapterThatGoesOffEndsLinksInSilence, "AnAdapterThatGoesOffEndsTheLinkAndSaysSo"),
    WRONG(scansGoOnAfterTheAdapterWasOff, "AnAdapterThatWasOffNeitherScansNorConnectsByItself"),
    WRONG(discoveryIsAnsweredWithoutALink, "NothingIsDoneWhileTheAdapterIsOff",
          "OperationsOnALinkThatIsGoneDoNothing"),
    WRONG(namelessDevicesAreDropped, "AScanReportsEveryAdvertiserAlsoOneWithoutName"),
    WRONG(devicesAreReportedTwice, "ADeviceIsReportedOncePerScan"),
    WRONG(newNamesAreNotReported, "ADeviceIsReportedAgainWhenItsNameComesOrChanges"),
    WRONG(namesAreNotChecked, "NamesAreValidUtf8"),
    WRONG(aSecondScanIsIgnored, "ScanningWhileScanningReportsEveryDeviceAgain"),
    WRONG(stopScanIsIgnored, "NothingIsReportedAfterStopScan"),
    WRONG(everyAdvertIsANewPeripheral, "OneDeviceIsOnePeripheralObjectOfItsCentral"),
    WRONG(centralsSharePeripherals, "APeripheralObjectBelongsToOneCentral"),
    WRONG(identifiersAreLowerCase, "AnIdentifierIsUpperCaseUuidTextAndNoOtherDevicesOwn"),
    WRONG(attemptsTimeOut, "AnAttemptLastsUntilTheDeviceComes"),
    WRONG(attemptsCannotBeCancelled, "ACancelledAttemptIsOverWithoutAnEvent"),
    WRONG(ownEndsAreErrors, "AnEndThatThisSideAskedForIsNoError"),
    WRONG(lossesAreNotReported, "ALinkThatIsLostIsReported", "ALinkThatTheDeviceEndsIsReported"),
    WRONG(linksOutliveTheirCentral, "LettingGoOfACentralEndsItsLink", "LettingGoOfACentralEndsItsAttempt"),
    WRONG(eventsOutliveTheirCentral, "NoEventFollowsTheCentral"),
    WRONG(peripheralDelegatesAreHeldStrongly, "ADelegateOfAPeripheralIsHeldWeakly"),
    WRONG(peripheralDelegatesCannotBeDetached, "AnEmptyPointerDetachesTheDelegate"),
    WRONG(servicesAreRememberedFromTheLastLink, "ServicesAreAbsentUntilTheyAreDiscoveredOnThisLink"),
    WRONG(nothingWantedMeansNothing, "AnEmptyListOfWantedUuidsMeansAll"),
    WRONG(filtersAreIgnored, "OnlyWantedServicesAndCharacteristicsAreListed"),
    WRONG(undiscoveredListsAreEmpty, "CharacteristicsAreAbsentUntilTheyAreDiscovered"),
    WRONG(listsAreChangedInPlace, "ANewDiscoveryMakesNewObjectsAndTheOldKeepTheirContents"),
    WRONG(eventsCarryCopies, "WhatAnEventCarriesIsInTheListAtThatMoment"),
    WRONG(oldHandlesAreForgotten, "AHandleFromAnEarlierDiscoveryStillWorks"),
    WRONG(theFirstValueIsLost, "NoValueIsLostBetweenTheSubscriptionAndTheFirst"),
    WRONG(valuesAreLostAtTheEnd, "ValuesThatWereSentBeforeTheEndOfTheLinkCome"),
    WRONG(emptyValuesAreAbsent, "AnEmptyValueIsNotAnAbsentOne"),
    WRONG(indicationsAreUnknown, "IndicationsComeAsNotificationsDo"),
    WRONG(subscriptionsCannotBeEnded, "NotificationsCanBeTurnedOff"),
    WRONG(writesOvertake, "WritesReachTheDeviceInOrderAndAsTheyWere"),
    WRONG(writesAreNotCopied, "WritesReachTheDeviceInOrderAndAsTheyWere"),
    WRONG(linkedDevicesAreReported, "ADeviceAdvertisesWheneverItIsNotLinked"),
    WRONG(devicesAreToldOfTheEndInsideTheirCall, "ADeviceIsCalledOnceAtATime",
          "ADeviceHearsOfTheEndThatItAskedForLater"),
    WRONG(devicesAreNotToldOfALoss, "EachLinkBeginsWithConnectedAndEndsWithDisconnected"),
    WRONG(unsubscribedValuesAreKept, "AValueThatNobodySubscribedToIsLost"),
    WRONG(devicesAreToldOfTheFirstSubscriptionOnly, "ADeviceIsToldOfEverySubscription"),
    WRONG(deviceTasksRunAtOnce, "ADevicesTaskRunsLaterAndNotAfterTheLink"),
    WRONG(deviceTasksOutliveTheLink, "ADevicesTaskRunsLaterAndNotAfterTheLink"),
    WRONG(devicesAreNotKept, "ADeviceIsKeptWhileItIsCalled"),
};
#undef WRONG

std::vector<std::string_view> failing(Wrong wrong) {
    std::vector<std::string_view> names;
    for (const Contract& contract : contracts()) {
        const auto failures = failuresOf(contract, [&] { return std::make_unique<WrongBackEnd>(wrong); });
        if (!failures.empty()) names.push_back(contract.name);
    }
    return names;
}

TEST(WrongBackEnd, FailsWhereItIsWrong) {
    for (const Case& wrong : cases) {
        SCOPED_TRACE(wrong.name);
        const auto failed = failing(wrong.wrong);
        EXPECT_THAT(failed, testing::IsSupersetOf(wrong.broken));
        EXPECT_EQ(failed.empty(), wrong.wrong == Wrong::nothing);
    }
}

TEST(WrongBackEnd, BreaksEachContractInSomeWay) {
    for (const Contract& contract : contracts()) {
        EXPECT_TRUE(std::any_of(std::begin(cases), std::end(cases), [&](const Case& wrong) {
            return std::count(wrong.broken.begin(), wrong.broken.end(), contract.name);
        })) << contract.name;
    }
}

}  // namespace
}  // namespace corvane::conformance
