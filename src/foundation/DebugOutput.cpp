#include "foundation/DebugOutput.h"

#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>

#include "foundation/Utf8.h"

namespace quillet {

namespace {

std::mutex& SinkMutex() {
    static std::mutex mutex;
    return mutex;
}

DebugSink& InstalledSink() {
    static DebugSink sink;
    return sink;
}

void PrintToStderr(const wchar_t* message) {
    const char* debug = std::getenv("QUILLET_DEBUG");
    if (!debug || !*debug) return;
    std::string text = utf8::Encode(message);
    std::fwrite(text.data(), 1, text.size(), stderr);
}

}  // namespace

void OutputDebugStringW(const wchar_t* message) {
    if (!message) return;
    DebugSink sink;
    {
        std::lock_guard<std::mutex> lock(SinkMutex());
        sink = InstalledSink();
    }
    // Called outside the lock, so that a sink may itself write debug output.
    if (sink) {
        sink(message);
    } else {
        PrintToStderr(message);
    }
}

DebugSink SetDebugOutputSink(DebugSink sink) {
    std::lock_guard<std::mutex> lock(SinkMutex());
    DebugSink previous = std::move(InstalledSink());
    InstalledSink() = std::move(sink);
    return previous;
}

}  // namespace quillet
