#include "DictionaryLimits.h"

#include <optional>
#include <utility>

namespace vistel_replay {

namespace {

using nlohmann::ordered_json;
using vistel_tools::Field;
using vistel_tools::FieldType;

// The longest quiet period looked for. Scenarios start ten hours apart, so a longer one would
// carry over from one probe into the next.
constexpr long long kLongestPeriodMs = 9LL * 3600 * 1000;
// An integer whose every byte is non-zero, as text: 0x01010101.
constexpr long long kNoZeroByte = 16843009;

double seconds(long long milliseconds) {
    return static_cast<double>(milliseconds) / 1000;
}

using Steps = std::vector<std::pair<ordered_json, double>>;  // values, at seconds

class LimitProbe {
  public:
    LimitProbe(const EventSource& source, std::vector<std::string>& errors)
        : mSource(source),
          mErrors(errors),
          mA(source.layout(), kRunA, usualSizes()),
          mB(source.layout(), kRunB, usualSizes()) {}

    ordered_json derive() {
        ordered_json limit = mSource.directBootMsg ? ordered_json{{"call", "sendBootMsg"}}
                                                   : ordered_json{{"kind", mSource.kind->kind}};
        const auto twice = run({{usual(), 0}, {usual(), 0}});
        if (!twice) return limit;
        if (limited((*twice)[0])) return fail("the first record was limited");
        if (!limited((*twice)[1])) {
            limit["policy"] = nullptr;
            return limit;
        }
        const char* policy = mSource.kind->limit.policy;
        if (policy == nullptr) return fail("limited, yet the kind table names no policy");
        const std::string logged = loggedPolicy((*twice)[1].log);
        if (!logged.empty() && logged != policy) {
            return fail("the library's lines name the policy " + logged + ", the table " +
                        policy);
        }
        limit["policy"] = policy;
        const std::optional<long long> periodMs = quietPeriodMs();
        if (!periodMs) return limit;
        limit["seconds"] = *periodMs / 1000;
        limit["per"] = scope();
        const double periodS = seconds(*periodMs);
        // A record limited half way through does not move the period's start.
        if (const auto third = run({{usual(), 0}, {usual(), periodS / 2}, {usual(), periodS}})) {
            limit["from"] = limited((*third)[2]) ? "last record" : "last let through";
        }
        if (startsPeriodEmpty()) limit["emptyRecordStartsPeriod"] = true;
        return limit;
    }

  private:
    const ordered_json& usual() const { return mA.values(); }

    static bool limited(const Reception& reception) {
        return reception.outcome == Outcome::kLimited;
    }

    ordered_json fail(const std::string& error) {
        mErrors.push_back("limit: " + error);
        return nullptr;
    }

    std::optional<std::vector<Reception>> run(const Steps& steps) {
        const ProbeScenario scenario;
        std::vector<Reception> receptions;
        for (const auto& [values, at] : steps) {
            auto reception = scenario.run(mSource, values, at, mErrors);
            if (!reception) return std::nullopt;
            receptions.push_back(std::move(*reception));
        }
        return receptions;
    }

    // Whether a record like `second` is limited `gapS` after `first` passed.
    std::optional<bool> limitedAfter(const ordered_json& first, const ordered_json& second,
                                     double gapS) {
        const auto both = run({{first, 0}, {second, gapS}});
        if (!both) return std::nullopt;
        return limited(both->back());
    }

    // The name a self-contained policy logs as its line's function; the keyed ones and two of
    // the per-kind ones log through the shared deciders (limitBy0Item ...), which name none.
    static std::string loggedPolicy(const std::vector<LogLine>& log) {
        for (const LogLine& line : log) {
            std::string function = line.message.substr(0, line.message.find('<'));
            if ((function.rfind("limit", 0) == 0 || function.rfind("Limit", 0) == 0) &&
                function.rfind("limitBy", 0) != 0) {
                return function;
            }
        }
        return "";
    }

    // The shortest gap after which the same record passes again, to the millisecond.
    std::optional<long long> quietPeriodMs() {
        long long limitedMs = 0;
        long long passedMs = kLongestPeriodMs;
        const auto longest = limitedAfter(usual(), usual(), seconds(passedMs));
        if (!longest) return std::nullopt;
        if (*longest) {
            fail("still limited after " + std::to_string(passedMs / 1000) + " s");
            return std::nullopt;
        }
        while (passedMs - limitedMs > 1) {
            const long long middleMs = limitedMs + (passedMs - limitedMs) / 2;
            const auto isLimited = limitedAfter(usual(), usual(), seconds(middleMs));
            if (!isLimited) return std::nullopt;
            (*isLimited ? limitedMs : passedMs) = middleMs;
        }
        if (passedMs % 1000 != 0) {
            fail("a quiet period of " + std::to_string(passedMs) + " ms, not whole seconds");
            return std::nullopt;
        }
        return passedMs;
    }

    // The usual record with `name` set to `value`.
    ordered_json with(const ordered_json& values, const std::string& name,
                      const ordered_json& value) const {
        ordered_json changed = values;
        changed[name] = value;
        return changed;
    }

    // The fields that, given other values, give a record a limit of its own.
    ordered_json scope() {
        ordered_json per = ordered_json::array();
        for (const Field& field : mSource.layout()) {
            const ordered_json other = with(usual(), field.name, mB.values()[field.name]);
            const auto same = limitedAfter(usual(), other, 0);
            if (!same || *same) continue;
            ordered_json entry = {{"field", field.name}};
            if (isWideInteger(field) && readAsText(field)) {
                entry["as"] = "bytes as text";
                entry["runsOnInto"] = runsOnInto(field);
            }
            per.push_back(std::move(entry));
        }
        return per;
    }

    static bool isWideInteger(const Field& field) {
        return field.count == 1 && (field.type == FieldType::kInt16 ||
                                    field.type == FieldType::kInt32 ||
                                    field.type == FieldType::kUInt32 ||
                                    field.type == FieldType::kInt64 ||
                                    field.type == FieldType::kUInt64);
    }

    // 0 and 256 share a limit: the key is the value's bytes up to the first zero byte.
    bool readAsText(const Field& field) {
        const auto shared = limitedAfter(with(usual(), field.name, 0),
                                         with(usual(), field.name, 256), 0);
        return shared && *shared;
    }

    // The fields that join the key when every byte of `field` is non-zero.
    ordered_json runsOnInto(const Field& field) {
        const ordered_json full = with(usual(), field.name, kNoZeroByte);
        ordered_json fields = ordered_json::array();
        for (const Field& other : mSource.layout()) {
            if (&other == &field) continue;
            const auto same =
                    limitedAfter(full, with(full, other.name, mB.values()[other.name]), 0);
            if (same && !*same) fields.push_back(other.name);
        }
        return fields;
    }

    // A record with every container empty sends nothing; the next one is limited all the same.
    bool startsPeriodEmpty() {
        const Sentinels empty(mSource.layout(), kRunA, [](const std::string&) { return size_t{0}; });
        if (empty.containers().empty()) return false;
        const auto both = run({{empty.values(), 0}, {usual(), 0}});
        return both && (*both)[0].events.empty() && limited((*both)[1]);
    }

    const EventSource& mSource;
    std::vector<std::string>& mErrors;
    const Sentinels mA;
    const Sentinels mB;
};

}  // namespace

ordered_json deriveLimit(const EventSource& source, std::vector<std::string>& errors) {
    return LimitProbe(source, errors).derive();
}

}  // namespace vistel_replay
