// The dictionary written out: JSON lines, Markdown for people, and the JSON Schema.
#include <algorithm>

#include "Dictionary.h"
#include "DictionaryBudget.h"
#include "EventSchema.h"
#include "KindRegistry.h"

namespace vistel_replay {

namespace {

using nlohmann::ordered_json;
using vistel_tools::KindInfo;

// ---- JSON -------------------------------------------------------------------------------------

std::string scalar(const ordered_json& value) {
    return value.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
}

// JSON with a blank after each separator, as people write it: {"id": 1, "kinds": [0, 1]}.
std::string oneLine(const ordered_json& value) {
    if (!value.is_structured()) return scalar(value);
    std::string out(1, value.is_object() ? '{' : '[');
    for (auto it = value.begin(); it != value.end(); ++it) {
        if (it != value.begin()) out += ", ";
        if (value.is_object()) out += scalar(it.key()) + ": ";
        out += oneLine(it.value());
    }
    return out + (value.is_object() ? '}' : ']');
}

// Indented by two a level; an object or array that fits the line whole stays on it.
void writeIndented(const ordered_json& value, size_t indent, size_t used, std::string& out) {
    constexpr size_t kWidth = 100;
    const std::string whole = oneLine(value);
    if (!value.is_structured() || value.empty() || used + whole.size() <= kWidth) {
        out += whole;
        return;
    }
    const std::string margin(indent + 2, ' ');
    out += value.is_object() ? "{\n" : "[\n";
    for (auto it = value.begin(); it != value.end(); ++it) {
        std::string head = margin;
        if (value.is_object()) head += scalar(it.key()) + ": ";
        out += head;
        writeIndented(it.value(), indent + 2, head.size() + 1, out);
        out += std::next(it) == value.end() ? "\n" : ",\n";
    }
    out += std::string(indent, ' ') + (value.is_object() ? "}" : "]");
}

// ---- Markdown ---------------------------------------------------------------------------------

std::string code(const std::string& text) {
    return "`" + text + "`";
}

std::string fieldsText(const ordered_json& fields) {
    std::string text;
    for (size_t i = 0; i < fields.size(); ++i) {
        text += (i == 0 ? "" : i + 1 == fields.size() ? " and " : ", ") + code(fields[i]);
    }
    return text;
}

std::string sentText(const ordered_json& sent) {
    const std::string per = sent["per"];
    std::string text = per == "never"    ? "never; the handler answers without a report"
                       : per == "record" ? "one per record"
                       : per == "batch"  ? "one event per " + sent["size"].dump() +
                                                  " elements of " + code(sent["of"]) +
                                                  ", the last with the rest"
                                         : "one event per element of " + code(sent["of"]);
    if (sent.contains("cap")) text += ", the first " + sent["cap"].dump() + " only";
    if (sent.contains("noneWhenEmpty")) {
        text += "; none when " + fieldsText(sent["noneWhenEmpty"]) + " is empty";
    }
    return text;
}

std::string scopeText(const ordered_json& per) {
    if (per.empty()) return "per kind, whatever its fields";
    std::string text;
    for (const ordered_json& field : per) {
        std::string one = code(field["field"]);
        if (field.contains("as")) {
            one += " (its bytes as text, up to the first zero byte: 0, 256, 512 ... share one key";
            if (!field["runsOnInto"].empty()) {
                one += "; with none of its bytes zero the text runs on into " +
                       fieldsText(field["runsOnInto"]);
            }
            one += ")";
        }
        text += (text.empty() ? "" : ", ") + one;
    }
    return (per.size() > 1 ? "per (" : "per ") + text + (per.size() > 1 ? ")" : "");
}

std::string limitText(const ordered_json& limit, const ordered_json& sent) {
    if (limit["policy"].is_null()) return "never limited";
    std::string text = "at most one record every " + limit["seconds"].dump() + " s " +
                       scopeText(limit["per"]) + " (" + code(limit["policy"]) + ")";
    text += limit["from"] == "last let through"
                    ? ", counted from the last record let through (a limited one does not "
                      "extend the period)"
                    : ", counted from the last record, limited or not";
    if (sent["per"] != "record") {
        text += "; the limit counts records, not events: a record let through sends all of them";
    }
    if (limit.value("emptyRecordStartsPeriod", false)) {
        const ordered_json empty = sent.value("noneWhenEmpty", ordered_json::array());
        text += "; a record that sends nothing (" +
                (empty.empty() ? std::string("its containers empty")
                               : fieldsText(empty) + " empty") +
                ") still starts the period";
    }
    return text;
}

std::string sourceLabel(const ordered_json& limit) {
    if (limit.contains("call")) return "direct " + limit["call"].get<std::string>() + " calls";
    return "kind " + limit["kind"].dump();
}

std::string tellApartText(const ordered_json& tell) {
    const std::string by = tell["by"];
    const ordered_json& value = tell["value"];
    const std::string text = value.is_string() ? value.get<std::string>() : value.dump();
    if (by == "nothing") return "impossible: " + text;
    if (by == "key") return "by its key " + code(text);
    if (by == "form") return "by the form of " + code(tell["param"]) + ": " + text;
    return "by its " + by + " (" + text + ")";
}

std::string paramLabel(const ordered_json& param) {
    return param.contains("index") ? "#" + param["index"].dump() : code(param["key"]);
}

std::string wireText(const ordered_json& param) {
    const std::string type = param["type"];
    std::string text = type;
    if (type == "decimal text" && param["decimals"] != 0) {
        text += ", " + param["decimals"].dump() + " decimals";
    } else if (type == "list") {
        text += " of " + param["count"].dump() + " " + param["of"].get<std::string>();
    } else if (type == "events") {
        text += " " + param["id"].dump();
        if (param.contains("cap")) text += ", at most " + param["cap"].dump();
        if (param.contains("batch")) text += ", at most " + param["batch"].dump();
        if (param.value("mayBeEmpty", false)) text += ", may be empty";
    }
    if (param.contains("source")) text += " (" + param["source"].get<std::string>() + ")";
    return text;
}

std::string computedText(const ordered_json& computed) {
    if (computed.contains("constant")) return "constant " + scalar(computed["constant"]);
    if (computed.contains("position")) {
        return "the position of its " + code(computed["position"]) + " element, from 0";
    }
    if (computed.contains("joined")) {
        return code(computed["joined"]) + " in decimal, joined by " + scalar(computed["separator"]);
    }
    if (computed.contains("format")) return "formatted as " + scalar(computed["format"]);
    return "varies from record to record; no field explains it";
}

std::string fromText(const ordered_json& param) {
    std::string text = param.contains("field") ? code(param["field"])
                                               : "computed: " + computedText(param["computed"]);
    if (param.contains("perEntryOf")) text += ", in the map's order";
    if (param.value("keyIsOurs", false)) {
        text += "; the label is ours: the library passes it as argument " +
                param["argument"].dump();
    }
    return text;
}

std::string presentText(const ordered_json& param) {
    if (!param.value("optional", false)) return "always";
    return "one per entry of " + code(param["perEntryOf"]) + " (key " +
           code(param["keyPattern"]) + "), none when it is empty";
}

// One table per event, nested lists after it under their path from the top-level event.
void writeParamTable(const ordered_json& params, const std::string& path, std::ostream& out) {
    out << "| param | wire type | present | from |\n|---|---|---|---|\n";
    for (const ordered_json& param : params) {
        out << "| " << paramLabel(param) << " | " << wireText(param) << " | "
            << presentText(param) << " | " << fromText(param) << " |\n";
    }
    for (const ordered_json& param : params) {
        if (!param.contains("params")) continue;
        const std::string nestedPath = path + " › " + param["key"].get<std::string>();
        out << "\n**" << nestedPath << "**: " << param["id"].dump() << " each, schema "
            << code(param["schema"]);
        if (param.contains("tellApart")) {
            out << "; to tell it from the other shapes of " << param["id"].dump() << ": "
                << tellApartText(param["tellApart"]);
        }
        out << "\n\n";
        writeParamTable(param["params"], nestedPath, out);
    }
}

void collectComputed(const ordered_json& params, const std::string& path,
                     std::vector<std::string>& lines) {
    for (const ordered_json& param : params) {
        const std::string here = path + " " + paramLabel(param);
        if (param.contains("computed")) {
            lines.push_back("- " + here + ": " + computedText(param["computed"]));
        }
        if (param.contains("params")) collectComputed(param["params"], here + " ›", lines);
    }
}

// The identifiers of the events nested in `params`, at any depth, in order.
void collectNested(const ordered_json& params, std::vector<std::string>& ids) {
    for (const ordered_json& param : params) {
        if (!param.contains("params")) continue;
        const std::string id = param["id"].dump();
        if (std::find(ids.begin(), ids.end(), id) == ids.end()) ids.push_back(id);
        collectNested(param["params"], ids);
    }
}

void writeEventSection(const ordered_json& event, std::vector<std::string>& computedLines,
                       std::ostream& out) {
    const std::string id = event["id"].is_null() ? "no event" : event["id"].dump();
    out << "\n## " << id << " (" << event["service"].get<std::string>() << ", "
        << sourcesText(event) << ")\n\n";
    if (event.contains("schema")) out << "- schema: " << code(event["schema"]) << "\n";
    out << "- sent: " << sentText(event["sent"]) << "\n";
    for (const ordered_json& limit : event["limits"]) {
        out << "- " << sourceLabel(limit) << ": " << limitText(limit, event["sent"]) << "\n";
    }
    if (event.contains("tellApart")) {
        out << "- to tell it from the other shapes of " << id << ": "
            << tellApartText(event["tellApart"]) << "\n";
    }
    if (event.value("sourcesAlike", false)) {
        out << "- nothing in the event tells its " << sourcesText(event) << " apart\n";
    }
    if (event.contains("unread")) {
        out << "- record fields no parameter carries: " << fieldsText(event["unread"]) << "\n";
    }
    if (event["params"].empty()) return;
    out << "\n";
    writeParamTable(event["params"], id, out);
    collectComputed(event["params"], id, computedLines);
}

// ---- The daily budget -------------------------------------------------------------------------

// "`name`", "(`firstName`, `secondName`)", "kind": what one limit is counted for.
std::string keyText(const ordered_json& per) {
    if (per.empty()) return "kind";
    std::string text;
    for (const ordered_json& field : per) {
        text += (text.empty() ? "" : ", ") + code(field["field"]) +
                (field.contains("as") ? " (its bytes as text)" : "");
    }
    return per.size() > 1 ? "(" + text + ")" : text;
}

// What multiplies a key's records into events: its distinct keys, the elements of a container.
std::string multipliersText(const ordered_json& limit, const ordered_json& sent) {
    std::vector<std::string> factors;
    if (limit["policy"].is_null()) {
        factors.push_back(limit.contains("call") ? "calls" : "records");
    } else if (!limit["per"].empty()) {
        factors.push_back("distinct " + keyText(limit["per"]));
    }
    if (sent["per"] == "element") factors.push_back("elements of " + code(sent["of"]));
    if (sent["per"] == "batch") {
        factors.push_back("batches of " + sent["size"].dump() + " " + code(sent["of"]));
    }
    if (sent.contains("cap")) factors.back() += ", at most " + sent["cap"].dump();
    std::string text;
    for (const std::string& factor : factors) text += (text.empty() ? "" : " × ") + factor;
    return text.empty() ? "nothing" : text;
}

std::string countText(const ordered_json& count) {
    return count.is_string() ? count.get<std::string>() : count.dump();
}

// One row per source, in kind order, the direct calls last; the limited sources' worst days
// added up.
void writeBudget(const Dictionary& dictionary, std::ostream& out) {
    out << "\n## Daily budget\n\n"
           "How many events a device sends in a day, per source, from the quiet periods found "
           "above.\nA limited source lets one record of a key through per period: at most "
        << kSecondsPerDay
        << " / period\n(rounded up) records of each key in any 24 hours, each sending the "
           "events its *sent*\nsays. A key is the kind itself or the distinct values of the "
           "fields in scope. A source\nnothing limits sends every record.\n\n"
           "The limiter keeps its state in the camera process's memory, nothing on disk: when the "
           "camera\nprocess restarts, every key starts afresh and its next record passes at once, "
           "so each\nrestart can let one more record of each key through that day. The figures "
           "are per key,\nhowever many keys the limiter holds.\n";
    const bool withDay = !dictionary.day.empty();
    if (withDay) {
        out << "\nThe last columns take a day of the shape of `" << dictionary.day
            << "`: its records of each\nsource, handed over all at once, those with the most "
               "events first, so that one of each\nkey passes; the events those send, once "
               "every period, are the worst such a day can bring.\n";
    }
    out << "\n| source | quiet period | records a day, per key | multiplied by |"
        << (withDay ? " the day's records, let through, events | worst day |" : "") << "\n"
        << "|---|---|---|---|" << (withDay ? "---|---|" : "") << "\n";
    std::vector<std::pair<long long, std::string>> rows;
    long long limitedWorst = 0;
    int unlimited = 0;
    for (const ordered_json& event : dictionary.events) {
        for (size_t i = 0; i < event["limits"].size(); ++i) {
            const ordered_json& limit = event["limits"][i];
            const ordered_json& budget = event["budget"][i];
            const bool limited = !limit["policy"].is_null();
            std::string source = sourceLabel(limit);
            if (limit.contains("kind")) {
                const KindInfo& kind = vistel_tools::kinds()[limit["kind"].get<size_t>()];
                source += " " + std::string(kind.name);
            }
            const std::string period =
                    limited ? limit["seconds"].dump() + " s per " + keyText(limit["per"])
                            : "never limited";
            const std::string multiplied = event["sent"]["per"] == "never"
                                                   ? "sends nothing"
                                                   : multipliersText(limit, event["sent"]);
            std::string row = "| " + source + " | " + period + " | " +
                              countText(budget["recordsPerDay"]) + " | " + multiplied + " |";
            if (withDay) {
                const ordered_json& day = budget["day"];
                row += " " + day["records"].dump() + ", " + day["letThrough"].dump() + ", " +
                       day["events"].dump() + " | " + countText(day["worstDay"]) + " |";
                if (day["worstDay"].is_number()) limitedWorst += day["worstDay"].get<long long>();
            }
            if (!limited) ++unlimited;
            rows.emplace_back(limit.contains("kind") ? limit["kind"].get<long long>() : 1000, row);
        }
    }
    std::stable_sort(rows.begin(), rows.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    for (const auto& [order, row] : rows) out << row << "\n";
    out << "\nOf the " << rows.size() << " sources, " << unlimited << " are never limited.";
    if (withDay) {
        out << " A day of that shape brings at most " << limitedWorst
            << " events\nfrom the others, and every record of those.";
    }
    out << "\n";
}

}  // namespace

std::string sourcesText(const ordered_json& entry) {
    std::string text;
    for (const ordered_json& kind : entry["kinds"]) {
        const KindInfo& info = vistel_tools::kinds()[kind.get<uint32_t>()];
        text += (text.empty() ? "" : ", ") + std::to_string(info.kind) + " " + info.name;
    }
    if (!text.empty()) text = (entry["kinds"].size() > 1 ? "kinds " : "kind ") + text;
    for (const ordered_json& call : entry.value("calls", ordered_json::array())) {
        text += (text.empty() ? "direct " : ", direct ") + call.get<std::string>() + " calls";
    }
    return text;
}

void printDictionaryJson(const Dictionary& dictionary, std::ostream& out) {
    for (const ordered_json& event : dictionary.events) out << oneLine(event) << "\n";
}

void printDictionaryMarkdown(const Dictionary& dictionary, std::ostream& out) {
    out << "# Event dictionary\n\n"
           "Every event libc_vistel sends, with every parameter in the order it is set. Written "
           "by\n`vistel-replay --dictionary`, which derives it from the library itself: each "
           "source's record\nis filled with distinct values, reported through the host services, "
           "and what they\nreceived is matched back to the record's fields; the limits are found "
           "by reporting\nrecords on a virtual clock (`--dictionary --json` gives the same, one "
           "JSON object per\nevent, as in `events.jsonl`; `--dictionary --schema` the JSON Schema "
           "of\n`events.schema.json`). A test fails when these files differ from what the "
           "current build\nderives.\n\n"
           "How to read a parameter: `#N` is a Vistel parameter by index, a name in backticks "
           "one by\nname (a Vistel named parameter, or an Ovrix key). The wire type is what the "
           "service\ntakes: int64 for every Vistel integer (a `long`), int32 for an Ovrix one, "
           "with the record\nfield's C type in brackets where it differs (a `char[64]` text is "
           "at most 64 bytes).\n*from* names the record field the value is, where "
           "`groups[].SceneMode` means the field\nof each element of `groups`; or says how the "
           "library computes it when no single field is\nthe value. A list of nested events is "
           "described below its event. The same identifier\nappears once per shape its sources "
           "send it in.\n\n"
           "## Index\n\n| id | service | schema | nested events | sources |\n|---|---|---|---|---|\n";
    for (const ordered_json& event : dictionary.events) {
        std::vector<std::string> nested;
        collectNested(event["params"], nested);
        std::string nestedText;
        for (const std::string& id : nested) nestedText += (nestedText.empty() ? "" : ", ") + id;
        out << "| " << (event["id"].is_null() ? "none" : event["id"].dump()) << " | "
            << event["service"].get<std::string>() << " | "
            << (event.contains("schema") ? code(event["schema"]) : "") << " | " << nestedText
            << " | " << sourcesText(event) << " |\n";
    }
    writeBudget(dictionary, out);
    std::vector<std::string> computedLines;
    for (const ordered_json& event : dictionary.events) {
        writeEventSection(event, computedLines, out);
    }
    out << "\n## Computed parameters\n\nThe parameters no single record field explains:\n\n";
    for (const std::string& line : computedLines) out << line << "\n";
}

void printEventSchema(const Dictionary& dictionary, std::ostream& out) {
    std::string text;
    writeIndented(eventSchema(dictionary), 0, 0, text);
    out << text << "\n";
}

}  // namespace vistel_replay
