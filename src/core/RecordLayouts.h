// The byte layout of every record the camera stack shares with the library, and of the structures
// nested in them, written once: each structure's size and alignment, each field's offset and size,
// in declaration order. The library pins the layout at compile time with it (RecordLayout.cpp);
// the records' reflection library builds its field tables from it, so a field cannot be checked
// under one name and shown under another.
//
// The numbers are worked out by hand from the declarations, not read back from the compiler: an
// LP64 target, the 8-byte vtable pointer of VistelEventBase first, natural alignment everywhere
// except the byte-packed snapshot V2 record and its vistelPerfItem. Only the structures holding
// standard containers depend on the C++ library: libstdc++ in the GCC builds, libc++ on the device
// and in the clang builds; VISTEL_BY_STDLIB picks their column.
//
//     STRUCT(type, size, alignment)         a structure with a field table
//     WRAPPER(type, size, alignment)        a kind-binding wrapper or the base: size only
//     FIELD(type, member, offset, size)     a member; a container's size is the slot it takes
//
//     #define SIZE_OF(type, size, alignment) static_assert(sizeof(orv::type) == (size));
//     #define NOTHING(...)
//     VISTEL_RECORD_LAYOUTS(SIZE_OF, SIZE_OF, NOTHING)
#pragma once

#if defined(_LIBCPP_VERSION)
#define VISTEL_BY_STDLIB(libstdcxx, libcxx) (libcxx)
#else
#define VISTEL_BY_STDLIB(libstdcxx, libcxx) (libstdcxx)
#endif

