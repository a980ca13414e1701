#include "LibraryDump.h"

#include <VistelManager.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>
#include <sstream>

namespace vistel_tools {

std::vector<std::string> libraryDumpLines() {
    // A file in memory: the dump writes to a descriptor, and a pipe could fill before it is read.
    const int fd = memfd_create("vistel-dump", MFD_CLOEXEC);
    if (fd < 0) return {};
    orv::VistelManager::GetInstance()->dump(fd);
    std::string text;
    char buffer[4096];
    lseek(fd, 0, SEEK_SET);
    for (ssize_t got; (got = read(fd, buffer, sizeof(buffer))) > 0;) text.append(buffer, got);
    close(fd);
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
}

namespace {

// The counted columns of a row, in the dump's order, with their names.
struct Column {
    const char* name;
    uint64_t DumpRow::*count;
};
constexpr Column kColumns[] = {
        {"records", &DumpRow::records},
        {"sent", &DumpRow::sent},
        {"limited", &DumpRow::limited},
        {"no-event", &DumpRow::noEvent},
        {"not-initialised", &DumpRow::notInitialised},
        {"failed", &DumpRow::failed},
        {"shed", &DumpRow::shed},
        {"off", &DumpRow::off},
        {"events", &DumpRow::events},
};
constexpr size_t kCounts = std::size(kColumns);

// The dump shows the off column only once a record was switched off.
bool isOffColumn(const Column& column) {
    return column.count == &DumpRow::off;
}

}  // namespace

DumpRow DumpRow::operator-(const DumpRow& earlier) const {
    DumpRow since = *this;
    for (const Column& column : kColumns) since.*column.count -= earlier.*column.count;
    return since;
}

bool DumpRow::operator==(const DumpRow& other) const {
    bool same = name == other.name;
    for (const Column& column : kColumns) same = same && this->*column.count == other.*column.count;
    return same;
}

uint64_t DumpRow::outcomes() const {
    return sent + limited + noEvent + notInitialised + failed + shed + off;
}

std::vector<std::pair<const char*, uint64_t>> DumpRow::columns(bool withOff) const {
    std::vector<std::pair<const char*, uint64_t>> values;
    for (const Column& column : kColumns) {
        if (withOff || !isOffColumn(column)) values.emplace_back(column.name, this->*column.count);
    }
    return values;
}

std::ostream& operator<<(std::ostream& out, const DumpRow& row) {
    out << row.name << ":";
    for (const Column& column : kColumns) {
        out << (column.count == kColumns[0].count ? " " : ", ") << column.name << " "
            << row.*column.count;
    }
    return out;
}

namespace {

std::vector<std::string> tokens(const std::string& line) {
    std::istringstream stream(line);
    std::vector<std::string> words;
    for (std::string word; stream >> word;) words.push_back(word);
    return words;
}

bool isCount(const std::string& word) {
    return !word.empty() && word.find_first_not_of("0123456789") == std::string::npos;
}

// "<kind> <name...> <records> <sent> ... <events>"; the kind column is empty on the total's line,
// the off column there only `withOff`.
bool parseRow(const std::vector<std::string>& words, bool withOff, std::string& kind, DumpRow& row) {
    const size_t counts = withOff ? kCounts : kCounts - 1;
    if (words.size() < counts + 1) return false;
    const size_t nameEnd = words.size() - counts;
    for (size_t i = nameEnd; i < words.size(); ++i) {
        if (!isCount(words[i])) return false;
    }
    const size_t nameStart = words[0] == "total" ? 0 : 1;
    kind = nameStart == 0 ? "" : words[0];
    row.name.clear();
    for (size_t i = nameStart; i < nameEnd; ++i) row.name += (i > nameStart ? " " : "") + words[i];
    size_t word = nameEnd;
    for (const Column& column : kColumns) {
        if (withOff || !isOffColumn(column)) row.*column.count = std::stoull(words[word++]);
    }
    return true;
}

}  // namespace

std::vector<std::string> LibraryDump::rowsNotAddingUp() const {
    std::vector<std::string> wrong;
    DumpRow sum = direct;
    for (const auto& [kind, row] : kinds) {
        if (row.records != row.outcomes()) wrong.push_back(row.name);
        for (const Column& column : kColumns) sum.*column.count += row.*column.count;
    }
    if (direct.records != direct.outcomes()) wrong.push_back(direct.name);
    sum.name = total.name;
    if (total.records != total.outcomes() || !(sum == total)) wrong.push_back("total");
    return wrong;
}

LibraryDump parseLibraryDump(const std::vector<std::string>& lines) {
    LibraryDump dump;
    for (const std::string& line : lines) {
        const std::vector<std::string> words = tokens(line);
        std::string kind;
        DumpRow row;
        if (!words.empty() && words[0] == "kind") {
            dump.offShown = std::find(words.begin(), words.end(), "off") != words.end();
        } else if (line.rfind("vistel service: ", 0) == 0) {
            dump.service = line;
        } else if (line.rfind("records in flight: ", 0) == 0) {
            dump.inFlight = line;
        } else if (parseRow(words, dump.offShown, kind, row)) {
            if (isCount(kind)) {
                dump.kinds[static_cast<uint32_t>(std::stoul(kind))] = row;
            } else if (kind == "-") {
                dump.direct = row;
            } else {
                dump.total = row;
            }
        } else if (words.size() == 3 && words[0].rfind("limit", 0) == 0 && isCount(words[1]) &&
                   isCount(words[2])) {
            dump.keys[words[0]] = std::stoull(words[1]);
            dump.droppedKeys[words[0]] = std::stoull(words[2]);
        } else if (line.rfind("libc_vistel ", 0) != 0 && line.rfind("keyed limit policy", 0) != 0) {
            dump.unparsed.push_back(line);
        }
    }
    return dump;
}

}  // namespace vistel_tools
