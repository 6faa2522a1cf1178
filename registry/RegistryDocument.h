// The document that the registry file holds, and the one shape of it that is accepted:
//
//   {"php":[
//   {
//   	"id":"php81",                        required
//   	"path":"/usr/bin/php-cgi8.1",        required
//   	"clipath":"/usr/bin/php8.1",         else empty
//   	"phpini":"/etc/php/8.1/cgi/php.ini", required
//   	"version":"8.1.2",                   required
//   	"displayname":"PHP%20%24version",    required, percent-encoded
//   	"type":"fpm",                        required
//   	"system":false,                      else false
//   	"service":"php8.1-fpm",              else empty; accepted for every type
//   	"poold":"/etc/php/8.1/fpm/pool.d"    else empty; accepted for every type
//   }
//   ]}
//
// White space and the order of members are free. A member given twice keeps the later value, a second "php"
// replaces the first. Members with other names may hold any value and are dropped. What follows the closing
// bracket of the document is not looked at.
#pragma once

#include <cstddef>
#include <memory_resource>
#include <vector>

#include "registry/JsonError.h"
#include "registry/JsonReader.h"

namespace quelm {

// One element of "php". The strings end with their first NUL byte and lie in the text that was read.
struct HandlerObject {
    const char* id = "";
    const char* displayname = "";
    const char* path = "";
    const char* clipath = "";
    const char* version = "";
    const char* phpini = "";
    const char* service = "";
    const char* poold = "";
    const char* type = "";
    bool system = false;
};

class RegistryDocument {
public:
    using Handlers = std::pmr::vector<HandlerObject>;

    // `text` as for JsonReader; it outlives the handlers. Makes room for 18 handlers; when that fails,
    // std::bad_alloc is thrown.
    explicit RegistryDocument(char* text);

    // Reads the whole document, once. False after the first violation, which error() then tells.
    bool parse();

    const Handlers& handlers() const { return handlers_; }
    const JsonError& error() const { return reader_.error(); }

private:
    bool readHandlers();
    bool readHandler();
    bool appendHandler();

    JsonReader reader_;
    Handlers handlers_;
};

} // namespace quelm
