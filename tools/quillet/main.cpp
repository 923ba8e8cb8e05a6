// quillet: the command-line tool over the library.
//   quillet GROUP COMMAND [options]
// Errors print one line on stderr and exit 1; usage errors exit 2.

#include <cstdio>
#include <exception>
#include <string>

#include "Registry.h"

namespace {

// "quillet dbf" for the dbf group.
std::string CommandName(const CLI::App* app) {
    std::string name = app->get_name();
    for (app = app->get_parent(); app; app = app->get_parent()) name = app->get_name() + " " + name;
    return name;
}

// CLI11 reports a word that names no command of a group as a missing
// command; say which word it was instead.
std::string UnknownCommand(const CLI::App& app) {
    const CLI::App* group = &app;
    for (auto chosen = group->get_subcommands(); !chosen.empty();
         chosen = group->get_subcommands()) {
        group = chosen.front();
    }
    for (const CLI::App* level = group; level; level = level->get_parent()) {
        auto left = level->remaining();
        if (!left.empty() && !left.front().starts_with("-")) {
            return "unknown command '" + left.front() + "' for '" + CommandName(group) +
                   "'; see '" + CommandName(group) + " --help'";
        }
    }
    return "";
}

}  // namespace

int main(int argc, char** argv) {
    using namespace quillet::tool;
    CLI::App app{"Quillet: direct access to file-based geographic data stores", "quillet"};
    app.set_version_flag("--version", "quillet " QUILLET_VERSION);
    app.require_subcommand(1);
    InstallGroups(app);
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& e) {
        return app.exit(e);
    } catch (const CLI::RequiredError& e) {
        std::string unknown = UnknownCommand(app);
        if (unknown.empty()) return app.exit(e), 2;
        std::fprintf(stderr, "quillet: %s\n", unknown.c_str());
        return 2;
    } catch (const CLI::ParseError& e) {
        app.exit(e);
        return 2;
    } catch (const UsageError& e) {
        std::fprintf(stderr, "quillet: %s\n", e.what());
        return 2;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "quillet: %s\n", e.what());
        return 1;
    }
    return 0;
}
