// The identifier is a name, not a protection, and has to come out the same on every host. So this file uses
// the digest functions that work without a provider: a host whose OpenSSL configuration admits no SHA-1 gets
// the same identifiers. They are deprecated since OpenSSL 3.0; asking for the older interface, in this file
// only, keeps the compiler quiet about that.
#define OPENSSL_API_COMPAT 10101

#include "registry/HandlerId.h"

#include <array>
#include <stdexcept>
#include <string_view>

#include <openssl/sha.h>

namespace quelm {

namespace {

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
    text.reserve(2 * digest.size());
    for (const unsigned char byte : digest) {
        text += digits[byte >> 4];
        text += digits[byte & 0x0fU];
    }
    return text;
}

} // namespace

std::string computeHandlerId(PhpHandler& handler) {
    const std::string text =
        handler.displayname + ' ' + handler.path + ' ' + handler.phpini + ' ' + formatHandlerType(handler);
    handler.id = toHex(sha1(text));
    return handler.id;
}

} // namespace quelm
