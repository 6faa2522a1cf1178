// The argument vector of a child, in the form that the exec family takes.
#pragma once

#include <initializer_list>
#include <string>
#include <vector>

namespace quelm {

// Owns a strdup copy of each argument; one null pointer always stands at the end. Copies are deep; there is
// no move, because a moved-from vector would lack its null pointer. An argument is cut at a NUL byte.
// Throws std::bad_alloc.
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

} // namespace quelm
