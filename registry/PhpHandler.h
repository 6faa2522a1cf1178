// One registered PHP interpreter: the record that the registry, the commands and the hook scripts share, a
// view of its texts for the parser and the writers, and what is derived from them.
#pragma once

#include <cstdint>
#include <deque>
#include <span>
#include <string>
#include <string_view>

namespace quelm {

// How the web server runs the interpreter.
enum class PhpHandlerType : std::uint32_t { module, cgi, fastcgi, fpm };

struct PhpHandler {
    std::string id;          // unique in the registry, compared byte by byte
    std::string displayname; // may contain the placeholder "$version"
    std::string path;        // php-cgi
    std::string clipath;     // php-cli; may be empty
    std::string version;
    std::string phpini;
    std::string service; // of type fpm only; may be empty
    std::string poold;   // of type fpm only; may be empty
    PhpHandlerType type = PhpHandlerType::module;
    bool system = false; // described by an installed package, not registered by hand
};

// The type for exactly "module", "cgi", "fastcgi" or "fpm". Throws QuelmUtilException for any other text.
PhpHandlerType parseHandlerType(std::string_view text);

// The text of the handler's type. Throws std::runtime_error for a value that is none of the four; no input
// leads there.
std::string_view formatHandlerType(const PhpHandler& handler);

// True for the types that are older than FPM: "module", "cgi" and "fastcgi".
bool isClassicTypeName(std::string_view text);

// Computes the identifier of a handler without one, stores it in the handler and returns it: the SHA-1
// digest, as 40 lower-case hexadecimal digits, of the display name as stored, the php-cgi path, the php.ini
// path and the type's text, joined by single blanks. Throws std::runtime_error when the digest cannot be
// computed or the type is none of the four; the handler is unchanged then.
std::string computeHandlerId(PhpHandler& handler);

// The texts belong to the file's text or to a record, which must outlive the view.
struct HandlerView {
    std::string_view id = "";
    std::string_view displayname = "";
    std::string_view path = "";
    std::string_view clipath = "";
    std::string_view version = "";
    std::string_view phpini = "";
    std::string_view type = "";
    std::string_view service = "";
    std::string_view poold = "";
    bool system = false;

    HandlerView() = default;

    // Implicit, so that functions on the texts of a handler take a record too. Throws std::runtime_error for
    // a record whose type is none of the four.
    // cppcheck-suppress noExplicitConstructor
    HandlerView(const PhpHandler& handler);

    // A record of its own. Throws QuelmUtilException for an unknown type.
    PhpHandler record() const;
};

// A deque does not move its elements when it grows: --list-json of 100,000 handlers takes 10 % less time.
using HandlerViews = std::deque<HandlerView>;

// The display name with every "$version" replaced by the version. Inserted text is not searched again.
std::string expandedDisplayName(const HandlerView& handler);

// The display name percent-encoded: every byte but ASCII letters, digits and "-._~" becomes "%" and two
// upper-case hexadecimal digits. Throws std::runtime_error when libcurl cannot encode it.
std::string escapedDisplayName(const HandlerView& handler);

// Decodes in place what escapedDisplayName encodes and returns the decoded part of `text`; "%00" gives a NUL
// byte, a "%" without two hexadecimal digits stays as it is. Throws std::runtime_error when libcurl cannot
// decode it; the text is unchanged then.
std::string_view unescapeDisplayName(std::span<char> text);

} // namespace quelm
