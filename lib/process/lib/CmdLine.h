// A program and its arguments: the vector that exec takes, and a text for people.
#pragma once

#include <initializer_list>
#include <string>
#include <vector>

namespace quelm {

// Owns a strdup copy of each argument; a null pointer always stands at the end. Copies are deep; there is no
// move, because a moved-from vector would lack its null pointer. An argument is cut at a NUL byte. Throws
// std::bad_alloc.
class ArgVector {
public:
    ArgVector() : pointers_{nullptr} {}
    ArgVector(std::initializer_list<std::string> arguments);
    ArgVector(const ArgVector& other);
    ArgVector& operator=(const ArgVector& other);
    ~ArgVector();

    // Inserts before the null pointer. Invalidates data() but not the strings.
    void add(const std::string& argument) { append(argument.c_str()); }

    const std::vector<char*>& get() const { return pointers_; }
    char* const* data() const { return pointers_.data(); }

private:
    void append(const char* argument);

    std::vector<char*> pointers_;
};

class CmdLine {
public:
    // The path becomes the first argument too.
    explicit CmdLine(const std::string& programPath) : programPath_(programPath), arguments_{programPath} {}

    const std::string& programPath() const { return programPath_; }
    const ArgVector& arguments() const { return arguments_; }

protected:
    std::string programPath_;
    ArgVector arguments_;
};

// The arguments up to the null pointer, joined by single spaces. An empty argument reads ''; a newline stands
// between apostrophes; TAB, space and "#$&'()*;<>?[\`|~ get a backslash; every other byte is kept, also those
// that a shell would treat (such as '!' or '{'): readers of the hook log expect them bare.
std::string shellText(const std::vector<char*>& arguments);

} // namespace quelm
