// The capture reporters that fill a Vistel event: snapshot (13), autofocus (14), statistic (15),
// HDR decision (16) and snapshot V2 (17).
#include <cstring>
#include <iterator>
#include <regex>
#include <sstream>
#include <tuple>

#include "ReporterTest.h"

namespace vistel_test {
namespace {

using Record = std::shared_ptr<orv::VistelEventBase>;

// The set/fill calls the service received, in order, as "name:form=value" (form i, f or s, with
// "[]" for one more array element) or "#index=value".
std::vector<std::string> paramCalls() {
    static const std::regex kCall(R"(^vistel_(\w+)\(\d+, (\d+|"[^"]*"), (.*)\) = -?\d+$)");
    static const std::map<std::string, std::string> kForms = {
            {"set_param_integer_v2", ":i"},        {"set_param_float_v2", ":f"},
            {"set_param_string_v2", ":s"},         {"fill_array_param_integer_v2", ":i[]"},
            {"fill_array_param_float_v2", ":f[]"}, {"fill_array_param_string_v2", ":s[]"},
    };
    std::vector<std::string> tokens;
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

std::vector<std::string> words(const char* text) {
    std::istringstream in(text);
    return {std::istream_iterator<std::string>(in), std::istream_iterator<std::string>()};
}

template <typename R>
Record blank() {
    return std::make_shared<R>();
}

// Records whose every field holds its own value, negative or top-bit-set where widening shows.
Record snapshot() {
    auto r = std::make_shared<orv::vistelSnapshotBigdata>();
    std::tie(r->sensor_position, r->faceNumber, r->iso, r->exp, r->overExpo, r->underExpo,
             r->aecStabe, r->awbColorTemp) = std::make_tuple(-1, 2, 3200, -33, 11, 12, 13, 5000);
    std::tie(r->isMFNR, r->scene, r->snapshotTime, r->isBeauty, r->isHDR, r->beautyMode) =
            std::make_tuple(255, 200, 1700000000123, 21, 22, 23);
    std::strcpy(r->faceSize, "10x12");
    std::strcpy(r->faceRect_left, "1,2");
    std::strcpy(r->faceRect_top, "3,4");
    std::strcpy(r->faceRect_right, "5,6");
    std::strcpy(r->faceRect_bottom, "7,8");
    std::strcpy(r->faceType, "adult");
    return r;
}

Record autofocus() {
    auto r = std::make_shared<orv::vistelSnapshotAfBigdata>();
    std::tie(r->Distance, r->SceneType, r->FocusType, r->MainFousTime, r->AuxFousTime,
             r->TeleFousTime, r->FocusRectBorder, r->RealSubInfCode, r->FocusRectIndex,
             r->face_flag, r->night_face, r->side_face, r->back_light_face, r->vcm_code) =
            std::make_tuple(-1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14);
    std::tie(r->cam_id, r->phone_status, r->tracking_af, r->af_algo_type, r->af_trigger_type,
             r->night_flag, r->flat_flag, r->multi_depth_flag, r->point_flag, r->moon_flag,
             r->repeated_defocus, r->AmbientLight, r->camera_scene, r->fps, r->zoom_ratio,
             r->flash_mode) =
            std::make_tuple(15, 16, 17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27, 28, 2.25f, -30);
    std::strcpy(r->appName, "camera");
    return r;
}

Record statistic() {
    auto r = std::make_shared<orv::vistelStatisticData>();
    std::tie(r->hdr_3, r->hdr_5, r->hdr_7, r->hsn, r->TeleCap, r->TeleVid, r->TeleTofPre,
             r->TeleTofVid) = std::make_tuple(-1, 32767, 3, 4, 5, -32768, 7, 8);
    return r;
}

Record hdrDecision() {
    auto r = std::make_shared<orv::vistelHDRPData>();
    std::tie(r->hasface, r->backlight, r->point, r->night, r->lowlight) =
            std::make_tuple(1, -2, 3, 4, 32767);
    return r;
}

// Packed: fields are assigned one by one, as no reference to them may be taken.
Record snapshotV2() {
    auto r = std::make_shared<orv::vistelSnapshotBigdataV2>();
    r->sensorPosition = 1;
    r->previewLogicalId = 250;
    r->zoomRatio = 1.5f;
    r->FaceNum = 3;
    r->iso = 800;
    r->expo = -33;
    r->aecStabe = 5;
    r->snapshotId = 201;
    r->cameraScene = 9;
    for (int i = 0; i < 10; ++i) {
        std::strcpy(r->perf[i].algoName, ("a" + std::to_string(i)).c_str());
        r->perf[i].costTime = i < 9 ? 100 + i : -1;
    }
    r->hdrMode = 2;
    r->frameIndex = 4;
    r->frameCount = 6;
    r->masterAIMode = -7;
    std::strcpy(r->jpegName, "IMG_1.jpg");
    r->shutterLag = 80;
    r->cieScene = 17;
    r->picWidth = 4000;
    r->picHeight = 3000;
    std::strcpy(r->gyroInfo, "g0,1");
    std::strcpy(r->algoTag, "tagA");
    r->betaDump = -2;
    for (unsigned i = 0; i < 16; ++i) r->expoList[i] = i < 15 ? i : 4294967295u;
    std::strcpy(r->isoList, "100,200");
    r->awbColorTemp = 5100;
    r->captureBeginTemp = -5;
    r->captureEndTemp = 41;
    r->cameraOpenTemp = 39;
    r->previewDropIndex = 4294967295u;
    r->aeCount[0] = 3;
    r->aeCount[1] = 4294967295u;
    r->beautylevel = -3;
    std::strcpy(r->sensorname, "main");
    return r;
}

struct ReporterCase {
    const char* handler;  // the function its lines name
    unsigned eventId;
    Record (*make)();
    Record (*makeBlank)();
    const char* params;  // the set/fill calls, in order
    // Every line it logs on success, as "<priority> <body>", in order.
    std::vector<std::string> success;
};

const ReporterCase kReporters[] = {
        {"sendEventSnapshotBigdata",
         918009000,
         snapshot,
         blank<orv::vistelSnapshotBigdata>,
         R"(snapshotTime:i=1700000000123 sensor_position:i=-1 faceNumber:i=2 faceSize:s="10x12"
            faceRect_left:s="1,2" faceRect_top:s="3,4" faceRect_right:s="5,6"
            faceRect_bottom:s="7,8" faceType:s="adult" iso:i=3200 exp:i=-33 overExpo:i=11
            underExpo:i=12 aecStabe:i=13 awbColorTemp:i=5000 isMFNR:i=255 isBeauty:i=21
            isHDR:i=22 beautyMode:i=23 scene:i=200)",
         {"4 enter sendEventSnapshotBigdata()", "4 exit sendEventSnapshotBigdata()"}},
        {"SendEventSnapshotAfBigdata",
         918009001,
         autofocus,
         blank<orv::vistelSnapshotAfBigdata>,
         R"(Distance:i=-1 SceneType:i=2 FocusType:i=3 MainFousTime:i=4 AuxFousTime:i=5
            TeleFousTime:i=6 FocusRectBorder:i=7 RealSubInfCode:i=8 FocusRectIndex:i=9
            face_flag:i=10 night_face:i=11 side_face:i=12 back_light_face:i=13 vcm_code:i=14
            cam_id:i=15 phone_status:i=16 tracking_af:i=17 af_algo_type:i=18
            af_trigger_type:i=19 night_flag:i=20 flat_flag:i=21 multi_depth_flag:i=22
            point_flag:i=23 moon_flag:i=24 repeated_defocus:i=25 AmbientLight:i=26
            camera_scene:i=27 fps:i=28 zoom_ratio:f=2.25 flash_mode:i=-30 appName:s="camera")",
         {"4 exit SendEventSnapshotAfBigdata()"}},
        {"sendEventStatisticData",
         918009002,
         statistic,
         blank<orv::vistelStatisticData>,
         "#0=-1 #1=32767 #2=3 #3=4 #4=5 #5=-32768 #6=7 #7=8",
         {"4 exit sendEventStatisticData(), TeleCap = 5, TeleVid = -32768, "
          "TeleTofPre = 7, TeleTofVid = 8",
          "4 hdr_3 is -1, hdr_5 is 32767, hdr_7 is 3, hsn is 4"}},
        {"sendEventHDRPData",
         918009003,
         hdrDecision,
         blank<orv::vistelHDRPData>,
         "#0=1 #1=-2 #2=3 #3=4 #4=32767",
         {"4 exit sendEventHDRPData()",
          "4 sendEventHDRPData(), hasface = 1, backlight = -2, point = 3, night = 4, "
          "lowlight = 32767"}},
        {"SendEventSnapshotBigdataV2",
         918009005,
         snapshotV2,
         blank<orv::vistelSnapshotBigdataV2>,
         R"(sensorPosition:i=1 previewLogicalId:i=250 zoomRatio:f=1.5 FaceNum:i=3 iso:i=800
            expo:i=-33 aecStabe:i=5 awbColorTemp:i=5100 snapshotId:i=201 cameraScene:i=9
            PerfAlgoName:s[]="a0" PerfAlgoName:s[]="a1" PerfAlgoName:s[]="a2"
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
            beautylevel:i=-3 sensorname:s="main")",
         {"4 exit SendEventSnapshotBigdataV2()"}},
};

