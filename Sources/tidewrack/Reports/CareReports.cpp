#include "Reports/CareReports.hpp"

#include "Platform/Process.hpp"
#include "Reports/TextReports.hpp"
#include "Support/Dates.hpp"
#include "Support/Text.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdio>

namespace tidewrack {

namespace {

using Part = Damage::Part;
using Fault = Damage::Fault;

constexpr std::size_t mostRows = 20; // of one project
constexpr std::size_t mostPaths = 3; // of one row

const char* partName(Part part) {
    switch (part) {
    case Part::project: return "project";
    case Part::record: return "record";
    case Part::listing: return "listing";
    case Part::content: return "content";
    case Part::vaultRecord: return "vault record";
    case Part::vaultItem: return "vault item";
    }
    return "";
}

const char* faultName(Fault fault) {
    switch (fault) {
    case Fault::missing: return "missing";
    case Fault::unreadable: return "unreadable";
    case Fault::malformed: return "malformed";
    case Fault::misplaced: return "misplaced";
    case Fault::unrecorded: return "unrecorded";
    case Fault::badName: return "bad name";
    case Fault::otherCount: return "count";
    case Fault::otherKind: return "kind";
    case Fault::otherSize: return "size";
    case Fault::otherMode: return "mode";
    case Fault::otherTime: return "time";
    }
    return "";
}

std::string octal(std::int64_t mode) {
    char text[8];
    std::snprintf(text, sizeof text, "%o", static_cast<unsigned>(mode) & 07777U);
    return text;
}

std::string timeText(std::int64_t time) {
    return isoText(Date(std::chrono::seconds(time / nanosPerSecond)));
}

std::string faultText(const Damage& damage) {
    const std::string is = std::to_string(damage.is);
    const std::string was = std::to_string(damage.was);
    switch (damage.fault) {
    case Fault::missing: return "is missing";
    case Fault::unreadable: return "can't be read: " + errorText(damage.error);
    case Fault::malformed: return "is damaged: " + damage.detail;
    case Fault::misplaced: return "is the record of " + damage.detail;
    case Fault::unrecorded: return "is missing, while its listing and all contents are there";
    case Fault::badName: return "names what can't be: " + damage.detail;
    case Fault::otherCount: return "lists " + countText(damage.is, "file") + ", and its record says " + was;
    case Fault::otherKind: return "is not the kind of thing that was kept";
    case Fault::otherSize: return "has " + countText(damage.is, "byte") + ", and had " + was;
    case Fault::otherMode: return "has mode " + octal(damage.is) + ", and had " + octal(damage.was);
    case Fault::otherTime:
        return "was changed: it is of " + timeText(damage.is) + ", and was of " + timeText(damage.was);
    }
    return "";
}

std::string costText(const Damage& damage) {
    std::string text;
    for (std::size_t i = 0; i < std::min(damage.paths.size(), mostPaths); ++i)
        text += (i == 0 ? "" : ", ") + damage.paths[i];
    if (damage.paths.size() > mostPaths) text += " and " + std::to_string(damage.paths.size() - mostPaths) + " more";
    if (!text.empty() && !damage.snapshots.empty()) text += " in ";
    text += numbersText(damage.snapshots);
    return text.empty() ? text : "; costs " + text;
}

std::string damagesText(const std::vector<Damage>& damages, const Look& look) {
    std::string text;
    for (std::size_t i = 0; i < std::min(damages.size(), mostRows); ++i) {
        const Damage& damage = damages[i];
        text += "  " + look.shown(damage.place + " " + faultText(damage) + costText(damage)) + "\n";
    }
    if (damages.size() > mostRows)
        text += "  and " + std::to_string(damages.size() - mostRows) + " more; --json lists all\n";
    return text;
}

std::string verdict(const std::vector<Damage>& damages) {
    return damages.empty() ? "all is well" : countText(static_cast<std::int64_t>(damages.size()), "damage");
}

const char* howName(Mending::How how) {
    switch (how) {
    case Mending::How::movedAside: return "moved aside";
    case Mending::How::rebuilt: return "rebuilt";
    case Mending::How::recovered: return "recovered";
    case Mending::How::reset: return "reset";
    }
    return "";
}

std::string repairsText(const std::vector<RepairResult>& repairs, const Look& look) {
    std::string text;
    for (const RepairResult& repair : repairs) {
        for (const Mending& mending : repair.mendings)
            text += "  " + look.shown(mending.place) + ": " + howName(mending.how) + "\n";
        for (const std::string& failure : repair.failures) text += "  " + look.shown(failure) + "\n";
        if (!repair.aside.empty()) text += "  What was moved is in " + look.shown(repair.aside) + "\n";
    }
    return text.empty() ? "Nothing was to be mended.\n" : "Mended:\n" + text;
}

nlohmann::json repairsJson(const std::vector<RepairResult>& repairs) {
    nlohmann::json list = nlohmann::json::array();
    for (const RepairResult& repair : repairs) {
        nlohmann::json mendings = nlohmann::json::array();
        for (const Mending& mending : repair.mendings)
            mendings.push_back({{"place", repairedUtf8(mending.place)}, {"how", howName(mending.how)}});
        nlohmann::json failures = nlohmann::json::array();
        for (const std::string& failure : repair.failures) failures.push_back(repairedUtf8(failure));
        list.push_back({{"mendings", mendings}, {"failures", failures}, {"aside", repairedUtf8(repair.aside)}});
    }
    return list;
}

nlohmann::json damagesJson(const std::vector<Damage>& damages) {
    nlohmann::json list = nlohmann::json::array();
    for (const Damage& damage : damages) {
        nlohmann::json paths = nlohmann::json::array();
        for (const std::string& path : damage.paths) paths.push_back(repairedUtf8(path));
        list.push_back({{"part", partName(damage.part)},
                        {"fault", faultName(damage.fault)},
                        {"place", repairedUtf8(damage.place)},
                        {"message", repairedUtf8(faultText(damage))},
                        {"snapshots", damage.snapshots},
                        {"paths", paths}});
    }
    return list;
}

} // namespace

bool CheckReport::isHealthy() const {
    return vault.damages.empty() &&
           std::all_of(projects.begin(), projects.end(), [](const auto& each) { return each.damages.empty(); });
}

std::string numbersText(const std::vector<std::int64_t>& numbers) {
    std::string text;
    for (std::size_t i = 0; i < numbers.size();) {
        std::size_t end = i + 1;
        while (end < numbers.size() && numbers[end] == numbers[end - 1] + 1) ++end;
        if (!text.empty()) text += ", ";
        text += "#" + std::to_string(numbers[i]);
        if (end - i > 1) text += (end - i == 2 ? ", #" : "-#") + std::to_string(numbers[end - 1]);
        i = end;
    }
    return text;
}

std::string checkText(const CheckReport& report, const Look& look) {
    std::string text = report.repairs ? repairsText(*report.repairs, look) : std::string();
    for (const CheckedProject& project : report.projects)
        text += look.shown(project.root.empty() ? "projects/" + project.id : project.root) + ": " +
                countText(project.snapshots, "snapshot") + ", " + countText(project.listings, "listing") + ", " +
                countText(project.contents, "content") + ": " + verdict(project.damages) + "\n" +
                damagesText(project.damages, look);
    if (report.withVault)
        text += "The vault: " + std::to_string(report.vault.entries) +
                (report.vault.entries == 1 ? " entry, " : " entries, ") + countText(report.vault.items, "item") + ": " +
                verdict(report.vault.damages) + "\n" + damagesText(report.vault.damages, look);
    return text;
}

nlohmann::json checkJson(const CheckReport& report) {
    nlohmann::json projects = nlohmann::json::array();
    for (const CheckedProject& project : report.projects)
        projects.push_back({{"id", project.id},
                            {"root", repairedUtf8(project.root)},
                            {"snapshots", project.snapshots},
                            {"listings", project.listings},
                            {"contents", project.contents},
                            {"bytes", project.bytes},
                            {"damages", damagesJson(project.damages)}});
    nlohmann::json object = {{"version", 1}, {"healthy", report.isHealthy()}, {"projects", projects}};
    if (report.repairs) object["repairs"] = repairsJson(*report.repairs);
    if (report.withVault)
        object["vault"] = {{"entries", report.vault.entries},
                           {"items", report.vault.items},
                           {"damages", damagesJson(report.vault.damages)}};
    return object;
}

namespace {

std::string sharedText(const Space& space) {
    if (space.shared > 0) return ", " + bytesText(space.shared) + " of it shared with other files";
    return space.sharedIsKnown ? "" : "; what other files share of it the volume doesn't tell";
}

std::string largestText(const UsageReport::Of& of, const Look& look) {
    std::string text;
    for (const LargeContent& content : of.usage.largest) {
        text += text.empty() ? "  The largest:\n" : "";
        text += "    " + bytesText(content.size) + "  " +
                look.shown(content.path.empty() ? "blobs/" + content.blob : content.path) + "  #" +
                std::to_string(content.seq);
        if (const auto turn = of.turns.find(content.blob); turn != of.turns.end())
            text += "  " + look.shown(turn->second.agent) + " " + titleText(turn->second.title, look);
        text += "\n";
    }
    return text;
}

std::string projectText(const UsageReport::Of& of, const Look& look) {
    const ProjectUsage& usage = of.usage;
    std::string text = look.shown(usage.root) + ": " + bytesText(usage.taken()) + sharedText(usage.contentSpace) + "\n";
    text += "  " + countText(usage.contents, "content") + " " + bytesText(usage.contentSpace.taken) + ", listings " +
            bytesText(usage.listingBytes) + ", records of " + countText(usage.snapshots, "snapshot") + " " +
            bytesText(usage.recordBytes) + "\n";
    if (usage.freeable)
        text += "  A prune would free " + bytesText(usage.freeable->bytes) + ": " +
                countText(usage.freeable->snapshots, "snapshot") + ", " +
                countText(usage.freeable->contents, "content") + "\n";
    else
        text += "  A prune would fail: " + look.shown(usage.whyNot) + "\n";
    return text + largestText(of, look);
}

void addSpace(nlohmann::json& object, const Space& space) {
    object["bytes"] = space.taken;
    if (space.sharedIsKnown) object["sharedBytes"] = space.shared;
}

} // namespace

std::string usageText(const UsageReport& report, const Look& look) {
    std::string text;
    std::int64_t sum = 0;
    for (const UsageReport::Of& of : report.projects) {
        text += projectText(of, look);
        sum += of.usage.taken();
    }
    if (!report.vault) return text;
    text += "The vault: " + bytesText(report.vault->space.taken) + sharedText(report.vault->space) + ", " +
            std::to_string(report.vault->entries) + (report.vault->entries == 1 ? " entry\n" : " entries\n");
    return text + "In all: " + bytesText(sum + report.vault->space.taken) + "\n";
}

nlohmann::json usageJson(const UsageReport& report) {
    nlohmann::json projects = nlohmann::json::array();
    for (const UsageReport::Of& of : report.projects) {
        const ProjectUsage& usage = of.usage;
        nlohmann::json object = {{"id", usage.id},
                                 {"root", repairedUtf8(usage.root)},
                                 {"snapshots", usage.snapshots},
                                 {"contents", usage.contents},
                                 {"listingBytes", usage.listingBytes},
                                 {"recordBytes", usage.recordBytes},
                                 {"largest", nlohmann::json::array()}};
        addSpace(object, usage.contentSpace);
        if (usage.freeable)
            object["prune"] = {{"snapshots", usage.freeable->snapshots},
                               {"contents", usage.freeable->contents},
                               {"bytes", usage.freeable->bytes}};
        for (const LargeContent& content : usage.largest) {
            nlohmann::json item = {{"path", repairedUtf8(content.path)}, {"size", content.size}, {"seq", content.seq}};
            addSpace(item, content.space);
            if (const auto turn = of.turns.find(content.blob); turn != of.turns.end())
                item["turn"] = {{"first", turn->second.first},
                                {"agent", repairedUtf8(turn->second.agent)},
                                {"title", repairedUtf8(turn->second.title)}};
            object["largest"].push_back(item);
        }
        projects.push_back(object);
    }
    nlohmann::json object = {{"version", 1}, {"projects", projects}};
    if (report.vault) {
        object["vault"] = {{"entries", report.vault->entries}};
        addSpace(object["vault"], report.vault->space);
    }
    return object;
}

} // namespace tidewrack
