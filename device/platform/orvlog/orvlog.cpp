#include "orvlog.h"

#include <android/log.h>

#include <mutex>

char g_logGitTag[64] = {};

namespace {

// Never destroyed: jank prints come from pool workers that may outlive static destructors.
std::mutex& jankMutex() {
    static std::mutex* const sMutex = new std::mutex;
    return *sMutex;
}

std::vector<orvloghost::JankPrint>& jankRecord() {  // guarded by jankMutex()
    static auto* const sRecord = new std::vector<orvloghost::JankPrint>;
    return *sRecord;
}

}  // namespace

int __orvlog_jank_print(int type, int id, const char* msg) {
    const char* text = msg != nullptr ? msg : "";
    {
        std::lock_guard<std::mutex> lock(jankMutex());
        jankRecord().push_back({type, id, text});
    }
    __android_log_print(ANDROID_LOG_INFO, "orvlog", "jank print type=%d id=%d msg=%s", type, id,
                        text);
    return 0;
}

namespace orvloghost {

std::vector<JankPrint> jankPrints() {
    std::lock_guard<std::mutex> lock(jankMutex());
    return jankRecord();
}

void reset() {
    std::lock_guard<std::mutex> lock(jankMutex());
    jankRecord().clear();
}

}  // namespace orvloghost
