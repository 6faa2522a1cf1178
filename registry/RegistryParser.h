// The strict parser of the registry file, and the one shape of document that it accepts:
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
// bracket of the document is ignored.
#pragma once

#include <cstddef>

#include "registry/JsonError.h"
#include "registry/JsonReader.h"
#include "registry/PhpHandler.h"

namespace quelm {

class RegistryParser {
public:
    // `text` and `size` as for JsonReader; the text outlives the handlers. Throws std::bad_alloc.
    RegistryParser(char* text, std::size_t size);

    // Reads the whole document, once. False after the first violation, which error() then describes.
    bool parse();

    // In file order, as written: display names are encoded, types unchecked, ids possibly repeated.
    HandlerViews& handlers() { return handlers_; }
    const JsonError& error() const { return reader_.error(); }

private:
    bool readHandlers();
    bool readHandler();
    bool appendHandler();

    JsonReader reader_;
    HandlerViews handlers_;
};

} // namespace quelm
