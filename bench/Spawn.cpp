// spawn ROUNDS NAME COMMAND... -- NAME COMMAND... [-- NAME COMMAND...]
//
// Runs each command ROUNDS times and prints its median wall time, the ratio to the last command (median and
// quartiles over the rounds, so that a noisy moment counts for both sides) and its peak memory. The order
// changes from round to round: what ran just before leaves the caches as it likes. Standard output and
// standard error of the commands go to /dev/null.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

struct Command {
    std::string name;
    std::vector<char*> arguments;
    std::vector<double> seconds;
    long peakKilobytes = 0;
};

std::vector<Command> parse(char** words) {
    std::vector<Command> commands;
    while (*words != nullptr) {
        Command command;
        command.name = *words++;
        for (; *words != nullptr && std::string(*words) != "--"; ++words) {
            command.arguments.push_back(*words);
        }
        command.arguments.push_back(nullptr);
        words += *words != nullptr ? 1 : 0;
        commands.push_back(std::move(command));
    }
    return commands;
}

class Silence {
public:
    Silence() {
        posix_spawn_file_actions_init(&actions_);
        posix_spawn_file_actions_addopen(&actions_, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
        posix_spawn_file_actions_addopen(&actions_, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    }
    Silence(const Silence&) = delete;
    Silence& operator=(const Silence&) = delete;
    ~Silence() { posix_spawn_file_actions_destroy(&actions_); }
    const posix_spawn_file_actions_t* get() const { return &actions_; }

private:
    posix_spawn_file_actions_t actions_{};
};

void runOnce(Command& command, const Silence& silence) {
    const auto start = std::chrono::steady_clock::now();
    pid_t child = 0;
    if (posix_spawn(&child, command.arguments[0], silence.get(), nullptr, command.arguments.data(),
                    environ) != 0) {
        std::fprintf(stderr, "cannot run %s\n", command.arguments[0]);
        std::exit(1);
    }
    int status = 0;
    rusage usage{};
    wait4(child, &status, 0, &usage);
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    if (status != 0) {
        std::fprintf(stderr, "%s: wait status %d\n", command.name.c_str(), status);
        std::exit(1);
    }
    command.seconds.push_back(took.count());
    command.peakKilobytes = std::max(command.peakKilobytes, usage.ru_maxrss);
}

double quantile(std::vector<double> values, double part) {
    std::sort(values.begin(), values.end());
    return values[static_cast<std::size_t>(part * static_cast<double>(values.size() - 1))];
}

void print(const Command& command, const Command& yardstick) {
    std::vector<double> ratios;
    for (std::size_t round = 0; round < command.seconds.size(); ++round) {
        ratios.push_back(command.seconds[round] / yardstick.seconds[round]);
    }
    std::printf("%-28s %10.3f ms   ratio %6.3f (%5.3f to %5.3f)   peak %7.1f MB\n", command.name.c_str(),
                quantile(command.seconds, 0.5) * 1e3, quantile(ratios, 0.5), quantile(ratios, 0.25),
                quantile(ratios, 0.75), static_cast<double>(command.peakKilobytes) / 1024);
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 4) {
        std::fprintf(stderr, "usage: spawn ROUNDS NAME COMMAND... -- NAME COMMAND...\n");
        return 2;
    }
    std::vector<Command> commands = parse(argv + 2);
    const Silence silence;
    std::vector<std::size_t> order(commands.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::minstd_rand random; // the same orders in each run
    for (int round = std::atoi(argv[1]); round > 0; --round) {
        std::shuffle(order.begin(), order.end(), random);
        for (const std::size_t next : order) {
            runOnce(commands[next], silence);
        }
    }
    for (const Command& command : commands) {
        print(command, commands.back());
    }
    return 0;
}