class SnapshotTest : public ReporterTest {
  protected:
    void resetAll() {
        vistelhost::reset();
        mLog.clear();
    }
    // The lines logged under the reporter's own name, as "<priority> <body>".
    std::vector<std::string> linesOf(const char* handler) const {
        std::vector<std::string> found;
        for (const LogLine& line : mLog.lines()) {
            if (line.function == handler) {
                found.push_back(std::to_string(line.priority) + " " + line.body);
            }
        }
        return found;
    }
};

// Ids, parameter order, forms and widening, log lines; an all-zero record right after is sent
// in full too: nothing is skipped for empty values and nothing is rate-limited.
TEST_F(SnapshotTest, ReportsEveryParameterInOrder) {
    for (const ReporterCase& c : kReporters) {
        SCOPED_TRACE(c.handler);
        resetAll();
        ASSERT_EQ(report(c.make()), 0);
        EXPECT_EQ(linesOf(c.handler), c.success);
        const std::vector<std::string> expected = words(c.params);
        EXPECT_EQ(paramCalls(), expected);

        ASSERT_EQ(report(c.makeBlank()), 0);
        auto sent = vistelhost::sentEvents();
        ASSERT_EQ(sent.size(), 2u);
        EXPECT_EQ(sent[0].id, c.eventId);
        EXPECT_EQ(sent[1].id, c.eventId);
        EXPECT_EQ(paramCalls().size(), 2 * expected.size());
    }
}

