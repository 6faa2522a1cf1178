// The one frame in which every changing command reads its options.
#pragma once

#include <functional>
#include <string>

#include <boost/program_options/options_description.hpp>
#include <boost/program_options/variables_map.hpp>

namespace quelm {

class CommandOptions {
public:
    explicit CommandOptions(const std::string& caption);

    // The options are printed in the order of these calls. All texts must outlive the object.
    void addText(const char* name, const char* help);
    void addRequiredText(const char* name, const char* help);
    void addFlag(const char* name, const char* help);
    // The switch that every changing command has; skipDirtyFlag tells its state.
    void addDirtyFlagSwitch();

    // Parses argv (argument 0 is the command word), then runs `steps`; returns 0. An option error, also one
    // out of the steps, is printed with the description on standard error and gives 1; every other exception
    // passes.
    int run(int argc, char** argv, const std::function<void()>& steps);

    bool given(const char* name) const;
    // Throws boost::bad_any_cast when the option was not given.
    std::string text(const char* name) const;
    bool skipDirtyFlag() const;

private:
    void parse(int argc, char** argv);

    boost::program_options::options_description description_;
    boost::program_options::variables_map values_;
};

} // namespace quelm
