// The suite is only worth something if it fails where a promise is broken.
#include "tests/conformance/wrong_back_end.h"

#include <gmock/gmock.h>

namespace corvane::conformance {
namespace {

struct Case {
    std::string_view wrong;
    std::vector<std::string_view> broken;  ///< Contracts that must fail, whatever else does.
};

const Case cases[] = {
    {"tasksRunAtOnce", {"PostedTasksRunLaterAndInTheOrderOfPosting"}},
    {"tasksRunLastFirst", {"PostedTasksRunLaterAndInTheOrderOfPosting"}},
    {"tasksOfTasksRunAtOnce", {"ATaskThatATaskPostsRunsAfterThoseThatWait"}},
    {"timersAreFast", {"ATimerFiresAfterEachIntervalAndNeverEarly"}},
    {"timersOutliveTheirRelease", {"AReleasedTimerFiresNoMore", "ATimerMayBeReleasedInItsOwnTick"}},
    {"linesAreEscapedForTheSink", {"LinesGoToTheSinkThatTheHostHasSet"}},
    {"violationsAreSwallowed", {"ViolationsGoToTheHandlerThatTheHostHasSet"}},
    {"theFirstStateEventIsSwallowed", {"TheFirstEventOfACentralIsAStateEvent"}},
    {"theStateIsKnownAtOnce", {"TheStateIsUnknownUntilTheFirstStateEvent"}},
    {"theStateRunsAheadOfItsEvent", {"EachChangeOfTheStateIsAnEventAndTheStateIsWhatThatEventSaid"}},
    {"centralDelegatesAreHeldStrongly", {"ADelegateOfACentralIsHeldWeakly"}},
    {"eventsComeInsideTheCall", {"EventsNeverComeFromInsideTheCallThatAskedForThem", "EventsComeOneAtATime"}},
    {"nothingIsKeptDuringDelivery", {"DelegateCentralAndPeripheralAreKeptWhileAnEventIsDelivered"}},
    {"anAdapterThatGoesOffEndsLinksInSilence", {"AnAdapterThatGoesOffTellsItsStateAndThenTheEndOfTheLink"}},
    {"linksEndBeforeTheAdapter", {"AnAdapterThatGoesOffTellsItsStateAndThenTheEndOfTheLink"}},
    {"scansGoOnAfterTheAdapterWasOff", {"AnAdapterThatWasOffNeitherScansNorConnectsByItself"}},
    {"discoveryIsAnsweredWithoutALink",
     {"NothingIsDoneWhileTheAdapterIsOff", "OperationsOnALinkThatIsGoneDoNothing"}},
    {"namelessDevicesAreDropped", {"AScanReportsEveryAdvertiserAlsoOneWithoutName"}},
    {"devicesAreReportedTwice", {"ADeviceIsReportedOncePerScan"}},
    {"newNamesAreNotReported", {"ADeviceIsReportedAgainWhenItsNameComesOrChanges"}},
    {"namesAreNotChecked", {"NamesAreValidUtf8"}},
    {"aSecondScanIsIgnored", {"ScanningWhileScanningReportsEveryDeviceAgain"}},
    {"stopScanIsIgnored", {"NothingIsReportedAfterStopScan"}},
    {"everyAdvertIsANewPeripheral", {"OneDeviceIsOnePeripheralObjectOfItsCentral"}},
    {"centralsSharePeripherals", {"APeripheralObjectBelongsToOneCentral"}},
    {"identifiersAreLowerCase", {"AnIdentifierIsUpperCaseUuidTextAndNoOtherDevicesOwn"}},
    {"attemptsTimeOut", {"AnAttemptLastsUntilTheDeviceComes"}},
    {"attemptsCannotBeCancelled", {"ACancelledAttemptIsOverWithoutAnEvent"}},
    {"ownEndsAreErrors", {"AnEndThatThisSideAskedForIsNoError"}},
    {"lossesAreNotReported", {"ALinkThatIsLostIsReported", "ALinkThatTheDeviceEndsIsReported"}},
    {"linksOutliveTheirCentral", {"LettingGoOfACentralEndsItsLink", "LettingGoOfACentralEndsItsAttempt"}},
    {"eventsOutliveTheirCentral", {"NoEventFollowsTheCentral"}},
    {"peripheralDelegatesAreHeldStrongly", {"ADelegateOfAPeripheralIsHeldWeakly"}},
    {"peripheralDelegatesCannotBeDetached", {"AnEmptyPointerDetachesTheDelegate"}},
    {"servicesAreRememberedFromTheLastLink", {"ServicesAreAbsentUntilTheyAreDiscoveredOnThisLink"}},
    {"nothingWantedMeansNothing", {"AnEmptyListOfWantedUuidsMeansAll"}},
    {"filtersAreIgnored", {"OnlyWantedServicesAndCharacteristicsAreListed"}},
    {"undiscoveredListsAreEmpty", {"CharacteristicsAreAbsentUntilTheyAreDiscovered"}},
    {"listsAreChangedInPlace", {"ANewDiscoveryMakesNewObjectsAndTheOldKeepTheirContents"}},
    {"eventsCarryCopies", {"WhatAnEventCarriesIsInTheListAtThatMoment"}},
    {"oldHandlesAreForgotten", {"AHandleFromAnEarlierDiscoveryStillWorks"}},
    {"theFirstValueIsLost", {"NoValueIsLostBetweenTheSubscriptionAndTheFirst"}},
    {"valuesAreLostAtTheEnd", {"ValuesThatWereSentBeforeTheEndOfTheLinkCome"}},
    {"emptyValuesAreAbsent", {"AnEmptyValueIsNotAnAbsentOne"}},
    {"indicationsAreUnknown", {"IndicationsComeAsNotificationsDo"}},
    {"subscriptionsCannotBeEnded", {"NotificationsCanBeTurnedOff"}},
    {"writesOvertake", {"WritesReachTheDeviceInOrderAndAsTheyWere"}},
    {"writesAreNotCopied", {"WritesReachTheDeviceInOrderAndAsTheyWere"}},
    {"linkedDevicesAreReported", {"ADeviceAdvertisesWheneverItIsNotLinked"}},
    {"devicesAreToldOfTheEndInsideTheirCall",
     {"ADeviceIsCalledOnceAtATime", "ADeviceHearsOfTheEndThatItAskedForLater"}},
    {"devicesAreNotToldOfALoss", {"EachLinkBeginsWithConnectedAndEndsWithDisconnected"}},
    {"unsubscribedValuesAreKept", {"AValueThatNobodySubscribedToIsLost"}},
    {"devicesAreToldOfTheFirstSubscriptionOnly", {"ADeviceIsToldOfEverySubscription"}},
    {"deviceTasksRunAtOnce", {"ADevicesTaskRunsLaterAndNotAfterTheLink"}},
    {"deviceTasksOutliveTheLink", {"ADevicesTaskRunsLaterAndNotAfterTheLink"}},
    {"devicesAreNotKept", {"ADeviceIsKeptWhileItIsCalled"}},
};

std::vector<std::string_view> failing(std::string_view wrong) {
    std::vector<std::string_view> names;
    for (const Contract& contract : contracts()) {
        const auto failures = failuresOf(contract, [&] { return std::make_unique<WrongBackEnd>(wrong); });
        if (!failures.empty()) names.push_back(contract.name);
    }
    return names;
}

TEST(WrongBackEnd, FailsWhereItIsWrong) {
    EXPECT_THAT(failing({}), testing::IsEmpty());
    for (const Case& wrong : cases) {
        SCOPED_TRACE(wrong.wrong);
        EXPECT_THAT(failing(wrong.wrong), testing::IsSupersetOf(wrong.broken));
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
