#include "registry/DisplayName.h"

#include <algorithm>
#include <climits>
#include <cstddef>
#include <memory>
#include <stdexcept>

#include <curl/curl.h>

namespace quelm {

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

void appendExpandedName(std::string& output, std::string_view name, std::string_view version) {
    constexpr std::string_view placeholder = "$version";
    std::size_t copied = 0;
    for (std::size_t found = name.find(placeholder); found != std::string_view::npos;
         found = name.find(placeholder, copied)) {
        output.append(name, copied, found - copied);
        output.append(version);
        copied = found + placeholder.size();
    }
    output.append(name, copied);
}

std::string expandedDisplayName(const PhpHandler& handler) {
    std::string expanded;
    appendExpandedName(expanded, handler.displayname, handler.version);
    return expanded;
}

std::string escapedDisplayName(const PhpHandler& handler) {
    const std::string& name = handler.displayname;
    // Also keeps the empty name away from libcurl, where length 0 means "measure it".
    if (std::all_of(name.begin(), name.end(), staysUnescaped)) {
        return name;
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
