#include "Reports/VaultReports.hpp"

#include "Platform/Process.hpp"
#include "Support/Text.hpp"

namespace tidewrack {

std::string reasonText(NotSaved reason) {
    switch (reason) {
    case NotSaved::notThere: return "nothing was there";
    case NotSaved::inStore: return "Tidewrack's own history";
    case NotSaved::special: return "a socket, pipe or device";
    case NotSaved::tooManyFiles: return "too many files";
    case NotSaved::tooLarge: return "too large";
    case NotSaved::noRoom: return "not enough room";
    case NotSaved::noTime: return "not enough time";
    case NotSaved::unreadable: return "couldn't be read";
    }
    return {};
}

std::string failureText(const RestoredItem& item) {
    using Why = RestoredItem::Why;
    const auto& [why, error, then, now] = item.failure;
    const std::string notRestored = "couldn't restore " + item.original + ": ";
    const std::string notMoved = "couldn't move " + item.original + " aside: ";
    const std::string copy = "; the copy is in " + item.copy;
    switch (why) {
    case Why::none: break;
    case Why::system: return notRestored + errorText(error);
    case Why::otherFolder: return notRestored + "its folder was " + then + " and is " + now + " now" + copy;
    case Why::newLink: return notRestored + now + " is a link that was made since" + copy;
    case Why::copyMissing: return notRestored + "its copy is missing";
    case Why::notMoved: return notMoved + errorText(error);
    case Why::holdsHistory: return notMoved + "it contains Tidewrack's own history";
    }
    return {};
}

std::vector<std::string> missingTexts(const RestoredItem& item) {
    std::vector<std::string> texts;
    for (const UncopiedItem& inside : item.missing)
        texts.push_back("couldn't restore " + item.original + inside.path + ": " + errorText(inside.error));
    return texts;
}

namespace {

std::vector<std::string> messagesOfGitState(const VaultRestored& result) {
    const auto& [root, folder] = *result.gitState;
    std::vector<std::string> texts;
    for (const RestoredItem& item : result.items) {
        if (!item.isBack()) texts.push_back(failureText(item));
        for (std::string& missing : missingTexts(item)) texts.push_back(std::move(missing));
    }
    if (result.count() == 0) return texts;
    texts.push_back((result.isDryRun ? "would put" : "put") + (" git's state of " + root) + " into " + folder +
                    "; git's own folder stays as it is");
    if (result.isDryRun) return texts;
    const std::vector<std::string> commands = gitStateCommands(result);
    texts.push_back("where every branch was, newest first: " + commands.at(0));
    texts.push_back("one of its branches under a new name: " + commands.at(1));
    texts.push_back("when you need it no more: " + commands.at(2));
    return texts;
}

} // namespace

std::vector<std::string> gitStateCommands(const VaultRestored& result) {
    if (!result.gitState || result.isDryRun || result.count() == 0) return {};
    const std::string folder = singleQuoted(result.gitState->folder);
    return {"git --git-dir=" + folder + " reflog show --all",
            "git -C " + singleQuoted(result.gitState->root) + " fetch " + folder + " BRANCH:NEW-NAME",
            "rm -r " + folder};
}

std::string givenBackText(const std::string& path) {
    return "a vault restore that was cut short had moved " + path + " aside; it is back";
}

std::vector<std::string> messagesOf(const VaultRestored& result) {
    if (result.gitState) return messagesOfGitState(result);
    std::vector<std::string> texts;
    for (const std::string& path : result.givenBack) texts.push_back(givenBackText(path));
    for (const RestoredItem& item : result.items) {
        if (item.aside)
            texts.push_back(
                (result.isDryRun ? "would move what is there aside to " : "moved what was there aside to ") +
                *item.aside);
        if (item.wasThere)
            texts.push_back(item.original + " is there as it was saved");
        else
            texts.push_back(item.isBack() ? (result.isDryRun ? "would restore " : "restored ") + item.original
                                          : failureText(item));
        for (std::string& missing : missingTexts(item)) texts.push_back(std::move(missing));
    }
    if (result.items.empty()) texts.emplace_back("nothing to restore: the entry holds no copies");
    return texts;
}

} // namespace tidewrack
