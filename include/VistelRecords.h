/*
 * Records the camera stack hands to VistelManager::reportMsgImpl.
 *
 * Both sides compile these exact declarations: every record derives from VistelEventBase, whose
 * only content is the vtable pointer, and its own fields follow right after it. Fixed-size text
 * fields normally hold a NUL-terminated text, whose address the library passes on unchanged; a
 * field filled to its last byte is taken whole, and never read beyond.
 *
 * A record with a single kind answers it from GetEventType(). Bodies that several kinds share
 * (warning and error time-outs, the boot record) are sent through VistelRecord<kind, body>:
 *
 *     auto leak = std::make_shared<orv::vistelMemLeak>();
 *     snprintf(leak->name, sizeof(leak->name), "%s", "FeatureNode");
 *     auto warning = std::make_shared<orv::VistelRecord<orv::kEventAlgoProcessTimeoutWarning,
 *                                                       orv::vistelAlgoProcessTimeout>>();
 */
#pragma once

#include <cstdint>
#include <string>
#include <type_traits>
#include <unordered_map>
#include <vector>

namespace orv {

// Event kinds; the numbers are the contract, the manager registers one handler per kind.
enum VistelEvent : uint32_t {
    kEventMemLeak = 0,
    kEventMemShortage = 1,
    kEventMemLimit = 2,
    kEventMemEfficiencyWarning = 3,
    kEventMemAllocFail = 4,
    kEventPreviewBufferRefLeak = 5,
    kEventCaptureBufferRefLeak = 6,
    kEventAlgoProcessTimeoutWarning = 7,
    kEventAlgoProcessTimeoutError = 8,
    kEventSnapshotTimeoutWarning = 9,
    kEventSnapshotTimeoutError = 10,
    kEventOtherTimeoutWarning = 11,
    kEventOtherTimeoutError = 12,
    kEventSnapshotBigdata = 13,
    kEventSnapshotAfBigdata = 14,
    kEventStatisticData = 15,
    kEventHDRPData = 16,
    kEventSnapshotBigdataV2 = 17,
    kEventAlgoProcessTimeoutDumpSystrace = 18,
    kEventFlushProcessTimeoutError = 19,
    kEventStopProcessTimeoutError = 20,
    kEventSessionUninitProcessTimeoutError = 21,
    kEventConfigStreamProcessTimeoutError = 22,
    kEventVideoPerfData = 23,
    kEventPostProcessTimeoutError = 24,
    kEventBootTimeout = 25,
    kEventDumpTrace = 26,
    kEventFrameDrop = 27,
    kEventMemoryExceedThreshold = 28,
    kEventMemoryAllocTimeout = 29,
    kEventDailyTempRise = 30,
    kEventScanMsg = 31,
};

// Number of kinds; any value at or above it is unknown to the manager.
constexpr uint32_t kVistelEventCount = 32;

class VistelEventBase {
  public:
    VistelEventBase() = default;
    // A body that is shared by several kinds does not know its kind by itself; sent without a
    // VistelRecord wrapper it reports an unknown kind and the manager skips it.
    virtual VistelEvent GetEventType() { return static_cast<VistelEvent>(kVistelEventCount); }
    virtual ~VistelEventBase() = default;
};

// The body of each kind's record, given for every kind at the end of this file. The handler of a
// kind reads the record as that body, so VistelRecord refuses any other.
template <VistelEvent Kind>
struct VistelKindBody {
    using type = void;
};

// Binds a shared record body to one kind.
template <VistelEvent Kind, typename Body>
struct VistelRecord final : Body {
    static_assert(std::is_same_v<Body, typename VistelKindBody<Kind>::type>,
                  "VistelRecord<Kind, Body>: Body is not the body of Kind's record; use the "
                  "kind's own record or alias (vistelAlgoProcessTimeoutWarning, ...)");
    VistelEvent GetEventType() override { return Kind; }
};

// ---- Memory faults ----------------------------------------------------------------------------
// Text fields the service reads up to their terminator, without a length of their own in the
// event definitions, are 64 bytes here.

struct vistelMemLeak : VistelEventBase {
    VistelEvent GetEventType() override { return kEventMemLeak; }
    char name[64];  // also the rate-limit key
    char secondName[12];
    int32_t value1;
    int32_t value2;
    int32_t value3;
};

struct vistelMemShortage : VistelEventBase {
    VistelEvent GetEventType() override { return kEventMemShortage; }
    int32_t value1;  // its raw bytes, read as text, are the rate-limit key
    int32_t value2;
    int32_t value3;
    char firstName[64];
    char secondName[64];
};

struct vistelMemLimit : VistelEventBase {
    VistelEvent GetEventType() override { return kEventMemLimit; }
    char name[64];  // also the rate-limit key
    char secondName[12];
    int32_t value1;
    int32_t value2;
};

struct vistelMemEfficiencyWarning : VistelEventBase {
    VistelEvent GetEventType() override { return kEventMemEfficiencyWarning; }
    int32_t value1;
    char shortName[4];
    int32_t value2;
    char name[64];
};

struct vistelMemAllocFail : VistelEventBase {
    VistelEvent GetEventType() override { return kEventMemAllocFail; }
    int32_t values[6];
    uint8_t flag;
    char shortName[10];
    char name[64];
    char secondName[64];
};

// ---- Buffer reference leaks -------------------------------------------------------------------

struct vistelPreviewBufferRefLeak : VistelEventBase {
    VistelEvent GetEventType() override { return kEventPreviewBufferRefLeak; }
    char name[64];  // also the rate-limit key
    int32_t value1;
    int32_t value2;
    int32_t value3;
};

struct vistelCaptureBufferRefLeak : VistelEventBase {
    VistelEvent GetEventType() override { return kEventCaptureBufferRefLeak; }
    char name[64];  // also the rate-limit key
    int32_t value1;
    int32_t value2;
    uint8_t flag;
    int32_t value3;
    int32_t value4;
};

// ---- Processing time-outs ---------------------------------------------------------------------

// Kinds 7 (warning) and 8 (error); kind 18 asks for a trace of the same time-out.
struct vistelAlgoProcessTimeout : VistelEventBase {
    char name[64];  // also the rate-limit key
    int32_t value1;
    char shortName[12];
    int32_t value2;
    int32_t value3;
};

// Kinds 9 (warning) and 10 (error).
struct vistelSnapshotTimeout : VistelEventBase {
    char name[64];  // also the rate-limit key
    int32_t values[5];
};

// Kinds 11 (warning) and 12 (error); the flush, stop, session-uninit and config-stream
// time-outs (19 to 22) share this body.
struct vistelOtherTimeout : VistelEventBase {
    char firstName[64];   // rate-limit key 1
    char secondName[64];  // rate-limit key 2
    int32_t value1;
    char shortName[12];
    int32_t value2;
    int32_t value3;
};

using vistelAlgoProcessTimeoutWarning =
        VistelRecord<kEventAlgoProcessTimeoutWarning, vistelAlgoProcessTimeout>;
using vistelAlgoProcessTimeoutError =
        VistelRecord<kEventAlgoProcessTimeoutError, vistelAlgoProcessTimeout>;
using vistelAlgoProcessTimeoutDumpSystrace =
        VistelRecord<kEventAlgoProcessTimeoutDumpSystrace, vistelAlgoProcessTimeout>;
using vistelSnapshotTimeoutWarning =
        VistelRecord<kEventSnapshotTimeoutWarning, vistelSnapshotTimeout>;
using vistelSnapshotTimeoutError = VistelRecord<kEventSnapshotTimeoutError, vistelSnapshotTimeout>;
using vistelOtherTimeoutWarning = VistelRecord<kEventOtherTimeoutWarning, vistelOtherTimeout>;
using vistelOtherTimeoutError = VistelRecord<kEventOtherTimeoutError, vistelOtherTimeout>;
using vistelFlushProcessTimeout = VistelRecord<kEventFlushProcessTimeoutError, vistelOtherTimeout>;
using vistelStopProcessTimeout = VistelRecord<kEventStopProcessTimeoutError, vistelOtherTimeout>;
using vistelSessionUninitProcessTimeout =
        VistelRecord<kEventSessionUninitProcessTimeoutError, vistelOtherTimeout>;
using vistelConfigStreamProcessTimeout =
        VistelRecord<kEventConfigStreamProcessTimeoutError, vistelOtherTimeout>;

struct vistelPostProcessTimeOut : VistelEventBase {
    VistelEvent GetEventType() override { return kEventPostProcessTimeoutError; }
    char name[20];
    uint8_t flag1;
    uint8_t flag2;
    uint8_t flag3;
    uint8_t flag4;
    int64_t value1;
    int32_t value2;
    int32_t value3;
    int32_t value4;
    char description[168];
    int32_t value5;
};

// ---- Capture quality --------------------------------------------------------------------------

struct vistelSnapshotBigdata : VistelEventBase {
    VistelEvent GetEventType() override { return kEventSnapshotBigdata; }
    int32_t sensor_position;
    int32_t faceNumber;
    char faceSize[10];
    char faceRect_left[40];
    char faceRect_top[40];
    char faceRect_right[40];
    char faceRect_bottom[40];
    int32_t iso;
    int32_t exp;
    int32_t overExpo;
    int32_t underExpo;
    int32_t aecStabe;
    int32_t awbColorTemp;
    uint8_t isMFNR;
    char faceType[10];
    uint8_t scene;
    int64_t snapshotTime;
    uint8_t isBeauty;
    uint8_t isHDR;
    uint8_t beautyMode;
};

// One post-processing algorithm that ran on a picture; packed like the record that holds it.
struct __attribute__((packed)) vistelPerfItem {
    char algoName[32];
    int32_t costTime;
};

// Byte-packed: the camera stack writes it without padding, so 32-bit fields sit at unaligned
// offsets and are read in place.
struct __attribute__((packed)) vistelSnapshotBigdataV2 : VistelEventBase {
    VistelEvent GetEventType() override { return kEventSnapshotBigdataV2; }
    uint8_t sensorPosition;
    uint8_t previewLogicalId;
    float zoomRatio;
    uint8_t FaceNum;
    int32_t iso;
    int32_t expo;
    int32_t aecStabe;
    uint8_t snapshotId;
    uint8_t cameraScene;
    vistelPerfItem perf[10];
    uint8_t hdrMode;
    uint8_t frameIndex;
    uint8_t frameCount;
    int32_t masterAIMode;
    char jpegName[32];
    int32_t shutterLag;
    int32_t cieScene;
    int32_t picWidth;
    int32_t picHeight;
    char gyroInfo[640];
    char algoTag[16];
    int32_t betaDump;
    uint32_t expoList[16];
    char isoList[128];
    int32_t awbColorTemp;
    int32_t captureBeginTemp;
    int32_t captureEndTemp;
    int32_t cameraOpenTemp;
    uint32_t previewDropIndex;
    uint32_t aeCount[2];
    int32_t beautylevel;
    char sensorname[32];
};

struct vistelSnapshotAfBigdata : VistelEventBase {
    VistelEvent GetEventType() override { return kEventSnapshotAfBigdata; }
    int32_t Distance;
    int32_t SceneType;
    int32_t FocusType;
    int32_t MainFousTime;
    int32_t AuxFousTime;
    int32_t TeleFousTime;
    int32_t FocusRectBorder;
    int32_t RealSubInfCode;
    int32_t FocusRectIndex;
    int32_t face_flag;
    int32_t night_face;
    int32_t side_face;
    int32_t back_light_face;
    int32_t vcm_code;
    int32_t cam_id;
    int32_t phone_status;
    int32_t tracking_af;
    int32_t af_algo_type;
    int32_t af_trigger_type;
    int32_t night_flag;
    int32_t flat_flag;
    int32_t multi_depth_flag;
    int32_t point_flag;
    int32_t moon_flag;
    int32_t repeated_defocus;
    int32_t AmbientLight;
    int32_t camera_scene;
    int32_t fps;
    float zoom_ratio;
    int32_t flash_mode;
    char appName[64];
};

struct vistelStatisticData : VistelEventBase {
    VistelEvent GetEventType() override { return kEventStatisticData; }
    int16_t hdr_3;
    int16_t hdr_5;
    int16_t hdr_7;
    int16_t hsn;
    int16_t TeleCap;
    int16_t TeleVid;
    int16_t TeleTofPre;
    int16_t TeleTofVid;
};

struct vistelHDRPData : VistelEventBase {
    VistelEvent GetEventType() override { return kEventHDRPData; }
    int16_t hasface;
    int16_t backlight;
    int16_t point;
    int16_t night;
    int16_t lowlight;
};

// One stretch of a recording.
struct vistelVideoPerfSubData {
    std::string SensorTime;
    std::string TimeOfDay;
    int32_t TotalSensorCnt;
    int32_t ErrSensorCnt;
    std::string RequestId;
    int32_t TotalRequestCnt;
    int32_t ErrRequestCnt;
    float Fps;
};

// The video performance body: one report of a recording, or one group of a frame drop record.
struct vistelVideoPerfInfo {
    int32_t SceneMode;
    int32_t ZoomRatio;
    int32_t SensorModIdx;
    int32_t SensorModCap;
    std::vector<vistelVideoPerfSubData> perfDetail;
};

struct vistelVideoPerfData : VistelEventBase, vistelVideoPerfInfo {
    VistelEvent GetEventType() override { return kEventVideoPerfData; }
};

struct vistelFrameDrop : VistelEventBase {
    VistelEvent GetEventType() override { return kEventFrameDrop; }
    std::vector<vistelVideoPerfInfo> groups;
};

// ---- System health ----------------------------------------------------------------------------

struct vistelProcessMemInfo {
    std::string processName;
    int32_t pid;
    int32_t ion;
    int32_t rss;
    int32_t pss;
    int32_t nativePss;
    int32_t javaPss;
    int32_t swap;
    int32_t reserved;  // not reported
};

struct vistelMemExceedThreshold : VistelEventBase {
    VistelEvent GetEventType() override { return kEventMemoryExceedThreshold; }
    int32_t maxUsableSize;
    int32_t usedTotalSizePeak;
    std::vector<vistelProcessMemInfo> processes;
    int32_t sysMemFree;
    int32_t captureGoingCount;
    std::string jpegName;
    int32_t sceneMode;
    int32_t zoom;
    int32_t multiCamMask;
    int32_t snapshotId;
    int32_t switchFlag;
    std::string eventTime;
};

struct vistelBufAllocInfo {
    std::string bufName;
    int32_t size;
    int32_t allocElapsed;
    uint64_t timeStamp;
    int32_t sysMemFree;
    std::vector<vistelProcessMemInfo> processes;
};

struct vistelMemAllocTimeout : VistelEventBase {
    VistelEvent GetEventType() override { return kEventMemoryAllocTimeout; }
    std::string appName;
    int32_t sceneMode;
    int32_t cameraState;
    int32_t stateDuration;
    int32_t isQor;
    int32_t memoryAlloced;
    int32_t allocTimeCost;
    int32_t timeoutCount;
    std::vector<vistelBufAllocInfo> allocBuffers;
    std::string eventTime;
};

struct vistelDailyTempRise : VistelEventBase {
    VistelEvent GetEventType() override { return kEventDailyTempRise; }
    std::string appName;
    std::string openTime;
    std::vector<std::string> costEntries;
};

struct vistelBootStepCost {
    std::string name;
    float cost;
};

struct SingleBootNode {
    // Stage name -> its timed steps; reported as one "<stage>COST" array per stage.
    std::unordered_map<std::string, std::vector<vistelBootStepCost>> stageCosts;
    int32_t thermalLevel;
    int32_t startMemory;
    int32_t endMemory;
    int32_t cpuSceneMode;
    std::string threshold;
    uint64_t actualCost;
    uint64_t firstFrameCost;
    std::string firstFrame2ScanClose;
    int32_t cameraSceneMode;
    uint64_t openTime;
    std::string appName;
};

// Kinds 25 (boot time-out, rate-limited) and 31 (scan message, never limited).
struct vistelBootMsg : VistelEventBase {
    std::vector<SingleBootNode> bootNodes;
};

using vistelBootTimeout = VistelRecord<kEventBootTimeout, vistelBootMsg>;
using vistelScanMsg = VistelRecord<kEventScanMsg, vistelBootMsg>;

struct vistelDumpTrace : VistelEventBase {
    VistelEvent GetEventType() override { return kEventDumpTrace; }
    std::string traceName;
};

// ---- Each kind's body --------------------------------------------------------------------------

#define VISTEL_KIND_BODY(Kind, Body) \
    template <>                      \
    struct VistelKindBody<Kind> {    \
        using type = Body;           \
    };
VISTEL_KIND_BODY(kEventMemLeak, vistelMemLeak)
VISTEL_KIND_BODY(kEventMemShortage, vistelMemShortage)
VISTEL_KIND_BODY(kEventMemLimit, vistelMemLimit)
VISTEL_KIND_BODY(kEventMemEfficiencyWarning, vistelMemEfficiencyWarning)
VISTEL_KIND_BODY(kEventMemAllocFail, vistelMemAllocFail)
VISTEL_KIND_BODY(kEventPreviewBufferRefLeak, vistelPreviewBufferRefLeak)
VISTEL_KIND_BODY(kEventCaptureBufferRefLeak, vistelCaptureBufferRefLeak)
VISTEL_KIND_BODY(kEventAlgoProcessTimeoutWarning, vistelAlgoProcessTimeout)
VISTEL_KIND_BODY(kEventAlgoProcessTimeoutError, vistelAlgoProcessTimeout)
VISTEL_KIND_BODY(kEventSnapshotTimeoutWarning, vistelSnapshotTimeout)
VISTEL_KIND_BODY(kEventSnapshotTimeoutError, vistelSnapshotTimeout)
VISTEL_KIND_BODY(kEventOtherTimeoutWarning, vistelOtherTimeout)
VISTEL_KIND_BODY(kEventOtherTimeoutError, vistelOtherTimeout)
VISTEL_KIND_BODY(kEventSnapshotBigdata, vistelSnapshotBigdata)
VISTEL_KIND_BODY(kEventSnapshotAfBigdata, vistelSnapshotAfBigdata)
VISTEL_KIND_BODY(kEventStatisticData, vistelStatisticData)
VISTEL_KIND_BODY(kEventHDRPData, vistelHDRPData)
VISTEL_KIND_BODY(kEventSnapshotBigdataV2, vistelSnapshotBigdataV2)
VISTEL_KIND_BODY(kEventAlgoProcessTimeoutDumpSystrace, vistelAlgoProcessTimeout)
VISTEL_KIND_BODY(kEventFlushProcessTimeoutError, vistelOtherTimeout)
VISTEL_KIND_BODY(kEventStopProcessTimeoutError, vistelOtherTimeout)
VISTEL_KIND_BODY(kEventSessionUninitProcessTimeoutError, vistelOtherTimeout)
VISTEL_KIND_BODY(kEventConfigStreamProcessTimeoutError, vistelOtherTimeout)
VISTEL_KIND_BODY(kEventVideoPerfData, vistelVideoPerfData)
VISTEL_KIND_BODY(kEventPostProcessTimeoutError, vistelPostProcessTimeOut)
VISTEL_KIND_BODY(kEventBootTimeout, vistelBootMsg)
VISTEL_KIND_BODY(kEventDumpTrace, vistelDumpTrace)
VISTEL_KIND_BODY(kEventFrameDrop, vistelFrameDrop)
VISTEL_KIND_BODY(kEventMemoryExceedThreshold, vistelMemExceedThreshold)
VISTEL_KIND_BODY(kEventMemoryAllocTimeout, vistelMemAllocTimeout)
VISTEL_KIND_BODY(kEventDailyTempRise, vistelDailyTempRise)
VISTEL_KIND_BODY(kEventScanMsg, vistelBootMsg)
#undef VISTEL_KIND_BODY

}  // namespace orv
