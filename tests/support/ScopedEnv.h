#pragma once

// Sets (or, with a null value, removes) an environment variable for the life
// of the object, for tests that switch locales, settings files and folders.

#include <stdlib.h>

#include <string>

namespace quillet::test {

class ScopedEnv {
public:
    ScopedEnv(const char* name, const char* value) : name_(name) {
        if (const char* old = getenv(name)) {
            old_ = old;
            hadOld_ = true;
        }
        if (value) {
            setenv(name, value, 1);
        } else {
            unsetenv(name);
        }
    }
    ~ScopedEnv() {
        if (hadOld_) {
            setenv(name_.c_str(), old_.c_str(), 1);
        } else {
            unsetenv(name_.c_str());
        }
    }
    ScopedEnv(const ScopedEnv&) = delete;
    ScopedEnv& operator=(const ScopedEnv&) = delete;

private:
    std::string name_;
    std::string old_;
    bool hadOld_ = false;
};

}  // namespace quillet::test
