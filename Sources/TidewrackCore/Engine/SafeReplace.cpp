#include "Engine/SafeReplace.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace tidewrack {

namespace {

constexpr std::int64_t coarsestTime = 2'000'000'000; // nanoseconds; some volumes keep every second one

// Whether the item under its temporary name is as recorded, except for the change time, which the rename set.
bool isUnchangedAside(Place aside, const Entry& recorded) {
    Attributes attributes;
    if (attributesAt(aside.folder, aside.name, attributes) != 0) return false;
    Entry there = entryOf(attributes);
    there.ctime = recorded.ctime;
    return there.sameAttributes(recorded);
}

int moveTo(Place from, Place to) {
    return ::renameat(from.folder, from.name, to.folder, to.name) == 0 ? 0 : errno;
}

int link(Place from, Place to) {
    return ::linkat(from.folder, from.name, to.folder, to.name, 0) == 0 ? 0 : errno;
}

int removeAt(Place place) {
    return ::unlinkat(place.folder, place.name, 0) == 0 ? 0 : errno;
}

// A leftover for the next restore, should that fail.
void discard(Temporaries& names, Place place) {
    if (removeAt(place) != 0) names.leave();
}

Obstacle because(int error) {
    return error == 0 ? Obstacle{} : Obstacle::system(error);
}

// Puts the old file back, which has changed. When another program has replaced the new one meanwhile, its file is the
// newest of the three and stays.
int putBack(Place aside, Place place, const Entry& wanted) {
    if (const int error = exchange(aside, place)) {
        if (error == ENOENT && moveTo(aside, place) == 0) return 0;
        return error;
    }
    Attributes taken;
    if (attributesAt(aside.folder, aside.name, taken) == 0 && !isAsWritten(taken, wanted))
        return exchange(aside, place);
    return 0;
}

} // namespace

bool isAsWritten(const Attributes& attributes, const Entry& wanted) {
    const Entry there = entryOf(attributes);
    const bool inTime = there.mtime <= wanted.mtime &&
                        (wanted.mtime < INT64_MIN + coarsestTime || there.mtime > wanted.mtime - coarsestTime);
    return there.kind == wanted.kind && there.size == wanted.size && inTime;
}

Obstacle replaceUnchanged(Temporaries& names, Place made, Place place, const Entry& recorded, const Entry& wanted) {
    // From here on the name tells what may stand aside under it.
    const std::string name = names.aside(place.name);
    const Place aside{place.folder, name.c_str()};
    if (const int error = moveTo(made, aside)) {
        discard(names, made);
        return because(error);
    }
    if (const int error = exchange(aside, place)) {
        if (error == ENOENT) return putIntoGap(names, aside, place);
        const int failure = moveTo(aside, place); // a volume without exchanges
        if (failure != 0) discard(names, aside);
        return because(failure);
    }
    if (isUnchangedAside(aside, recorded)) {
        discard(names, aside);
        return {};
    }
    if (const int error = putBack(aside, place, wanted)) {
        names.leave();
        return because(error);
    }
    discard(names, aside);
    return {Obstacle::Reason::changedSince};
}

Obstacle putIntoGap(Temporaries& names, Place made, Place place) {
    const int error = link(made, place);
    const int failure = error == 0 || error == EEXIST ? 0 : moveTo(made, place); // a volume without links
    if (error == 0 || error == EEXIST || failure != 0) discard(names, made);
    return error == EEXIST ? Obstacle{Obstacle::Reason::changedSince} : because(failure);
}

Obstacle removeUnchanged(Temporaries& names, Place place, const Entry& recorded) {
    const std::string name = names.aside(place.name);
    const Place aside{place.folder, name.c_str()};
    if (const int error = moveTo(place, aside)) {
        if (error == ENOENT || error == ENOTDIR) return because(error);
        return because(removeAt(place)); // a full volume has no room for a new name
    }
    const bool unchanged = isUnchangedAside(aside, recorded);
    if (!unchanged) {
        // A file that another program has put in its place stays there.
        const int error = link(aside, place);
        if (error != 0 && error != EEXIST) {
            const int failure = moveTo(aside, place);
            if (failure == 0) return {Obstacle::Reason::changedSince};
            names.leave();
            return because(failure);
        }
    }
    const int error = removeAt(aside);
    if (error != 0 && (!unchanged || moveTo(aside, place) != 0)) names.leave();
    if (error != 0) return because(error);
    return unchanged ? Obstacle{} : Obstacle{Obstacle::Reason::changedSince};
}

} // namespace tidewrack
