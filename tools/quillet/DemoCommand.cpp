// quillet demo [--keep]: makes a sample data set in a temporary folder with the
// library and walks through what Quillet does. Each command group adds its own
// steps; they run in order.

#include <unistd.h>

#include <cstdlib>
#include <iostream>

#include "Common.h"

namespace quillet::tool {

namespace {

std::filesystem::path MakeDemoFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "quillet-demo-XXXXXX").string();
    if (!mkdtemp(pattern.data())) throw Failure("cannot create a temporary folder for the demo");
    return pattern;
}

void RunDemo(bool keep) {
    auto folder = MakeDemoFolder();
    std::cout << "Quillet demo in " << folder.string() << "\n";
    try {
        for (const auto& step : DemoSteps()) {
            std::cout << "\n== " << step.title << "\n";
            step.run(folder);
        }
    } catch (...) {
        if (!keep) std::filesystem::remove_all(folder);
        throw;
    }
    if (keep) {
        std::cout << "\nThe files are kept in " << folder.string() << "\n";
    } else {
        std::filesystem::remove_all(folder);
    }
}

void Install(CLI::App& app) {
    auto* cmd = app.add_subcommand("demo", "Make a sample data set and show what Quillet does");
    auto keep = std::make_shared<bool>(false);
    cmd->add_flag("--keep", *keep, "Keep the sample files");
    cmd->callback([keep] { RunDemo(*keep); });
}

}  // namespace

QUILLET_TOOL_REGISTER([] { RegisterGroup("demo", Install); });

}  // namespace quillet::tool
