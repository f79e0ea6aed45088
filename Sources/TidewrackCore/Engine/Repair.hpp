#pragma once
// Mending what a check found, as far as there is a second way to what was lost. Nothing is deleted: what is damaged is
// moved aside, into a folder below the store's.

#include "Engine/Check.hpp"

#include <string>
#include <vector>

namespace tidewrack {

struct Mending {
    enum class How {
        movedAside,
        rebuilt,   // a content, from the project's own unchanged file; a project's record
        recovered, // a snapshot's record, from its listing
        reset,     // mode or time of a content
    };
    How how = How::movedAside;
    std::string place; // relative to the store's folder
};

struct RepairResult {
    std::vector<Mending> mendings;
    std::vector<std::string> failures; // what could not be done, one sentence each
    std::string aside;                 // the folder that things were moved to, absolute; empty where none were
    CheckedProject after;              // what a check finds now
};

// Holds the project's lock. `roots`: folders that may be a project's whose record is lost. Of the contents only those
// are read that were found damaged. Throws TidewrackError only where the history can't be locked or listed.
[[nodiscard]] RepairResult repairProject(const Engine& engine, const CheckedProject& found,
                                         const std::vector<std::string>& roots);
// Entries of the vault whose record is damaged are moved aside; one that is only under another's name gets its own.
[[nodiscard]] RepairResult repairVault(const Store& store, const CheckedVault& checked);

} // namespace tidewrack
