#pragma once
// What one command line may cost. Past a limit the rest counts as opaque, never as harmless and never as an error.

#include <chrono>
#include <cstddef>
#include <cstdint>

namespace tidewrack::shell {

struct Budget {
    // Cutting the line
    static constexpr std::size_t nesting = 8;            // $( ), backquotes and texts run as commands, in each other
    static constexpr std::size_t nestedCommands = 4'096; // in all of them
    static constexpr std::size_t nestedPerCommand = 256; // in the words of one
    static constexpr std::size_t nestedBytes = std::size_t{256} << 10;
    static constexpr std::size_t arithmeticLength = 256;
    static constexpr std::size_t arrayLength = 1'024;
    static constexpr std::size_t searchedBytes = std::size_t{2} << 20; // for the ends of here-documents
    static constexpr std::size_t hereDocumentsPerLine = 16;
    static constexpr std::size_t nameLength = 256;
    static constexpr std::size_t functionLength = 1'000; // commands
    static constexpr std::size_t calledCommands = 2'000; // in the bodies of functions, each time they are called
    static constexpr std::size_t aliases = 100;
    static constexpr std::size_t traps = 16;
    static constexpr std::size_t parallelOperands = 256;

    // Brace lists
    static constexpr std::size_t braceWordsPerList = 1'000;
    static constexpr std::size_t braceWords = 2'000;
    static constexpr std::size_t braceBytes = std::size_t{256} << 10;
    static constexpr std::size_t braceDepth = 16;
    static constexpr std::size_t braceNumberLength = 9;

    // Values
    static constexpr std::size_t valueBytes = std::size_t{1} << 18;
    static constexpr std::size_t variables = 1'000;
    static constexpr std::size_t tildesInValue = 64; // behind colons
    static constexpr std::size_t parameters = 100;
    static constexpr std::size_t patternSteps = 4'000'000; // of ${X%pattern} and its kin
    static constexpr std::size_t unknownWords = 16;        // of a command, whose folder is known
    static constexpr std::size_t loops = 8;
    static constexpr std::size_t filesOfValues = 8; // that are sourced
    static constexpr std::size_t valuesPerLoop = 1'000;
    static constexpr std::size_t alternatives = 10'000; // values tried in commands

    // Folders
    static constexpr std::size_t folderLength = 1'024;
    static constexpr std::size_t folderChanges = 1'000;
    static constexpr std::size_t subshells = 64;
    static constexpr std::size_t doubtfulFolders = 8;
    static constexpr std::size_t foldersOfRuns = 32; // that the runs of a loop change to
    static constexpr std::size_t otherRuns = 2'000;  // commands judged again, each in one of those

    // Looks at the disk
    static constexpr std::size_t matches = 10'000;
    static constexpr std::size_t patterns = 256;
    static constexpr std::size_t starsPerName = 16; // some systems' fnmatch needs exponential time beyond
    static constexpr auto patternTime = std::chrono::milliseconds(250);
    static constexpr int pathsMadeReal = 64;
    static constexpr std::size_t topLevels = 256;        // folders that may hold git's store
    static constexpr std::size_t operandsLookedAt = 256; // whether they are paths
    static constexpr int foldersCompared = 512;
    static constexpr std::size_t mentions = 64;
    static constexpr std::size_t itemsOfList = 256; // that the line itself holds
    static constexpr std::size_t placesOfItems = 4;
    static constexpr std::size_t listBytes = std::size_t{64} << 10;
    static constexpr std::size_t filesKeptOnSuspicion = 2'000;
    static constexpr std::int64_t bytesKeptOnSuspicion = std::int64_t{16} << 20;
    static constexpr std::int64_t bytesWrittenOver = std::int64_t{64} << 20; // by programs that are told a file
    static constexpr std::size_t entriesLookedAt = 4'000;

    // The decision
    static constexpr std::size_t targets = 10'000;
    static constexpr std::size_t targetBytes = std::size_t{2} << 20;
    static constexpr std::size_t opaqueFolders = 1'000;
    static constexpr std::size_t listedDepth = 16;
    static constexpr std::size_t listingsLookedAt = 64;
    static constexpr std::size_t listings = 4;
    static constexpr std::size_t namesMade = 64;   // by the line, that are looked through
    static constexpr std::size_t gitCommands = 64; // whose stores are copied, and which git is asked about
    static constexpr std::size_t appendedInGit = 16;
    static constexpr std::size_t links = 16;              // that the line makes
    static constexpr std::size_t wordsBehindPattern = 64; // of git -C PATTERN, followed into each match
};

} // namespace tidewrack::shell
