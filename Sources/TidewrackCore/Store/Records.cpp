#include "Store/Records.hpp"

#include "Support/JsonFields.hpp"

#include <nlohmann/json.hpp>

namespace tidewrack {

namespace {

void put(nlohmann::json& object, const char* key, const std::optional<std::string>& value) {
    if (value) object[key] = *value;
}

} // namespace

nlohmann::json toJson(const Project& project) {
    nlohmann::json object = {{"id", project.id},
                             {"root", project.root},
                             {"created", isoText(project.created)},
                             {"excludes", project.excludes}};
    if (project.excludesIfIgnored) object["excludesIfIgnored"] = *project.excludesIfIgnored;
    if (project.maxFileSize) object["maxFileSize"] = *project.maxFileSize;
    if (project.cap) object["cap"] = *project.cap;
    if (!project.patterns.empty()) object["patterns"] = project.patterns;
    return object;
}

nlohmann::json toJson(const SnapshotMeta& meta) {
    nlohmann::json object = {{"seq", meta.seq},           {"created", isoText(meta.created)},
                             {"kind", meta.kind},         {"manifestOf", meta.manifestOf},
                             {"files", meta.files},       {"added", meta.added},
                             {"modified", meta.modified}, {"deleted", meta.deleted},
                             {"pinned", meta.pinned},     {"durationMs", meta.durationMs}};
    put(object, "label", meta.label);
    put(object, "agent", meta.agent);
    put(object, "session", meta.session);
    put(object, "turn", meta.turn);
    put(object, "reversal", meta.reversal);
    if (meta.folders > 0) object["folders"] = meta.folders;
    if (meta.notKept > 0) object["notKept"] = meta.notKept;
    if (meta.background) object["background"] = *meta.background;
    if (meta.end) {
        object["interrupted"] = meta.end->interrupted;
        if (meta.end->began) object["began"] = *meta.end->began;
        put(object, "title", meta.end->title);
        if (meta.end->alone) object["alone"] = true;
    }
    for (const Stretch& stretch : meta.tookBack)
        object["tookBack"].push_back({{"from", stretch.from}, {"to", stretch.to}});
    return object;
}

Project decodeProject(std::string_view text, const std::string& source) {
    const JsonFields fields(text, source);
    Project project;
    project.id = fields.text("id");
    project.root = fields.text("root");
    project.created = fields.date("created");
    project.excludes = fields.texts("excludes");
    project.excludesIfIgnored = fields.optionalTexts("excludesIfIgnored");
    project.maxFileSize = fields.optionalInteger("maxFileSize");
    project.cap = fields.optionalInteger("cap");
    project.patterns = fields.optionalTexts("patterns").value_or(std::vector<std::string>());
    return project;
}

SnapshotMeta decodeSnapshotMeta(std::string_view text, const std::string& source) {
    const JsonFields fields(text, source);
    SnapshotMeta meta;
    meta.seq = fields.integer("seq");
    meta.created = fields.date("created");
    meta.kind = fields.text("kind");
    meta.label = fields.optionalText("label");
    meta.agent = fields.optionalText("agent");
    meta.session = fields.optionalText("session");
    meta.turn = fields.optionalText("turn");
    meta.manifestOf = fields.integer("manifestOf");
    meta.files = fields.integer("files");
    meta.added = fields.integer("added");
    meta.modified = fields.integer("modified");
    meta.deleted = fields.integer("deleted");
    meta.pinned = fields.boolean("pinned");
    meta.durationMs = fields.integer("durationMs");
    meta.reversal = fields.optionalText("reversal");
    meta.folders = fields.optionalInteger("folders").value_or(0);
    meta.notKept = fields.optionalInteger("notKept").value_or(0);
    meta.background = fields.optionalBoolean("background");
    if (const auto interrupted = fields.optionalBoolean("interrupted"))
        meta.end = TurnEnd{*interrupted, fields.optionalInteger("began"), fields.optionalText("title"),
                           fields.optionalBoolean("alone").value_or(false)};
    for (const JsonFields& stretch : fields.optionalObjects("tookBack"))
        meta.tookBack.push_back({stretch.integer("from"), stretch.integer("to")});
    return meta;
}

} // namespace tidewrack