// clang-format off
#define VISTEL_RECORD_LAYOUTS(STRUCT, WRAPPER, FIELD)                                              \
    WRAPPER(VistelEventBase, 8, 8)                                                                 \
    /* ---- Memory faults ---- */                                                                  \
    STRUCT(vistelMemLeak, 96, 8)                                                                   \
    FIELD(vistelMemLeak, name, 8, 64)                                                              \
    FIELD(vistelMemLeak, secondName, 72, 12)                                                       \
    FIELD(vistelMemLeak, value1, 84, 4)                                                            \
    FIELD(vistelMemLeak, value2, 88, 4)                                                            \
    FIELD(vistelMemLeak, value3, 92, 4)                                                            \
    STRUCT(vistelMemShortage, 152, 8)                                                              \
    FIELD(vistelMemShortage, value1, 8, 4)                                                         \
    FIELD(vistelMemShortage, value2, 12, 4)                                                        \
    FIELD(vistelMemShortage, value3, 16, 4)                                                        \
    FIELD(vistelMemShortage, firstName, 20, 64)                                                    \
    FIELD(vistelMemShortage, secondName, 84, 64)                                                   \
    STRUCT(vistelMemLimit, 96, 8)                                                                  \
    FIELD(vistelMemLimit, name, 8, 64)                                                             \
    FIELD(vistelMemLimit, secondName, 72, 12)                                                      \
    FIELD(vistelMemLimit, value1, 84, 4)                                                           \
    FIELD(vistelMemLimit, value2, 88, 4)                                                           \
    STRUCT(vistelMemEfficiencyWarning, 88, 8)                                                      \
    FIELD(vistelMemEfficiencyWarning, value1, 8, 4)                                                \
    FIELD(vistelMemEfficiencyWarning, shortName, 12, 4)                                            \
    FIELD(vistelMemEfficiencyWarning, value2, 16, 4)                                               \
    FIELD(vistelMemEfficiencyWarning, name, 20, 64)                                                \
    STRUCT(vistelMemAllocFail, 176, 8)                                                             \
    FIELD(vistelMemAllocFail, values, 8, 24)                                                       \
    FIELD(vistelMemAllocFail, flag, 32, 1)                                                         \
    FIELD(vistelMemAllocFail, shortName, 33, 10)                                                   \
    FIELD(vistelMemAllocFail, name, 43, 64)                                                        \
    FIELD(vistelMemAllocFail, secondName, 107, 64)                                                 \
    /* ---- Buffer reference leaks ---- */                                                         \
    STRUCT(vistelPreviewBufferRefLeak, 88, 8)                                                      \
    FIELD(vistelPreviewBufferRefLeak, name, 8, 64)                                                 \
    FIELD(vistelPreviewBufferRefLeak, value1, 72, 4)                                               \
    FIELD(vistelPreviewBufferRefLeak, value2, 76, 4)                                               \
    FIELD(vistelPreviewBufferRefLeak, value3, 80, 4)                                               \
    STRUCT(vistelCaptureBufferRefLeak, 96, 8)                                                      \
    FIELD(vistelCaptureBufferRefLeak, name, 8, 64)                                                 \
    FIELD(vistelCaptureBufferRefLeak, value1, 72, 4)                                               \
    FIELD(vistelCaptureBufferRefLeak, value2, 76, 4)                                               \
    FIELD(vistelCaptureBufferRefLeak, flag, 80, 1)                                                 \
    FIELD(vistelCaptureBufferRefLeak, value3, 84, 4)                                               \
    FIELD(vistelCaptureBufferRefLeak, value4, 88, 4)                                               \
    /* ---- Processing time-outs ---- */                                                           \
    STRUCT(vistelAlgoProcessTimeout, 96, 8)                                                        \
    FIELD(vistelAlgoProcessTimeout, name, 8, 64)                                                   \
    FIELD(vistelAlgoProcessTimeout, value1, 72, 4)                                                 \
    FIELD(vistelAlgoProcessTimeout, shortName, 76, 12)                                             \
    FIELD(vistelAlgoProcessTimeout, value2, 88, 4)                                                 \
    FIELD(vistelAlgoProcessTimeout, value3, 92, 4)                                                 \
    STRUCT(vistelSnapshotTimeout, 96, 8)                                                           \
    FIELD(vistelSnapshotTimeout, name, 8, 64)                                                      \
    FIELD(vistelSnapshotTimeout, values, 72, 20)                                                   \
    STRUCT(vistelOtherTimeout, 160, 8)                                                             \
    FIELD(vistelOtherTimeout, firstName, 8, 64)                                                    \
    FIELD(vistelOtherTimeout, secondName, 72, 64)                                                  \
    FIELD(vistelOtherTimeout, value1, 136, 4)                                                      \
    FIELD(vistelOtherTimeout, shortName, 140, 12)                                                  \
    FIELD(vistelOtherTimeout, value2, 152, 4)                                                      \
    FIELD(vistelOtherTimeout, value3, 156, 4)                                                      \
    /* A kind-binding wrapper adds a vtable entry, never bytes. */                                 \
    WRAPPER(vistelAlgoProcessTimeoutWarning, 96, 8)                                                \
    WRAPPER(vistelAlgoProcessTimeoutError, 96, 8)                                                  \
    WRAPPER(vistelAlgoProcessTimeoutDumpSystrace, 96, 8)                                           \
    WRAPPER(vistelSnapshotTimeoutWarning, 96, 8)                                                   \
    WRAPPER(vistelSnapshotTimeoutError, 96, 8)                                                     \
    WRAPPER(vistelOtherTimeoutWarning, 160, 8)                                                     \
    WRAPPER(vistelOtherTimeoutError, 160, 8)                                                       \
    WRAPPER(vistelFlushProcessTimeout, 160, 8)                                                     \
    WRAPPER(vistelStopProcessTimeout, 160, 8)                                                      \
    WRAPPER(vistelSessionUninitProcessTimeout, 160, 8)                                             \
    WRAPPER(vistelConfigStreamProcessTimeout, 160, 8)                                              \
    STRUCT(vistelPostProcessTimeOut, 224, 8)                                                       \
    FIELD(vistelPostProcessTimeOut, name, 8, 20)                                                   \
    FIELD(vistelPostProcessTimeOut, flag1, 28, 1)                                                  \
    FIELD(vistelPostProcessTimeOut, flag2, 29, 1)                                                  \
    FIELD(vistelPostProcessTimeOut, flag3, 30, 1)                                                  \
    FIELD(vistelPostProcessTimeOut, flag4, 31, 1)                                                  \
    FIELD(vistelPostProcessTimeOut, value1, 32, 8)                                                 \
    FIELD(vistelPostProcessTimeOut, value2, 40, 4)                                                 \
    FIELD(vistelPostProcessTimeOut, value3, 44, 4)                                                 \
    FIELD(vistelPostProcessTimeOut, value4, 48, 4)                                                 \
    FIELD(vistelPostProcessTimeOut, description, 52, 168)                                          \
    FIELD(vistelPostProcessTimeOut, value5, 220, 4)                                                \
    /* ---- Capture quality ---- */                                                                \
    STRUCT(vistelSnapshotBigdata, 240, 8)                                                          \
    FIELD(vistelSnapshotBigdata, sensor_position, 8, 4)                                            \
    FIELD(vistelSnapshotBigdata, faceNumber, 12, 4)                                                \
    FIELD(vistelSnapshotBigdata, faceSize, 16, 10)                                                 \
    FIELD(vistelSnapshotBigdata, faceRect_left, 26, 40)                                            \
    FIELD(vistelSnapshotBigdata, faceRect_top, 66, 40)                                             \
    FIELD(vistelSnapshotBigdata, faceRect_right, 106, 40)                                          \
    FIELD(vistelSnapshotBigdata, faceRect_bottom, 146, 40)                                         \
    FIELD(vistelSnapshotBigdata, iso, 188, 4)                                                      \
    FIELD(vistelSnapshotBigdata, exp, 192, 4)                                                      \
    FIELD(vistelSnapshotBigdata, overExpo, 196, 4)                                                 \
    FIELD(vistelSnapshotBigdata, underExpo, 200, 4)                                                \
    FIELD(vistelSnapshotBigdata, aecStabe, 204, 4)                                                 \
    FIELD(vistelSnapshotBigdata, awbColorTemp, 208, 4)                                             \
    FIELD(vistelSnapshotBigdata, isMFNR, 212, 1)                                                   \
    FIELD(vistelSnapshotBigdata, faceType, 213, 10)                                                \
    FIELD(vistelSnapshotBigdata, scene, 223, 1)                                                    \
    FIELD(vistelSnapshotBigdata, snapshotTime, 224, 8)                                             \
    FIELD(vistelSnapshotBigdata, isBeauty, 232, 1)                                                 \
    FIELD(vistelSnapshotBigdata, isHDR, 233, 1)                                                    \
    FIELD(vistelSnapshotBigdata, beautyMode, 234, 1)                                               \
    STRUCT(vistelPerfItem, 36, 1)                                                                  \
    FIELD(vistelPerfItem, algoName, 0, 32)                                                         \
    FIELD(vistelPerfItem, costTime, 32, 4)                                                         \
    /* Packed: every field of its own follows the previous one directly. The packing */            \
    /* does not reach into the base, so the vtable pointer keeps the record 8-aligned; */          \
    /* 1360 needs no tail padding. */                                                              \
    STRUCT(vistelSnapshotBigdataV2, 1360, 8)                                                       \
    FIELD(vistelSnapshotBigdataV2, sensorPosition, 8, 1)                                           \
    FIELD(vistelSnapshotBigdataV2, previewLogicalId, 9, 1)                                         \
    FIELD(vistelSnapshotBigdataV2, zoomRatio, 10, 4)                                               \
    FIELD(vistelSnapshotBigdataV2, FaceNum, 14, 1)                                                 \
    FIELD(vistelSnapshotBigdataV2, iso, 15, 4)                                                     \
    FIELD(vistelSnapshotBigdataV2, expo, 19, 4)                                                    \
    FIELD(vistelSnapshotBigdataV2, aecStabe, 23, 4)                                                \
    FIELD(vistelSnapshotBigdataV2, snapshotId, 27, 1)                                              \
    FIELD(vistelSnapshotBigdataV2, cameraScene, 28, 1)                                             \
    FIELD(vistelSnapshotBigdataV2, perf, 29, 360)                                                  \
    FIELD(vistelSnapshotBigdataV2, hdrMode, 389, 1)                                                \
    FIELD(vistelSnapshotBigdataV2, frameIndex, 390, 1)                                             \
    FIELD(vistelSnapshotBigdataV2, frameCount, 391, 1)                                             \
    FIELD(vistelSnapshotBigdataV2, masterAIMode, 392, 4)                                           \
    FIELD(vistelSnapshotBigdataV2, jpegName, 396, 32)                                              \
    FIELD(vistelSnapshotBigdataV2, shutterLag, 428, 4)                                             \
    FIELD(vistelSnapshotBigdataV2, cieScene, 432, 4)                                               \
    FIELD(vistelSnapshotBigdataV2, picWidth, 436, 4)                                               \
    FIELD(vistelSnapshotBigdataV2, picHeight, 440, 4)                                              \
    FIELD(vistelSnapshotBigdataV2, gyroInfo, 444, 640)                                             \
    FIELD(vistelSnapshotBigdataV2, algoTag, 1084, 16)                                              \
    FIELD(vistelSnapshotBigdataV2, betaDump, 1100, 4)                                              \
    FIELD(vistelSnapshotBigdataV2, expoList, 1104, 64)                                             \
    FIELD(vistelSnapshotBigdataV2, isoList, 1168, 128)                                             \
    FIELD(vistelSnapshotBigdataV2, awbColorTemp, 1296, 4)                                          \
    FIELD(vistelSnapshotBigdataV2, captureBeginTemp, 1300, 4)                                      \
    FIELD(vistelSnapshotBigdataV2, captureEndTemp, 1304, 4)                                        \
    FIELD(vistelSnapshotBigdataV2, cameraOpenTemp, 1308, 4)                                        \
    FIELD(vistelSnapshotBigdataV2, previewDropIndex, 1312, 4)                                      \
    FIELD(vistelSnapshotBigdataV2, aeCount, 1316, 8)                                               \
    FIELD(vistelSnapshotBigdataV2, beautylevel, 1324, 4)                                           \
    FIELD(vistelSnapshotBigdataV2, sensorname, 1328, 32)                                           \
    STRUCT(vistelSnapshotAfBigdata, 192, 8)                                                        \
    FIELD(vistelSnapshotAfBigdata, Distance, 8, 4)                                                 \
    FIELD(vistelSnapshotAfBigdata, SceneType, 12, 4)                                               \
    FIELD(vistelSnapshotAfBigdata, FocusType, 16, 4)                                               \
    FIELD(vistelSnapshotAfBigdata, MainFousTime, 20, 4)                                            \
    FIELD(vistelSnapshotAfBigdata, AuxFousTime, 24, 4)                                             \
    FIELD(vistelSnapshotAfBigdata, TeleFousTime, 28, 4)                                            \
    FIELD(vistelSnapshotAfBigdata, FocusRectBorder, 32, 4)                                         \
    FIELD(vistelSnapshotAfBigdata, RealSubInfCode, 36, 4)                                          \
    FIELD(vistelSnapshotAfBigdata, FocusRectIndex, 40, 4)                                          \
    FIELD(vistelSnapshotAfBigdata, face_flag, 44, 4)                                               \
    FIELD(vistelSnapshotAfBigdata, night_face, 48, 4)                                              \
    FIELD(vistelSnapshotAfBigdata, side_face, 52, 4)                                               \
    FIELD(vistelSnapshotAfBigdata, back_light_face, 56, 4)                                         \
    FIELD(vistelSnapshotAfBigdata, vcm_code, 60, 4)                                                \
    FIELD(vistelSnapshotAfBigdata, cam_id, 64, 4)                                                  \
    FIELD(vistelSnapshotAfBigdata, phone_status, 68, 4)                                            \
    FIELD(vistelSnapshotAfBigdata, tracking_af, 72, 4)                                             \
    FIELD(vistelSnapshotAfBigdata, af_algo_type, 76, 4)                                            \
    FIELD(vistelSnapshotAfBigdata, af_trigger_type, 80, 4)                                         \
    FIELD(vistelSnapshotAfBigdata, night_flag, 84, 4)                                              \
    FIELD(vistelSnapshotAfBigdata, flat_flag, 88, 4)                                               \
    FIELD(vistelSnapshotAfBigdata, multi_depth_flag, 92, 4)                                        \
    FIELD(vistelSnapshotAfBigdata, point_flag, 96, 4)                                              \
    FIELD(vistelSnapshotAfBigdata, moon_flag, 100, 4)                                              \
    FIELD(vistelSnapshotAfBigdata, repeated_defocus, 104, 4)                                       \
    FIELD(vistelSnapshotAfBigdata, AmbientLight, 108, 4)                                           \
    FIELD(vistelSnapshotAfBigdata, camera_scene, 112, 4)                                           \
    FIELD(vistelSnapshotAfBigdata, fps, 116, 4)                                                    \
    FIELD(vistelSnapshotAfBigdata, zoom_ratio, 120, 4)                                             \
    FIELD(vistelSnapshotAfBigdata, flash_mode, 124, 4)                                             \
    FIELD(vistelSnapshotAfBigdata, appName, 128, 64)                                               \
    STRUCT(vistelStatisticData, 24, 8)                                                             \
    FIELD(vistelStatisticData, hdr_3, 8, 2)                                                        \
    FIELD(vistelStatisticData, hdr_5, 10, 2)                                                       \
    FIELD(vistelStatisticData, hdr_7, 12, 2)                                                       \
    FIELD(vistelStatisticData, hsn, 14, 2)                                                         \
    FIELD(vistelStatisticData, TeleCap, 16, 2)                                                     \
    FIELD(vistelStatisticData, TeleVid, 18, 2)                                                     \
    FIELD(vistelStatisticData, TeleTofPre, 20, 2)                                                  \
    FIELD(vistelStatisticData, TeleTofVid, 22, 2)                                                  \
    STRUCT(vistelHDRPData, 24, 8)                                                                  \
    FIELD(vistelHDRPData, hasface, 8, 2)                                                           \
    FIELD(vistelHDRPData, backlight, 10, 2)                                                        \
    FIELD(vistelHDRPData, point, 12, 2)                                                            \
    FIELD(vistelHDRPData, night, 14, 2)                                                            \
    FIELD(vistelHDRPData, lowlight, 16, 2)                                                         \
    STRUCT(vistelVideoPerfSubData, VISTEL_BY_STDLIB(120, 96), 8)                                   \
    FIELD(vistelVideoPerfSubData, SensorTime, 0, VISTEL_BY_STDLIB(32, 24))                         \
    FIELD(vistelVideoPerfSubData, TimeOfDay, VISTEL_BY_STDLIB(32, 24), VISTEL_BY_STDLIB(32, 24))   \
    FIELD(vistelVideoPerfSubData, TotalSensorCnt, VISTEL_BY_STDLIB(64, 48), 4)                     \
    FIELD(vistelVideoPerfSubData, ErrSensorCnt, VISTEL_BY_STDLIB(68, 52), 4)                       \
    FIELD(vistelVideoPerfSubData, RequestId, VISTEL_BY_STDLIB(72, 56), VISTEL_BY_STDLIB(32, 24))   \
    FIELD(vistelVideoPerfSubData, TotalRequestCnt, VISTEL_BY_STDLIB(104, 80), 4)                   \
    FIELD(vistelVideoPerfSubData, ErrRequestCnt, VISTEL_BY_STDLIB(108, 84), 4)                     \
    FIELD(vistelVideoPerfSubData, Fps, VISTEL_BY_STDLIB(112, 88), 4)                               \
    STRUCT(vistelVideoPerfInfo, 40, 8)                                                             \
    FIELD(vistelVideoPerfInfo, SceneMode, 0, 4)                                                    \
    FIELD(vistelVideoPerfInfo, ZoomRatio, 4, 4)                                                    \
    FIELD(vistelVideoPerfInfo, SensorModIdx, 8, 4)                                                 \
    FIELD(vistelVideoPerfInfo, SensorModCap, 12, 4)                                                \
    FIELD(vistelVideoPerfInfo, perfDetail, 16, 24)                                                 \
    /* The shared body follows the vtable pointer as a second base. */                             \
    STRUCT(vistelVideoPerfData, 48, 8)                                                             \
    FIELD(vistelVideoPerfData, SceneMode, 8, 4)                                                    \
    FIELD(vistelVideoPerfData, ZoomRatio, 12, 4)                                                   \
    FIELD(vistelVideoPerfData, SensorModIdx, 16, 4)                                                \
    FIELD(vistelVideoPerfData, SensorModCap, 20, 4)                                                \
    FIELD(vistelVideoPerfData, perfDetail, 24, 24)                                                 \
    STRUCT(vistelFrameDrop, 32, 8)                                                                 \
    FIELD(vistelFrameDrop, groups, 8, 24)                                                          \
    /* ---- System health ---- */                                                                  \
    STRUCT(vistelProcessMemInfo, VISTEL_BY_STDLIB(64, 56), 8)                                      \
    FIELD(vistelProcessMemInfo, processName, 0, VISTEL_BY_STDLIB(32, 24))                          \
    FIELD(vistelProcessMemInfo, pid, VISTEL_BY_STDLIB(32, 24), 4)                                  \
    FIELD(vistelProcessMemInfo, ion, VISTEL_BY_STDLIB(36, 28), 4)                                  \
    FIELD(vistelProcessMemInfo, rss, VISTEL_BY_STDLIB(40, 32), 4)                                  \
    FIELD(vistelProcessMemInfo, pss, VISTEL_BY_STDLIB(44, 36), 4)                                  \
    FIELD(vistelProcessMemInfo, nativePss, VISTEL_BY_STDLIB(48, 40), 4)                            \
    FIELD(vistelProcessMemInfo, javaPss, VISTEL_BY_STDLIB(52, 44), 4)                              \
    FIELD(vistelProcessMemInfo, swap, VISTEL_BY_STDLIB(56, 48), 4)                                 \
    FIELD(vistelProcessMemInfo, reserved, VISTEL_BY_STDLIB(60, 52), 4)                             \
    STRUCT(vistelMemExceedThreshold, VISTEL_BY_STDLIB(136, 120), 8)                                \
    FIELD(vistelMemExceedThreshold, maxUsableSize, 8, 4)                                           \
    FIELD(vistelMemExceedThreshold, usedTotalSizePeak, 12, 4)                                      \
    FIELD(vistelMemExceedThreshold, processes, 16, 24)                                             \
    FIELD(vistelMemExceedThreshold, sysMemFree, 40, 4)                                             \
    FIELD(vistelMemExceedThreshold, captureGoingCount, 44, 4)                                      \
    FIELD(vistelMemExceedThreshold, jpegName, 48, VISTEL_BY_STDLIB(32, 24))                        \
    FIELD(vistelMemExceedThreshold, sceneMode, VISTEL_BY_STDLIB(80, 72), 4)                        \
    FIELD(vistelMemExceedThreshold, zoom, VISTEL_BY_STDLIB(84, 76), 4)                             \
    FIELD(vistelMemExceedThreshold, multiCamMask, VISTEL_BY_STDLIB(88, 80), 4)                     \
    FIELD(vistelMemExceedThreshold, snapshotId, VISTEL_BY_STDLIB(92, 84), 4)                       \
    FIELD(vistelMemExceedThreshold, switchFlag, VISTEL_BY_STDLIB(96, 88), 4)                       \
    FIELD(vistelMemExceedThreshold, eventTime, VISTEL_BY_STDLIB(104, 96), VISTEL_BY_STDLIB(32, 24))\
    STRUCT(vistelBufAllocInfo, VISTEL_BY_STDLIB(80, 72), 8)                                        \
    FIELD(vistelBufAllocInfo, bufName, 0, VISTEL_BY_STDLIB(32, 24))                                \
    FIELD(vistelBufAllocInfo, size, VISTEL_BY_STDLIB(32, 24), 4)                                   \
    FIELD(vistelBufAllocInfo, allocElapsed, VISTEL_BY_STDLIB(36, 28), 4)                           \
    FIELD(vistelBufAllocInfo, timeStamp, VISTEL_BY_STDLIB(40, 32), 8)                              \
    FIELD(vistelBufAllocInfo, sysMemFree, VISTEL_BY_STDLIB(48, 40), 4)                             \
    FIELD(vistelBufAllocInfo, processes, VISTEL_BY_STDLIB(56, 48), 24)                             \
    STRUCT(vistelMemAllocTimeout, VISTEL_BY_STDLIB(128, 112), 8)                                   \
    FIELD(vistelMemAllocTimeout, appName, 8, VISTEL_BY_STDLIB(32, 24))                             \
    FIELD(vistelMemAllocTimeout, sceneMode, VISTEL_BY_STDLIB(40, 32), 4)                           \
    FIELD(vistelMemAllocTimeout, cameraState, VISTEL_BY_STDLIB(44, 36), 4)                         \
    FIELD(vistelMemAllocTimeout, stateDuration, VISTEL_BY_STDLIB(48, 40), 4)                       \
    FIELD(vistelMemAllocTimeout, isQor, VISTEL_BY_STDLIB(52, 44), 4)                               \
    FIELD(vistelMemAllocTimeout, memoryAlloced, VISTEL_BY_STDLIB(56, 48), 4)                       \
    FIELD(vistelMemAllocTimeout, allocTimeCost, VISTEL_BY_STDLIB(60, 52), 4)                       \
    FIELD(vistelMemAllocTimeout, timeoutCount, VISTEL_BY_STDLIB(64, 56), 4)                        \
    FIELD(vistelMemAllocTimeout, allocBuffers, VISTEL_BY_STDLIB(72, 64), 24)                       \
    FIELD(vistelMemAllocTimeout, eventTime, VISTEL_BY_STDLIB(96, 88), VISTEL_BY_STDLIB(32, 24))    \
    STRUCT(vistelDailyTempRise, VISTEL_BY_STDLIB(96, 80), 8)                                       \
    FIELD(vistelDailyTempRise, appName, 8, VISTEL_BY_STDLIB(32, 24))                               \
    FIELD(vistelDailyTempRise, openTime, VISTEL_BY_STDLIB(40, 32), VISTEL_BY_STDLIB(32, 24))       \
    FIELD(vistelDailyTempRise, costEntries, VISTEL_BY_STDLIB(72, 56), 24)                          \
    STRUCT(vistelBootStepCost, VISTEL_BY_STDLIB(40, 32), 8)                                        \
    FIELD(vistelBootStepCost, name, 0, VISTEL_BY_STDLIB(32, 24))                                   \
    FIELD(vistelBootStepCost, cost, VISTEL_BY_STDLIB(32, 24), 4)                                   \
    STRUCT(SingleBootNode, VISTEL_BY_STDLIB(200, 160), 8)                                          \
    FIELD(SingleBootNode, stageCosts, 0, VISTEL_BY_STDLIB(56, 40))                                 \
    FIELD(SingleBootNode, thermalLevel, VISTEL_BY_STDLIB(56, 40), 4)                               \
    FIELD(SingleBootNode, startMemory, VISTEL_BY_STDLIB(60, 44), 4)                                \
    FIELD(SingleBootNode, endMemory, VISTEL_BY_STDLIB(64, 48), 4)                                  \
    FIELD(SingleBootNode, cpuSceneMode, VISTEL_BY_STDLIB(68, 52), 4)                               \
    FIELD(SingleBootNode, threshold, VISTEL_BY_STDLIB(72, 56), VISTEL_BY_STDLIB(32, 24))           \
    FIELD(SingleBootNode, actualCost, VISTEL_BY_STDLIB(104, 80), 8)                                \
    FIELD(SingleBootNode, firstFrameCost, VISTEL_BY_STDLIB(112, 88), 8)                            \
    FIELD(SingleBootNode, firstFrame2ScanClose,                                                    \
          VISTEL_BY_STDLIB(120, 96), VISTEL_BY_STDLIB(32, 24))                                   \
    FIELD(SingleBootNode, cameraSceneMode, VISTEL_BY_STDLIB(152, 120), 4)                          \
    FIELD(SingleBootNode, openTime, VISTEL_BY_STDLIB(160, 128), 8)                                 \
    FIELD(SingleBootNode, appName, VISTEL_BY_STDLIB(168, 136), VISTEL_BY_STDLIB(32, 24))           \
    STRUCT(vistelBootMsg, 32, 8)                                                                   \
    FIELD(vistelBootMsg, bootNodes, 8, 24)                                                         \
    WRAPPER(vistelBootTimeout, 32, 8)                                                              \
    WRAPPER(vistelScanMsg, 32, 8)                                                                  \
    STRUCT(vistelDumpTrace, VISTEL_BY_STDLIB(40, 32), 8)                                           \
    FIELD(vistelDumpTrace, traceName, 8, VISTEL_BY_STDLIB(32, 24))
// clang-format on
