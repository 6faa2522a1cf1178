// An identifier is a name, not a protection, and must be the same on every host. The digest functions used
// here need no provider, so they also work where OpenSSL's configuration disables SHA-1. They are deprecated
// since OpenSSL 3.0; the macro selects the older interface, without warnings.
#define OPENSSL_API_COMPAT 10101

#include "registry/PhpHandler.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstddef>
#include <memory>
#include <stdexcept>
#include <string>

#include <curl/curl.h>
#include <openssl/sha.h>

#include "base/QuelmUtilException.h"

namespace quelm {

namespace {

// In the order of PhpHandlerType.
constexpr std::array<std::string_view, 4> typeNames{"module", "cgi", "fastcgi", "fpm"};

// The blank before the colon is deliberate: the panel compares this text.
constexpr const char* unknownType = "Unknown php handler type : ";

using Digest = std::array<unsigned char, SHA_DIGEST_LENGTH>;

Digest sha1(std::string_view text) {
    SHA_CTX context;
    Digest digest;
    if (SHA1_Init(&context) != 1 || SHA1_Update(&context, text.data(), text.size()) != 1 ||
        SHA1_Final(digest.data(), &context) != 1) {
        throw std::runtime_error("Unable to compute php handler id");
    }
    return digest;
}

std::string toHex(const Digest& digest) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    for (const unsigned char byte : digest) {
        text += digits[byte >> 4];
        text += digits[byte & 0x0fU];
    }
    return text;
}

} // namespace

PhpHandlerType parseHandlerType(std::string_view text) {
    for (std::uint32_t value = 0; value < typeNames.size(); ++value) {
        if (typeNames[value] == text) {
            return static_cast<PhpHandlerType>(value);
        }
    }
    throw QuelmUtilException(unknownType + std::string(text));
}

std::string_view formatHandlerType(const PhpHandler& handler) {
    const auto value = static_cast<std::uint32_t>(handler.type);
    if (value >= typeNames.size()) {
        throw std::runtime_error(unknownType + std::to_string(value));
    }
    return typeNames[value];
}

bool isClassicTypeName(std::string_view text) {
    return text == "module" || text == "cgi" || text == "fastcgi";
}

std::string computeHandlerId(PhpHandler& handler) {
    std::string text = handler.displayname + ' ' + handler.path + ' ' + handler.phpini + ' ';
    text += formatHandlerType(handler);
    handler.id = toHex(sha1(text));
    return handler.id;
}

HandlerView::HandlerView(const PhpHandler& handler)
    : id(handler.id), displayname(handler.displayname), path(handler.path), clipath(handler.clipath),
      version(handler.version), phpini(handler.phpini), type(formatHandlerType(handler)),
      service(handler.service), poold(handler.poold), system(handler.system) {}

PhpHandler HandlerView::record() const {
    return {.id = std::string(id),
            .displayname = std::string(displayname),
            .path = std::string(path),
            .clipath = std::string(clipath),
            .version = std::string(version),
            .phpini = std::string(phpini),
            .service = std::string(service),
            .poold = std::string(poold),
            .type = parseHandlerType(type),
            .system = system};
}

namespace {

struct CurlFree {
    void operator()(char* text) const { curl_free(text); }
};
using CurlText = std::unique_ptr<char, CurlFree>;

bool staysUnescaped(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
           c == '.' || c == '_' || c == '~';
}

// libcurl takes lengths as int.
int curlLength(std::string_view text) {
    if (text.size() > INT_MAX) {
        throw std::runtime_error("Display name is too long");
    }
    return static_cast<int>(text.size());
}

void requireResult(const CurlText& text) {
    if (text == nullptr) {
        throw std::runtime_error("Unable to convert display name");
    }
}

} // namespace

std::string expandedDisplayName(const HandlerView& handler) {
    constexpr std::string_view placeholder = "$version";
    const std::string_view name = handler.displayname;
    std::string expanded;
    std::size_t copied = 0;
    for (std::size_t found = name.find(placeholder); found != std::string_view::npos;
         found = name.find(placeholder, copied)) {
        expanded.append(name, copied, found - copied).append(handler.version);
        copied = found + placeholder.size();
    }
    return expanded.append(name, copied);
}

std::string escapedDisplayName(const HandlerView& handler) {
    const std::string_view name = handler.displayname;
    // Also keeps the empty name away from libcurl, where length 0 means "measure it".
    if (std::all_of(name.begin(), name.end(), staysUnescaped)) {
        return std::string(name);
    }
    const CurlText escaped(curl_easy_escape(nullptr, name.data(), curlLength(name)));
    requireResult(escaped);
    return escaped.get();
}

std::string_view unescapeDisplayName(std::span<char> text) {
    const std::string_view escaped(text.data(), text.size());
    if (escaped.find('%') == std::string_view::npos) {
        return escaped;
    }
    int length = 0;
    const CurlText name(curl_easy_unescape(nullptr, text.data(), curlLength(escaped), &length));
    requireResult(name);
    // Three bytes become one: there is room.
    const auto size = static_cast<std::size_t>(length);
    std::copy_n(name.get(), size, text.data());
    return escaped.substr(0, size);
}

} // namespace quelm
