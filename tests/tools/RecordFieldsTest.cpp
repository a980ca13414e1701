// The field tables and the kind table against the public header they describe.
#include <gtest/gtest.h>

#include <cctype>
#include <cstring>
#include <functional>
#include <map>

#include "KindRegistry.h"
#include "RecordJson.h"

namespace vistel_tools {
namespace {

size_t roundUp(size_t value, size_t align) {
    return (value + align - 1) / align * align;
}

// Walks a table over a real object: the members must follow each other in declaration order
// with nothing between them but padding, and end where the structure ends. A member missing
// from the table, listed twice, out of order or belonging to another structure breaks this.
void checkCoversEveryMember(const StructLayout& layout, void* object, size_t start) {
    SCOPED_TRACE(layout.name);
    size_t end = start;
    for (const Field& field : layout) {
        SCOPED_TRACE(field.name);
        void* member = field.address(object);
        const size_t offset = static_cast<char*>(member) - static_cast<char*>(object);
        ASSERT_GE(offset, end) << "overlaps the member before it";
        EXPECT_LT(offset - end, field.align) << "a member is missing before it";
        end = offset + field.size;

        // Nested structures, through one element of each container.
        const Field* holder = &field;
        while (holder->type == FieldType::kVector || holder->type == FieldType::kMap) {
            member = holder->ops->add(member, "key");
            holder = holder->element();
        }
        if (holder->type == FieldType::kStruct) {
            checkCoversEveryMember(holder->layout(), member, 0);
        }
    }
    EXPECT_EQ(roundUp(end, layout.align), layout.size) << "members are missing at the end";
}

TEST(RecordFieldsTest, TablesCoverEveryMemberInOrder) {
    for (const KindInfo& kind : kinds()) {
        SCOPED_TRACE(kind.name);
        RecordInstance instance = kind.make();
        // Every record's own members follow the vtable pointer of VistelEventBase.
        ASSERT_EQ(instance.body, static_cast<void*>(instance.record.get()));
        checkCoversEveryMember(kind.layout(), instance.body, sizeof(orv::VistelEventBase));
    }
}

TEST(KindRegistryTest, RowsMatchTheirKinds) {
    std::map<std::string, uint32_t> kindByLowerName;
    for (uint32_t i = 0; i < kinds().size(); ++i) {
        const KindInfo& kind = kinds()[i];
        SCOPED_TRACE(kind.name);
        EXPECT_EQ(kind.kind, i);
        EXPECT_EQ(kind.make().record->GetEventType(), kind.kind) << "wrong record type";
        EXPECT_EQ(findKind(std::to_string(i)), &kind);
        for (const char* name : {kind.name, kind.handler}) {
            EXPECT_EQ(findKind(name), &kind) << name;
            std::string lower = name;
            for (char& c : lower)
                c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
            // A name and a handler may differ only in case when they are the same kind.
            EXPECT_EQ(kindByLowerName.emplace(lower, i).first->second, i)
                    << name << " names two kinds";
        }
    }
    EXPECT_EQ(findKind("32"), nullptr);
    EXPECT_EQ(findKind("kEventMemLeak"), nullptr);
    EXPECT_STREQ(kindNameIgnoringCase("framedroperror"), "FrameDropError");
}

// A scenario step's own keys must never hide a record field.
TEST(RecordFieldsTest, NoFieldIsNamedLikeAStepKey) {
    std::function<void(const StructLayout&)> check = [&](const StructLayout& layout) {
        for (const Field& field : layout) {
            for (const char* key : {"at", "kind", "note"}) EXPECT_STRNE(field.name, key);
            const Field* holder = &field;
            while (holder->element != nullptr) holder = holder->element();
            if (holder->type == FieldType::kStruct) check(holder->layout());
        }
    };
    for (const KindInfo& kind : kinds()) check(kind.layout());
}

// Values written by field name land in the member of that name, with its type, as the reporters
// read them; the packed record's unaligned members included.
TEST(RecordFieldsTest, FillWritesTheNamedMembers) {
    const struct {
        const char* kind;
        const char* values;
        std::function<void(orv::VistelEventBase*)> check;
    } kCases[] = {
            {"SnapshotBigdataV2",
             R"({"zoomRatio": 2.5, "iso": -7, "perf": [{}, {"algoName": "Beauty", "costTime": 95}],
                 "expoList": [1, 2, 3], "aeCount": [3, 4294967295],
                 "previewDropIndex": 4294967295, "sensorname": "imx766"})",
             [](orv::VistelEventBase* base) {
                 auto* r = static_cast<orv::vistelSnapshotBigdataV2*>(base);
                 EXPECT_EQ(r->zoomRatio, 2.5f);
                 EXPECT_EQ(r->iso, -7);
                 EXPECT_STREQ(r->perf[1].algoName, "Beauty");
                 EXPECT_EQ(r->perf[1].costTime, 95);
                 EXPECT_EQ(r->perf[2].costTime, 0);
                 EXPECT_EQ(r->expoList[2], 3u);
                 EXPECT_EQ(r->expoList[3], 0u);
                 EXPECT_EQ(r->aeCount[1], 4294967295u);
                 EXPECT_EQ(r->previewDropIndex, 4294967295u);
                 EXPECT_STREQ(r->sensorname, "imx766");
             }},
            {"BootTimeout",
             R"({"bootNodes": [{"stageCosts": {"Open": [{"name": "power", "cost": 2.25}],
                                               "Config": []},
                                "actualCost": 18446744073709551615, "appName": "cam"},
                               {"thermalLevel": -3}]})",
             [](orv::VistelEventBase* base) {
                 auto& nodes = static_cast<orv::vistelBootTimeout*>(base)->bootNodes;
                 ASSERT_EQ(nodes.size(), 2u);
                 ASSERT_EQ(nodes[0].stageCosts.size(), 2u);
                 ASSERT_EQ(nodes[0].stageCosts["Open"].size(), 1u);
                 EXPECT_EQ(nodes[0].stageCosts["Open"][0].name, "power");
                 EXPECT_EQ(nodes[0].stageCosts["Open"][0].cost, 2.25f);
                 EXPECT_TRUE(nodes[0].stageCosts["Config"].empty());
                 EXPECT_EQ(nodes[0].actualCost, UINT64_MAX);
                 EXPECT_EQ(nodes[0].appName, "cam");
                 EXPECT_EQ(nodes[1].thermalLevel, -3);
             }},
            {"MemoryAllocTimeout",
             R"({"allocBuffers": [{"bufName": "Raw", "processes": [{"pid": 1}, {"pid": 2}]},
                                  {"timeStamp": 7}], "eventTime": "10:00"})",
             [](orv::VistelEventBase* base) {
                 auto* r = static_cast<orv::vistelMemAllocTimeout*>(base);
                 ASSERT_EQ(r->allocBuffers.size(), 2u);
                 EXPECT_EQ(r->allocBuffers[0].bufName, "Raw");
                 ASSERT_EQ(r->allocBuffers[0].processes.size(), 2u);
                 EXPECT_EQ(r->allocBuffers[0].processes[1].pid, 2);
                 EXPECT_TRUE(r->allocBuffers[1].processes.empty());
                 EXPECT_EQ(r->allocBuffers[1].timeStamp, 7u);
                 EXPECT_EQ(r->eventTime, "10:00");
             }},
            {"StatisticData", R"({"hdr_3": -32768, "TeleTofVid": 32767})",
             [](orv::VistelEventBase* base) {
                 auto* r = static_cast<orv::vistelStatisticData*>(base);
                 EXPECT_EQ(r->hdr_3, -32768);
                 EXPECT_EQ(r->TeleTofVid, 32767);
             }},
            {"PostProcessTimeoutError", R"({"value1": -9007199254740993, "flag4": 255})",
             [](orv::VistelEventBase* base) {
                 auto* r = static_cast<orv::vistelPostProcessTimeOut*>(base);
                 EXPECT_EQ(r->value1, -9007199254740993);
                 EXPECT_EQ(r->flag4, 255);
             }},
            {"MemLeak",
             R"({"name": "123456789012345678901234567890123456789012345678901234567890123"})",
             [](orv::VistelEventBase* base) {
                 auto* r = static_cast<orv::vistelMemLeak*>(base);
                 EXPECT_EQ(std::strlen(r->name), 63u);
                 EXPECT_EQ(r->secondName[0], '\0');
             }},
            {"DailyTempRise", R"({"costEntries": ["a", "b"]})",
             [](orv::VistelEventBase* base) {
                 auto* r = static_cast<orv::vistelDailyTempRise*>(base);
                 EXPECT_EQ(r->costEntries, (std::vector<std::string>{"a", "b"}));
             }},
            {"VideoPerfData", R"({"SceneMode": 4, "perfDetail": [{"Fps": 29.97}]})",
             [](orv::VistelEventBase* base) {
                 auto* r = static_cast<orv::vistelVideoPerfData*>(base);
                 EXPECT_EQ(r->SceneMode, 4);
                 ASSERT_EQ(r->perfDetail.size(), 1u);
                 EXPECT_EQ(r->perfDetail[0].Fps, 29.97f);
             }},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.kind);
        const KindInfo* kind = findKind(c.kind);
        ASSERT_NE(kind, nullptr);
        RecordInstance instance = kind->make();
        const auto values = nlohmann::ordered_json::parse(c.values);
        ASSERT_EQ(fillStruct(kind->layout(), values, instance.body), "");
        c.check(instance.record.get());
    }
}

TEST(RecordFieldsTest, TextFieldsAreFoundWithTheirPaths) {
    const StructLayout& layout = layoutOf<orv::vistelSnapshotBigdataV2>();
    auto record = std::make_shared<orv::vistelSnapshotBigdataV2>();
    ASSERT_EQ(fillStruct(layout,
                         nlohmann::ordered_json::parse(R"({"perf": [{}, {"algoName": "HDR"}]})"),
                         record.get()),
              "");
    std::map<std::string, const char*> texts;
    forEachText(layout, record.get(),
                [&](const std::string& path, const char* text) { texts[path] = text; });
    EXPECT_EQ(texts.size(), 10u + 5u);  // ten perf names, five texts of the record itself
    EXPECT_EQ(static_cast<const void*>(texts["perf[1].algoName"]),
              static_cast<const void*>(record->perf[1].algoName));
    EXPECT_STREQ(texts["perf[1].algoName"], "HDR");
    EXPECT_EQ(static_cast<const void*>(texts["sensorname"]),
              static_cast<const void*>(record->sensorname));
}

}  // namespace
}  // namespace vistel_tools
