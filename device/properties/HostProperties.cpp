// android::base::GetProperty and SetProperty for a host build against libc++: the properties of
// the process, in a map of its own, as libbase keeps them off the device.
#include <android-base/properties.h>

#include <map>
#include <mutex>
#include <string>

namespace android {
namespace base {

namespace {

// Never destroyed: a worker may read a property while the process exits.
std::mutex& propertiesMutex() {
    static std::mutex* sMutex = new std::mutex;
    return *sMutex;
}
std::map<std::string, std::string>& properties() {
    static auto* sProperties = new std::map<std::string, std::string>;
    return *sProperties;
}

}  // namespace

__attribute__((visibility("default"))) std::string GetProperty(const std::string& key,
                                                               const std::string& default_value) {
    std::lock_guard<std::mutex> lock(propertiesMutex());
    const auto found = properties().find(key);
    return found == properties().end() ? default_value : found->second;
}

__attribute__((visibility("default"))) bool SetProperty(const std::string& key,
                                                        const std::string& value) {
    // PROP_VALUE_MAX, as the device refuses a longer value.
    if (value.size() >= 92) return false;
    std::lock_guard<std::mutex> lock(propertiesMutex());
    properties()[key] = value;
    return true;
}

}  // namespace base
}  // namespace android
