#include "RecordFields.h"

#include <strings.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <iterator>

namespace vistel_tools {

// One table entry: the member's name, and an accessor that takes its address without binding a
// typed reference (the packed record's members are unaligned).
#define VISTEL_FIELD(member)                                                 \
    makeField<decltype(Record::member)>(#member, [](void* object) -> void* { \
        return static_cast<void*>(&static_cast<Record*>(object)->member);    \
    })

#define VISTEL_LAYOUT(T, ...)                                                              \
    template <>                                                                            \
    const StructLayout& layoutOf<orv::T>() {                                               \
        using Record = orv::T;                                                             \
        static const Field kFields[] = {__VA_ARGS__};                                      \
        static const StructLayout kLayout = {#T, sizeof(Record), alignof(Record), kFields, \
                                             std::size(kFields)};                          \
        return kLayout;                                                                    \
    }

// ---- Memory faults and buffer reference leaks -------------------------------------------------

VISTEL_LAYOUT(vistelMemLeak, VISTEL_FIELD(name), VISTEL_FIELD(secondName), VISTEL_FIELD(value1),
              VISTEL_FIELD(value2), VISTEL_FIELD(value3))

VISTEL_LAYOUT(vistelMemShortage, VISTEL_FIELD(value1), VISTEL_FIELD(value2), VISTEL_FIELD(value3),
              VISTEL_FIELD(firstName), VISTEL_FIELD(secondName))

VISTEL_LAYOUT(vistelMemLimit, VISTEL_FIELD(name), VISTEL_FIELD(secondName), VISTEL_FIELD(value1),
              VISTEL_FIELD(value2))

VISTEL_LAYOUT(vistelMemEfficiencyWarning, VISTEL_FIELD(value1), VISTEL_FIELD(shortName),
              VISTEL_FIELD(value2), VISTEL_FIELD(name))

VISTEL_LAYOUT(vistelMemAllocFail, VISTEL_FIELD(values), VISTEL_FIELD(flag), VISTEL_FIELD(shortName),
              VISTEL_FIELD(name), VISTEL_FIELD(secondName))

VISTEL_LAYOUT(vistelPreviewBufferRefLeak, VISTEL_FIELD(name), VISTEL_FIELD(value1),
              VISTEL_FIELD(value2), VISTEL_FIELD(value3))

VISTEL_LAYOUT(vistelCaptureBufferRefLeak, VISTEL_FIELD(name), VISTEL_FIELD(value1),
              VISTEL_FIELD(value2), VISTEL_FIELD(flag), VISTEL_FIELD(value3), VISTEL_FIELD(value4))

// ---- Processing time-outs ---------------------------------------------------------------------

VISTEL_LAYOUT(vistelAlgoProcessTimeout, VISTEL_FIELD(name), VISTEL_FIELD(value1),
              VISTEL_FIELD(shortName), VISTEL_FIELD(value2), VISTEL_FIELD(value3))

VISTEL_LAYOUT(vistelSnapshotTimeout, VISTEL_FIELD(name), VISTEL_FIELD(values))

VISTEL_LAYOUT(vistelOtherTimeout, VISTEL_FIELD(firstName), VISTEL_FIELD(secondName),
              VISTEL_FIELD(value1), VISTEL_FIELD(shortName), VISTEL_FIELD(value2),
              VISTEL_FIELD(value3))

VISTEL_LAYOUT(vistelPostProcessTimeOut, VISTEL_FIELD(name), VISTEL_FIELD(flag1),
              VISTEL_FIELD(flag2), VISTEL_FIELD(flag3), VISTEL_FIELD(flag4), VISTEL_FIELD(value1),
              VISTEL_FIELD(value2), VISTEL_FIELD(value3), VISTEL_FIELD(value4),
              VISTEL_FIELD(description), VISTEL_FIELD(value5))

// ---- Capture quality --------------------------------------------------------------------------

