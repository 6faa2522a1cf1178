// The owner of one descriptor.
#pragma once

namespace quelm {

// Move-only; -1 stands for "none". Closing keeps errno: after a run its value is a result.
class UniqueFd {
public:
    UniqueFd() = default;
    explicit UniqueFd(int descriptor) : descriptor_(descriptor) {}
    UniqueFd(UniqueFd&& other) noexcept : descriptor_(other.release()) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept;
    ~UniqueFd() { close(); }

    int get() const { return descriptor_; }
    bool isOpen() const { return descriptor_ != -1; }

    // Gives up the ownership without closing.
    int release();

    // Closes now; nothing happens when there is none.
    void close();

private:
    int descriptor_ = -1;
};

} // namespace quelm
