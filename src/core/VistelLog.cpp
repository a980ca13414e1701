#include "VistelLog.h"

#include <cstring>

namespace orv {

std::string qualifiedFunctionName(const char* prettyFunction) {
    std::string name(prettyFunction);
    name.erase(std::min(name.find('('), name.size()));
    size_t blank = name.rfind(' ');
    if (blank != std::string::npos) name.erase(0, blank + 1);
    size_t star = name.find('*');
    if (star != std::string::npos) name.erase(star, 1);
    return name;
}

}  // namespace orv
