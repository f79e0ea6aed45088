#include "Engine/SafeReplace.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <utility>

namespace tidewrack {

namespace {

// Whether the item under its temporary name is as it was before, except for the change time, which the rename set.
bool isUnchangedAside(Place aside, const Entry& before) {
    Attributes attributes;
    if (attributesAt(aside.folder, aside.name, attributes) != 0) return false;
    Entry there = entryOf(attributes);
    there.ctime = before.ctime;
    return there.sameAttributes(before);
}

// To a name that nobody else uses: what is there came from the call itself, where the volume repeated it.
int moveTo(Place from, Place to) {
    if (::renameat(from.folder, from.name, to.folder, to.name) == 0) return 0;
    const int error = errno;
    Attributes there;
    return error == ENOENT && attributesAt(to.folder, to.name, there) == 0 ? 0 : error;
}

int removeAt(Place place) {
    return ::unlinkat(place.folder, place.name, 0) == 0 || errno == ENOENT ? 0 : errno;
}

// Whether both are names of one file.
bool isSameFile(Place a, Place b) {
    Attributes one;
    Attributes other;
    return attributesAt(a.folder, a.name, one) == 0 && attributesAt(b.folder, b.name, other) == 0 &&
           one.ino == other.ino && one.device == other.device;
}

// A leftover for the next restore, should that fail.
void discard(Temporaries& names, Place place) {
    if (removeAt(place) != 0) names.leave();
}

Obstacle because(int error) {
    return error == 0 ? Obstacle{} : Obstacle::system(error);
}

int giveName(Temporaries& names, Place from, Place to) {
    bool bothNames = false;
    const int error = giveName(from, to, bothNames);
    if (bothNames) names.leave();
    return error;
}

// Keeps a version that has changed since the safety snapshot: `aside` may be its only name.
Obstacle keepAside(Temporaries& names, Place aside, Place place) {
    bool bothNames = false;
    std::string found = giveFreeName(aside, place.name, bothNames);
    if (bothNames || found.empty()) names.leave();
    return {Obstacle::Reason::changedSince, 0, {}, found.empty() ? aside.name : found};
}

// The same where its own name was free a moment ago, and is given back if it still is.
Obstacle giveBack(Temporaries& names, Place aside, Place place) {
    if (giveName(names, aside, place) == 0) return {Obstacle::Reason::changedSince};
    return keepAside(names, aside, place);
}

// The same where the new file, which is `made`, has taken its name. When another program has replaced that file
// meanwhile or has written to it, its file is the newest of the three and stays.
Obstacle exchangeBack(Temporaries& names, Place aside, Place place, const Attributes& made) {
    if (const int error = exchange(aside, place))
        return error == ENOENT ? giveBack(names, aside, place) : keepAside(names, aside, place);
    Attributes taken;
    const bool isOurs = attributesAt(aside.folder, aside.name, taken) == 0 && taken.device == made.device &&
                        isUnchangedAside(aside, entryOf(made));
    if (!isOurs) {
        (void)exchange(aside, place);
        return keepAside(names, aside, place);
    }
    discard(names, aside);
    return {Obstacle::Reason::changedSince};
}

// For volumes that can't exchange two names: the name is free for a moment.
Obstacle replaceInSteps(Temporaries& names, Place made, Place place, const Entry& recorded) {
    const std::string name = names.aside(place.folder, place.name);
    const Place aside{place.folder, name.c_str()};
    if (const int error = moveTo(place, aside)) {
        if (error == ENOENT) return putIntoGap(names, made, place);
        discard(names, made);
        return because(error);
    }
    if (!isUnchangedAside(aside, recorded)) {
        discard(names, made);
        return giveBack(names, aside, place);
    }
    Obstacle obstacle = putIntoGap(names, made, place);
    if (obstacle.reason == Obstacle::Reason::systemError) {
        const int failure = giveName(names, aside, place);
        if (failure != 0 && failure != EEXIST) names.leave();
        if (failure != EEXIST) return obstacle;
    }
    discard(names, aside);
    return obstacle;
}

} // namespace

int giveName(Place from, Place to, bool& bothNames) {
    int error = renameUnlessTaken(from, to);
    if (error == 0 || error == EEXIST || error == ENOENT) return error;
    error = ::linkat(from.folder, from.name, to.folder, to.name, 0) == 0 ? 0 : errno;
    if (error == 0 || (error == EEXIST && isSameFile(from, to))) {
        bothNames = removeAt(from) != 0;
        return 0;
    }
    if (error == EEXIST || error == ENOENT) return error;
    Attributes there; // the volume allows no more than a check at the last moment
    const int missing = attributesAt(to.folder, to.name, there);
    if (missing == 0) return EEXIST;
    return missing == ENOENT ? moveTo(from, to) : error;
}

std::string numberedName(int folder, std::string_view name, std::int64_t number) {
    const std::string ending = ".tidewrack-" + std::to_string(number);
    return shortened(folder, name, ending.size()) + ending;
}

std::string giveFreeName(Place aside, std::string_view name, bool& bothNames) {
    constexpr int most = 10'000; // for volumes that call every name taken
    for (int number = 1; number < most; ++number) {
        std::string found = numberedName(aside.folder, name, number);
        const int error = giveName(aside, {aside.folder, found.c_str()}, bothNames);
        if (error == 0) return found;
        if (error != EEXIST) break;
    }
    return {};
}

Obstacle replaceUnchanged(Temporaries& names, Place made, Place place, const Entry& recorded) {
    // From here on the temporary name says which file it may hold.
    const std::string name = names.aside(place.folder, place.name);
    const Place aside{place.folder, name.c_str()};
    Attributes ours;
    int error = attributesAt(made.folder, made.name, ours);
    if (error == 0) error = moveTo(made, aside);
    if (error != 0) {
        discard(names, made);
        return because(error);
    }
    error = exchange(aside, place);
    if (error == ENOENT) return putIntoGap(names, aside, place);
    if (error != 0) return replaceInSteps(names, aside, place, recorded);
    if (!isUnchangedAside(aside, recorded)) return exchangeBack(names, aside, place, ours);
    discard(names, aside);
    return {};
}

Obstacle putIntoGap(Temporaries& names, Place made, Place place) {
    const int error = giveName(names, made, place);
    if (error != 0) discard(names, made);
    return error == EEXIST ? Obstacle{Obstacle::Reason::changedSince} : because(error);
}

Obstacle moveUnchanged(Temporaries& names, Place place, const Entry& recorded, std::string& name) {
    std::string temporary = names.aside(place.folder, place.name);
    const Place aside{place.folder, temporary.c_str()};
    if (const int error = moveTo(place, aside)) {
        return because(isOutOfRoom(error) ? removeAt(place) : error); // not even for a new name
    }
    if (!isUnchangedAside(aside, recorded)) return giveBack(names, aside, place);
    name = std::move(temporary);
    return {};
}

Obstacle removeUnchanged(Temporaries& names, Place place, const Entry& recorded) {
    std::string name;
    Obstacle obstacle = moveUnchanged(names, place, recorded, name);
    if (obstacle || name.empty()) return obstacle;
    const Place aside{place.folder, name.c_str()};
    const int error = removeAt(aside);
    if (error != 0 && giveName(names, aside, place) != 0) names.leave();
    return because(error);
}

Obstacle removeMoved(Temporaries& names, Place aside, Place place, const Entry& recorded) {
    if (isUnchangedAside(aside, recorded)) {
        discard(names, aside);
        return {};
    }
    Attributes there;
    return attributesAt(aside.folder, aside.name, there) == ENOENT ? Obstacle{} : giveBack(names, aside, place);
}

} // namespace tidewrack
