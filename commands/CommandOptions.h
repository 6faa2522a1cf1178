// Parses the options of a command and runs its steps.
#pragma once

#include <functional>
#include <memory>
#include <string>

namespace quelm {

class CommandOptions {
public:
    explicit CommandOptions(const std::string& caption);
    CommandOptions(CommandOptions&&) noexcept;
    ~CommandOptions();

    // The options are printed in the order of these calls. All texts must outlive the object.
    void addText(const char* name, const char* help);
    void addRequiredText(const char* name, const char* help);
    void addFlag(const char* name, const char* help);
    // The switch that every changing command has; skipDirtyFlag returns its state.
    void addDirtyFlagSwitch();

    // Parses argv (argument 0 is the command word), then runs `steps`; returns 0. An option error, also one
    // thrown by the steps, is printed on standard error with the description and returns 1; every other
    // exception passes.
    int run(int argc, char** argv, const std::function<void()>& steps);

    bool given(const char* name) const;
    // Throws boost::bad_any_cast when the option was not given.
    std::string text(const char* name) const;
    bool skipDirtyFlag() const;

private:
    // Boost's headers are large, and no command needs them.
    struct Library;

    std::unique_ptr<Library> library_;
};

} // namespace quelm
