// The field tables and the kind table against the public header they describe, and the text a
// message shows of the input. The golden replays fill every kind of record from JSON; these cases
// cover what they do not reach.
#include <gtest/gtest.h>

#include <cstring>
#include <map>

#include "KindRegistry.h"
#include "RecordJson.h"
#include "Scenario.h"

namespace vistel_tools {
namespace {

// Walks a table over a real object: the members must follow each other in declaration order
// with nothing between them but padding, and end where the structure ends. A member missing
// from the table, listed twice, out of order or belonging to another structure breaks this.
// No field may be named like a scenario step's own keys, which would hide it.
void checkCoversEveryMember(const StructLayout& layout, void* object, size_t start) {
    SCOPED_TRACE(layout.name);
    size_t end = start;
    for (const Field& field : layout) {
        SCOPED_TRACE(field.name);
        for (const char* key : vistel_replay::kStepKeys) EXPECT_STRNE(field.name, key);
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
        if (holder->type == FieldType::kStruct) checkCoversEveryMember(holder->layout(), member, 0);
    }
    EXPECT_EQ((end + layout.align - 1) / layout.align * layout.align, layout.size)
            << "members are missing at the end";
}

TEST(RecordFieldsTest, TablesCoverEveryMemberInOrder) {
    for (const KindInfo& kind : kinds()) {
        RecordInstance instance = kind.make();
        // Every record's own members follow the vtable pointer of VistelEventBase.
        ASSERT_EQ(instance.body, static_cast<void*>(instance.record.get())) << kind.name;
        checkCoversEveryMember(kind.layout(), instance.body, sizeof(orv::VistelEventBase));
    }
}

TEST(KindRegistryTest, RowsMatchTheirKindsAndAreFoundByNumberNameAndHandler) {
    for (uint32_t i = 0; i < kinds().size(); ++i) {
        const KindInfo& kind = kinds()[i];
        EXPECT_EQ(kind.kind, i) << kind.name;
        for (const std::string& name :
             {std::to_string(i), std::string(kind.name), std::string(kind.handler)}) {
            EXPECT_EQ(findKind(name), &kind) << name;
        }
    }
}

// A record of type R filled from `values`, which must be accepted.
template <typename R>
std::unique_ptr<R> filled(const char* values) {
    auto record = std::make_unique<R>();
    EXPECT_EQ(fillStruct(layoutOf<R>(), nlohmann::ordered_json::parse(values), record.get()), "");
    return record;
}

TEST(RecordFieldsTest, FillKeepsFullWidthsAndPaths) {
    auto timeout = filled<orv::vistelPostProcessTimeOut>(R"({"value1": -9007199254740993})");
    EXPECT_EQ(timeout->value1, -9007199254740993) << "read through a double";
    auto leak = filled<orv::vistelMemLeak>(
            R"({"name": "123456789012345678901234567890123456789012345678901234567890123"})");
    EXPECT_EQ(std::strlen(leak->name), 63u) << "a full char[64] and its NUL";
    EXPECT_EQ(leak->secondName[0], '\0');

    // Texts inside the packed record's fixed array of structures are found by their paths.
    auto snapshot = filled<orv::vistelSnapshotBigdataV2>(R"({"perf": [{}, {"algoName": "HDR"}]})");
    std::map<std::string, const void*> texts;
    forEachText(layoutOf<orv::vistelSnapshotBigdataV2>(), snapshot.get(),
                [&](const std::string& path, const char* text) { texts[path] = text; });
    EXPECT_EQ(texts.size(), 10u + 5u);  // ten perf names, five texts of the record itself
    EXPECT_EQ(texts["perf[1].algoName"], snapshot->perf[1].algoName);
    EXPECT_STREQ(static_cast<const char*>(texts["perf[1].algoName"]), "HDR");
    EXPECT_EQ(texts["sensorname"], snapshot->sensorname);
}

// What a message shows of the input: never a byte a terminal would act on or cannot show, never
// half a character, however the text is cut.
TEST(RecordJsonTest, ShownTextIsPrintableAndCutBetweenCharacters) {
    const struct {
        std::string text;
        size_t width;
        std::string shown;
    } kCases[] = {
            {"MemLeak", 10, "MemLeak"},
            {"Mem\xff\x1b[2J", 20, "Mem\\xFF\\x1B[2J"},
            {"a\tb\x7f", 20, "a\\x09b\\x7F"},
            // Overlong, surrogate and beyond U+10FFFF forms, and a sequence cut short.
            {"\xc0\xaf \xed\xa0\x80 \xf4\x90\x80\x80 \xe2\x82", 60,
             "\\xC0\\xAF \\xED\\xA0\\x80 \\xF4\\x90\\x80\\x80 \\xE2\\x82"},
            {"\u00e9\u20ac\U0001F4F7", 20, "\u00e9\u20ac\U0001F4F7"},
            // Cut: 7 bytes and "..." would end inside the third euro sign.
            {"\u20ac\u20ac\u20ac\u20ac", 10, "\u20ac\u20ac..."},
            {"abcdefghijkl", 10, "abcdefg..."},
            {"abcdef", 3, "abc"},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.text);
        EXPECT_EQ(cutText(c.text, c.width), c.shown);
    }
}

}  // namespace
}  // namespace vistel_tools
