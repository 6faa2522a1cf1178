// The cheapest interpreter there can be: statically linked, it prints one banner line, or with --flood one
// MiB on each stream, and ends.
#include <array>
#include <cstring>

#include <unistd.h>

namespace {

int flood() {
    static std::array<char, 4096> block;
    block.fill('x');
    for (int written = 0; written < 256; ++written) {
        if (::write(STDOUT_FILENO, block.data(), block.size()) < 0 ||
            ::write(STDERR_FILENO, block.data(), block.size()) < 0) {
            return 1;
        }
    }
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    if (argc > 1 && std::strcmp(argv[1], "--flood") == 0) {
        return flood();
    }
    constexpr char banner[] = "PHP 8.2.7 (cgi-fcgi)\n";
    return ::write(STDOUT_FILENO, banner, sizeof banner - 1) > 0 ? 0 : 1;
}
