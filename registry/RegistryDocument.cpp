#include "registry/RegistryDocument.h"

#include <array>
#include <new>
#include <string_view>

namespace quelm {

namespace {

using Next = JsonReader::Next;

constexpr std::size_t initialCapacity = 18;

// `value` is null for the one member that is not a string.
struct Member {
    std::string_view name;
    const char* HandlerObject::*value;
    bool required;
};

// In the order in which the registry is written.
constexpr std::array<Member, 10> members{{
    {"id", &HandlerObject::id, true},
    {"path", &HandlerObject::path, true},
    {"clipath", &HandlerObject::clipath, false},
    {"phpini", &HandlerObject::phpini, true},
    {"version", &HandlerObject::version, true},
    {"displayname", &HandlerObject::displayname, true},
    {"type", &HandlerObject::typeName, true},
    {"system", nullptr, false},
    {"service", &HandlerObject::service, false},
    {"poold", &HandlerObject::poold, false},
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

// members.size() for a name that is none of them. The search begins at `expected`: in a file that we wrote it
// ends there.
std::size_t findMember(std::string_view name, std::size_t expected) {
    for (std::size_t tried = 0; tried < members.size(); ++tried) {
        const std::size_t member = (expected + tried) % members.size();
        if (members[member].name == name) {
            return member;
        }
    }
    return members.size();
}

bool readMember(JsonReader& reader, const Member& member, HandlerObject& handler) {
    if (member.value == nullptr) {
        return reader.readBoolean(handler.system);
    }
    std::string_view value;
    if (!reader.readString(value)) {
        return false;
    }
    handler.*member.value = value.data();
    return true;
}

} // namespace

RegistryDocument::RegistryDocument(char* text, std::size_t size)
    : reader_(text, size), handlers_(initialCapacity) {}

bool RegistryDocument::parse() {
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

bool RegistryDocument::readHandlers() {
    handlers_.shrink(0);
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

bool RegistryDocument::appendHandler() {
    try {
        handlers_.append();
    } catch (const std::bad_alloc&) {
        return reader_.fail(JsonErrorCode::outOfMemory);
    }
    return true;
}

bool RegistryDocument::readHandler() {
    HandlerObject& handler = handlers_.back();
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
