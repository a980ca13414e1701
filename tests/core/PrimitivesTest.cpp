#include "ReporterTest.h"

namespace vistel_test {
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
    // Sends what is left so nothing leaks; returns the send's result.
    int finish(void*& eventObj) { return manager()->sendEvent(eventObj); }
};

TEST_F(PrimitivesTest, CreateFailureLeavesNoObject) {
    vistelhost::failNextCreate();
    void* eventObj = reinterpret_cast<void*>(0x1);
    EXPECT_EQ(manager()->createEvent(kEventId, eventObj), -1);
    EXPECT_EQ(eventObj, nullptr);
    EXPECT_TRUE(mLog.has(
            ANDROID_LOG_ERROR, "createEvent",
            "createEvent() error: LINK_Vistel_Create_EventObj() return null, eventId(918000000)"));
}

TEST_F(PrimitivesTest, IndexedParamRefusedDestroysObject) {
    void* eventObj = create();
    vistelhost::failParamCall(1);
    EXPECT_EQ(manager()->setEventParam(eventObj, 65535, -1), -1);
    EXPECT_EQ(eventObj, nullptr);
    EXPECT_EQ(vistelhost::liveObjects(), 0);
    EXPECT_TRUE(mLog.has(ANDROID_LOG_ERROR, "setEventParam",
                         "setEventParam() error: LINK_Vistel_Set_Param() failed ret = -5, "
                         "paramIndex(65535) value(-1)"));
    // A cleared handle is refused, not passed on.
    EXPECT_EQ(manager()->setEventParam(eventObj, 0, 1), -1);
    EXPECT_TRUE(mLog.has(ANDROID_LOG_ERROR, "setEventParam",
                         "setEventParam() error: eventObj is NULL"));
    EXPECT_EQ(manager()->sendEvent(eventObj), -1);
    EXPECT_TRUE(mLog.has(ANDROID_LOG_ERROR, "sendEvent", "sendEvent() error: eventObj is NULL"));
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
        mLog.clear();
        void* eventObj = create();
        EXPECT_EQ(manager()->SetEventParam(eventObj, "i", 7L, c.type), c.intOk ? 0 : -1);
        EXPECT_EQ(manager()->SetEventParam(eventObj, "f", 1.5f, c.type), c.floatOk ? 0 : -1);
        EXPECT_EQ(manager()->SetEventParam(eventObj, "s", "text", c.type), c.textOk ? 0 : -1);
        // A refused type is the caller's mistake: silent, and the object stays usable.
        ASSERT_NE(eventObj, nullptr);
        EXPECT_TRUE(mLog.lines().empty());
        ASSERT_EQ(finish(eventObj), 0);
        auto sent = vistelhost::sentEvents();
        ASSERT_EQ(sent.size(), 1u);
        size_t accepted = c.intOk + c.floatOk + c.textOk;
        ASSERT_EQ(sent[0].params.size(), accepted);
        if (accepted == 1) {
            EXPECT_EQ(sent[0].params[0].type, c.stored);
        }
    }
}

TEST_F(PrimitivesTest, NamedParamNullNameKeepsObject) {
    void* eventObj = create();
    EXPECT_EQ(manager()->SetEventParam(eventObj, nullptr, 1L, orv::TYPE_INT), -1);
    EXPECT_NE(eventObj, nullptr);
    EXPECT_EQ(vistelhost::liveObjects(), 1);
    EXPECT_TRUE(mLog.has(ANDROID_LOG_ERROR, "SetEventParam",
                         "SetEventParam() error: input ptr is NULL"));
    EXPECT_EQ(finish(eventObj), 0);
}

TEST_F(PrimitivesTest, NamedParamRefusedDestroysObject) {
    void* eventObj = create();
    vistelhost::failParamCall(1);
    EXPECT_EQ(manager()->SetEventParam(eventObj, "iso", 100L, orv::TYPE_INT), -1);
    EXPECT_EQ(eventObj, nullptr);
    EXPECT_EQ(vistelhost::liveObjects(), 0);
    EXPECT_TRUE(mLog.has(ANDROID_LOG_ERROR, "SetEventParam",
                         "SetEventParam() error: LINK_Vistel_Set_Param() failed ret = -5, "
                         "param(iso)"));
}

TEST_F(PrimitivesTest, SendDestroysObjectEitherWay) {
    for (bool refuse : {false, true}) {
        SCOPED_TRACE(refuse);
        vistelhost::reset();
        mLog.clear();
        void* eventObj = create();
        ASSERT_EQ(manager()->setEventParam(eventObj, 0, 42), 0);
        if (refuse) vistelhost::failNextSend();
        EXPECT_EQ(manager()->sendEvent(eventObj), refuse ? -1 : 0);
        EXPECT_EQ(eventObj, nullptr);
        EXPECT_EQ(vistelhost::liveObjects(), 0);
        EXPECT_EQ(vistelhost::sentEvents().size(), refuse ? 0u : 1u);
        EXPECT_EQ(mLog.has(ANDROID_LOG_ERROR, "sendEvent",
                           "sendEvent() error: LINK_Vistel_Send_Event() failed"),
                  refuse);
    }
}

TEST(Array2StringTest, JoinsWithSingleCommas) {
    unsigned zeros[16] = {};
    unsigned counting[16];
    for (unsigned i = 0; i < 16; ++i) counting[i] = i;
    unsigned pair[2] = {3, 4294967295u};
    unsigned small[2] = {7, 8};
    auto* m = orv::VistelManager::GetInstance();
    EXPECT_EQ(m->Array2String(zeros), "0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0");
    EXPECT_EQ(m->Array2String(counting), "0,1,2,3,4,5,6,7,8,9,10,11,12,13,14,15");
    EXPECT_EQ(m->Array2String(pair), "3,4294967295");
    EXPECT_EQ(m->Array2String(small), "7,8");
}

}  // namespace
}  // namespace vistel_test
