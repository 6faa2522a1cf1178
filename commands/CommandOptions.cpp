#include "commands/CommandOptions.h"

#include <algorithm>
#include <iostream>
#include <map>

#include <boost/program_options/errors.hpp>
#include <boost/program_options/options_description.hpp>
#include <boost/program_options/parsers.hpp>
#include <boost/program_options/value_semantic.hpp>
#include <boost/program_options/variables_map.hpp>

namespace quelm {

namespace po = boost::program_options;

namespace {

constexpr const char* dirtyFlagSwitch = "no-set-dirty-flag";

// Only a derived class can read the words of a message.
struct MessageWords : po::error_with_option_name {
    static std::map<std::string, std::string> of(const po::error_with_option_name& failure) {
        auto words = failure.*&MessageWords::m_substitutions;
        words["canonical_option"] = failure.get_option_name();
        return words;
    }
};

// Replaces the placeholder until none is left. False when that never ends; a text that has grown to megabytes
// counts as such, because the time is quadratic in its length.
bool replaceAll(std::string& text, const std::string& placeholder, const std::string& word) {
    constexpr std::size_t longestText = std::size_t{1} << 24;
    for (std::size_t left = text.size(); left > 0 && text.size() < longestText; --left) {
        const std::size_t found = text.find(placeholder);
        if (found == std::string::npos) {
            return true;
        }
        text.replace(found, placeholder.size(), word);
    }
    return false;
}

// The library builds its texts by replacing placeholders such as "%option%" until none is left, one after the
// other in this order. A user's word that contains a placeholder can make it loop forever.
bool libraryFinishes(const po::error_with_option_name& failure) {
    const auto words = MessageWords::of(failure);
    std::string text = failure.m_error_template;
    return std::all_of(words.begin(), words.end(), [&text](const auto& word) {
        return replaceAll(text, '%' + word.first + '%', word.second);
    });
}

// The library's own text where its replacing ends; otherwise the same message with the user's word as typed.
std::string textOf(po::error_with_option_name& failure) {
    if (libraryFinishes(failure)) {
        return failure.what();
    }
    const std::string word = failure.get_option_name();
    const std::string placeholder = "\1";
    failure.set_option_name("");
    failure.set_original_token(placeholder);
    std::string text = failure.what();
    return text.replace(text.find(placeholder), placeholder.size(), word);
}

int reportOptionError(const std::string& text, const po::options_description& description) {
    std::cerr << "[Error] " << text << "\n\n" << description << std::endl;
    return 1;
}

} // namespace

struct CommandOptions::Library {
    po::options_description description;
    po::variables_map values;
};

CommandOptions::CommandOptions(const std::string& caption)
    : library_(new Library{po::options_description(caption), {}}) {}
CommandOptions::CommandOptions(CommandOptions&&) noexcept = default; // LCOV_EXCL_LINE always elided
CommandOptions::~CommandOptions() = default;

void CommandOptions::addText(const char* name, const char* help) {
    library_->description.add_options()(name, po::value<std::string>(), help);
}

void CommandOptions::addRequiredText(const char* name, const char* help) {
    library_->description.add_options()(name, po::value<std::string>()->required(), help);
}

void CommandOptions::addFlag(const char* name, const char* help) {
    library_->description.add_options()(name, help);
}

void CommandOptions::addDirtyFlagSwitch() {
    library_->description.add_options()(dirtyFlagSwitch, po::bool_switch(),
                                        "do not call depotctl --set-dirty-flag");
}

int CommandOptions::run(int argc, char** argv, const std::function<void()>& steps) {
    const po::options_description& description = library_->description;
    try {
        po::store(po::parse_command_line(argc, argv, description), library_->values);
        po::notify(library_->values);
        steps();
        return 0;
    } catch (po::error_with_option_name& failure) {
        return reportOptionError(textOf(failure), description);
    } catch (const po::error& failure) {
        return reportOptionError(failure.what(), description);
    }
}

bool CommandOptions::given(const char* name) const {
    return library_->values.count(name) != 0;
}

std::string CommandOptions::text(const char* name) const {
    return library_->values[name].as<std::string>();
}

bool CommandOptions::skipDirtyFlag() const {
    return library_->values[dirtyFlagSwitch].as<bool>();
}

} // namespace quelm
