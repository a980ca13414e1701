// Probing the library for the event dictionary: records filled with sentinel values, run through
// the library on the virtual clock, each in a scenario of its own.
//
// Every number, text and map key of a sentinel record is distinct, so a value the services
// receive names the field it came from (see DictionaryMatch.h). Two sets of sentinels (runs A and
// B) tell constants from coincidences; containers can be filled to any size, one at a time, to
// show how events multiply and what an empty one leaves out.
//
//     const EventSource source{&kind};
//     const Sentinels usual(source.layout(), kRunA, usualSizes());
//     const ProbeScenario scenario;
//     const auto first = scenario.run(source, usual.values(), 0, errors);
//     const auto second = scenario.run(source, usual.values(), 0, errors);  // limited?
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "KindRegistry.h"
#include "Replayer.h"

namespace vistel_replay {

// Every vector and map of a record in the runs that describe its events: two elements show that
// a list follows its container, and give each element's sentinels to tell them apart.
constexpr size_t kUsualSize = 2;
// The one container a probe fills: beyond every cap and batch the reporters have.
constexpr size_t kProbeSize = 130;
// A text sentinel: its run's prefix and two base-36 digits, so it fits a char[4].
constexpr size_t kTextLength = 3;

// An element of a vector, or an entry of a map, that a value sits in.
struct Position {
    std::string container;  // the container's field: "groups[].perfDetail"
    size_t index;
};

// One value of the filled record.
struct Leaf {
    std::string path;   // every index spelled out: "groups[1].perfDetail[0].Fps"
    std::string field;  // as the dictionary names it, vector and map places left out:
                        // "groups[].perfDetail[].Fps"; fixed arrays keep theirs: "values[2]"
    vistel_tools::FieldType type;
    std::string source;               // its C type: "int32", "char[64]", "string"
    std::vector<Position> positions;  // outermost first
};

// Where each sort of value starts in one run. The ranges never overlap, and lie far from the
// small numbers the reporters make up themselves (positions, constants).
struct SentinelBase {
    long long small;  // uint8 and int16 fields, which hold at most 255 of them
    long long int32;  // int32 and uint32
    long long int64;
    long long uint64;
    double real;      // k + 0.25 is exact in a float
    char textPrefix;  // a text is the prefix and two base-36 digits
};
constexpr SentinelBase kRunA = {100, 1000, 100000000000, 300000000000, 2000.25, 'x'};
constexpr SentinelBase kRunB = {180, 400000, 200000000000, 400000000000, 6000.25, 'y'};

// A record of one kind filled with sentinels, and the table back from each value to its leaf.
class Sentinels {
  public:
    // How many elements the vector or map field `container` gets.
    using SizeOf = std::function<size_t(const std::string& container)>;

    Sentinels(const vistel_tools::StructLayout& layout, const SentinelBase& base, SizeOf sizeOf);

    // The record's fields by name, as a scenario step gives them.
    const nlohmann::ordered_json& values() const { return mValues; }
    const std::deque<Leaf>& leaves() const { return mLeaves; }
    // Every vector and map field, outermost first.
    const std::vector<std::string>& containers() const { return mContainers; }
    const std::vector<std::string>& errors() const { return mErrors; }

    const Leaf* integer(long long value) const { return find(mIntegers, value); }
    const Leaf* real(double value) const { return find(mReals, value); }
    const Leaf* text(const std::string& value) const { return find(mTexts, value); }
    const Leaf* path(const std::string& value) const { return find(mPaths, value); }
    // A map key is a text sentinel whose leaf names the map itself.
    bool isMapKey(const Leaf& leaf) const;
    char textPrefix() const { return mBase.textPrefix; }

  private:
    template <typename Key>
    const Leaf* find(const std::map<Key, const Leaf*>& table, const Key& key) const {
        const auto found = table.find(key);
        return found == table.end() ? nullptr : found->second;
    }

    const Leaf* addLeaf(Leaf leaf);
    std::string nextText();
    nlohmann::ordered_json structValues(const vistel_tools::StructLayout& layout,
                                        const std::string& path, const std::string& field,
                                        const std::vector<Position>& positions);
    nlohmann::ordered_json fieldValues(const vistel_tools::Field& member, const std::string& path,
                                       const std::string& field,
                                       const std::vector<Position>& positions);
    nlohmann::ordered_json oneValue(const vistel_tools::Field& member, const std::string& path,
                                    const std::string& field,
                                    const std::vector<Position>& positions);
    nlohmann::ordered_json addInteger(long long value, const Leaf& leaf);
    nlohmann::ordered_json containerValues(const vistel_tools::Field& member,
                                           const std::string& path, const std::string& field,
                                           const std::vector<Position>& positions);

    SentinelBase mBase;
    SizeOf mSizeOf;
    nlohmann::ordered_json mValues;
    std::deque<Leaf> mLeaves;  // never moves: the tables point into it
    std::map<long long, const Leaf*> mIntegers;
    std::map<double, const Leaf*> mReals;
    std::map<std::string, const Leaf*> mTexts;
    std::map<std::string, const Leaf*> mPaths;
    std::vector<std::string> mContainers;
    std::vector<std::string> mErrors;
    long long mSmallCount = 0;
    long long mInt32Count = 0;
    long long mInt64Count = 0;
    long long mUInt64Count = 0;
};

// Every container of the usual size.
Sentinels::SizeOf usualSizes();
// `container` of `size` elements, every other one of `others`.
Sentinels::SizeOf sizesWith(const std::string& container, size_t size, size_t others);

// What one record (or one direct call) made the services receive, each event as
// {"service", "id", "params"}: the jank print's type and message are its parameters "type" and
// "msg", labels of ours (the logging library takes them as its first and third argument).
struct Reception {
    Outcome outcome;
    nlohmann::ordered_json events;
    std::vector<LogLine> log;
};

// Where events come from: the records of a kind, or sendBootMsg called directly (as camera
// threads may) with the nodes of a boot record.
struct EventSource {
    const vistel_tools::KindInfo* kind;  // for a direct call: the kind whose record it is handed
    bool directBootMsg = false;

    const vistel_tools::StructLayout& layout() const { return kind->layout(); }
    // "kind 25 BootTimeout", "direct sendBootMsg calls".
    std::string label() const;
};

// The direct sendBootMsg calls, with the boot record's layout (vistelBootMsg).
EventSource directBootMsgSource();

// A scenario of its own on the virtual clock: every limit an earlier one started has run out.
class ProbeScenario {
  public:
    ProbeScenario() = default;

    // Hands `source` a record holding `values` at `atSeconds` from the scenario's start.
    // nullopt, with the reason in `errors`, when the values do not fit the record or the
    // Vistel service is not loaded.
    std::optional<Reception> run(const EventSource& source, const nlohmann::ordered_json& values,
                                 double atSeconds, std::vector<std::string>& errors) const;

  private:
    Replayer mReplayer;
};

// One record in a scenario of its own, which must reach the services or be answered with
// nothing to send: the events they received.
std::optional<nlohmann::ordered_json> receivedFor(const EventSource& source,
                                                  const Sentinels& sentinels,
                                                  std::vector<std::string>& errors);

}  // namespace vistel_replay
