// Record values must reach the service identically on x86_64 and arm64, where three things
// differ or are easy to get wrong: plain char is unsigned on arm64 (a byte read through char
// widens to -1 on one target and 255 on the other), the packed snapshot V2 record puts 32-bit
// fields at odd addresses (read in place, never through a misaligned int pointer), and indexed
// values travel as a 64-bit long (64-bit record fields and text addresses must not be cut).
// The expected values are literals, so the same test proves both targets agree.

#include <VirtualClock.h>

#include <climits>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string>

#include "ReporterTest.h"

namespace vistel_test {

using vistel_harness::VirtualClock;

namespace {

using vistelhost::Param;
using vistelhost::ParamType;
using vistelhost::SentEvent;

// make_shared value-initialises, and the records have no user-provided constructors: every
// field starts at zero.
template <typename Record>
std::shared_ptr<Record> makeRecord() {
    return std::make_shared<Record>();
}

const Param* findParam(const SentEvent& event, ParamType type, unsigned short index,
                       const std::string& name) {
    for (const Param& param : event.params) {
        bool sameKey = type == ParamType::kIndexed ? param.index == index : param.name == name;
        if (param.type == type && sameKey) return &param;
    }
    return nullptr;
}

class RecordValuesTest : public ReporterTest {
  protected:
    // Reports the record and returns the one event the service received.
    SentEvent reportOne(std::shared_ptr<orv::VistelEventBase> record) {
        VirtualClock::expireAllLimits();
        vistelhost::reset();
        EXPECT_EQ(report(std::move(record)), 0);
        auto sent = vistelhost::sentEvents();
        EXPECT_EQ(sent.size(), 1u);
        return sent.empty() ? SentEvent{} : sent[0];
    }
};

TEST_F(RecordValuesTest, IndexedFieldsWidenToLong) {
    const struct {
        const char* what;
        std::function<std::shared_ptr<orv::VistelEventBase>()> make;
        unsigned eventId;
        unsigned short index;
        long expected;
    } kCases[] = {
            {"unsigned byte 0xff is 255, not -1",
             [] {
                 auto r = makeRecord<orv::vistelMemAllocFail>();
                 r->flag = 0xff;
                 return r;
             },
             918000002, 6, 255},
            {"signed 32-bit minimum is sign-extended",
             [] {
                 auto r = makeRecord<orv::vistelMemAllocFail>();
                 r->values[0] = INT32_MIN;
                 return r;
             },
             918000002, 0, -2147483648L},
            {"signed 32-bit -1 stays -1",
             [] {
                 auto r = makeRecord<orv::vistelMemShortage>();
                 r->value1 = -1;
                 return r;
             },
             918000001, 0, -1},
            {"capture leak flag 0x80 is 128",
             [] {
                 auto r = makeRecord<orv::vistelCaptureBufferRefLeak>();
                 std::strcpy(r->name, "CaptureNode");
                 r->flag = 0x80;
                 return r;
             },
             918000021, 3, 128},
            {"post-process flag 0xfe is 254",
             [] {
                 auto r = makeRecord<orv::vistelPostProcessTimeOut>();
                 r->flag1 = 0xfe;
                 return r;
             },
             918000040, 1, 254},
            {"64-bit value is not truncated",
             [] {
                 auto r = makeRecord<orv::vistelPostProcessTimeOut>();
                 r->value1 = 0x7edcba9876543210;
                 return r;
             },
             918000040, 2, 0x7edcba9876543210},
            {"negative 64-bit value is not truncated",
             [] {
                 auto r = makeRecord<orv::vistelPostProcessTimeOut>();
                 r->value1 = INT64_MIN + 1;
                 return r;
             },
             918000040, 2, LONG_MIN + 1},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.what);
        SentEvent event = reportOne(c.make());
        EXPECT_EQ(event.id, c.eventId);
        const Param* param = findParam(event, ParamType::kIndexed, c.index, "");
        ASSERT_NE(param, nullptr);
        EXPECT_EQ(param->intValue, c.expected);
    }
}

// A text goes by index as its address; with 64-bit pointers the service must get all of it.
TEST_F(RecordValuesTest, IndexedTextAddressKeepsAllBits) {
    auto record = makeRecord<orv::vistelMemLeak>();
    std::strcpy(record->name, "FeatureNode");
    SentEvent event = reportOne(record);
    const Param* name = findParam(event, ParamType::kIndexed, 0, "");
    ASSERT_NE(name, nullptr);
    EXPECT_EQ(name->intValue, reinterpret_cast<long>(record->name));
}

// Every multi-byte field of the packed record below sits at an odd offset, and each holds a
// value whose top bit or sign shows a wrong width or a wrong extension.
TEST_F(RecordValuesTest, PackedSnapshotV2FieldsReadInPlace) {
    auto record = makeRecord<orv::vistelSnapshotBigdataV2>();
    record->sensorPosition = 0xff;
    record->previewLogicalId = 0x80;
    record->zoomRatio = 1.5f;
    record->FaceNum = 200;
    record->iso = -2;
    record->expo = 0x01020304;
    record->aecStabe = INT32_MIN;
    for (int i = 0; i < 10; ++i) {
        std::string name = "algo" + std::to_string(i);
        std::strcpy(record->perf[i].algoName, name.c_str());
        record->perf[i].costTime = -1000 * (i + 1);
    }
    record->previewDropIndex = 0xffffffffu;
    record->aeCount[0] = 0xffffffffu;
    record->aeCount[1] = 0x80000000u;
    for (unsigned i = 0; i < 16; ++i) record->expoList[i] = 0xfffffff0u + i;
    // Bytes with the top bit set, as the HAL's UTF-8 texts have them.
    std::strcpy(record->isoList,
                "\xe2\x89\xa5"
                "100,200");
    std::strcpy(record->jpegName, "IMG_\xc3\xa9.jpg");

    SentEvent event = reportOne(record);
    EXPECT_EQ(event.id, 918009005u);

    const struct {
        const char* name;
        long expected;
    } kInts[] = {
            {"sensorPosition", 255},
            {"previewLogicalId", 128},
            {"FaceNum", 200},
            {"iso", -2},
            {"expo", 0x01020304},
            {"aecStabe", -2147483648L},
            {"previewDropIndex", 4294967295L},
    };
    for (const auto& c : kInts) {
        SCOPED_TRACE(c.name);
        const Param* param = findParam(event, ParamType::kInt, 0, c.name);
        ASSERT_NE(param, nullptr);
        EXPECT_EQ(param->intValue, c.expected);
    }

    const Param* zoom = findParam(event, ParamType::kFloat, 0, "zoomRatio");
    ASSERT_NE(zoom, nullptr);
    EXPECT_EQ(zoom->floatValue, 1.5f);

    const Param* names = findParam(event, ParamType::kStringArray, 0, "PerfAlgoName");
    const Param* costs = findParam(event, ParamType::kIntArray, 0, "PerfCostTime");
    ASSERT_NE(names, nullptr);
    ASSERT_NE(costs, nullptr);
    ASSERT_EQ(names->stringArray.size(), 10u);
    ASSERT_EQ(costs->intArray.size(), 10u);
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(names->stringArray[i], "algo" + std::to_string(i));
        EXPECT_EQ(costs->intArray[i], -1000L * (i + 1));
    }

