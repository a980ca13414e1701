// Matching what the services received back to the sentinel record that caused it: each value to
// the field it holds (as it stands, or as decimal text), or to how the library computed it, and
// each parameter to its type on the wire.
//
//     Describer describer(sentinels, hows, errors);
//     for (const auto& event : *received) events.push_back(describer.describeEvent(event));
//
// A description is the dictionary's JSON (see Dictionary.h). A value no field explains is left
// as {"unexplained": value}, for the run with the other sentinels to call it a constant, or
// "varies".
#pragma once

#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "DictionaryProbe.h"

namespace vistel_replay {

// How the elements of one container travel, from a probe that filled it alone with kProbeSize.
struct ContainerHow {
    bool perEvent = false;         // each top-level event carries one element, or one batch
    std::optional<size_t> cap;     // only the first `cap` elements travel
    std::optional<size_t> batch;   // lists of at most `batch`, each in an event of its own
    std::set<long long> eventIds;  // the top-level events perEvent is about
};

// Where the elements of `container` went in `events`: one top-level event each, one nested
// event each in one list, in batches over several lists, or only the first few.
ContainerHow multiplication(const std::string& container, const Sentinels& sentinels,
                            const nlohmann::ordered_json& events);

// A key holding a map's key is shown with the map's field in braces: "{stageCosts}COST". Sets
// `mapKey` to that key's leaf then.
std::string keyOf(const Sentinels& sentinels, const std::string& key,
                  const Leaf** mapKey = nullptr);

// Turns what the services received back into descriptions in the dictionary's terms, and notes
// every field it found.
class Describer {
  public:
    Describer(const Sentinels& sentinels, const std::map<std::string, ContainerHow>& hows,
              std::vector<std::string>& errors)
        : mSentinels(sentinels), mHows(hows), mErrors(errors) {}

    // {"id", "service", "params"} of one top-level event.
    nlohmann::ordered_json describeEvent(const nlohmann::ordered_json& event);

    // The leaf fields some parameter carried.
    const std::set<std::string>& read() const { return mRead; }

  private:
    void noteRead(const Leaf* leaf);
    nlohmann::ordered_json describeNode(const nlohmann::ordered_json& node,
                                        const std::string& service);
    nlohmann::ordered_json describeParam(const nlohmann::ordered_json& param,
                                         const std::vector<Position>& positions,
                                         const std::string& service, std::string& map);
    nlohmann::ordered_json computed(const nlohmann::ordered_json& value,
                                    const std::vector<Position>& positions);
    std::optional<nlohmann::ordered_json> formattedList(const std::string& text);
    std::optional<nlohmann::ordered_json> formattedText(const std::string& text);
    nlohmann::ordered_json describeList(const nlohmann::ordered_json& param,
                                        const std::string& elementType,
                                        nlohmann::ordered_json& description);
    nlohmann::ordered_json describeEvents(const nlohmann::ordered_json& param,
                                          nlohmann::ordered_json& description);

    const Sentinels& mSentinels;
    const std::map<std::string, ContainerHow>& mHows;
    std::vector<std::string>& mErrors;
    std::set<std::string> mRead;
};

}  // namespace vistel_replay
