// The first failure decides the result; what fails afterwards, while cleaning up, does not.
#pragma once

namespace genreg {

class FirstError {
public:
    // Takes the code in unless one is there already.
    void note(unsigned int code) noexcept {
        if (code_ == 0) {
            code_ = code;
        }
    }
    [[nodiscard]] unsigned int code() const noexcept { return code_; }
    [[nodiscard]] bool none() const noexcept { return code_ == 0; }

private:
    unsigned int code_ = 0;
};

}  // namespace genreg
