// The byte layout of every record the camera stack shares with the library (RecordLayouts.h),
// pinned at compile time. The HAL is built separately from the same header, so a field that
// moves, grows or changes type breaks the library's build, on x86_64, on arm64 and in the device
// tree alike, instead of garbling reports in the field. Nothing here generates code.
//
// The columns that depend on the C++ library are anchored by the container sizes checked first.

#include <VistelManager.h>

#include <cstddef>
#include <string>
#include <unordered_map>
#include <vector>

#include "RecordLayouts.h"

// The records are polymorphic, where offsetof is only conditionally supported; GCC and Clang
// give the real offset for single and non-virtual inheritance, which is all these records use.
#pragma GCC diagnostic ignored "-Winvalid-offsetof"

static_assert(sizeof(void*) == 8 && sizeof(long) == 8, "the records are laid out for LP64");

static_assert(sizeof(std::string) == VISTEL_BY_STDLIB(32, 24));
static_assert(sizeof(std::vector<int>) == 24);
static_assert(sizeof(std::unordered_map<std::string, std::vector<orv::vistelBootStepCost>>) ==
              VISTEL_BY_STDLIB(56, 40));

#define VISTEL_CHECK_SIZE(type, size, align)                    \
    static_assert(sizeof(orv::type) == (size), #type ": size"); \
    static_assert(alignof(orv::type) == (align), #type ": alignment");
#define VISTEL_CHECK_FIELD(type, field, offset, size)                                    \
    static_assert(offsetof(orv::type, field) == (offset), #type "::" #field ": offset"); \
    static_assert(sizeof(decltype(orv::type::field)) == (size), #type "::" #field ": size");
VISTEL_RECORD_LAYOUTS(VISTEL_CHECK_SIZE, VISTEL_CHECK_SIZE, VISTEL_CHECK_FIELD)