VISTEL_LAYOUT(vistelSnapshotBigdata, VISTEL_FIELD(sensor_position), VISTEL_FIELD(faceNumber),
              VISTEL_FIELD(faceSize), VISTEL_FIELD(faceRect_left), VISTEL_FIELD(faceRect_top),
              VISTEL_FIELD(faceRect_right), VISTEL_FIELD(faceRect_bottom), VISTEL_FIELD(iso),
              VISTEL_FIELD(exp), VISTEL_FIELD(overExpo), VISTEL_FIELD(underExpo),
              VISTEL_FIELD(aecStabe), VISTEL_FIELD(awbColorTemp), VISTEL_FIELD(isMFNR),
              VISTEL_FIELD(faceType), VISTEL_FIELD(scene), VISTEL_FIELD(snapshotTime),
              VISTEL_FIELD(isBeauty), VISTEL_FIELD(isHDR), VISTEL_FIELD(beautyMode))

VISTEL_LAYOUT(vistelPerfItem, VISTEL_FIELD(algoName), VISTEL_FIELD(costTime))

VISTEL_LAYOUT(vistelSnapshotBigdataV2, VISTEL_FIELD(sensorPosition), VISTEL_FIELD(previewLogicalId),
              VISTEL_FIELD(zoomRatio), VISTEL_FIELD(FaceNum), VISTEL_FIELD(iso), VISTEL_FIELD(expo),
              VISTEL_FIELD(aecStabe), VISTEL_FIELD(snapshotId), VISTEL_FIELD(cameraScene),
              VISTEL_FIELD(perf), VISTEL_FIELD(hdrMode), VISTEL_FIELD(frameIndex),
              VISTEL_FIELD(frameCount), VISTEL_FIELD(masterAIMode), VISTEL_FIELD(jpegName),
              VISTEL_FIELD(shutterLag), VISTEL_FIELD(cieScene), VISTEL_FIELD(picWidth),
              VISTEL_FIELD(picHeight), VISTEL_FIELD(gyroInfo), VISTEL_FIELD(algoTag),
              VISTEL_FIELD(betaDump), VISTEL_FIELD(expoList), VISTEL_FIELD(isoList),
              VISTEL_FIELD(awbColorTemp), VISTEL_FIELD(captureBeginTemp),
              VISTEL_FIELD(captureEndTemp), VISTEL_FIELD(cameraOpenTemp),
              VISTEL_FIELD(previewDropIndex), VISTEL_FIELD(aeCount), VISTEL_FIELD(beautylevel),
              VISTEL_FIELD(sensorname))

VISTEL_LAYOUT(vistelSnapshotAfBigdata, VISTEL_FIELD(Distance), VISTEL_FIELD(SceneType),
              VISTEL_FIELD(FocusType), VISTEL_FIELD(MainFousTime), VISTEL_FIELD(AuxFousTime),
              VISTEL_FIELD(TeleFousTime), VISTEL_FIELD(FocusRectBorder),
              VISTEL_FIELD(RealSubInfCode), VISTEL_FIELD(FocusRectIndex), VISTEL_FIELD(face_flag),
              VISTEL_FIELD(night_face), VISTEL_FIELD(side_face), VISTEL_FIELD(back_light_face),
              VISTEL_FIELD(vcm_code), VISTEL_FIELD(cam_id), VISTEL_FIELD(phone_status),
              VISTEL_FIELD(tracking_af), VISTEL_FIELD(af_algo_type), VISTEL_FIELD(af_trigger_type),
              VISTEL_FIELD(night_flag), VISTEL_FIELD(flat_flag), VISTEL_FIELD(multi_depth_flag),
              VISTEL_FIELD(point_flag), VISTEL_FIELD(moon_flag), VISTEL_FIELD(repeated_defocus),
              VISTEL_FIELD(AmbientLight), VISTEL_FIELD(camera_scene), VISTEL_FIELD(fps),
              VISTEL_FIELD(zoom_ratio), VISTEL_FIELD(flash_mode), VISTEL_FIELD(appName))

VISTEL_LAYOUT(vistelStatisticData, VISTEL_FIELD(hdr_3), VISTEL_FIELD(hdr_5), VISTEL_FIELD(hdr_7),
              VISTEL_FIELD(hsn), VISTEL_FIELD(TeleCap), VISTEL_FIELD(TeleVid),
              VISTEL_FIELD(TeleTofPre), VISTEL_FIELD(TeleTofVid))

VISTEL_LAYOUT(vistelHDRPData, VISTEL_FIELD(hasface), VISTEL_FIELD(backlight), VISTEL_FIELD(point),
              VISTEL_FIELD(night), VISTEL_FIELD(lowlight))

