# Unit tests that are not run here, by what keeps them out: whole files, and tests by their names.

# They ask for what Linux alone has: its folders, its log service, the helpers that look at pictures and
# write desktop entries.
set(LEFT_OUT
  platform/ImageTest.cpp
  platform/SearchPathsTest.cpp
  platform/SystemLogTest.cpp
  platform/WorkspaceTest.cpp
  platform/scripts/ScriptRunnerTest.cpp
)
set(LEFT_OUT_TESTS
  # Desktop entries and symbolic links.
  AliasScriptRunTest.*
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
  # What is looked at before libplist reads it.
  PropertyListTest.*
)

# They need services that the macOS side does not have yet. When all of them are there, this list goes,
# and awaited.cpp with it.
set(AWAITING
  controller/AdmissionTest.cpp
  controller/ControllerTest.cpp
  controller/MountedDisksTest.cpp
  controller/RecordFileTest.cpp
  controller/ShortcutIconTest.cpp
  core/DirectoryFinderTest.cpp
  core/SessionActivityTest.cpp
  core/WardenTest.cpp
  core/WardenWatcherTest.cpp
  disk/DiskManagerTest.cpp
  disk/DiskVolumeTest.cpp
  intake/ServerTest.cpp
  platform/FileManagerTest.cpp
  platform/TerminationSignalTest.cpp
  platform/macos/faked/WorkspaceTest.cpp
)
