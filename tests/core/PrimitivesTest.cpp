#include "ReporterTest.h"

namespace vistel_test {

using vistel_harness::LogLine;

namespace {

using orv::DATATYPE;
using vistelhost::ParamType;

constexpr unsigned kEventId = 918000000;

class PrimitivesTest : public ReporterTest {
  protected:
    void* create() {
        void* eventObj = nullptr;
        EXPECT_EQ(manager()->createEvent(kEventId, eventObj), 0);
        EXPECT_NE(eventObj, nullptr);
        return eventObj;
    }

    // A refusal answers -1 and logs one error under the refusing function's name. What the
    // service refused is destroyed and its handle cleared, so that a reporter can simply return;
    // after the caller's own mistake the object stays the caller's, and is sent here.
    void expectRefusal(int result, void*& eventObj, bool kept, const std::string& body) {
        EXPECT_EQ(result, -1);
        EXPECT_EQ(vistelhost::liveObjects(), kept ? 1 : 0);
        EXPECT_EQ(eventObj != nullptr, kept);
        std::vector<LogLine> lines = mLog.lines();
        ASSERT_EQ(lines.size(), 1u);
        EXPECT_EQ(lines[0].priority, ANDROID_LOG_ERROR);
        EXPECT_EQ(lines[0].function, body.substr(0, body.find("()")));
        EXPECT_EQ(lines[0].body, body);
        mLog.clear();
        if (kept) {
            EXPECT_EQ(manager()->sendEvent(eventObj), 0);
        }
        EXPECT_EQ(vistelhost::sentEvents().size(), kept ? 1u : 0u) << "a refused event was sent";
        vistelhost::reset();
    }
};

TEST_F(PrimitivesTest, RefusalsAnswerMinusOneAndLogWhy) {
    vistelhost::failNextCreate();
    void* eventObj = reinterpret_cast<void*>(0x1);
    expectRefusal(manager()->createEvent(kEventId, eventObj), eventObj, false,
                  "createEvent() error: LINK_Vistel_Create_EventObj() return null, "
                  "eventId(918000000)");
    eventObj = create();
    vistelhost::failParamCall(1);
    expectRefusal(manager()->setEventParam(eventObj, 65535, -1), eventObj, false,
                  "setEventParam() error: LINK_Vistel_Set_Param() failed ret = -5, "
                  "paramIndex(65535) value(-1)");
    expectRefusal(manager()->setEventParam(eventObj, 0, 1), eventObj, false,
                  "setEventParam() error: eventObj is NULL");
    expectRefusal(manager()->sendEvent(eventObj), eventObj, false,
                  "sendEvent() error: eventObj is NULL");
    eventObj = create();
    vistelhost::failParamCall(1);
    expectRefusal(manager()->SetEventParam(eventObj, "iso", 100L, orv::TYPE_INT), eventObj, false,
                  "SetEventParam() error: LINK_Vistel_Set_Param() failed ret = -5, param(iso)");
    eventObj = create();
    vistelhost::failNextSend();
    expectRefusal(manager()->sendEvent(eventObj), eventObj, false,
                  "sendEvent() error: LINK_Vistel_Send_Event() failed");
    eventObj = create();
    expectRefusal(manager()->SetEventParam(eventObj, nullptr, 1L, orv::TYPE_INT), eventObj, true,
                  "SetEventParam() error: input ptr is NULL");
}

// Each overload takes its single-value type and its array type, and nothing else.
TEST_F(PrimitivesTest, NamedParamTypes) {
    const struct {
        DATATYPE type;
        bool intOk, floatOk, textOk;
        ParamType stored;
    } kCases[] = {
            {orv::TYPE_INT, true, false, false, ParamType::kInt},
            {orv::TYPE_INT_ARRAY, true, false, false, ParamType::kIntArray},
            {orv::TYPE_FLOAT, false, true, false, ParamType::kFloat},
            {orv::TYPE_FLOAT_ARRAY, false, true, false, ParamType::kFloatArray},
            {orv::TYPE_STRING, false, false, true, ParamType::kString},
            {orv::TYPE_STRING_ARRAY, false, false, true, ParamType::kStringArray},
            {static_cast<DATATYPE>(0), false, false, false, ParamType::kIndexed},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(static_cast<int>(c.type));
        vistelhost::reset();
        void* eventObj = create();
        EXPECT_EQ(manager()->SetEventParam(eventObj, "i", 7L, c.type), c.intOk ? 0 : -1);
        EXPECT_EQ(manager()->SetEventParam(eventObj, "f", 1.5f, c.type), c.floatOk ? 0 : -1);
        EXPECT_EQ(manager()->SetEventParam(eventObj, "s", "text", c.type), c.textOk ? 0 : -1);
        // A refused type is the caller's mistake: silent, and the object stays usable.
        EXPECT_TRUE(mLog.lines().empty());
        ASSERT_EQ(manager()->sendEvent(eventObj), 0);
        EXPECT_EQ(eventObj, nullptr) << "a sent event is destroyed";
        auto sent = vistelhost::sentEvents();
        ASSERT_EQ(sent.size(), 1u);
        ASSERT_EQ(sent[0].params.size(), size_t(c.intOk + c.floatOk + c.textOk));
        if (!sent[0].params.empty()) {
            EXPECT_EQ(sent[0].params[0].type, c.stored);
        }
    }
}

}  // namespace
}  // namespace vistel_test