    const struct {
        const char* name;
        const char* expected;
    } kTexts[] = {
            {"aeCount", "4294967295,2147483648"},
            {"expoList",
             "4294967280,4294967281,4294967282,4294967283,4294967284,4294967285,4294967286,"
             "4294967287,4294967288,4294967289,4294967290,4294967291,4294967292,4294967293,"
             "4294967294,4294967295"},
            {"isoList",
             "\xe2\x89\xa5"
             "100,200"},
            {"jpegName", "IMG_\xc3\xa9.jpg"},
    };
    for (const auto& c : kTexts) {
        SCOPED_TRACE(c.name);
        const Param* param = findParam(event, ParamType::kString, 0, c.name);
        ASSERT_NE(param, nullptr);
        EXPECT_EQ(param->stringValue, c.expected);
    }
}

// The shortage limiter keys on the raw bytes of the first integer: a byte with the top bit set
// is a key like any other, whatever the signedness of char.
TEST_F(RecordValuesTest, ShortageKeyFromHighBytes) {
    const struct {
        int32_t value1;
        bool sent;
    } kSteps[] = {
            {0x000000c1, true},   // key "\xc1"
            {0x00000041, true},   // key "A": another key
            {0x000000c1, false},  // "\xc1" again within the hour
            {0x0000c1c1, true},   // key "\xc1\xc1"
            {-1, true},           // four 0xff bytes, then whatever follows in the record
    };
    VirtualClock::expireAllLimits();
    for (const auto& step : kSteps) {
        SCOPED_TRACE(step.value1);
        vistelhost::reset();
        auto record = makeRecord<orv::vistelMemShortage>();
        record->value1 = step.value1;
        EXPECT_EQ(report(record), 0);
        EXPECT_EQ(vistelhost::sentEvents().size(), step.sent ? 1u : 0u);
        VirtualClock::advanceSeconds(1);
    }
}

}  // namespace
}  // namespace vistel_test