VISTEL_LAYOUT(vistelVideoPerfSubData, VISTEL_FIELD(SensorTime), VISTEL_FIELD(TimeOfDay),
              VISTEL_FIELD(TotalSensorCnt), VISTEL_FIELD(ErrSensorCnt), VISTEL_FIELD(RequestId),
              VISTEL_FIELD(TotalRequestCnt), VISTEL_FIELD(ErrRequestCnt), VISTEL_FIELD(Fps))

// The video performance body, on its own (a frame drop group) and inherited by the record.
#define VISTEL_VIDEO_PERF_FIELDS                                                  \
    VISTEL_FIELD(SceneMode), VISTEL_FIELD(ZoomRatio), VISTEL_FIELD(SensorModIdx), \
            VISTEL_FIELD(SensorModCap), VISTEL_FIELD(perfDetail)
VISTEL_LAYOUT(vistelVideoPerfInfo, VISTEL_VIDEO_PERF_FIELDS)
VISTEL_LAYOUT(vistelVideoPerfData, VISTEL_VIDEO_PERF_FIELDS)
#undef VISTEL_VIDEO_PERF_FIELDS

VISTEL_LAYOUT(vistelFrameDrop, VISTEL_FIELD(groups))

// ---- System health ----------------------------------------------------------------------------

VISTEL_LAYOUT(vistelProcessMemInfo, VISTEL_FIELD(processName), VISTEL_FIELD(pid), VISTEL_FIELD(ion),
              VISTEL_FIELD(rss), VISTEL_FIELD(pss), VISTEL_FIELD(nativePss), VISTEL_FIELD(javaPss),
              VISTEL_FIELD(swap), VISTEL_FIELD(reserved))

VISTEL_LAYOUT(vistelMemExceedThreshold, VISTEL_FIELD(maxUsableSize),
              VISTEL_FIELD(usedTotalSizePeak), VISTEL_FIELD(processes), VISTEL_FIELD(sysMemFree),
              VISTEL_FIELD(captureGoingCount), VISTEL_FIELD(jpegName), VISTEL_FIELD(sceneMode),
              VISTEL_FIELD(zoom), VISTEL_FIELD(multiCamMask), VISTEL_FIELD(snapshotId),
              VISTEL_FIELD(switchFlag), VISTEL_FIELD(eventTime))

VISTEL_LAYOUT(vistelBufAllocInfo, VISTEL_FIELD(bufName), VISTEL_FIELD(size),
              VISTEL_FIELD(allocElapsed), VISTEL_FIELD(timeStamp), VISTEL_FIELD(sysMemFree),
              VISTEL_FIELD(processes))

VISTEL_LAYOUT(vistelMemAllocTimeout, VISTEL_FIELD(appName), VISTEL_FIELD(sceneMode),
              VISTEL_FIELD(cameraState), VISTEL_FIELD(stateDuration), VISTEL_FIELD(isQor),
              VISTEL_FIELD(memoryAlloced), VISTEL_FIELD(allocTimeCost), VISTEL_FIELD(timeoutCount),
              VISTEL_FIELD(allocBuffers), VISTEL_FIELD(eventTime))

VISTEL_LAYOUT(vistelDailyTempRise, VISTEL_FIELD(appName), VISTEL_FIELD(openTime),
              VISTEL_FIELD(costEntries))

VISTEL_LAYOUT(vistelBootStepCost, VISTEL_FIELD(name), VISTEL_FIELD(cost))

VISTEL_LAYOUT(SingleBootNode, VISTEL_FIELD(stageCosts), VISTEL_FIELD(thermalLevel),
              VISTEL_FIELD(startMemory), VISTEL_FIELD(endMemory), VISTEL_FIELD(cpuSceneMode),
              VISTEL_FIELD(threshold), VISTEL_FIELD(actualCost), VISTEL_FIELD(firstFrameCost),
              VISTEL_FIELD(firstFrame2ScanClose), VISTEL_FIELD(cameraSceneMode),
              VISTEL_FIELD(openTime), VISTEL_FIELD(appName))

VISTEL_LAYOUT(vistelBootMsg, VISTEL_FIELD(bootNodes))

VISTEL_LAYOUT(vistelDumpTrace, VISTEL_FIELD(traceName))

#undef VISTEL_LAYOUT
#undef VISTEL_FIELD

// ---- Queries ----------------------------------------------------------------------------------

