#include "tests/registry/Documents.h"

#include <algorithm>
#include <fstream>
#include <regex>
#include <stdexcept>

namespace quelm::test {

namespace {

std::string repeated(const std::string& text, const std::string& count) {
    std::string all;
    for (int left = std::stoi(count); left > 0; --left) {
        all += text;
    }
    return all;
}

std::string resolved(const std::string& line) {
    static const std::regex escape(R"(<([0-9A-F]{2})>|<([^>]*)\*(\d+)>|@\(([^)]*)\))");
    std::string text;
    auto rest = line.begin();
    for (std::sregex_iterator match(line.begin(), line.end(), escape), end; match != end; ++match) {
        text.append(rest, line.begin() + match->position());
        rest = line.begin() + match->position() + match->length();
        if ((*match)[1].matched) {
            text += static_cast<char>(std::stoi((*match)[1], nullptr, 16));
        } else if ((*match)[3].matched) {
            text += repeated((*match)[2], (*match)[3]);
        } else {
            text += R"({"id":")" + (*match)[4].str() +
                    R"(","path":"p","version":"v","displayname":"d","phpini":"i","type":"cgi"})";
        }
    }
    return text.append(rest, line.end());
}

Document parse(const std::string& line, std::size_t verdicts) {
    Document document;
    std::size_t begin = 0;
    const auto next = [&] {
        const std::size_t bar = line.find(" | ", begin);
        if (bar == std::string::npos) {
            throw std::runtime_error("not a document: " + line);
        }
        const std::string part = line.substr(begin, bar - begin);
        begin = bar + 3;
        return part;
    };
    document.name = next();
    for (; verdicts > 0; --verdicts) {
        document.verdicts.push_back(resolved(next()));
    }
    document.text = resolved(line.substr(begin));
    return document;
}

} // namespace

std::vector<Document> documentsOf(const std::string& file) {
    std::ifstream lines(std::string(TAMRIX_DOCUMENTS) + "/" + file, std::ios::binary);
    std::vector<Document> documents;
    for (std::string line; std::getline(lines, line);) {
        if (line.empty() || line.front() == '#') {
            continue;
        }
        if (line.starts_with("> ")) {
            documents.back().records.push_back(resolved(line.substr(2)));
        } else if (line.starts_with("! ")) {
            documents.back().errors += line.substr(2) + "\n";
        } else if (line.starts_with("|")) {
            documents.back().text += "\n" + resolved(line.substr(std::min<std::size_t>(2, line.size())));
        } else {
            documents.push_back(parse(line, file == "values.txt" ? 2 : 1));
        }
    }
    return documents;
}

} // namespace quelm::test
