#include "registry/RegistryWriter.h"

#include <algorithm>
#include <array>
#include <sstream>
#include <stdexcept>

#include <boost/format.hpp>
#include <gtest/gtest.h>

#include "registry/PhpHandler.h"
#include "tests/registry/TestRegistry.h"

namespace quelm {

namespace {

using test::fpmHandler;
using test::handlerWithId;
using test::registryOf;

std::string table(const HandlerRegistry& registry) {
    std::ostringstream stream;
    writeHandlerTable(registry, stream);
    return stream.str();
}

using Row = std::array<std::string, 10>;

Row rowOf(const PhpHandler& handler) {
    return {handler.id,      expandedDisplayName(handler),
            handler.version, std::string(formatHandlerType(handler)),
            handler.path,    handler.clipath,
            handler.phpini,  handler.system ? "*" : "",
            handler.service, handler.poold};
}

std::string formatted(const std::string& text, const auto& values) {
    boost::format format(text);
    for (const auto& value : values) {
        format % value;
    }
    return format.str();
}

// The same table by a template made from the widths, in which data is never part of a template.
std::string tableByTemplate(const HandlerRegistry& registry) {
    const Row titles{"id:",      "display name:", "version:", "type:",    "cgi-bin:",
                     "cli-bin:", "php.ini:",      "system:",  "service:", "pool.d:"};
    std::array<std::size_t, 10> widths{3, 13, 8, 5, 8, 8, 8, 7, 8, 7};
    for (const PhpHandler& handler : registry) {
        const Row row = rowOf(handler);
        for (std::size_t column = 0; column < row.size(); ++column) {
            widths[column] = std::max(widths[column], row[column].size());
        }
    }
    const std::string row =
        formatted("%%1$%ds  %%2$%ds  %%3$%ds  %%4$%ds  %%5$%ds  %%6$%ds  %%7$%ds  %%8$%ds  "
                  "%%9$%ds  %%10$%ds\n",
                  widths);
    std::string text = formatted(row, titles);
    for (const PhpHandler& handler : registry) {
        text += formatted(row, rowOf(handler));
    }
    return text;
}

const std::string titleRow =
    "id:  display name:  version:  type:  cgi-bin:  cli-bin:  php.ini:  system:  service:  pool.d:\n";

} // namespace

TEST(HandlerTable, AnEmptyRegistryIsTheTitleRow) {
    EXPECT_EQ(table({}), titleRow);
}

// Nothing is stripped: the empty cells at the end of a row are blanks.
TEST(HandlerTable, ShortValuesAreRightAligned) {
    EXPECT_EQ(table(registryOf({handlerWithId("a")})),
              titleRow + "  a              d         v    cgi         p         c         i" +
                  std::string(28, ' ') + "\n");
}

TEST(HandlerTable, LongValuesWidenTheirColumns) {
    PhpHandler other = handlerWithId("x");
    other.type = PhpHandlerType::fastcgi;
    const std::string titles =
        "  id:      display name:  version:    type:             cgi-bin:         cli-bin:"
        "                  php.ini:  system:    service:                  pool.d:\n";
    const std::string first =
        "php81  PHP 8.1.2 (8.1.2)     8.1.2      fpm  /usr/bin/php-cgi8.1  /usr/bin/php8.1"
        "  /etc/php/8.1/fpm/php.ini        *  php8.1-fpm  /etc/php/8.1/fpm/pool.d\n";
    const std::string second =
        "    x                  d         v  fastcgi                    p                c"
        "                         i";
    EXPECT_EQ(table(registryOf({fpmHandler(), other})),
              titles + first + second + std::string(46, ' ') + "\n");
}

TEST(HandlerTable, ServiceAndPoolAreShownForEveryType) {
    PhpHandler handler = handlerWithId("a");
    handler.service = "a-long-service";
    handler.poold = "/pool";
    const std::string text = table(registryOf({handler}));
    EXPECT_NE(text.find("  system:        service:  pool.d:\n"), std::string::npos);
    EXPECT_NE(text.find("  a-long-service    /pool\n"), std::string::npos);
}

TEST(HandlerTable, WidthsCountTheExpandedName) {
    PhpHandler handler = handlerWithId("a");
    handler.displayname = "$version$version";
    handler.version = "7";
    EXPECT_EQ(table(registryOf({handler})).find(titleRow), 0U);
    handler.version = "8.1.2-long";
    EXPECT_NE(table(registryOf({handler})).find("  8.1.2-long8.1.2-long  8.1.2-long  "), std::string::npos);
}

TEST(HandlerTable, WidthsCountBytesNotLetters) {
    PhpHandler handler = handlerWithId("\xc3\xa9\xc3\xa9");
    EXPECT_EQ(table(registryOf({handler})).substr(0, 5), " id: ");
}

TEST(HandlerTable, ControlBytesAndQuotesArePrintedRaw) {
    PhpHandler handler = handlerWithId("a");
    handler.version = "8\t\"x\"";
    EXPECT_NE(table(registryOf({handler})).find("    8\t\"x\"    cgi"), std::string::npos);
}

TEST(HandlerTable, IsByteForByteTheTemplatesTable) {
    EXPECT_EQ(table({}), tableByTemplate({}));
    PhpHandler odd = fpmHandler();
    odd.id = "%1%";
    odd.displayname = "%";
    odd.version = std::string("a\0b", 3);
    odd.path = "\xff\xfe%%";
    odd.clipath = "caf\xc3\xa9 \xe2\x82\xac";
    odd.phpini = "%1$5s%|2$n|";
    odd.service = "line\nbreak";
    odd.poold = std::string(300, ' ');
    PhpHandler empty;
    PhpHandler wide = handlerWithId(std::string(70000, 'w'));
    const HandlerRegistry registry = registryOf({odd, empty, fpmHandler(), wide, handlerWithId("%%")});
    EXPECT_EQ(table(registry), tableByTemplate(registry));
}

TEST(HandlerTable, AnUnknownTypeThrowsBeforeAnythingIsWritten) {
    PhpHandler handler = handlerWithId("b");
    handler.type = static_cast<PhpHandlerType>(5);
    std::ostringstream stream;
    EXPECT_THROW(writeHandlerTable(registryOf({handlerWithId("a"), handler}), stream), std::runtime_error);
    EXPECT_EQ(stream.str(), "");
}

TEST(HandlerTable, AFailedStreamIsNoException) {
    std::ostringstream stream;
    stream.setstate(std::ios::badbit);
    EXPECT_NO_THROW(writeHandlerTable(registryOf({handlerWithId("a")}), stream));
}

} // namespace quelm
