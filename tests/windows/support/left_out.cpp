#include <gtest/gtest.h>

#include <string>
#include <string_view>

namespace {

/// Tests that cannot hold on Windows, and why. Sources that cannot even be compiled for it are POSIX_SOURCES
/// of kx_add_test.
struct LeftOut {
    std::string_view test;
    const char* reason;
};

constexpr LeftOut table[] = {
    {"TransactionalFiles.AFullDiskIsReportedAsSuchAndTheFileStaysAsItWas",
     "a process sets no limits for its files"},
    {"WorkingFile.ThatDoesNotHoldEveryByteIsAFailureAndDoesNotStay",
     "a process sets no limits for its files"},
    {"WorkingFileStream.ReportsAFullDiskByTheWriteItself", "a process sets no limits for its files"},
    {"WorkingFileStream.WhoseWriteHasFailedIsAbandonedByItsClose", "a process sets no limits for its files"},
    {"WritingArchives.AFullDiskIsReportedByTheWriteOrTheCloseAndNotByADestructor",
     "a process sets no limits for its files"},
    {"StoredEntries.AFullDiskIsReportedWhereverItIsMet", "a process sets no limits for its files"},
    {"TransactionalFiles.TheTemporaryFileIsPrivateAndGoesWithTheStream", "rights are not those of POSIX"},
    {"WorkingFile.CanBeReadByItsOwnerAlone", "rights are not those of POSIX"},
    {"WritingArchives.APathThatDoesNotExistIsCreatedForItsOwnerAlone", "rights are not those of POSIX"},
    {"ChangeSessionTest.AFileIsLockedOnceHoweverItIsSpelled", "Wine makes no symbolic links"},
    {"ChangingTest.ALinkedArchiveStaysALink", "Wine makes no symbolic links"},
    {"FileSystem.ExistsFollowsSymbolicLinks", "Wine makes no symbolic links"},
    {"FileSystem.RemoveAllTakesWholeTreesButNotWhatLinksLeadTo", "Wine makes no symbolic links"},
    {"FileSystem.RemoveTakesFilesLinksAndEmptyFoldersAndTellsWhetherTheyWereThere",
     "Wine makes no symbolic links"},
    {"FileSystem.StatusTellsFoldersAndFollowsLinks", "Wine makes no symbolic links"},
    {"ReadingTest.StatTellsTheCanonicalLocation", "Wine makes no symbolic links"},
    {"TemporaryFile.NamesThatAreTakenAreLeftAlone", "Wine makes no symbolic links"},
    {"TemporaryName.SkipsNamesThatAreTakenEvenByDanglingLinks", "Wine makes no symbolic links"},
    {"TreeCopierTest.AFolderThatBecomesALinkWhileItsFilesWaitIsNotWrittenThrough",
     "Wine makes no symbolic links"},
    {"TreeCopierTest.NothingIsWrittenThroughASymbolicLinkInTheTarget", "Wine makes no symbolic links"},
    {"VfsTest.AContainerHasOneProviderHoweverItIsSpelled", "Wine makes no symbolic links"},
    {"WritingArchives.ADanglingSymbolicLinkIsNotFollowed", "Wine makes no symbolic links"},
    {"TemporaryFile.ReportsAFolderThatDoesNotExist", "paths have backslashes in messages"},
    {"TemporaryName.ReportsAFolderThatIsNone", "paths have backslashes in messages"},
    {"TemporaryDirectory.IsTmpWhenTheNameOfTmpdirIsNotUtf8",
     "the system names the folder for temporary files"},
    {"TemporaryDirectory.IsTmpWhenTmpdirIsNotSet", "the system names the folder for temporary files"},
    {"TemporaryDirectory.IsTmpWhenTmpdirNamesNoFolder", "the system names the folder for temporary files"},
    {"PathForms.AnUnpairedSurrogateHasANativeForm", "native names are UTF-16 with backslashes"},
    {"PathForms.NativeFormIsUtf8", "native names are UTF-16 with backslashes"},
    {"FileSystem.ExistsReportsWhatItCannotKnow", "a name that is too long is one that is not there"},
    {"KxLocale.ALocaleThatTheSystemDoesNotHaveCountsAsUtf8",
     "the code set that the environment names counts without a locale"},
    {"CodeSetConverter.CharactersThatACodeSetLacksBecomeQuestionMarks",
     "there is no code page for these code sets"},
    {"CodeSetConverter.DecodesAndEncodesCodeSetsOfSeveralBytes", "there is no code page for these code sets"},
    {"CodeSetConverter.EndsTextInTheFirstShiftStateAndStartsTheNextOneThere",
     "there is no code page for these code sets"},
    {"CodeSetConverter.OneObjectServesSeveralThreadsAtOnce", "there is no code page for these code sets"},
    {"CodeSetConverter.RandomBytesNeverThrowInAnyCodeSet", "there is no code page for these code sets"},
    {"CodeSetConverter.ReplacesATruncatedSequenceOnce", "there is no code page for these code sets"},
    {"CodeSetConverter.StaysOnTheUnitsOfWideCodeSetsAfterAnInvalidOne",
     "there is no code page for these code sets"},
    {"CodeSetConverter.TextLongerThanAnyBufferIsConvertedWhole", "there is no code page for these code sets"},
    {"CodeSetConverter.UnpairedSurrogatesBecomeTheReplacementCharacterWhereTheCodeSetHasIt",
     "there is no code page for these code sets"},
    {"AppendingEntries.NoticesThatTheArchiveFileIsGone",
     "a file that is open cannot be removed or moved away"},
    {"UnreadableKeptArchive.IsReadOnceItCanBeAndWhatWasChangedMeanwhileIsSaved",
     "a file that is open cannot be removed or moved away"},
    {"UnreadableKeptArchive.LeavesTheOneThatWasKeptBefore",
     "a file that is open cannot be removed or moved away"},
    {"ZipProviderErrors.AnOpeningThatFailedChangesNothing",
     "a file that is open cannot be removed or moved away"},
    {"ZipProviderErrors.AttributesOfAFileWhoseWorkingFileIsGoneAreALocalFailure",
     "a file that is open cannot be removed or moved away"},
    {"ZipProviderErrors.OpeningForReadingReportsEveryKindOfFailureWithItsCode",
     "a file that is open cannot be removed or moved away"},
    {"Enumerator.TakesNoSizeFromAZip64FieldThatIsTooShort",
     "minizip reads on behind such a field where unsigned long has 32 bits"},
    {"DamagedArchivesTest.AFifoIsRefusedWithoutWaiting", "there are no named pipes among files"},
    {"ChangingTest.ANameThatCannotBeStoredIsRefusedWhereItIsMadeAndTheOthersAreMade",
     "a command line has at most 32,767 characters"},
    {"CommandLineTest.AClosedPipeEndsTheToolSilently",
     "the tool cannot be run by the shell of another system"},
    {"CommandLineTest.AFullOutputDeviceIsAFailure", "the tool cannot be run by the shell of another system"},
    {"CopyingTest.AFullDiskIsReportedAndTheArchiveStands",
     "the tool cannot be run by the shell of another system"},
    {"CopyingTest.AStandardInputThatCannotBeReadIsToldAndChangesNothing",
     "the tool cannot be run by the shell of another system"},
    {"InterruptionTest.FoldersOfRunningProcessesAreLeftAlone",
     "the tool cannot be run by the shell of another system"},
    {"InterruptionTest.ARunThatIsEndedLeavesTheArchiveThatItCouldNotPutInPlace", "there are no signals"},
    {"InterruptionTest.ASecondSignalDoesNotWaitForTheCleaningUp", "there are no signals"},
    {"InterruptionTest.ASignalThatComesTwiceAtOnceIsOneRequest", "there are no signals"},
    {"InterruptionTest.ATerminatedChangeLeavesAWholeArchiveAndNothingElse", "there are no signals"},
    {"InterruptionTest.WhatAKilledProcessLeftIsRemovedByTheNextRun", "there are no signals"},
    {"InterruptionTest.WhatARunLeftThatWasKilledAsItBeganIsRemovedByTheNext",
     "a run marks its folder in other steps"},
    {"ProgressTest.CopyingForLongShowsTheFileAndHowMuchOfItIsDone", "there are no pseudo terminals"},
    {"ProgressTest.CopyingStandardInputShowsHowMuchThereWasSoFar", "there are no pseudo terminals"},
    {"ProgressTest.OfANameThatIsTooLongForTheTerminalTheEndIsShown", "there are no pseudo terminals"},
    {"ProgressTest.QuickRunsShowNone", "there are no pseudo terminals"},
    {"ProgressTest.QuietRunsAndRunsForProgramsShowNone", "there are no pseudo terminals"},
    {"ProgressTest.SavingAnArchiveInAnArchiveShowsBoth", "there are no pseudo terminals"},
    {"ProgressTest.SavingShowsTheArchiveAndHowFarItIs", "there are no pseudo terminals"},
    {"ProgressTest.WhatIsTakenInFromElsewhereShowsThatItIsPacked", "there are no pseudo terminals"},
    {"ReadingTest.NamesAreQuotedOnATerminal", "there are no pseudo terminals"},
    {"LocalFileSaving.AFolderThatGoesTakesAnUnfinishedSaveAlong",
     "a folder in which a file is being saved cannot be removed"},
    {"ZipProviderFolders.AFileIsMovedToAnotherFolderAndKeepsItsTime",
     "the zone is not UTC, and its offset is added to stamps that are carried over"},
    {"ZipProviderFolders.AFolderHasTheTimeWhenItWasMade",
     "the zone is not UTC, and its offset is added to stamps that are carried over"},
    {"ZipProviderErrors.LocalFailuresOfTheSaveThatAChangeCausesPassUnchanged",
     "there is no folder like /proc"},
    {"ZipProviderErrors.OpeningForWritingPassesLocalFailuresOn", "there is no folder like /proc"},
    {"ReadingTest.OddNamesAreHandledAsTheyStand", "a backslash in a path that is typed stands between names"},
    {"ReadingTest.MessagesWithQuotedSignsQuoteBackslashesToo",
     "a backslash in a path that is typed stands between names"},
    {"BatchTest.AListThatCannotBeReadIsAFailure", "a folder cannot be opened as a file"},
    {"DeepTrees.ThirtyThousandFoldersInOneAnotherCanBeMadeListedAndRemoved",
     "gigabytes of paths take minutes under Wine"},
    {"CommandLineTest.TheManualPageTellsOfEveryCommandAndIsTheOneInTheDocuments",
     "the page tells of the mount, too, which is not there"},
};

/// The name of the suite and of the test as the source has them, without the instantiation and the parameter.
std::string nameInSource(const testing::TestInfo& info) {
    std::string suite = info.test_suite_name();
    suite.erase(0, suite.find('/') == std::string::npos ? 0 : suite.find('/') + 1);
    const std::string_view test = info.name();
    return suite + "." + std::string(test.substr(0, test.find('/')));
}

class Skipper : public testing::EmptyTestEventListener {
    void OnTestStart(const testing::TestInfo& info) override {
        const auto name = nameInSource(info);
        for (const auto& entry : table) {
            if (entry.test == name) {
                GTEST_SKIP() << "not on Windows: " << entry.reason;
            }
        }
    }
};

[[maybe_unused]] const bool isInstalled = [] {
    testing::UnitTest::GetInstance()->listeners().Append(new Skipper);
    return true;
}();

} // namespace