const Field* StructLayout::find(const std::string& fieldName) const {
    for (const Field& field : *this) {
        if (fieldName == field.name) return &field;
    }
    return nullptr;
}

namespace {

const char* scalarTypeName(FieldType type) {
    switch (type) {
        case FieldType::kUInt8:
            return "uint8";
        case FieldType::kInt16:
            return "int16";
        case FieldType::kInt32:
            return "int32";
        case FieldType::kUInt32:
            return "uint32";
        case FieldType::kInt64:
            return "int64";
        case FieldType::kUInt64:
            return "uint64";
        case FieldType::kFloat:
            return "float";
        case FieldType::kString:
            return "string";
        case FieldType::kText:
        case FieldType::kStruct:
        case FieldType::kVector:
        case FieldType::kMap:
            break;
    }
    return "";
}

// Mistakes between `a` and `b`, letter case aside: letters missing, added or changed, and two
// neighbours swapped (each counts once). Anything above `limit` reads as limit + 1.
size_t typingDistance(const std::string& a, const std::string& b, size_t limit) {
    if ((a.size() > b.size() ? a.size() - b.size() : b.size() - a.size()) > limit) {
        return limit + 1;
    }
    const auto same = [](char x, char y) {
        return std::tolower(static_cast<unsigned char>(x)) ==
               std::tolower(static_cast<unsigned char>(y));
    };
    // Three rows of the classic table: the one being filled and the two before it.
    std::vector<size_t> before(b.size() + 1), previous(b.size() + 1), row(b.size() + 1);
    for (size_t j = 0; j <= b.size(); ++j) previous[j] = j;
    for (size_t i = 1; i <= a.size(); ++i) {
        row[0] = i;
        for (size_t j = 1; j <= b.size(); ++j) {
            const size_t changed = previous[j - 1] + (same(a[i - 1], b[j - 1]) ? 0 : 1);
            row[j] = std::min({previous[j] + 1, row[j - 1] + 1, changed});
            if (i > 1 && j > 1 && same(a[i - 1], b[j - 2]) && same(a[i - 2], b[j - 1])) {
                row[j] = std::min(row[j], before[j - 2] + 1);
            }
        }
        std::swap(before, previous);
        std::swap(previous, row);
    }
    return std::min(previous[b.size()], limit + 1);
}

}  // namespace

std::string typeName(const Field& field) {
    switch (field.type) {
        case FieldType::kText:
            return "char[" + std::to_string(field.size) + "]";
        case FieldType::kVector:
            return "vector<" + typeName(*field.element()) + ">";
        case FieldType::kMap:
            return "map<string, " + typeName(*field.element()) + ">";
        default:
            break;
    }
    std::string name =
            field.type == FieldType::kStruct ? field.layout().name : scalarTypeName(field.type);
    if (field.count > 1) name += "[" + std::to_string(field.count) + "]";
    return name;
}

void forEachTextField(
        const StructLayout& layout, const void* object,
        const std::function<void(const std::string& path, const char* field, size_t size)>& visit) {
    // The accessors take a mutable object; nothing here writes through them.
    void* base = const_cast<void*>(object);
    for (const Field& field : layout) {
        const char* member = static_cast<const char*>(field.address(base));
        if (field.type == FieldType::kText) {
            visit(field.name, member, field.size);
        } else if (field.type == FieldType::kStruct) {
            const size_t stride = field.size / field.count;
            for (size_t i = 0; i < field.count; ++i) {
                std::string prefix = std::string(field.name) +
                                     (field.count > 1 ? "[" + std::to_string(i) + "]" : "") + ".";
                forEachTextField(field.layout(), member + i * stride,
                                 [&](const std::string& path, const char* text, size_t size) {
                                     visit(prefix + path, text, size);
                                 });
            }
        }
    }
}

const char* closestName(const std::string& text, const std::vector<const char*>& names) {
    constexpr size_t kShortName = 4;
    const size_t limit = text.size() <= kShortName ? 1 : 2;
    const char* closest = nullptr;
    size_t closestDistance = limit + 1;
    for (const char* name : names) {
        if (strcasecmp(text.c_str(), name) == 0) return name;
        const size_t distance = typingDistance(text, name, limit);
        if (distance < closestDistance) {
            closest = name;
            closestDistance = distance;
        }
    }
    return closest;
}

}  // namespace vistel_tools
