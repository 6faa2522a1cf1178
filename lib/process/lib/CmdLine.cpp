#include "lib/process/lib/CmdLine.h"

#include <array>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string_view>

namespace quelm {

namespace {

enum class ByteClass : unsigned char { kept, escaped, newline };

constexpr std::array<ByteClass, 256> classes = [] {
    std::array<ByteClass, 256> table{};
    for (const char byte : std::string_view("\t \"#$&'()*;<>?[\\`|~")) {
        table[static_cast<unsigned char>(byte)] = ByteClass::escaped;
    }
    table['\n'] = ByteClass::newline;
    return table;
}();

void appendQuoted(std::string& text, std::string_view argument) {
    if (argument.empty()) {
        text += "''";
        return;
    }
    for (const char byte : argument) {
        const ByteClass kind = classes[static_cast<unsigned char>(byte)];
        if (kind == ByteClass::newline) {
            text += "'\n'";
            continue;
        }
        if (kind == ByteClass::escaped) {
            text += '\\';
        }
        text += byte;
    }
}

} // namespace

// Both constructors delegate first: the object is then constructed, so an exception runs the destructor.
ArgVector::ArgVector(std::initializer_list<std::string> arguments) : ArgVector() {
    for (const auto& argument : arguments) {
        add(argument);
    }
}

ArgVector::ArgVector(const ArgVector& other) : ArgVector() {
    for (std::size_t i = 0; i + 1 < other.pointers_.size(); ++i) {
        append(other.pointers_[i]);
    }
}

ArgVector& ArgVector::operator=(const ArgVector& other) {
    ArgVector copy(other);
    pointers_.swap(copy.pointers_);
    return *this;
}

ArgVector::~ArgVector() {
    for (char* pointer : pointers_) {
        std::free(pointer);
    }
}

void ArgVector::append(const char* argument) {
    std::unique_ptr<char, decltype(&std::free)> copy(::strdup(argument), &std::free);
    if (copy == nullptr) {
        throw std::bad_alloc();
    }
    // cppcheck-suppress danglingLifetime ; the release below is not seen
    pointers_.insert(pointers_.end() - 1, copy.get());
    (void)copy.release();
}

std::string shellText(const std::vector<char*>& arguments) {
    std::string text;
    bool first = true;
    for (const char* argument : arguments) {
        if (argument == nullptr) {
            break;
        }
        if (!first) {
            text += ' ';
        }
        first = false;
        appendQuoted(text, argument);
    }
    return text;
}

} // namespace quelm
