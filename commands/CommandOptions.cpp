#include "commands/CommandOptions.h"

#include <iostream>

#include <boost/program_options/errors.hpp>
#include <boost/program_options/parsers.hpp>
#include <boost/program_options/value_semantic.hpp>

namespace quelm {

namespace po = boost::program_options;

namespace {

constexpr const char* dirtyFlagSwitch = "no-set-dirty-flag";

// The library builds its texts by replacing placeholders such as "%option%" until none is left, without end
// when the user's own word holds one. Such a word is put in only after the library has finished.
std::string textOf(po::error_with_option_name& failure) {
    const std::string word = failure.get_option_name();
    if (word.find('%') == std::string::npos) {
        return failure.what();
    }
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

CommandOptions::CommandOptions(const std::string& caption) : description_(caption) {}

void CommandOptions::addText(const char* name, const char* help) {
    description_.add_options()(name, po::value<std::string>(), help);
}

void CommandOptions::addRequiredText(const char* name, const char* help) {
    description_.add_options()(name, po::value<std::string>()->required(), help);
}

void CommandOptions::addFlag(const char* name, const char* help) {
    description_.add_options()(name, help);
}

void CommandOptions::addDirtyFlagSwitch() {
    description_.add_options()(dirtyFlagSwitch, po::bool_switch(), "do not call depotctl --set-dirty-flag");
}

int CommandOptions::run(int argc, char** argv, const std::function<void()>& steps) {
    try {
        parse(argc, argv);
        steps();
        return 0;
    } catch (po::error_with_option_name& failure) {
        return reportOptionError(textOf(failure), description_);
    } catch (const po::error& failure) {
        return reportOptionError(failure.what(), description_);
    }
}

void CommandOptions::parse(int argc, char** argv) {
    po::store(po::parse_command_line(argc, argv, description_), values_);
    po::notify(values_);
}

bool CommandOptions::given(const char* name) const {
    return values_.count(name) != 0;
}

std::string CommandOptions::text(const char* name) const {
    return values_[name].as<std::string>();
}

bool CommandOptions::skipDirtyFlag() const {
    return values_[dirtyFlagSwitch].as<bool>();
}

} // namespace quelm
