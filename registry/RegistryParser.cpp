#include "registry/RegistryParser.h"

#include <array>
#include <new>
#include <string_view>

namespace quelm {

namespace {

using Next = JsonReader::Next;

// `value` is null for the one member that is not a string.
struct Member {
    std::string_view name;
    std::string_view HandlerView::*value;
    bool required;
};

// In the order in which the registry is written.
constexpr std::array<Member, 10> members{{
    {"id", &HandlerView::id, true},
    {"path", &HandlerView::path, true},
    {"clipath", &HandlerView::clipath, false},
    {"phpini", &HandlerView::phpini, true},
    {"version", &HandlerView::version, true},
    {"displayname", &HandlerView::displayname, true},
    {"type", &HandlerView::type, true},
    {"system", nullptr, false},
    {"service", &HandlerView::service, false},
    {"poold", &HandlerView::poold, false},
}};

constexpr unsigned bit(std::size_t member) {
    return 1U << member;
}

constexpr unsigned requiredBits() {
    unsigned bits = 0;
    for (std::size_t member = 0; member < members.size(); ++member) {
        bits |= members[member].required ? bit(member) : 0;
    }
    return bits;
}

// members.size() for a name that is none of them. The search begins at `expected`, where it ends at once in a
// file that save() wrote.
std::size_t findMember(std::string_view name, std::size_t expected) {
    for (std::size_t tried = 0; tried < members.size(); ++tried) {
        const std::size_t member = (expected + tried) % members.size();
        if (members[member].name == name) {
            return member;
        }
    }
    return members.size();
}

bool readMember(JsonReader& reader, const Member& member, HandlerView& handler) {
    return member.value == nullptr ? reader.readBoolean(handler.system)
                                   : reader.readString(handler.*member.value);
}

} // namespace

RegistryParser::RegistryParser(char* text, std::size_t size) : reader_(text, size) {}

bool RegistryParser::parse() {
    std::string_view name;
    bool found = false;
    Next step = reader_.openObject(name);
    for (; step == Next::item; step = reader_.nextMember(name)) {
        const bool wanted = name == "php";
        found = found || wanted;
        // cppcheck-suppress knownConditionTrueFalse ; takes the comparison of a text for a constant
        if (!(wanted ? readHandlers() : reader_.skipValue())) {
            return false;
        }
    }
    if (step == Next::failed) {
        return false;
    }
    return found || reader_.fail(JsonErrorCode::requiredMissing);
}

bool RegistryParser::readHandlers() {
    handlers_.clear();
    Next step = reader_.openArray();
    for (; step == Next::item; step = reader_.nextElement()) {
        if (!appendHandler() || !readHandler()) {
            return false;
        }
    }
    if (step == Next::failed) {
        return false;
    }
    reader_.close();
    return true;
}

bool RegistryParser::appendHandler() {
    try {
        handlers_.emplace_back();
    } catch (const std::bad_alloc&) {
        return reader_.fail(JsonErrorCode::outOfMemory);
    }
    return true;
}

bool RegistryParser::readHandler() {
    HandlerView& handler = handlers_.back();
    std::string_view name;
    unsigned given = 0;
    std::size_t expected = 0;
    Next step = reader_.openObject(name);
    for (; step == Next::item; step = reader_.nextMember(name)) {
        const std::size_t member = findMember(name, expected);
        if (member == members.size()) {
            if (!reader_.skipValue()) {
                return false;
            }
            continue;
        }
        if (!readMember(reader_, members[member], handler)) {
            return false;
        }
        given |= bit(member);
        expected = member + 1;
    }
    if (step == Next::failed) {
        return false;
    }
    if ((given & requiredBits()) != requiredBits()) {
        return reader_.fail(JsonErrorCode::requiredMissing);
    }
    reader_.close();
    return true;
}

} // namespace quelm
