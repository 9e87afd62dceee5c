# Unit tests that are not run here, by what keeps them out: whole files, and tests by their names.

# They ask for what Linux alone has: its folders, its log and login services, the helpers that look at
# pictures and write desktop entries.
set(LEFT_OUT
  core/SessionActivityTest.cpp
  platform/ImageTest.cpp
  platform/SearchPathsTest.cpp
  platform/SystemLogTest.cpp
  platform/WorkspaceTest.cpp
  platform/scripts/ScriptRunnerTest.cpp
)
set(LEFT_OUT_TESTS
  # Desktop entries and symbolic links.
  AliasScriptRunTest.*
  # An alias is a link there; here it is the Finder's business, and whether it can be made too.
  DiskManagerAliasTest.AnAliasOfTheVolumeAppearsOnTheDesktop
  DiskManagerAliasTest.ATrailingSlashDoesNotMatter
  DiskManagerAliasTest.AVolumeThatIsNotThereGetsNoAlias
  # A script that is stored replaces nothing.
  ControllerDeathTest.AnOldShortcutThatCannotBeRemovedIsReplacedAllTheSame
  # The removal script moves whatever it finds to the trash, shortcut or not.
  ControllerTest.BeforeSnowLeopardTheScriptLooksInTheDesktopFolderWhateverThePath
  # The system takes back by itself what it can read again.
  ControllerTest.WhileItSleepsLittleOfTheProgramIsHeld
  # The desktop folder is where a file of the user's says.
  DirectoryFinderTest.TheDesktopIsFoundAfreshEveryTime
  ControllerTest.ADesktopThatMovesMeanwhileIsTheNextShortcutsDesktop
  # The form of a line on standard error.
  ConsoleLogTest.ShowsLocalTime
  ConsoleLogTest.CutsLongText
  LoggerDeathTest.*
  LoggerTest.LinesStandOnStandardErrorUnderTheAgentsName
  LoggerTest.ConversionsInALineAreExpandedWithoutArguments
  # The kernel leaves out a sender's datagrams, and tells how many it has lost.
  LoudSendersTest.WhoFillsTheBufferIsNotListenedToForAWhile
  LoudSendersTest.WhileOneIsNotListenedToOthersMayStillSendWhatFitsIn
  LoudSendersTest.ManySendersCanBeLeftOutAndLetInAgain
  LoudSendersTest.NobodyIsListenedToBeforeTheSilenceIsOver
  LoudSendersTest.WhoseSilenceIsSeenToBeOverIsListenedToAtOnce
  LoudSendersTest.AsManyLostAsAreReadBetweenTwoLooksAreEnough
  LoudSendersTest.OneLostFewerIsNotEnough
  LoudSendersTest.WhoWasLeftOutOfAnEarlierSocketCanBeLeftOutOfTheNextOne
  ServerTest.WhatWasLostBeforeAStopIsNoReasonToLeaveAnybodyOutAfterIt
  # A socket hears the groups that others have joined, unless this system is told otherwise.
  ServerTest.OnlyJoinedGroupsAreHeard
  ServerTest.ADroppedGroupIsNotHeardAnyMore
  # Notices of addresses come by a socket, which the kernel may refuse, and with an address that goes
  # it takes the memberships.
  WardenDeathTest.WhereTheSystemTellsOfNoChangesTheAddressesAreComparedAllTheSame
  WardenTest.AnAddressThatIsAwayWhenItIsToBeJoinedAndComesBackIsJoined
  WardenTest.AnAddressThatMovesToAnotherInterfaceMeanwhileIsJoinedThere
  WardenWatcherTest.ARefusalIsLoggedWithItsReasonAndHarmless
  WardenWatcherTest.MayBeStoppedAnyNumberOfTimes
  # What is looked at before libplist reads it.
  PropertyListTest.*
)
