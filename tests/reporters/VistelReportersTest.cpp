// The reporters that send one Vistel event, end to end from reportMsgImpl to the host service:
// memory faults, buffer leaks and time-outs (kinds 0 to 12, 19 to 22 and 24) and the capture
// statistics (13 to 17).
#define LOG_TAG "VistelManager"

#include <KindRegistry.h>
#include <RecordJson.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <thread>

#include "ReporterText.h"

namespace vistel_test {

using vistel_harness::VirtualClock;

namespace {

using namespace orv;
using vistel_tools::Field;
using vistel_tools::FieldType;

// The set/fill calls the service received, in order: "#<index>=<value>" by index,
// "<name>:<form>=<value>" by name (form i, f or s, with "[]" for one more array element).
Strings paramCalls() {
    static const std::regex kCall(R"(^vistel_(\w+)\(\d+, (\d+|"[^"]*"), (.*)\) = -?\d+$)");
    static const std::map<std::string, std::string> kForms = {
            {"set_param_integer_v2", ":i"},        {"set_param_float_v2", ":f"},
            {"set_param_string_v2", ":s"},         {"fill_array_param_integer_v2", ":i[]"},
            {"fill_array_param_float_v2", ":f[]"}, {"fill_array_param_string_v2", ":s[]"},
    };
    Strings tokens;
    for (const std::string& call : vistelhost::calls()) {
        std::smatch m;
        if (!std::regex_match(call, m, kCall)) continue;
        const std::string key = m[1] == "set_param"
                                        ? "#" + m[2].str()
                                        : m[2].str().substr(1, m[2].length() - 2) + kForms.at(m[1]);
        tokens.push_back(key + "=" + m[3].str());
    }
    return tokens;
}

Strings words(const char* text) {
    std::istringstream in(text);
    return {std::istream_iterator<std::string>(in), std::istream_iterator<std::string>()};
}

// A record and the parameter calls it must produce.
struct Sample {
    std::shared_ptr<VistelEventBase> record;
    void* body;  // the structure the kind's field table describes
    Strings params;
    std::vector<unsigned short> textIndexes;  // the indexed parameters that are texts
};

char* elementOf(const Field& field, void* body, size_t i) {
    return static_cast<char*>(field.address(body)) + i * field.size / field.count;
}

// An integer element widened as the service must receive it; a text by its address.
long sentValue(const Field& field, const char* at) {
    if (field.type == FieldType::kUInt8) return static_cast<uint8_t>(*at);
    if (field.type == FieldType::kInt16) return *reinterpret_cast<const int16_t*>(at);
    if (field.type == FieldType::kInt32) return *reinterpret_cast<const int32_t*>(at);
    if (field.type == FieldType::kInt64) return *reinterpret_cast<const int64_t*>(at);
    return reinterpret_cast<long>(at);
}

// A record of `kind` whose every field holds a value of its own, so that a field sent in another's
// place, or widened wrongly, shows: the n-th text "f<n>", integers negative (-1000 * (n + 1),
// 64-bit ones beyond 32 bits), bytes 255 - n, floats n + 0.5. `keys` (JSON) then sets what the
// limiter reads. `fields` lists the parameters in the order they must be sent: "<field>" by index,
// "<field>:<i|f|s>" by name and form; "values[2]" names one element of an array.
Sample sampleOf(VistelEvent kind, const char* fields, const char* keys = "{}") {
    const vistel_tools::KindInfo& info = vistel_tools::kinds()[kind];
    const vistel_tools::RecordInstance r = info.make();
    long n = 0;
    for (const Field& f : info.layout()) {
        for (size_t i = 0; i < f.count; ++i, ++n) {
            char* at = elementOf(f, r.body, i);
            const int64_t value = f.type == FieldType::kInt64 ? -0x123456789A - n : -1000 * (n + 1);
            if (f.type == FieldType::kText) snprintf(at, f.size, "f%ld", n);
            if (f.type == FieldType::kUInt8) *at = static_cast<char>(255 - n);
            if (f.type == FieldType::kInt16) *reinterpret_cast<int16_t*>(at) = value;
            if (f.type == FieldType::kInt32) *reinterpret_cast<int32_t*>(at) = value;
            if (f.type == FieldType::kInt64) *reinterpret_cast<int64_t*>(at) = value;
            if (f.type == FieldType::kFloat) *reinterpret_cast<float*>(at) = n + 0.5f;
        }
    }
    EXPECT_EQ(fillStruct(info.layout(), nlohmann::ordered_json::parse(keys), r.body), "");
    Sample sample{r.record, r.body, {}, {}};
    for (const std::string& token : words(fields)) {
        const size_t form = token.find(':'), bracket = token.find('[');
        const Field& f = *info.layout().find(token.substr(0, std::min(form, bracket)));
        const char* at =
                elementOf(f, r.body, bracket == std::string::npos ? 0 : token[bracket + 1] - '0');
        std::string value = std::to_string(sentValue(f, at));
        if (f.type == FieldType::kText && form != std::string::npos)
            value = '"' + std::string(at) + '"';
        if (f.type == FieldType::kFloat)  // n + 0.5, as the service prints it
            value = std::to_string(static_cast<int>(*reinterpret_cast<const float*>(at))) + ".5";
        const bool byIndex = form == std::string::npos;
        if (byIndex && f.type == FieldType::kText)
            sample.textIndexes.push_back(static_cast<unsigned short>(sample.params.size()));
        sample.params.push_back((byIndex ? "#" + std::to_string(sample.params.size()) : token) +
                                "=" + value);
    }
    return sample;
}

template <size_t N>
void setText(char (&field)[N], const char* text) {
    snprintf(field, N, "%s", text);
}

// Packed: fields are assigned one by one, as no reference to them may be taken.
Sample snapshotV2() {
    auto r = std::make_shared<vistelSnapshotBigdataV2>();
    r->sensorPosition = 1, r->previewLogicalId = 250, r->zoomRatio = 1.5f, r->FaceNum = 3;
    r->iso = 800, r->expo = -33, r->aecStabe = 5, r->snapshotId = 201, r->cameraScene = 9;
    for (int i = 0; i < 10; ++i) {
        setText(r->perf[i].algoName, ("a" + std::to_string(i)).c_str());
        r->perf[i].costTime = i < 9 ? 100 + i : -1;
    }
    r->hdrMode = 2, r->frameIndex = 4, r->frameCount = 6, r->masterAIMode = -7;
    r->shutterLag = 80, r->cieScene = 17, r->picWidth = 4000, r->picHeight = 3000;
    setText(r->jpegName, "IMG_1.jpg"), setText(r->gyroInfo, "g0,1"), setText(r->algoTag, "tagA");
    for (unsigned i = 0; i < 16; ++i) r->expoList[i] = i < 15 ? i : 4294967295u;
    setText(r->isoList, "100,200"), setText(r->sensorname, "main");
    r->betaDump = -2, r->awbColorTemp = 5100, r->captureBeginTemp = -5, r->captureEndTemp = 41;
    r->cameraOpenTemp = 39, r->previewDropIndex = 4294967295u, r->beautylevel = -3;
    r->aeCount[0] = 3, r->aeCount[1] = 4294967295u;
    return {r,
            r.get(),
            words(R"(sensorPosition:i=1 previewLogicalId:i=250 zoomRatio:f=1.5 FaceNum:i=3
            iso:i=800 expo:i=-33 aecStabe:i=5 awbColorTemp:i=5100 snapshotId:i=201
            cameraScene:i=9 PerfAlgoName:s[]="a0" PerfAlgoName:s[]="a1" PerfAlgoName:s[]="a2"
            PerfAlgoName:s[]="a3" PerfAlgoName:s[]="a4" PerfAlgoName:s[]="a5"
            PerfAlgoName:s[]="a6" PerfAlgoName:s[]="a7" PerfAlgoName:s[]="a8"
            PerfAlgoName:s[]="a9" PerfCostTime:i[]=100 PerfCostTime:i[]=101
            PerfCostTime:i[]=102 PerfCostTime:i[]=103 PerfCostTime:i[]=104 PerfCostTime:i[]=105
            PerfCostTime:i[]=106 PerfCostTime:i[]=107 PerfCostTime:i[]=108 PerfCostTime:i[]=-1
            hdrMode:i=2 frameIndex:i=4 frameCount:i=6 masterAIMode:i=-7 jpegName:s="IMG_1.jpg"
            shutterLag:i=80 captureBeginTemp:i=-5 captureEndTemp:i=41 cameraOpenTemp:i=39
            cieScene:i=17 picWidth:i=4000 picHeight:i=3000 gyroInfo:s="g0,1" algoTag:s="tagA"
            betaDump:i=-2 expoList:s="0,1,2,3,4,5,6,7,8,9,10,11,12,13,14,4294967295"
            isoList:s="100,200" previewDropIndex:i=4294967295 aeCount:s="3,4294967295"
            beautylevel:i=-3 sensorname:s="main")"),
            {}};
}

// The bodies shared by a warning and an error, and their fields in the order they are sent.
const char* const kAlgoTimeout = "name value1 shortName value2 value3";
const char* const kSnapshotTimeout = "name values[0] values[1] values[2] values[3] values[4]";
const char* const kOtherTimeout = "firstName secondName value1 shortName value2 value3";

struct VistelCase {
    VistelEvent kind;
    unsigned eventId;
    const char* fields;  // as sampleOf() takes them; null: snapshotV2()
    // Every line logged on success; none given: the handler's enter and exit lines.
    Strings lines = {};
};

// One reporter to a row, as in the reporters' own tables.
// clang-format off
const VistelCase kCases[] = {
        {kEventMemLeak, 918000000, "name secondName value1 value2 value3"},
        {kEventMemShortage, 918000001, "value1 value2 value3 firstName secondName"},
        {kEventMemLimit, 918001000, "name secondName value1 value2"},
        {kEventMemEfficiencyWarning, 918001001, "value1 shortName value2 name"},
        {kEventMemAllocFail, 918000002,
         "values[0] values[1] values[2] values[3] values[4] values[5] flag shortName name "
         "secondName"},
        {kEventPreviewBufferRefLeak, 918000020, "name value1 value2 value3"},
        {kEventCaptureBufferRefLeak, 918000021, "name value1 value2 flag value3 value4"},
        {kEventAlgoProcessTimeoutWarning, 918001020, kAlgoTimeout},
        {kEventAlgoProcessTimeoutError, 918000040, kAlgoTimeout},
        {kEventSnapshotTimeoutWarning, 918001040, kSnapshotTimeout},
        {kEventSnapshotTimeoutError, 918000060, kSnapshotTimeout},
        {kEventOtherTimeoutWarning, 918001041, kOtherTimeout},
        {kEventOtherTimeoutError, 918000061, kOtherTimeout},
        // Errors sent under the other time-out's warning id, on purpose.
        {kEventFlushProcessTimeoutError, 918001041, kOtherTimeout},
        {kEventStopProcessTimeoutError, 918001041, kOtherTimeout},
        {kEventSessionUninitProcessTimeoutError, 918001041, kOtherTimeout},
        {kEventConfigStreamProcessTimeoutError, 918001041, kOtherTimeout},
        // Each flag next to its value, then value 5, then the description.
        {kEventPostProcessTimeoutError, 918000040,
         "name flag1 value1 flag2 value2 flag3 value3 flag4 value4 value5 description",
         {"I sendEventPostProcessTimeoutError: enter sendEventPostProcessTimeoutError()",
          "I sendEventPostProcessTimeout: enter sendEventPostProcessTimeout()",
          "I sendEventPostProcessTimeout: exit sendEventPostProcessTimeout()",
          "I sendEventPostProcessTimeoutError: exit sendEventPostProcessTimeoutError()"}},
        // The time first and the scene last, not in record order.
        {kEventSnapshotBigdata, 918009000,
         "snapshotTime:i sensor_position:i faceNumber:i faceSize:s faceRect_left:s faceRect_top:s "
         "faceRect_right:s faceRect_bottom:s faceType:s iso:i exp:i overExpo:i underExpo:i "
         "aecStabe:i awbColorTemp:i isMFNR:i isBeauty:i isHDR:i beautyMode:i scene:i"},
        {kEventSnapshotAfBigdata, 918009001,
         "Distance:i SceneType:i FocusType:i MainFousTime:i AuxFousTime:i TeleFousTime:i "
         "FocusRectBorder:i RealSubInfCode:i FocusRectIndex:i face_flag:i night_face:i "
         "side_face:i back_light_face:i vcm_code:i cam_id:i phone_status:i tracking_af:i "
         "af_algo_type:i af_trigger_type:i night_flag:i flat_flag:i multi_depth_flag:i "
         "point_flag:i moon_flag:i repeated_defocus:i AmbientLight:i camera_scene:i fps:i "
         "zoom_ratio:f flash_mode:i appName:s",
         {"I SendEventSnapshotAfBigdata: exit SendEventSnapshotAfBigdata()"}},
        {kEventStatisticData, 918009002,
         "hdr_3 hdr_5 hdr_7 hsn TeleCap TeleVid TeleTofPre TeleTofVid",
         {"I sendEventStatisticData: exit sendEventStatisticData(), TeleCap = -5000, "
          "TeleVid = -6000, TeleTofPre = -7000, TeleTofVid = -8000",
          "I sendEventStatisticData: hdr_3 is -1000, hdr_5 is -2000, hdr_7 is -3000, "
          "hsn is -4000"}},
        {kEventHDRPData, 918009003, "hasface backlight point night lowlight",
         {"I sendEventHDRPData: exit sendEventHDRPData()",
          "I sendEventHDRPData: sendEventHDRPData(), hasface = -1000, backlight = -2000, "
          "point = -3000, night = -4000, lowlight = -5000"}},
        {kEventSnapshotBigdataV2, 918009005, nullptr,
         {"I SendEventSnapshotBigdataV2: exit SendEventSnapshotBigdataV2()"}},
};
// clang-format on

Sample sampleOf(const VistelCase& c) {
    return c.fields != nullptr ? sampleOf(c.kind, c.fields) : snapshotV2();
}

const char* handlerOf(VistelEvent kind) {
    return vistel_tools::kinds()[kind].handler;
}

Strings successLines(const VistelCase& c) {
    return c.lines.empty() ? enterExitLines(handlerOf(c.kind)) : c.lines;
}

using VistelReportersTest = ReporterTest;

// The wire table, one named test per kind: `--gtest_filter='*/MemLeak'` runs one alone.
void PrintTo(const VistelCase& c, std::ostream* out) {
    *out << handlerOf(c.kind);
}
class VistelWireTest : public ReporterTest, public testing::WithParamInterface<VistelCase> {};

// Id, parameters in order with their form and value, log lines. The same record again at once is
// dropped, with its line, by a kind the kind table says is rate-limited, and sent in full by the
// others.
TEST_P(VistelWireTest, SendsIdAndParametersInOrder) {
    const VistelCase& c = GetParam();
    const Sample sample = sampleOf(c);
    ASSERT_EQ(report(sample.record), 0);
    EXPECT_EQ(paramCalls(), sample.params);
    EXPECT_EQ(managerLines(mLog, false), successLines(c));

    mLog.clear();
    ASSERT_EQ(report(sample.record), 0);
    const bool limited = vistel_tools::kinds()[c.kind].limit.policy != nullptr;
    const auto sent = vistelhost::sentEvents();
    ASSERT_EQ(sent.size(), limited ? 1u : 2u);
    for (const vistelhost::SentEvent& event : sent) EXPECT_EQ(event.id, c.eventId);
    EXPECT_EQ(paramCalls().size(), sent.size() * sample.params.size());
    const std::string drop = std::string(handlerOf(c.kind)) + "() is limited, drop this event";
    EXPECT_EQ(mLog.withBody(drop).size(), limited ? 1u : 0u);
}

INSTANTIATE_TEST_SUITE_P(Kinds, VistelWireTest, testing::ValuesIn(kCases),
                         [](const testing::TestParamInfo<VistelCase>& info) {
                             return std::string(vistel_tools::kinds()[info.param.kind].name);
                         });

// Fills every text field of a record of `kind` to its last byte, each with bytes of its own, and
// returns what each holds, by path.
std::map<std::string, std::string> fillTextsToTheBrim(VistelEvent kind, void* body) {
    std::map<std::string, std::string> fields;
    vistel_tools::forEachTextField(vistel_tools::kinds()[kind].layout(), body,
                                   [&](const std::string& path, const char* field, size_t size) {
                                       char* bytes = const_cast<char*>(field);
                                       for (size_t i = 0; i < size; ++i)
                                           bytes[i] = 'A' + (fields.size() * 7 + i) % 26;
                                       fields[path] = std::string(field, size);
                                   });
    return fields;
}

// Every text the service received in `event`: named texts, text arrays, and the indexed
// parameters `textIndexes`, which the service read when the event was sent.
std::multiset<std::string> receivedTexts(const vistelhost::SentEvent& event,
                                         const std::vector<unsigned short>& textIndexes) {
    std::multiset<std::string> texts;
    for (const vistelhost::Param& p : event.params) {
        const bool indexedText =
                p.type == vistelhost::ParamType::kIndexed &&
                std::find(textIndexes.begin(), textIndexes.end(), p.index) != textIndexes.end();
        if (indexedText || p.type == vistelhost::ParamType::kString) texts.insert(p.stringValue);
        texts.insert(p.stringArray.begin(), p.stringArray.end());
    }
    return texts;
}

// The rate-limit key a record of `kind` gives, or none: the fields its limiter scope names, each
// read as text for at most its size; the memory shortage's integer, for at most the rest of the
// record.
Strings limitKeys(VistelEvent kind, void* body) {
    const vistel_tools::KindInfo& info = vistel_tools::kinds()[kind];
    const std::regex kWord(R"(\w+)");
    const std::string scope = info.limit.policy != nullptr ? info.limit.scope : "";
    Strings keys;
    for (std::sregex_iterator w(scope.begin(), scope.end(), kWord), end; w != end; ++w) {
        if (const Field* f = info.layout().find(w->str())) {
            const char* at = static_cast<const char*>(f->address(body));
            const size_t room = kind == kEventMemShortage
                                        ? info.layout().size - (at - static_cast<char*>(body))
                                        : f->size;
            keys.emplace_back(at, strnlen(at, room));
        }
    }
    return keys;
}

// Every text field filled to its last byte, without a terminator: the service receives each
// text, and the limiter keys on it, as exactly the field's bytes, never what follows (ASan also
// stops a read past the record). The memory shortage key, from an integer without a zero byte,
// runs on into the fields after it, up to the first zero byte. Every kind that sends texts is in
// kCases.
TEST_F(VistelReportersTest, UnterminatedTextsEndAtTheirField) {
    std::set<VistelEvent> covered;
    for (const VistelCase& c : kCases) {
        SCOPED_TRACE(handlerOf(c.kind));
        covered.insert(c.kind);
        VirtualClock::expireAllLimits();
        vistelhost::reset();
        mLog.clear();
        const Sample sample = sampleOf(c);
        const auto fields = fillTextsToTheBrim(c.kind, sample.body);
        vistelhost::readIndexedTexts(c.eventId, sample.textIndexes);
        ASSERT_EQ(report(sample.record), 0);
        const auto sent = vistelhost::sentEvents();
        ASSERT_EQ(sent.size(), 1u);
        const std::multiset<std::string> received = receivedTexts(sent[0], sample.textIndexes);
        for (const auto& [path, bytes] : fields) EXPECT_EQ(received.count(bytes), 1u) << path;

        // Dropped at once, with the key in the interval line.
        const Strings keys = limitKeys(c.kind, sample.body);
        if (keys.empty()) continue;
        ASSERT_EQ(report(sample.record), 0);
        std::string line = "limitBy" + std::to_string(keys.size()) + "Item()";
        for (const std::string& key : keys) line += " " + key;
        EXPECT_EQ(mLog.withBody(line + " timeIntervalInS = 0").size(), 1u) << line;
    }
    for (const vistel_tools::KindInfo& info : vistel_tools::kinds()) {
        bool hasText = false;
        vistel_tools::forEachText(info.layout(), info.make().body,
                                  [&](const std::string&, const char*) { hasText = true; });
        if (hasText && info.service != vistel_tools::Service::kNone) {
            EXPECT_EQ(covered.count(info.kind), 1u) << info.name;
        }
    }
}

// Step 0 is the creation, steps 1..n the parameters, step n+1 the send. Whichever the service
// refuses, the report yields -1, sends nothing, stops at that step, leaves no object behind and
// logs the refusal once (the primitive's line), without an exit line.
TEST_F(VistelReportersTest, RefusalAtAnyStepEndsTheReport) {
    for (const VistelCase& c : kCases) {
        Strings enterLines;
        for (const std::string& line : successLines(c)) {
            if (line.find(": enter ") != std::string::npos) enterLines.push_back(line);
        }
        const size_t paramCount = sampleOf(c).params.size();
        for (size_t step = 0; step <= paramCount + 1; ++step) {
            SCOPED_TRACE(std::string(handlerOf(c.kind)) + " step " + std::to_string(step));
            VirtualClock::expireAllLimits();
            vistelhost::reset();
            mLog.clear();
            if (step == 0) vistelhost::failNextCreate();
            if (step > 0 && step <= paramCount) vistelhost::failParamCall(static_cast<int>(step));
            if (step > paramCount) vistelhost::failNextSend();

            const Sample sample = sampleOf(c);
            EXPECT_EQ(report(sample.record), -1);
            EXPECT_TRUE(vistelhost::sentEvents().empty());
            EXPECT_EQ(vistelhost::liveObjects(), 0);
            EXPECT_EQ(vistelhost::invalidObjectCalls(), 0);
            const auto reached = sample.params.begin() + std::min(step, paramCount);
            EXPECT_EQ(paramCalls(), Strings(sample.params.begin(), reached));
            Strings lines = managerLines(mLog, false);
            ASSERT_FALSE(lines.empty());
            EXPECT_EQ(lines.back().substr(0, 2), "E ");
            lines.pop_back();
            EXPECT_EQ(lines, enterLines);
        }
    }
}

// The warning and the error of a time-out share a record type, not a limiter state. Each
// rate-limited kind allows one record an hour per name or pair of names, the allocation failure
// and the efficiency warning one for the whole kind.
TEST_F(VistelReportersTest, LimiterStatePerKindAndKey) {
    const char *a = R"({"name": "A"})", *b = R"({"name": "B"})";
    const char *pairAB = R"({"firstName": "A", "secondName": "B"})",
               *pairCB = R"({"firstName": "C", "secondName": "B"})",
               *pairAC = R"({"firstName": "A", "secondName": "C"})";
    const struct {
        VistelEvent kind;
        const char* keys;
        double afterS;  // since the previous step
        bool sent;
    } kSteps[] = {
            {kEventAlgoProcessTimeoutWarning, a, 0, true},
            {kEventAlgoProcessTimeoutError, a, 0, true},
            {kEventSnapshotTimeoutWarning, a, 0, true},
            {kEventSnapshotTimeoutError, a, 0, true},
            {kEventOtherTimeoutWarning, pairAB, 0, true},
            {kEventOtherTimeoutError, pairAB, 0, true},
            {kEventOtherTimeoutWarning, pairCB, 0, true},
            {kEventOtherTimeoutWarning, pairAC, 0, true},
            {kEventMemLeak, a, 0, true},
            {kEventMemLeak, b, 0, true},
            {kEventMemAllocFail, a, 0, true},
            {kEventMemAllocFail, b, 600, false},
            {kEventMemEfficiencyWarning, a, 0, true},
            {kEventMemEfficiencyWarning, b, 0, false},
            // Just below the hour, then exactly at it.
            {kEventMemLeak, a, 2999, false},
            {kEventMemLeak, a, 1, true},
            {kEventMemAllocFail, b, 0, true},
    };
    VirtualClock::expireAllLimits();
    for (size_t i = 0; i < std::size(kSteps); ++i) {
        SCOPED_TRACE("step " + std::to_string(i));
        VirtualClock::advanceSeconds(kSteps[i].afterS);
        vistelhost::reset();
        EXPECT_EQ(report(sampleOf(kSteps[i].kind, "", kSteps[i].keys).record), 0);
        EXPECT_EQ(vistelhost::sentEvents().size(), kSteps[i].sent ? 1u : 0u);
    }
}

// Camera threads reporting at once: one key passes once, an unlimited kind every time.
TEST_F(VistelReportersTest, ConcurrentReportsNeitherDropNorDouble) {
    constexpr int kThreads = 8, kPerThread = 25;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([] {
            for (int i = 0; i < kPerThread; ++i) {
                for (VistelEvent kind : {kEventMemLeak, kEventFlushProcessTimeoutError})
                    EXPECT_EQ(report(sampleOf(kind, "").record), 0);
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    std::map<unsigned, int> sent;
    for (const vistelhost::SentEvent& event : vistelhost::sentEvents()) ++sent[event.id];
    EXPECT_EQ(sent, (std::map<unsigned, int>{{918000000, 1}, {918001041, kThreads * kPerThread}}));
    EXPECT_EQ(mLog.withBody("sendEventMemLeak() is limited, drop this event").size(),
              static_cast<size_t>(kThreads * kPerThread - 1));
}

}  // namespace
}  // namespace vistel_test