// Step 0 is the creation, steps 1..n the parameters, step n+1 the send. Whichever the service
// refuses, the report yields -1, sends nothing, stops at that step and leaves no object behind.
TEST_F(SnapshotTest, RefusalAtAnyStepEndsTheReport) {
    for (const ReporterCase& c : kReporters) {
        const std::vector<std::string> all = words(c.params);
        std::vector<std::string> enterLines;
        std::copy_if(c.success.begin(), c.success.end(), std::back_inserter(enterLines),
                     [](const std::string& line) { return line.rfind("4 enter", 0) == 0; });
        for (size_t step = 0; step <= all.size() + 1; ++step) {
            SCOPED_TRACE(std::string(c.handler) + " step " + std::to_string(step));
            resetAll();
            if (step == 0) vistelhost::failNextCreate();
            if (step > 0 && step <= all.size()) vistelhost::failParamCall(static_cast<int>(step));
            if (step > all.size()) vistelhost::failNextSend();

            EXPECT_EQ(report(c.make()), -1);
            EXPECT_TRUE(vistelhost::sentEvents().empty());
            EXPECT_EQ(vistelhost::liveObjects(), 0);
            const size_t reached = std::min(step, all.size());
            EXPECT_EQ(paramCalls(), std::vector<std::string>(all.begin(), all.begin() + reached));
            EXPECT_EQ(linesOf(c.handler), enterLines) << "no exit or value line";
        }
    }
}

}  // namespace
}  // namespace vistel_test
