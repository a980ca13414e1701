#include "DictionaryProbe.h"

#include <OvrixEvent.h>
#include <VistelManager.h>

#include <algorithm>

#include "RecordJson.h"

namespace vistel_replay {

namespace {

using nlohmann::ordered_json;
using vistel_tools::Field;
using vistel_tools::FieldType;
using vistel_tools::KindInfo;
using vistel_tools::StructLayout;

std::string join(const std::string& path, const std::string& name) {
    return path.empty() ? name : path + "." + name;
}

// The C type of one value of `member`: an element's, for a fixed array of numbers.
std::string sourceOf(const Field& member) {
    std::string name = vistel_tools::typeName(member);
    if (member.count > 1 && member.type != FieldType::kText) name.erase(name.rfind('['));
    return name;
}

// The jank print's type and message as parameters, so that every event reads alike.
ordered_json asEvent(const ordered_json& received) {
    if (!received.contains("msg")) return received;
    return {{"service", received["service"]},
            {"id", received["id"]},
            {"params",
             {{{"key", "type"}, {"type", "int"}, {"value", received["type"]}, {"argument", 1}},
              {{"key", "msg"}, {"type", "string"}, {"value", received["msg"]}, {"argument", 3}}}}};
}

}  // namespace

// ---- Sentinels --------------------------------------------------------------------------------

Sentinels::Sentinels(const StructLayout& layout, const SentinelBase& base, SizeOf sizeOf)
    : mBase(base), mSizeOf(std::move(sizeOf)) {
    mValues = structValues(layout, "", "", {});
}

bool Sentinels::isMapKey(const Leaf& leaf) const {
    return std::find(mContainers.begin(), mContainers.end(), leaf.field) != mContainers.end();
}

const Leaf* Sentinels::addLeaf(Leaf leaf) {
    mLeaves.push_back(std::move(leaf));
    const Leaf* added = &mLeaves.back();
    mPaths[added->path] = added;
    return added;
}

std::string Sentinels::nextText() {
    static constexpr char kDigits[] = "0123456789abcdefghijklmnopqrstuvwxyz";
    static constexpr size_t kRadix = sizeof(kDigits) - 1;
    const size_t n = mTexts.size();
    if (n >= kRadix * kRadix) mErrors.push_back("more texts than sentinels");
    return {mBase.textPrefix, kDigits[n / kRadix % kRadix], kDigits[n % kRadix]};
}

ordered_json Sentinels::structValues(const StructLayout& layout, const std::string& path,
                                     const std::string& field,
                                     const std::vector<Position>& positions) {
    ordered_json object = ordered_json::object();
    for (const Field& member : layout) {
        object[member.name] =
                fieldValues(member, join(path, member.name), join(field, member.name), positions);
    }
    return object;
}

// A fixed array is its elements, each a value of its own.
ordered_json Sentinels::fieldValues(const Field& member, const std::string& path,
                                    const std::string& field,
                                    const std::vector<Position>& positions) {
    if (member.count == 1 || member.type == FieldType::kText) {
        return oneValue(member, path, field, positions);
    }
    ordered_json elements = ordered_json::array();
    for (size_t i = 0; i < member.count; ++i) {
        const std::string index = "[" + std::to_string(i) + "]";
        elements.push_back(oneValue(member, path + index, field + index, positions));
    }
    return elements;
}

ordered_json Sentinels::oneValue(const Field& member, const std::string& path,
                                 const std::string& field, const std::vector<Position>& positions) {
    const Leaf leaf{path, field, member.type, sourceOf(member), positions};
    switch (member.type) {
        case FieldType::kUInt8:
        case FieldType::kInt16:
            return addInteger(mBase.small + mSmallCount++, leaf);
        case FieldType::kInt32:
        case FieldType::kUInt32:
            return addInteger(mBase.int32 + mInt32Count++, leaf);
        case FieldType::kInt64:
            return addInteger(mBase.int64 + mInt64Count++, leaf);
        case FieldType::kUInt64:
            return addInteger(mBase.uint64 + mUInt64Count++, leaf);
        case FieldType::kFloat: {
            const double value = mBase.real + static_cast<double>(mReals.size());
            mReals[value] = addLeaf(leaf);
            return value;
        }
        case FieldType::kText:
        case FieldType::kString: {
            if (member.type == FieldType::kText && member.size <= kTextLength) {
                mErrors.push_back(path + ": too short for a sentinel text");
            }
            const std::string value = nextText();
            mTexts[value] = addLeaf(leaf);
            return value;
        }
        case FieldType::kStruct:
            return structValues(member.layout(), path, field, positions);
        case FieldType::kVector:
        case FieldType::kMap:
            return containerValues(member, path, field, positions);
    }
    return nullptr;
}

ordered_json Sentinels::addInteger(long long value, const Leaf& leaf) {
    if (leaf.type == FieldType::kUInt8 && value > 255) mErrors.push_back("too many uint8s");
    mIntegers[value] = addLeaf(leaf);
    return value;
}

// A vector's elements or a map's entries, each a position of its own; a map's keys are texts
// whose leaf names the map.
ordered_json Sentinels::containerValues(const Field& member, const std::string& path,
                                        const std::string& field,
                                        const std::vector<Position>& positions) {
    if (std::find(mContainers.begin(), mContainers.end(), field) == mContainers.end()) {
        mContainers.push_back(field);
    }
    const bool isMap = member.type == FieldType::kMap;
    ordered_json values = isMap ? ordered_json::object() : ordered_json::array();
    const size_t size = mSizeOf(field);
    for (size_t i = 0; i < size; ++i) {
        std::vector<Position> inside = positions;
        inside.push_back({field, i});
        if (isMap) {
            const std::string key = nextText();
            const std::string entry = path + "{" + key + "}";
            mTexts[key] = addLeaf({entry, field, FieldType::kText, "string", inside});
            values[key] = oneValue(*member.element(), entry, field + "{}", inside);
        } else {
            values.push_back(oneValue(*member.element(), path + "[" + std::to_string(i) + "]",
                                      field + "[]", inside));
        }
    }
    return values;
}

Sentinels::SizeOf usualSizes() {
    return [](const std::string&) { return kUsualSize; };
}

Sentinels::SizeOf sizesWith(const std::string& container, size_t size, size_t others) {
    return [=](const std::string& c) { return c == container ? size : others; };
}

// ---- Running the library ----------------------------------------------------------------------

std::string EventSource::label() const {
    if (directBootMsg) return "direct sendBootMsg calls";
    return "kind " + std::to_string(kind->kind) + " " + kind->name;
}

EventSource directBootMsgSource() {
    for (const KindInfo& kind : vistel_tools::kinds()) {
        if (&kind.layout() == &vistel_tools::layoutOf<orv::vistelBootMsg>()) return {&kind, true};
    }
    return {nullptr, true};  // unreachable: the boot time-out kind has that body
}

std::optional<Reception> ProbeScenario::run(const EventSource& source, const ordered_json& values,
                                            double atSeconds,
                                            std::vector<std::string>& errors) const {
    if (!mReplayer.serviceLoaded()) {
        errors.push_back("the Vistel service library is not loaded");
        return std::nullopt;
    }
    const KindInfo& kind = *source.kind;
    Step step{1, atSeconds, &kind, kind.make()};
    const std::string fillError = vistel_tools::fillStruct(kind.layout(), values, step.instance.body);
    if (!fillError.empty()) {
        errors.push_back(fillError);
        return std::nullopt;
    }
    Reception reception{Outcome::kNoEvent, ordered_json::array(), {}};
    if (source.directBootMsg) {
        // Answered at once, on this thread; nothing but Ovrix events can come of it.
        auto* body = static_cast<orv::vistelBootMsg*>(step.instance.body);
        orv::VistelManager::GetInstance()->sendBootMsg(body->bootNodes);
        for (const OvrixEvent& event : ovrixhost::reported()) {
            ordered_json received = {{"service", "ovrix"}};
            received.update(ordered_json::parse(ovrixhost::toJson(event)));
            reception.events.push_back(std::move(received));
        }
        ovrixhost::reset();
        if (!reception.events.empty()) reception.outcome = Outcome::kSent;
        return reception;
    }
    StepReport report = mReplayer.run(step);
    reception.outcome = report.outcome;
    for (const ordered_json& event : report.events) reception.events.push_back(asEvent(event));
    reception.log = std::move(report.log);
    return reception;
}

std::optional<ordered_json> receivedFor(const EventSource& source, const Sentinels& sentinels,
                                        std::vector<std::string>& errors) {
    errors.insert(errors.end(), sentinels.errors().begin(), sentinels.errors().end());
    auto reception = ProbeScenario().run(source, sentinels.values(), 0, errors);
    if (!reception) return std::nullopt;
    if (reception->outcome != Outcome::kSent && reception->outcome != Outcome::kNoEvent) {
        errors.push_back(std::string("the record was ") + outcomeName(reception->outcome) +
                         ", not sent");
        return std::nullopt;
    }
    return std::move(reception->events);
}

}  // namespace vistel_replay
