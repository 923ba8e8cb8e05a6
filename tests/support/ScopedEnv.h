#pragma once

// Sets (or, with a null value, removes) an environment variable for the life
// of the object, for tests that switch locales, settings files and folders.

#include <stdlib.h>

#include <optional>
#include <string>

namespace quillet::test {

class ScopedEnv {
public:
    ScopedEnv(const char* name, const char* value) : name_(name) {
        if (const char* old = getenv(name)) old_ = old;
        value ? setenv(name, value, 1) : unsetenv(name);
    }
    ~ScopedEnv() { old_ ? setenv(name_.c_str(), old_->c_str(), 1) : unsetenv(name_.c_str()); }
    ScopedEnv(const ScopedEnv&) = delete;
    ScopedEnv& operator=(const ScopedEnv&) = delete;

private:
    std::string name_;
    std::optional<std::string> old_;
};

}  // namespace quillet::test
