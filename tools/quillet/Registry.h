#pragma once

// How the command groups of the tool find each other. Each source file of the
// tool registers what it offers at start-up (a command group, a probe that
// `quillet info` tries on a file's first bytes, a step of `quillet demo`), so
// that adding a group never touches another group's file.

#include <cstdint>
#include <filesystem>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

namespace quillet::tool {

using Json = nlohmann::ordered_json;

// A command failed: main prints "quillet: <message>" on stderr and exits 1.
// Messages name the file and the problem.
struct Failure : std::runtime_error {
    using std::runtime_error::runtime_error;
};
// The arguments were wrong: main prints the message and exits 2.
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// A command group adds its subcommands (with their callbacks) to the app.
using GroupInstaller = std::function<void(CLI::App& app)>;
void RegisterGroup(std::string name, GroupInstaller install);
void InstallGroups(CLI::App& app);

// A probe of `quillet info`: given the path and up to the first 512 bytes of
// the file, returns true and fills `out` (kind, then header fields) when it
// recognises the file. Probes are tried by ascending priority.
struct InfoProbe {
    int priority;
    std::string name;
    std::function<bool(const std::filesystem::path& path, std::span<const unsigned char> head,
                       Json& out)>
        probe;
};
void RegisterInfoProbe(InfoProbe probe);
const std::vector<InfoProbe>& InfoProbes();

// A step of `quillet demo`: runs in the demo's temporary folder and prints
// what it shows. Steps run by ascending order.
struct DemoStep {
    int order;
    std::string title;
    std::function<void(const std::filesystem::path& folder)> run;
};
void RegisterDemoStep(DemoStep step);
const std::vector<DemoStep>& DemoSteps();

}  // namespace quillet::tool

// Registers at static-initialisation time: QUILLET_TOOL_REGISTER(Fn) runs
// Fn() once before main.
#define QUILLET_TOOL_CONCAT2(a, b) a##b
#define QUILLET_TOOL_CONCAT(a, b) QUILLET_TOOL_CONCAT2(a, b)
#define QUILLET_TOOL_REGISTER(fn) \
    static const bool QUILLET_TOOL_CONCAT(registered_, __LINE__) = ((fn)(), true)
